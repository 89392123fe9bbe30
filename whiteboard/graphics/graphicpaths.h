#pragma once

#include <QPainterPath>
#include <QPointF>
#include <QRectF>

namespace whiteboard {

// The paths items are made of: outlines held in allocations of their size,
// and the width-6 band along an outline that hit tests and dirty paths use.
// Any thread.
class GraphicPaths
{
public:
    // Half the width of the hit band.
    static constexpr double kHitBandHalfWidth = 3.0;

    // The width-6 band along `path`.
    static QPainterPath strokeOf(const QPainterPath& path);
    // The same band left as the stroker makes it: simplifying it costs far
    // more than the stroke for long or self-crossing paths.
    static QPainterPath plainStrokeOf(const QPainterPath& path);

    // The outline of a rectangle or an ellipse, held in an allocation of its
    // size: a path made empty reserves room for 16 elements, 400 bytes that
    // every rectangle would keep for its life. Elements and flags are those
    // of addRect() and addEllipse() on an empty path.
    static QPainterPath rectPath(const QRectF& rect);
    static QPainterPath ellipsePath(const QRectF& rect);
    // A straight piece from `from` to `to`, held in an allocation of `room`
    // elements, what is added after it included.
    static QPainterPath segmentPath(const QPointF& from, const QPointF& to, int room = 2);

    // `rect` grown by `width` on each side, unless it has no extent at all:
    // the dirty area of a shape before a change.
    static QRectF grownUnlessEmpty(QRectF rect, int width);
};

} // namespace whiteboard
