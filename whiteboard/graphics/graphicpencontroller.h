#pragma once

#include "graphics/graphiccontroller.h"

namespace whiteboard {

// Corner handles of a freehand stroke: uniform scaling about the opposite
// corner, a frame that follows the raster cache's offset, and the hit path
// rebuilt only once the drag ends.
class GraphicPenController : public GraphicController
{
    Q_OBJECT

public:
    GraphicPenController(GraphicScene* scene, GraphicItem* item);

    void paint(QPainter* painter) override;
    void onControlPointPress(int type, QMouseEvent* event) override;
    void onControlPointMove(int type, QMouseEvent* event) override;
    void onControlPointRelease(int type, QMouseEvent* event) override;

private:
    // Kept for symmetry with the polyline's controller; no drag reads it.
    QRectF m_pressRect;
};

} // namespace whiteboard
