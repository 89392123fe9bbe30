#include "graphics/graphicdistance.h"

#include <algorithm>
#include <cmath>

namespace whiteboard {

namespace {

double length(double x, double y)
{
    return std::sqrt(y * y + x * x);
}

} // namespace

double sdCircle(const QPointF& q, double r)
{
    return length(q.x(), q.y()) - r;
}

double sdBox(const QPointF& q, const QPointF& half)
{
    const double ex = std::abs(q.x()) - half.x();
    const double ey = std::abs(q.y()) - half.y();
    return length(std::max(ex, 0.0), std::max(ey, 0.0)) + std::min(std::max(ex, ey), 0.0);
}

double sdSegment(const QPointF& q, const QPointF& a, const QPointF& b)
{
    const QPointF pa = q - a;
    const QPointF ba = b - a;
    const double h = std::clamp(QPointF::dotProduct(pa, ba) / QPointF::dotProduct(ba, ba), 0.0, 1.0);
    const QPointF d = pa - ba * h;
    return length(d.x(), d.y());
}

double sdEllipse(const QPointF& q, const QPointF& ab)
{
    const double px = std::abs(q.x());
    const double py = std::abs(q.y());
    const double a = std::abs(ab.x());
    const double b = std::abs(ab.y());
    // A flat ellipse is the segment along its other axis.
    if (a == 0.0 || b == 0.0)
        return sdSegment(QPointF(px, py), QPointF(0.0, 0.0), QPointF(a, b));
    // The closest point on the quarter arc, found by stepping along the arc
    // from its middle through the local centre of curvature. No branch is
    // ill-conditioned, the axes' ends included; six steps leave an error
    // far below a pixel at any eccentricity.
    double tx = std::sqrt(0.5);
    double ty = tx;
    for (int i = 0; i < 6; ++i) {
        const double ex = (a * a - b * b) * tx * tx * tx / a;
        const double ey = (b * b - a * a) * ty * ty * ty / b;
        const double r = length(a * tx - ex, b * ty - ey);
        const double qx = px - ex;
        const double qy = py - ey;
        const double qLength = length(qx, qy);
        if (qLength == 0.0)
            break;
        tx = std::clamp((qx * r / qLength + ex) / a, 0.0, 1.0);
        ty = std::clamp((qy * r / qLength + ey) / b, 0.0, 1.0);
        const double t = length(tx, ty);
        tx /= t;
        ty /= t;
    }
    const double distance = length(px - a * tx, py - b * ty);
    const bool inside = (px / a) * (px / a) + (py / b) * (py / b) < 1.0;
    return inside ? -distance : distance;
}

} // namespace whiteboard
