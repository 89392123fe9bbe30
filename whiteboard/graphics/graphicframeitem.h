#pragma once

#include "graphics/abstractgraphicshapeitem.h"


#include <optional>

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

protected:
    // Whether a press at `point` falls on the finished item.
    virtual bool pressHits(const QPointF& point) const;
    // The outline for the dragged `frame`, which is already normalised.
    virtual QPainterPath framePath(const QRectF& frame, Qt::KeyboardModifiers modifiers) const;
    // Called once a press in edit mode has taken the start corner.
    virtual void drawingStarted(const QPointF& point, QMouseEvent* event);

    // The frame fields of a Rect, Ellipse or Image message.
    template <class Message>
    void writeFrame(Message* message) const
    {
        const QRectF frame = boundary();
        message->set_allocated_leftpos(makePoint(frame.topLeft()));
        message->set_width(float(frame.width()));
        message->set_heigth(float(frame.height()));
    }

    // The frame of a received message, if it carries any part of one; a
    // missing part reads as 0.
    template <class Message>
    static std::optional<QRectF> receivedFrame(const Message& message)
    {
        if (!message.has_leftpos() && !message.has_width() && !message.has_heigth())
            return std::nullopt;
        const QPointF topLeft = toPointF(message.leftpos());
        return QRectF(topLeft, topLeft + QPointF(message.width(), message.heigth()));
    }

    // Makes `outline` the geometry of a received item framed by `frame`.
    void setReceivedOutline(const QPainterPath& outline, const QRectF& frame);

    // The whole message of a closed shape (Rect or Ellipse): styles, frame
    // and opacity.
    template <class Message>
    void writeShape(Message* message) const
    {
        message->set_allocated_baseinfo(makeBaseInfo());
        message->set_allocated_strokestyle(makeStrokeStyle());
        message->set_allocated_fillstyle(makeFillStyle());
        message->set_allocated_transform(makeTransforms());
        writeFrame(message);
        message->set_opacity(float(opacity()));
    }

    // Applies a received closed shape; its outline is the one a drag of the
    // frame without modifiers draws.
    template <class Message>
    void readShape(const Message& message)
    {
        applyCommon(message);
        if (const auto frame = receivedFrame(message))
            setReceivedOutline(framePath(*frame, Qt::NoModifier), *frame);
    }

    QPointF m_startPoint;
    bool m_pressed = false;
};

} // namespace whiteboard
