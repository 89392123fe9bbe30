#include "graphics/graphicpaths.h"

#include <QPainterPathStroker>

namespace whiteboard {

namespace {

// A path started from a point holds exactly the room reserved. `add` moves
// that point and adds the rest; what it refuses (a null rectangle,
// coordinates out of range) leaves the point alone, and then the empty path
// that `add` would have left.
template <class Add>
QPainterPath fittedPath(const QPointF& start, int room, int elements, Add add)
{
    QPainterPath path(start);
    path.reserve(room);
    add(path);
    return path.elementCount() == elements ? path : QPainterPath();
}

} // namespace

QPainterPath GraphicPaths::strokeOf(const QPainterPath& path)
{
    return plainStrokeOf(path).simplified();
}

QPainterPath GraphicPaths::plainStrokeOf(const QPainterPath& path)
{
    QPainterPathStroker stroker;
    stroker.setWidth(2 * kHitBandHalfWidth);
    return stroker.createStroke(path);
}

QPainterPath GraphicPaths::rectPath(const QRectF& rect)
{
    return fittedPath(rect.topLeft(), 5, 5, [&rect](QPainterPath& path) { path.addRect(rect); });
}

QPainterPath GraphicPaths::ellipsePath(const QRectF& rect)
{
    // addEllipse() reserves room for its 13 elements beyond the start point,
    // which it then moves.
    return fittedPath(rect.topLeft(), 14, 13, [&rect](QPainterPath& path) { path.addEllipse(rect); });
}

QPainterPath GraphicPaths::segmentPath(const QPointF& from, const QPointF& to, int room)
{
    // Started at (0, 0) as an empty path starts, with the room reserved:
    // moveTo() and lineTo() then do what they do on an empty path.
    QPainterPath path { QPointF() };
    path.reserve(room);
    path.moveTo(from);
    path.lineTo(to);
    // Both ends refused (not finite): left as an empty path is, without elements.
    return path.elementCount() == 1 && QPointF(path.elementAt(0)) != from ? QPainterPath() : path;
}

QRectF GraphicPaths::grownUnlessEmpty(QRectF rect, int width)
{
    if (!(rect.width() == 0.0 && rect.height() == 0.0))
        rect.adjust(-width, -width, width, width);
    return rect;
}

} // namespace whiteboard
