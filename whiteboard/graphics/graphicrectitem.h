#pragma once

#include "graphics/graphicframeitem.h"

namespace whiteboard {

// A rectangle drawn by dragging a frame. Hit tests use the signed distance to
// the outline, so an unfilled rectangle can be clicked through.
class GraphicRectItem : public GraphicFrameItem
{
    Q_OBJECT

public:
    explicit GraphicRectItem(GraphicScene* scene = nullptr, GraphicItem* parent = nullptr);
    GraphicRectItem(const GraphicRectItem& other);

    GraphicItem* copy() override;
    GraphicController* makeController() override;
    bool collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const override;

protected:
    void drawingStarted(const QPointF& point, QMouseEvent* event) override;
};

} // namespace whiteboard
