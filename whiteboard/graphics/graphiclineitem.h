#pragma once

#include "graphics/abstractgraphicshapeitem.h"


namespace whiteboard {

// One straight line, drawn by a drag. `outlinePath` is exactly moveTo(start),
// lineTo(end).
class GraphicLineItem : public AbstractGraphicShapeItem
{
    Q_OBJECT

public:
    explicit GraphicLineItem(GraphicScene* scene = nullptr, GraphicItem* parent = nullptr);
    GraphicLineItem(const GraphicLineItem& other);

    QPointF startPoint() const { return m_startPoint; }

    GraphicItem* copy() override;
    GraphicController* makeController() override;
    bool collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    QPointF m_startPoint;
    QPointF m_lastPoint;
    bool m_pressed = false;
};

} // namespace whiteboard
