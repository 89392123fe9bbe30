#pragma once

#include "graphics/graphicitem.h"
#include "graphics/graphicstrokecache.h"

#include <QBrush>
#include <QColor>
#include <QLineF>
#include <QPainterPath>
#include <QPen>

#include <optional>

namespace im::whiteboard {
class FillStyle;
class GraphicBaseInfo;
class Point;
class StrokeStyle;
class Transforms;
}

namespace whiteboard {

// A wire point: the coordinates are cut to float.
im::whiteboard::Point* makePoint(const QPointF& point);
QPointF toPointF(const im::whiteboard::Point& point);

// Common base of the concrete items: the two styles, the geometry in
// `outlinePath`, its width-6 hit band in `hitPath`, default painting and hit
// tests.
//
// Invariant: after any interaction that changes `outlinePath` ends, `hitPath`
// is the width-6 stroke of it and `boundary` its bounding rectangle. The band
// is made on first use: most items are never hit-tested, and received or
// dragged ones would otherwise pay for it on every change.
class AbstractGraphicShapeItem : public GraphicItem
{
    Q_OBJECT
    Q_PROPERTY(QBrush brush READ brush WRITE setBrush NOTIFY brushChanged)
    Q_PROPERTY(QPen pen READ pen WRITE setPen NOTIFY penChanged)
    Q_PROPERTY(QBrush brushHovered READ brushHovered WRITE setBrushHovered NOTIFY brushHoveredChanged)
    Q_PROPERTY(QPen penHovered READ penHovered WRITE setPenHovered NOTIFY penHoveredChanged)
    Q_PROPERTY(QColor color READ color WRITE setColor NOTIFY colorChanged)
    Q_PROPERTY(double strokeWidth READ strokeWidth WRITE setStrokeWidth NOTIFY strokeWidthChanged)

public:
    explicit AbstractGraphicShapeItem(GraphicScene* scene = nullptr, GraphicItem* parent = nullptr);
    AbstractGraphicShapeItem(const AbstractGraphicShapeItem& other);

    QBrush brush() const { return m_brush; }
    void setBrush(const QBrush& brush);
    QPen pen() const { return m_pen; }
    void setPen(const QPen& pen);
    QBrush brushHovered() const { return m_brushHovered; }
    void setBrushHovered(const QBrush& brush);
    QPen penHovered() const { return m_penHovered; }
    void setPenHovered(const QPen& pen);
    QColor color() const;
    void setColor(const QColor& color);
    double strokeWidth() const;
    void setStrokeWidth(double width);

    QPainterPath outlinePath() const { return m_outlinePath; }
    void setOutlinePath(const QPainterPath& path) { m_outlinePath = path; }
    // The band, made now if a rebuild is pending. GUI thread.
    QPainterPath hitPath() const;
    void setHitPath(const QPainterPath& path);
    QPointF cacheOffset() const { return m_cacheOffset; }
    void setCacheOffset(const QPointF& offset) { m_cacheOffset = offset; }

    // The width-6 band along `path` that hit tests and dirty paths use.
    static QPainterPath strokeOf(const QPainterPath& path);
    // The same band left as the stroker makes it: simplifying it costs far
    // more than the stroke for long or self-crossing paths.
    static QPainterPath plainStrokeOf(const QPainterPath& path);
    // A copy of `path` with data of its own (the elements still shared), to
    // draw in its place. A painter keeps the converted form of a path it
    // draws (over 3 KiB, however short the path) in the path's shared data,
    // where it would stay as long as an item's outline, and two painters
    // drawing one path at once would race on it. Frames draw every recorded
    // path through such a copy. Any thread.
    static QPainterPath paintedPath(const QPainterPath& path);
    // The outline of a rectangle or an ellipse, held in an allocation of its
    // size: a path made empty reserves room for 16 elements, 400 bytes that
    // every rectangle would keep for its life. Elements and flags are those
    // of addRect() and addEllipse() on an empty path.
    static QPainterPath rectPath(const QRectF& rect);
    static QPainterPath ellipsePath(const QRectF& rect);
    // A straight piece from `from` to `to`, held in an allocation of `room`
    // elements, what is added after it included.
    static QPainterPath segmentPath(const QPointF& from, const QPointF& to, int room = 2);
    // Half the width of the hit band.
    static constexpr double kHitBandHalfWidth = 3.0;
    // `rect` grown by `width` on each side, unless it has no extent at all:
    // the dirty area of a shape before a change.
    static QRectF grownUnlessEmpty(QRectF rect, int width);
    // Marks `hitPath` to be made again from `outlinePath` at its next use.
    void rebuildHitPath();
    // Whether the item has a band, made or pending.
    bool hasHitPath() const { return m_hitPathPending || !m_hitPath.isEmpty(); }

    // Hit tolerance of lines and outlines: half of the pen width plus six.
    double hitTolerance() const;

    void paint(QPainter* painter, const QRectF* rect = nullptr) override;
    bool collidesWithPath(const QPainterPath& path, Qt::ItemSelectionMode mode) const override;
    bool collidesWithRect(const QRectF& rect, Qt::ItemSelectionMode mode) const override;
    bool collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const override;
    const QPainterPath& shape() const override;

signals:
    void brushChanged();
    void penChanged();
    void brushHoveredChanged();
    void penHoveredChanged();
    void colorChanged();
    void strokeWidthChanged();

protected:
    // How the band is made from `outlinePath`.
    virtual QPainterPath makeHitPath() const;
    // Whether `point` lies within `halfWidth` of a piece of `outlinePath`,
    // taken as straight pieces between its elements: linear in the points,
    // the bounds tested first.
    bool nearPolyline(const QPointF& point, double halfWidth) const;

    // An equal value handed out lately, else `value`, kept for the next
    // ones: the items of a board hold a few styles and shapes alike, and
    // each copy of a pen, a brush or a path would otherwise hold data of its
    // own. Per thread, so that no lock is needed.
    template <class Value>
    static Value sharedValue(const Value& value)
    {
        thread_local QList<Value> recent;
        for (qsizetype i = recent.size() - 1; i >= 0; --i) {
            if (recent.at(i) == value)
                return recent.at(i);
        }
        if (recent.size() == kSharedValues)
            recent.removeFirst();
        recent.append(value);
        return value;
    }
    // Values kept by sharedValue(), of each type: a board's few colours and widths.
    static constexpr int kSharedValues = 32;
    // The placeholder styles of the drawing items; the scene replaces the pen
    // from the palette when a user draws one.
    void setDrawingStyleDefaults();
    // The selection veil over filled shapes.
    void paintSelectionVeil(QPainter* painter) const;
    // Render thread, under itemsMutex: `outlinePath` with the painter's pen
    // and brush; a long finished one from its picture.
    void drawOutline(QPainter* painter);
    // The colour to paint `color` with: darker when selected, at the item's opacity.
    QColor paintColor(QColor color) const;
    // Signed distance from `q`, relative to the centre of `bounds`, to the
    // outline of a closed shape that fills `bounds`.
    using OutlineDistance = double (*)(const QPointF& q, const QRectF& bounds);
    // Point test of the closed shapes: the bounding-rectangle modes test the
    // bounds; in the shape modes a band around the outline always hits and
    // the inside only when filled.
    bool closedShapeHit(const QPointF& point, Qt::ItemSelectionMode mode, OutlineDistance distance) const;
    // Point test of a shape drawn as one segment between the first two
    // elements of `outlinePath` (a line, an arrow's shaft): within the hit
    // tolerance of it.
    bool segmentHit(const QPointF& point) const;

    // The pointer steps shared by the items drawn by a drag. A press on the
    // item (`onItem`) takes the focus, and in edit mode every press starts
    // the drawing; returns whether the press is the item's.
    bool takePress(QMouseEvent* event, bool onItem);
    // Hover of an item that is not pressed.
    void hoverAt(const QPointF& point, QMouseEvent* event);
    // Ends a press and the drawing; with `rebuildHit` the hit path is made
    // again from the finished outline.
    void endPress(QMouseEvent* event, bool pressed, bool rebuildHit = true);

    // Sending side of the wire messages. The results are heap messages for
    // the set_allocated_ accessors; null leaves the field absent.
    im::whiteboard::GraphicBaseInfo* makeBaseInfo() const;
    im::whiteboard::FillStyle* makeFillStyle() const;
    im::whiteboard::StrokeStyle* makeStrokeStyle() const;
    // Transforms are never sent.
    static im::whiteboard::Transforms* makeTransforms() { return nullptr; }

    // Receiving side.
    void applyBaseInfo(const im::whiteboard::GraphicBaseInfo& info);
    void applyFillStyle(const im::whiteboard::FillStyle& style);
    void applyStrokeStyle(const im::whiteboard::StrokeStyle& style);

    template <class Message>
    static QByteArray encode(const Message& message)
    {
        QByteArray bytes(qsizetype(message.ByteSizeLong()), Qt::Uninitialized);
        message.SerializeToArray(bytes.data(), int(bytes.size()));
        return bytes;
    }

    // Parses `data` into `message`; a failure is logged and the caller must
    // then leave the item as it is.
    template <class Message>
    static bool decode(Message& message, const QByteArray& data)
    {
        if (message.ParseFromArray(data.constData(), int(data.size())))
            return true;
        reportParseFailure();
        return false;
    }

    // Parses `data` as the item's own message and reads it as a received entry.
    template <class Message>
    void deserializeAs(const QByteArray& data)
    {
        Message message;
        if (decode(message, data))
            readEntry(message);
    }

    // The steps every received styled item starts with: identity, styles,
    // opacity. The sender sends the styles it paints with, so what is absent
    // beside a present one is not painted; a message with neither leaves
    // both as they are.
    template <class Message>
    void applyCommon(const Message& message)
    {
        applyBaseInfo(message.baseinfo());
        if (message.has_fillstyle() || message.has_strokestyle()) {
            if (message.has_fillstyle())
                applyFillStyle(message.fillstyle());
            else
                setBrush(QBrush(Qt::NoBrush));
            if (message.has_strokestyle())
                applyStrokeStyle(message.strokestyle());
            else
                setPen(QPen(Qt::NoPen));
        }
        if (message.has_opacity())
            setOpacity(message.opacity());
    }

    // The two ends of a Line or Arrow message: the first two elements of the
    // outline.
    template <class Message>
    void writeEnds(Message* message) const
    {
        message->set_allocated_startpoint(makePoint(m_outlinePath.elementAt(0)));
        message->set_allocated_endpoint(makePoint(m_outlinePath.elementAt(1)));
    }

    // The ends of a received Line or Arrow, if it carries either; a missing
    // one reads as (0, 0).
    template <class Message>
    static std::optional<QLineF> receivedEnds(const Message& message)
    {
        if (!message.has_startpoint() && !message.has_endpoint())
            return std::nullopt;
        return QLineF(toPointF(message.startpoint()), toPointF(message.endpoint()));
    }

    QPainterPath m_outlinePath;

private:
    // Made on the GUI thread, where the hit tests run.
    mutable QPainterPath m_hitPath;
    mutable bool m_hitPathPending = false;

    static void reportParseFailure();

    QBrush m_brush;
    QPen m_pen;
    QBrush m_brushHovered;
    QPen m_penHovered;
    QPointF m_cacheOffset;
    // Render thread only.
    GraphicStrokeCache m_strokeCache;
};

} // namespace whiteboard
