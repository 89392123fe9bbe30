#pragma once

#include "graphics/graphiccontroller.h"

#include <QPainterPath>

namespace whiteboard {

// Corner handles of a polyline. Its many vertices cannot follow a corner, so
// a drag scales the whole path uniformly about the opposite corner.
class GraphicLineSegmentController : public GraphicController
{
    Q_OBJECT

public:
    GraphicLineSegmentController(GraphicScene* scene, GraphicItem* item);

    // Scales `path` by the width that the dragged corner `type` at `pos` gives
    // its bounds, keeping the opposite corner in place. False for a type that
    // is not a corner. Shared with the pen stroke's controller.
    static bool scaleFromCorner(QPainterPath& path, int type, const QPointF& pos);

    void paint(QPainter* painter) override;
    void onControlPointPress(int type, QMouseEvent* event) override;
    void onControlPointMove(int type, QMouseEvent* event) override;

private:
    QRectF m_pressRect;
};

} // namespace whiteboard
