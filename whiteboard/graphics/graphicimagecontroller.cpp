#include "graphics/graphicimagecontroller.h"

#include "graphics/graphicimage.h"

namespace whiteboard {

GraphicImageController::GraphicImageController(GraphicScene* scene, GraphicItem* item)
    : GraphicFrameController(scene, item, GraphicImage::staticMetaObject)
{
}

void GraphicImageController::paint(QPainter* painter)
{
    paintFrame(painter, m_item->shape().boundingRect());
    GraphicController::paint(painter);
}

} // namespace whiteboard
