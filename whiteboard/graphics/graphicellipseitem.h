#pragma once

#include "graphics/abstractgraphicshapeitem.h"

#include <QPainterPathStroker>

namespace whiteboard {

// An ellipse drawn by dragging a frame; Shift draws a circle, Alt grows the
// frame around the drag's top-left corner.
class GraphicEllipseItem : public AbstractGraphicShapeItem
{
    Q_OBJECT

public:
    explicit GraphicEllipseItem(GraphicScene* scene = nullptr, GraphicItem* parent = nullptr);
    GraphicEllipseItem(const GraphicEllipseItem& other);

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
