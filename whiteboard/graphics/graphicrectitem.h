#pragma once

#include "graphics/abstractgraphicshapeitem.h"

#include <QPainterPathStroker>

namespace whiteboard {

// A rectangle drawn by dragging a frame. Hit tests use the signed distance to
// the outline, so an unfilled rectangle can be clicked through.
class GraphicRectItem : public AbstractGraphicShapeItem
{
    Q_OBJECT

public:
    explicit GraphicRectItem(GraphicScene* scene = nullptr, GraphicItem* parent = nullptr);
    GraphicRectItem(const GraphicRectItem& other);

    GraphicItem* copy() override;
    bool collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

    QPointF startPoint() const { return m_startPoint; }
    bool pressed() const { return m_pressed; }

private:
    QPainterPathStroker m_stroker;
    QPointF m_startPoint;
    bool m_pressed = false;
};

} // namespace whiteboard
