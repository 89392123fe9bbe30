#pragma once

#include "graphicdefine.h"
#include "graphics/abstractgraphicshapeitem.h"

namespace whiteboard {

// A straight line with a head at its end. `outlinePath` holds the shaft as
// elements 0 and 1, followed by the head as a further subpath.
class GraphicArrowLineItem : public AbstractGraphicShapeItem
{
    Q_OBJECT
    Q_PROPERTY(int capSize READ capSize WRITE setCapSize NOTIFY capSizeChanged)
    Q_PROPERTY(GraphicDefine::LineCapStyle capStyle READ capStyle WRITE setCapStyle NOTIFY capStyleChanged)

public:
    explicit GraphicArrowLineItem(GraphicScene* scene = nullptr, GraphicItem* parent = nullptr);
    GraphicArrowLineItem(const GraphicArrowLineItem& other);

    int capSize() const { return m_capSize; }
    void setCapSize(int capSize);
    GraphicDefine::LineCapStyle capStyle() const { return m_capStyle; }
    void setCapStyle(GraphicDefine::LineCapStyle capStyle);

    QPointF startPoint() const { return m_startPoint; }

    // The head for a shaft from `start` to `end`, in scene coordinates.
    QPainterPath buildHead(const QPointF& start, const QPointF& end, int style);
    // The outline of a shaft from `start` to `end` with its arrow head.
    QPainterPath shaftWithHead(const QPointF& start, const QPointF& end);

    void paint(QPainter* painter, const QRectF* rect = nullptr) override;
    GraphicItem* copy() override;
    GraphicController* makeController() override;
    bool collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

signals:
    void capSizeChanged();
    void capStyleChanged();

private:
    QPointF m_startPoint;
    QPainterPath m_headPath;
    bool m_pressed = false;
    int m_capSize = 8;
    GraphicDefine::LineCapStyle m_capStyle = GraphicDefine::LineCapStyleArrow;
};

} // namespace whiteboard
