#pragma once

#include "graphics/graphiccontroller.h"

namespace whiteboard {

// The two ends of a straight line, each dragged on its own.
class GraphicLineController : public GraphicController
{
    Q_OBJECT

public:
    enum PointType {
        StartPoint = GraphicDefine::GCP_Custom + 1,
        EndPoint = GraphicDefine::GCP_Custom + 2
    };

    GraphicLineController(GraphicScene* scene, GraphicItem* item);

    QPointF controlPointPosition(int type) override;
    void onControlPointMove(int type, QMouseEvent* event) override;
};

} // namespace whiteboard
