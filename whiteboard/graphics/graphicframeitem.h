#pragma once

#include "graphics/abstractgraphicshapeitem.h"


namespace whiteboard {

// Common base of the items drawn by dragging a frame (rectangle, ellipse,
// text, image): the press takes the start corner, every move rebuilds the
// outline from the frame between it and the pointer, the release restores the
// hit path.
class GraphicFrameItem : public AbstractGraphicShapeItem
{
    Q_OBJECT

public:
    explicit GraphicFrameItem(GraphicScene* scene = nullptr, GraphicItem* parent = nullptr);
    GraphicFrameItem(const GraphicFrameItem& other);

    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

    QPointF startPoint() const { return m_startPoint; }
    bool pressed() const { return m_pressed; }

    // Gives a received item the outline that a drag of `frame` without
    // modifiers draws, and that frame.
    void placeFrame(const QRectF& frame);

protected:
    // Whether a press at `point` falls on the finished item.
    virtual bool pressHits(const QPointF& point) const;
    // The outline for the dragged `frame`, which is already normalised.
    virtual QPainterPath framePath(const QRectF& frame, Qt::KeyboardModifiers modifiers) const;
    // Called once a press in edit mode has taken the start corner.
    virtual void drawingStarted(const QPointF& point, QMouseEvent* event);

    QPointF m_startPoint;
    bool m_pressed = false;
};

} // namespace whiteboard
