#pragma once

#include <QLoggingCategory>
#include <QPainterPath>
#include <QPointF>
#include <QRectF>
#include <QString>
#include <QtGlobal>

// Every refused or clamped input is told once on this category, "whiteboard.input".
Q_DECLARE_LOGGING_CATEGORY(lcWhiteboardInput)

// The bounds of what may enter a board: received messages, files the host
// names and typed text. Any participant can send anything, so each bound is
// checked where the data comes in, and what lies beyond it is refused or
// clamped with one log line; the rest of the message still applies. The
// README lists them with what happens beyond each.
class InputLimits
{
public:
    // Largest absolute scene coordinate of any point or frame edge: twenty
    // default scenes of margin, yet far inside what a float-to-int pixel
    // conversion can hold. Farther values are clamped; non-finite ones
    // refuse the entry that carries them.
    static constexpr double kMaxCoordinate = 100000.0;
    // Points of one pen stroke or polyline; further points are dropped.
    static constexpr int kMaxPoints = 20000;
    // Characters (UTF-16 units) of one text; the rest is cut off.
    static constexpr int kMaxTextLength = 64 * 1024;
    // Pixel size of a text's font, and the width of a received pen.
    static constexpr int kMaxFontPixelSize = 1000;
    static constexpr int kMaxStrokeWidth = 500;
    // Longer side of a picture: larger ones are scaled down when placed,
    // and their pixels refused when received.
    static constexpr int kMaxPictureSide = 4096;
    // Largest zoom and device pixel ratio a host may set: the page's size
    // on screen must stay a whole number of pixels an int can hold.
    static constexpr double kMaxScale = 1000.0;
    // Bytes of one received envelope; a larger one is refused whole.
    static constexpr qsizetype kMaxEnvelopeBytes = 64 * 1024 * 1024;

    // Whether both coordinates are finite.
    static bool isFinite(const QPointF& point) { return qIsFinite(point.x()) && qIsFinite(point.y()); }
    // A finite value within +-kMaxCoordinate; returns whether it had to move.
    static bool clampCoordinate(double& value);
    static bool clampPoint(QPointF& point);
    // The rectangle with both corners clamped; returns whether it changed.
    static bool clampRect(QRectF& rect);
    // Every element of `path` clamped, a non-finite one to the origin;
    // returns whether any moved.
    static bool clampPath(QPainterPath& path);
    // Cuts `text` to kMaxTextLength, never between the halves of a
    // surrogate pair; returns whether it was longer.
    static bool cutText(QString& text);
    // A text the user typed, cut with a log line where needed.
    static QString typedText(QString text);
};
