#include "graphics/graphicdistance.h"

#include <algorithm>
#include <cmath>

namespace whiteboard {

namespace {

double length(double x, double y)
{
    return std::sqrt(y * y + x * x);
}

double sign(double v)
{
    return v > 0.0 ? 1.0 : (v < 0.0 ? -1.0 : 0.0);
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
    constexpr double third = 0.3333333333333333;
    double px = std::abs(q.x());
    double py = std::abs(q.y());
    double a = ab.x();
    double b = ab.y();
    if (px > py) {
        std::swap(px, py);
        std::swap(a, b);
    }
    const double l = b * b - a * a;
    const double m = a * px / l;
    const double n = b * py / l;
    const double m2 = m * m;
    const double n2 = n * n;
    const double c = (m2 + n2 - 1) / 3;
    const double c3 = c * c * c;
    const double d = c3 + m2 * n2;
    const double q2 = d + m2 * n2;
    const double g = m + m * n2;
    double co;
    if (d < 0) {
        const double h = std::cos(q2 / c3) / 3;
        const double s = std::cos(h);
        const double t = std::sin(h) * std::sqrt(3.0);
        const double rx = std::sqrt(m2 - c * (s + t + 2));
        const double ry = std::sqrt(m2 - c * (s - t + 2));
        co = ry + sign(l) * rx + std::abs(g) / (rx * ry);
    } else {
        const double h = 2 * m * n * std::sqrt(d);
        const double s = sign(q2 + h) * std::pow(std::abs(q2 + h), third);
        const double u = sign(q2 - h) * std::pow(std::abs(q2 - h), third);
        const double rx = -s - u - 4 * c + 2 * m2;
        const double ry = (s - u) * std::sqrt(3.0);
        const double rm = std::sqrt(rx * rx + ry * ry);
        co = ry / std::sqrt(rm - rx) + 2 * g / rm;
    }
    co = (co - m) * 0.5;
    const double si = std::sqrt(std::max(1 - co * co, 0.0));
    const double nx = a * co;
    const double ny = b * si;
    const double distance = length(nx - px, ny - py);
    return py - ny < 0 ? -distance : distance;
}

} // namespace whiteboard
