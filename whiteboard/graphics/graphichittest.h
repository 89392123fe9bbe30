#pragma once

#include <QPainterPath>
#include <QPointF>
#include <QRectF>

class QPen;

namespace whiteboard {

// The hit tests of the shape items, on their geometry: `outline` as drawn and
// `band`, the width-6 hit band along it. `mode` is Qt's item selection
// mode; the shape modes test the band or the shape, the bounding-rectangle
// modes the outline's bounds. GUI thread, where items are hit.
class GraphicHitTest
{
public:
    // Hit tolerance of lines and outlines: half of the pen's integer width
    // plus six.
    static double tolerance(const QPen& pen);

    // The tests every shape item starts from. A filled item is tested with its outline, an unfilled one with its band
    // when it has one.
    static bool path(const QPainterPath& outline, const QPainterPath& band, bool filled, const QPainterPath& path,
                     Qt::ItemSelectionMode mode);
    // The band's bounds, or the outline's without a band; a zero extent
    // counts as one unit, so that straight lines can be caught.
    static bool rect(const QPainterPath& outline, const QPainterPath& band, const QRectF& rect,
                     Qt::ItemSelectionMode mode);

    // Signed distance from `q`, relative to the centre of `bounds`, to the
    // outline of a closed shape that fills `bounds`.
    using OutlineDistance = double (*)(const QPointF& q, const QRectF& bounds);
    // Point test of the closed shapes: the bounding-rectangle modes test the
    // bounds; in the shape modes a band of `tolerance` around the outline
    // always hits and the inside only when `filled`.
    static bool closedShape(const QPainterPath& outline, bool filled, double tolerance, const QPointF& point,
                            Qt::ItemSelectionMode mode, OutlineDistance distance);
    // Point test of a shape drawn as one segment between the first two
    // elements of `outline` (a line, an arrow's shaft).
    static bool nearSegment(const QPainterPath& outline, double tolerance, const QPointF& point);
    // Whether `point` lies within `halfWidth` of a piece of `outline`, taken
    // as straight pieces between its elements: linear in the points, the
    // bounds tested first.
    static bool nearPolyline(const QPainterPath& outline, double halfWidth, const QPointF& point);
};

} // namespace whiteboard
