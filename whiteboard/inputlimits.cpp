#include "inputlimits.h"

#include <algorithm>

Q_LOGGING_CATEGORY(lcWhiteboardInput, "whiteboard.input")

bool InputLimits::clampCoordinate(double& value)
{
    const double bounded = std::clamp(value, -kMaxCoordinate, kMaxCoordinate);
    if (bounded == value)
        return false;
    value = bounded;
    return true;
}

bool InputLimits::clampPoint(QPointF& point)
{
    double x = point.x();
    double y = point.y();
    // Both are clamped, whichever moves.
    const bool movedX = clampCoordinate(x);
    const bool movedY = clampCoordinate(y);
    point = QPointF(x, y);
    return movedX || movedY;
}

bool InputLimits::clampRect(QRectF& rect)
{
    QPointF topLeft = rect.topLeft();
    QPointF bottomRight = rect.bottomRight();
    const bool movedTopLeft = clampPoint(topLeft);
    const bool movedBottomRight = clampPoint(bottomRight);
    const bool moved = movedTopLeft || movedBottomRight;
    if (moved)
        rect = QRectF(topLeft, bottomRight);
    return moved;
}

bool InputLimits::cutText(QString& text)
{
    if (text.size() <= kMaxTextLength)
        return false;
    qsizetype end = kMaxTextLength;
    if (text.at(end - 1).isHighSurrogate())
        --end;
    text.truncate(end);
    return true;
}

QString InputLimits::typedText(QString text)
{
    if (cutText(text))
        qCWarning(lcWhiteboardInput, "clamped typed text: length");
    return text;
}

bool InputLimits::clampPath(QPainterPath& path)
{
    bool moved = false;
    for (int i = 0; i < path.elementCount(); ++i) {
        QPointF point = path.elementAt(i);
        if (!isFinite(point))
            point = QPointF();
        else if (!clampPoint(point))
            continue;
        path.setElementPositionAt(i, point.x(), point.y());
        moved = true;
    }
    return moved;
}
