#pragma once

#include <QPointF>

namespace whiteboard {

// Signed distances for hit tests: negative inside, positive outside.
double sdCircle(const QPointF& q, double r);
double sdBox(const QPointF& q, const QPointF& half);
double sdSegment(const QPointF& q, const QPointF& a, const QPointF& b);
// `ab` holds the two half axes.
double sdEllipse(const QPointF& q, const QPointF& ab);

} // namespace whiteboard
