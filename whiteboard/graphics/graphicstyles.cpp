#include "graphics/graphicstyles.h"

namespace whiteboard {

namespace {

bool paintsPicture(const QBrush& brush)
{
    return brush.style() == Qt::TexturePattern;
}

const QColor kVeil("#30000000");

// `style` with its colour as painted, set only when it changes: setting one
// copies the pen's or brush's data, an allocation per item and frame on a
// big board. A style that draws nothing keeps its colour.
template <class Style>
Style withPaintColor(const Style& style, bool draws, bool selected, double opacity)
{
    Style painted = style;
    const QColor color = GraphicStyles::paintColor(style.color(), selected, opacity);
    if (draws && color != style.color())
        painted.setColor(color);
    return painted;
}

} // namespace

QPen GraphicStyles::sharedPen(const QPen& pen)
{
    return paintsPicture(pen.brush()) ? pen : shared(pen);
}

QBrush GraphicStyles::sharedBrush(const QBrush& brush)
{
    return paintsPicture(brush) ? brush : shared(brush);
}

QColor GraphicStyles::colorOf(const QBrush& brush, const QPen& pen)
{
    return brush == QBrush(Qt::NoBrush) ? pen.color() : brush.color();
}

double GraphicStyles::strokeWidthOf(const QPen& pen)
{
    return pen == QPen(Qt::NoPen) ? 1.0 : pen.widthF();
}

QColor GraphicStyles::paintColor(QColor color, bool selected, double opacity)
{
    if (selected)
        color = color.darker(110);
    color.setAlphaF(float(opacity));
    return color;
}

QPen GraphicStyles::paintedPen(const QPen& pen, bool selected, double opacity)
{
    QPen painted = withPaintColor(pen, pen.style() != Qt::NoPen, selected, opacity);
    if (painted.joinStyle() != Qt::MiterJoin)
        painted.setJoinStyle(Qt::MiterJoin);
    return painted;
}

QBrush GraphicStyles::paintedBrush(const QBrush& brush, bool selected, double opacity)
{
    return withPaintColor(brush, brush.style() != Qt::NoBrush, selected, opacity);
}

QPen GraphicStyles::veilPen(int width)
{
    return QPen(QBrush(kVeil, Qt::SolidPattern), width, Qt::SolidLine, Qt::SquareCap, Qt::BevelJoin);
}

QBrush GraphicStyles::veilBrush()
{
    return QBrush(kVeil, Qt::SolidPattern);
}

} // namespace whiteboard
