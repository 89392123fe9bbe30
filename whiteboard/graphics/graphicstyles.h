#pragma once

#include <QBrush>
#include <QColor>
#include <QList>
#include <QPen>

namespace whiteboard {

// The style values of the shape items: what they hold, and what they paint
// with. Any thread; the sharing is per thread.
class GraphicStyles
{
public:
    // An equal value handed out lately, else `value`, kept for the next
    // ones: the items of a board hold a few styles and shapes alike, and
    // each copy of a pen, a brush or a path would otherwise hold data of its
    // own. Per thread, so that no lock is needed.
    template <class Value>
    static Value shared(const Value& value)
    {
        thread_local QList<Value> recent;
        for (qsizetype i = recent.size() - 1; i >= 0; --i) {
            if (recent.at(i) == value)
                return recent.at(i);
        }
        if (recent.size() == kSharedValues)
            recent.removeFirst();
        recent.append(value);
        return value;
    }
    // As shared(), but a style that paints a picture is kept as it is: the
    // kept copy would keep the picture alive after its items are gone.
    static QPen sharedPen(const QPen& pen);
    static QBrush sharedBrush(const QBrush& brush);

    // The colour an item shows: its pen's when it has no brush, else its brush's.
    static QColor colorOf(const QBrush& brush, const QPen& pen);
    // The width an item shows: 1.0 without a pen.
    static double strokeWidthOf(const QPen& pen);

    // The colour to paint `color` with: darker when `selected`, at `opacity`.
    static QColor paintColor(QColor color, bool selected, double opacity);
    // `pen` (mitred) and `brush` as painted.
    static QPen paintedPen(const QPen& pen, bool selected, double opacity);
    static QBrush paintedBrush(const QBrush& brush, bool selected, double opacity);
    // The translucent veil over a selected filled shape, outlined `width` wide.
    static QPen veilPen(int width);
    static QBrush veilBrush();

private:
    // Values kept by shared(), of each type: a board's few colours and widths.
    static constexpr int kSharedValues = 32;
};

} // namespace whiteboard
