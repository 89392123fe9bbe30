#pragma once

#include "graphics/graphicframeitem.h"

namespace whiteboard {

// An ellipse drawn by dragging a frame; Shift draws a circle, Alt grows the
// frame around the drag's top-left corner.
class GraphicEllipseItem : public GraphicFrameItem
{
    Q_OBJECT

public:
    explicit GraphicEllipseItem(GraphicScene* scene = nullptr, GraphicItem* parent = nullptr);
    GraphicEllipseItem(const GraphicEllipseItem& other);

    GraphicItem* copy() override;
    GraphicController* makeController() override;
    bool collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const override;

protected:
    bool pressHits(const QPointF& point) const override;
    QPainterPath framePath(const QRectF& frame, Qt::KeyboardModifiers modifiers) const override;
};

} // namespace whiteboard
