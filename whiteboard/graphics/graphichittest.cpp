#include "graphics/graphichittest.h"

#include "graphics/graphicdistance.h"

#include <QPen>

namespace whiteboard {

namespace {

// The shape modes test `shape`, the bounding-rectangle modes `bounds`.
template <class Area, class Shape>
bool collides(const Area& area, const Shape& shape, const QRectF& bounds, Qt::ItemSelectionMode mode)
{
    switch (mode) {
    case Qt::ContainsItemShape:
        return area.contains(shape);
    case Qt::IntersectsItemShape:
        return area.intersects(shape);
    case Qt::ContainsItemBoundingRect:
        return area.contains(bounds);
    case Qt::IntersectsItemBoundingRect:
        return area.intersects(bounds);
    }
    return false;
}

} // namespace

double GraphicHitTest::tolerance(const QPen& pen)
{
    return double(float(pen.width() + 6) * 0.5f);
}

bool GraphicHitTest::path(const QPainterPath& outline, const QPainterPath& band, bool filled,
                          const QPainterPath& path, Qt::ItemSelectionMode mode)
{
    return collides(path, (band.isEmpty() || filled) ? outline : band, outline.boundingRect(), mode);
}

bool GraphicHitTest::rect(const QPainterPath& outline, const QPainterPath& band, const QRectF& rect,
                          Qt::ItemSelectionMode mode)
{
    QRectF r = band.isEmpty() ? outline.boundingRect() : band.boundingRect();
    // Straight lines have a zero extent in one axis; give them one unit.
    if (r.width() == 0.0)
        r.setWidth(1.0);
    if (r.height() == 0.0)
        r.setHeight(1.0);
    return collides(rect, r, outline.boundingRect(), mode);
}

bool GraphicHitTest::closedShape(const QPainterPath& outline, bool filled, double tolerance, const QPointF& point,
                                 Qt::ItemSelectionMode mode, OutlineDistance distance)
{
    const QRectF b = outline.boundingRect();
    switch (mode) {
    case Qt::ContainsItemBoundingRect:
    case Qt::IntersectsItemBoundingRect:
        return b.contains(point);
    case Qt::ContainsItemShape:
    case Qt::IntersectsItemShape: {
        const double d = distance(point - b.center(), b);
        if (d < -tolerance)
            return filled;
        return d <= tolerance;
    }
    }
    return false;
}

bool GraphicHitTest::nearSegment(const QPainterPath& outline, double tolerance, const QPointF& point)
{
    // With both ends at one point d is NaN and neither test rejects it: a
    // line of one point is hit everywhere its bounds are searched.
    const double d = sdSegment(point, outline.elementAt(0), outline.elementAt(1));
    if (d > tolerance)
        return false;
    if (-tolerance > d)
        return false;
    return true;
}

bool GraphicHitTest::nearPolyline(const QPainterPath& outline, double halfWidth, const QPointF& point)
{
    const int count = outline.elementCount();
    if (count == 0 || !outline.boundingRect().adjusted(-halfWidth, -halfWidth, halfWidth, halfWidth).contains(point))
        return false;
    QPointF from = outline.elementAt(0);
    for (int i = 1; i < count; ++i) {
        const QPainterPath::Element e = outline.elementAt(i);
        const QPointF to(e.x, e.y);
        // A moveTo starts a new piece without joining the previous point.
        if (!e.isMoveTo() && sdSegment(point, from, to) <= halfWidth)
            return true;
        from = to;
    }
    return false;
}

} // namespace whiteboard
