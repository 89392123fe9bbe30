#pragma once

#include "graphics/abstractgraphicshapeitem.h"


namespace whiteboard {

// A polyline built click by click: each left press commits the rubber band
// that runs from the last vertex to the pointer, any other button finishes.
class GraphicLineSegmentItem : public AbstractGraphicShapeItem
{
    Q_OBJECT

public:
    explicit GraphicLineSegmentItem(GraphicScene* scene = nullptr, GraphicItem* parent = nullptr);
    GraphicLineSegmentItem(const GraphicLineSegmentItem& other);

    QPainterPath currentSegment() const { return m_currentSegment; }
    QPointF lastPoint() const { return m_lastPoint; }
    bool segmentDragged() const { return m_segmentDragged; }

    void paint(QPainter* painter, const QRectF* rect = nullptr) override;
    GraphicItem* copy() override;
    GraphicController* makeController() override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void hoverMoveEvent(QHoverEvent* event) override;
    bool collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const override;

protected:
    QPainterPath makeHitPath() const override;

private:
    QPainterPath m_currentSegment;
    QPointF m_lastPoint;
    bool m_segmentDragged = false;
};

} // namespace whiteboard
