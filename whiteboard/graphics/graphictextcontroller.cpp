#include "graphics/graphictextcontroller.h"

#include "graphics/graphictextitem.h"
#include "scene/graphicscene.h"

#include <QPainter>

namespace whiteboard {

GraphicTextController::GraphicTextController(GraphicScene* scene, GraphicItem* item)
    : GraphicController(scene, item)
{
    setControlPoints({ GraphicControlPoint(GraphicDefine::GCP_SizeTopLeft),
                       GraphicControlPoint(GraphicDefine::GCP_SizeTopRight),
                       GraphicControlPoint(GraphicDefine::GCP_SizeBottomRight),
                       GraphicControlPoint(GraphicDefine::GCP_SizeBottomLeft) });
}

void GraphicTextController::paint(QPainter* painter)
{
    if (!m_item->visible())
        return;
    paintFrame(painter, m_item->shape().boundingRect());
    GraphicController::paint(painter);
}

void GraphicTextController::onControlPointPress(int, QMouseEvent*)
{
    auto* text = qobject_cast<GraphicTextItem*>(m_item);
    if (!text)
        return;
    m_pressRect = text->outlinePath().boundingRect();
}

void GraphicTextController::onControlPointMove(int type, QMouseEvent* event)
{
    auto* text = qobject_cast<GraphicTextItem*>(m_item);
    if (!text)
        return;
    const QPointF p = eventPos(event);
    QRectF r = m_pressRect;
    switch (type) {
    case GraphicDefine::GCP_SizeTopLeft:
        r.setTopLeft(p);
        break;
    case GraphicDefine::GCP_SizeTopRight:
        r.setTopRight(p);
        break;
    case GraphicDefine::GCP_SizeBottomLeft:
        r.setBottomLeft(p);
        break;
    case GraphicDefine::GCP_SizeBottomRight:
        r.setBottomRight(p);
        break;
    default:
        break;
    }
    // Normalising lets a corner pass the opposite one without a special case.
    QPainterPath outline;
    outline.addRect(r.normalized());
    text->setOutlinePath(outline);
    text->setBoundary(outline.boundingRect());
    QPainterPath dirty = text->hitPath();
    text->rebuildHitPath();
    dirty.addPath(text->hitPath());
    // The type size follows the frame's height; its width has no say.
    QFont font = text->font();
    font.setPixelSize(int(text->height() * 0.8));
    text->setFont(font);
    m_scene->updateLayer(GraphicScene::ItemLayer, dirty);
}

} // namespace whiteboard
