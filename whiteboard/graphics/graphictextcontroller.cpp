#include "graphics/graphictextcontroller.h"

#include "graphics/graphictextitem.h"

namespace whiteboard {

GraphicTextController::GraphicTextController(GraphicScene* scene, GraphicItem* item)
    : GraphicFrameController(scene, item, GraphicTextItem::staticMetaObject)
{
}

void GraphicTextController::paint(QPainter* painter)
{
    if (!m_item->visible())
        return;
    paintFrame(painter, m_item->shape().boundingRect());
    GraphicController::paint(painter);
}

void GraphicTextController::frameResized(AbstractGraphicShapeItem* item)
{
    // Only text items get here: the base serves no other class.
    auto* text = static_cast<GraphicTextItem*>(item);
    // The type size follows the frame's height; its width has no say.
    QFont font = text->font();
    font.setPixelSize(int(text->height() * 0.8));
    text->setFont(font);
}

} // namespace whiteboard
