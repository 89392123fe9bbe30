#include "graphics/graphicpalette.h"

#include "graphics/graphicimagecodec.h"

#include <QImage>
#include <QJSEngine>

namespace whiteboard {

GraphicPalette::GraphicPalette(QObject* parent)
    : QObject(parent)
{
    QJSEngine::setObjectOwnership(this, QJSEngine::CppOwnership);
}

GraphicPalette* GraphicPalette::instance()
{
    static GraphicPalette palette;
    return &palette;
}

void GraphicPalette::setStrokeColor(const QColor& color)
{
    if (m_strokeColor == color)
        return;
    m_strokeColor = color;
    emit strokeColorChanged();
}

void GraphicPalette::setStrokeWidth(int width)
{
    if (m_strokeWidth == width)
        return;
    m_strokeWidth = width;
    emit strokeWidthChanged();
}

void GraphicPalette::setStrokeStyle(Qt::PenStyle style)
{
    if (m_strokeStyle == style)
        return;
    m_strokeStyle = style;
    emit strokeStyleChanged();
}

void GraphicPalette::setStrokeCapStyle(Qt::PenCapStyle style)
{
    if (m_strokeCapStyle == style)
        return;
    m_strokeCapStyle = style;
    emit strokeCapStyleChanged();
}

void GraphicPalette::setFillStyle(const QBrush& brush)
{
    if (m_fillStyle == brush)
        return;
    m_fillStyle = brush;
    emit fillStyleChanged();
}

void GraphicPalette::setFillStyleByColor(const QColor& color)
{
    setFillStyle(QBrush(color, Qt::SolidPattern));
}

void GraphicPalette::setFillStyleByStringColor(const QString& color)
{
    setFillStyle(QBrush(QColor(color), Qt::SolidPattern));
}

void GraphicPalette::setFillStyleByImage(const QString& filename)
{
    // Read as a placed picture is, within the same limit.
    const QImage image = GraphicImageCodec::readFile(filename);
    // A file that cannot be read leaves the fill as it was.
    if (!image.isNull())
        setFillStyle(QBrush(image));
}

void GraphicPalette::setOpacity(double opacity)
{
    if (qFuzzyCompare(m_opacity, opacity))
        return;
    m_opacity = opacity;
    emit opacityChanged();
}

} // namespace whiteboard
