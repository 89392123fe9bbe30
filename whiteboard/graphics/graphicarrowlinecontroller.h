#pragma once

#include "graphics/graphiccontroller.h"

namespace whiteboard {

// The tail and the head of an arrow. A drag of one end rebuilds the shaft and
// the head against the other end as it was at the press.
class GraphicArrowLineController : public GraphicController
{
    Q_OBJECT

public:
    enum PointType {
        TailPoint = GraphicDefine::GCP_Custom + 1,
        HeadPoint = GraphicDefine::GCP_Custom + 2
    };

    GraphicArrowLineController(GraphicScene* scene, GraphicItem* item);

    QPointF controlPointPosition(int type) override;
    void onControlPointPress(int type, QMouseEvent* event) override;
    void onControlPointMove(int type, QMouseEvent* event) override;

private:
    QPointF m_lineStart;
    QPointF m_lineEnd;
};

} // namespace whiteboard
