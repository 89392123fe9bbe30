#pragma once

#include <QPointF>

namespace whiteboard {

// Signed distances for hit tests: negative inside, positive outside.
double sdCircle(const QPointF& q, double r);
double sdBox(const QPointF& q, const QPointF& half);
double sdSegment(const QPointF& q, const QPointF& a, const QPointF& b);
// Closed form by a cubic. Its d < 0 branch takes the cosine where the textbook
// takes the arc cosine; the distances it gives are the board's own and stay.
double sdEllipse(const QPointF& q, const QPointF& ab);

} // namespace whiteboard
