#include "graphics/graphiceraser.h"

namespace whiteboard {

GraphicEraser::GraphicEraser(GraphicScene* scene, GraphicItem* parent)
    : AbstractGraphicShapeItem(scene, parent)
{
}

void GraphicEraser::paint(QPainter*, const QRectF*) { }

} // namespace whiteboard
