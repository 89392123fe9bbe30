#include "graphics/graphictextitem.h"

#include "graphics/graphicpaths.h"
#include "graphics/graphictextcontroller.h"
#include "inputlimits.h"

#include <QFontMetricsF>
#include <QGlyphRun>
#include <QPainter>
#include <QTextLayout>

#include <algorithm>
#include <limits>

namespace whiteboard {

namespace {

// Letters measured at once by measuredAdvance(): 512 of the widest letters
// at the largest font size stay far below the fixed point's range.
constexpr qsizetype kMeasurePiece = 512;

// The advance of `text` in one line, measured until it passes `limit`.
// QFontMetricsF and QTextLayout add advances in 26.6 fixed point, whose 32
// bits overflow near 33 million pixels (64 Ki wide letters at 1,000 px, or
// fewer in a wider font the machine happens to pick), and the sum turned
// negative: it is taken here in pieces, in doubles. `measured` receives
// how many letters were measured: all, or the first ones whose advance
// reaches past `limit`.
double measuredAdvance(const QFontMetricsF& metrics, const QString& text, double limit, qsizetype* measured = nullptr)
{
    double width = 0.0;
    qsizetype at = 0;
    while (at < text.size() && width <= limit) {
        qsizetype n = std::min(kMeasurePiece, text.size() - at);
        // A surrogate pair stays in one piece.
        if (at + n < text.size() && text.at(at + n - 1).isHighSurrogate())
            ++n;
        width += metrics.horizontalAdvance(text.mid(at, n));
        at += n;
    }
    if (measured)
        *measured = at;
    return width;
}

} // namespace

GraphicTextItem::GraphicTextItem(const QString& text, const QFont& font, GraphicScene* scene, GraphicItem* parent)
    : GraphicFrameItem(scene, parent)
    , m_text(text)
    , m_font(font)
{
    setType(Text);
    setCursorShape(Qt::PointingHandCursor);
}

// The alignment is not copied: a copy starts at the default again. A pasted
// text travels with that default, so the boards that receive the paste agree
// with the board that made it.
GraphicTextItem::GraphicTextItem(const GraphicTextItem& other)
    : GraphicFrameItem(other)
    , m_text(other.m_text)
    , m_font(other.m_font)
{
}

void GraphicTextItem::setText(const QString& text)
{
    if (m_text == text)
        return;
    m_text = text;
    emit textChanged();
}

void GraphicTextItem::setFont(const QFont& font)
{
    if (m_font == font)
        return;
    m_font = font;
    emit fontChanged();
}

void GraphicTextItem::layoutAt(const QPointF& position)
{
    const QFontMetricsF metrics(m_font);
    // One line high whatever the text holds, until the frame is resized;
    // measured no further than the frame may reach.
    const double width = measuredAdvance(metrics, m_text, 2 * InputLimits::kMaxCoordinate);
    QRectF frame(position, QPointF(position.x() + width, position.y() + metrics.height()));
    // A long text in a large font would otherwise reach past any pixel range.
    if (InputLimits::clampRect(frame))
        qCWarning(lcWhiteboardInput, "clamped text %s: frame", qPrintable(gid()));
    m_outlinePath = GraphicPaths::rectPath(frame);
    rebuildHitPath();
    setBoundary(frame);
}

GraphicController* GraphicTextItem::makeController()
{
    return new GraphicTextController(scene(), this);
}

GraphicItem* GraphicTextItem::copy()
{
    return new GraphicTextItem(*this);
}

void GraphicTextItem::paint(QPainter* painter, const QRectF*)
{
    if (!visible())
        return;
    QPen pen = this->pen();
    pen.setColor(paintColor(pen.color()));
    if (m_text.size() > kMaxDirectLength) {
        paintLaidOut(painter, pen);
        return;
    }
    painter->setPen(pen);
    painter->setBrush(brush());
    painter->setFont(m_font);
    // Fixed flags: no wrapping and no use of the alignment; the frame clips.
    painter->drawText(boundary(), Qt::AlignLeft | Qt::AlignTop, m_text);
}

void GraphicTextItem::paintLaidOut(QPainter* painter, const QPen& pen)
{
    const QRectF frame = boundary();
    const double reach = m_font.pixelSize() > 0 ? m_font.pixelSize() * 2.0 : 100.0;
    if (!m_layout || m_laidOutText != m_text || m_laidOutFont != m_font || m_laidOutWidth < frame.width()) {
        m_laidOutText = m_text;
        m_laidOutFont = m_font;
        // The frame is at most twice the coordinate margin wide: each line
        // is laid out only as far as the frame reaches, so the layout's
        // fixed point never overflows.
        m_laidOutWidth = std::min(frame.width() * 2.0, 2 * InputLimits::kMaxCoordinate);
        const QFontMetricsF metrics(m_font);
        QStringList lines = m_text.split(QLatin1Char('\n'));
        for (QString& line : lines) {
            qsizetype measured = 0;
            measuredAdvance(metrics, line, m_laidOutWidth + reach, &measured);
            line.truncate(measured);
        }
        // As a text drawn into a rectangle, left and top aligned, without
        // wrapping: each line break starts a line, one leading below the last.
        m_layout = std::make_unique<QTextLayout>(lines.join(QChar::LineSeparator), m_font);
        QTextOption option;
        option.setWrapMode(QTextOption::NoWrap);
        m_layout->setTextOption(option);
        const double leading = metrics.leading();
        double height = 0.0;
        m_layout->beginLayout();
        for (QTextLine line = m_layout->createLine(); line.isValid(); line = m_layout->createLine()) {
            line.setLineWidth(std::numeric_limits<int>::max() / 256);
            height += leading;
            line.setPosition(QPointF(0.0, height));
            height += line.height();
        }
        m_layout->endLayout();
    }
    // Only the lines within the frame and the painter's clip are drawn.
    QRectF shown = frame;
    if (painter->hasClipping())
        shown &= painter->clipBoundingRect();
    if (shown.isEmpty())
        return;
    painter->save();
    painter->setPen(pen);
    painter->setBrush(brush());
    // The frame clips.
    painter->setClipRect(frame, Qt::IntersectClip);
    // A line wider than what shows gives only the glyphs that show.
    const QRectF local = shown.translated(-frame.topLeft());
    for (int i = 0; i < m_layout->lineCount(); ++i) {
        const QTextLine line = m_layout->lineAt(i);
        const QRectF bounds = line.naturalTextRect();
        if (!bounds.intersects(local))
            continue;
        if (bounds.width() <= local.width() + 2 * reach) {
            line.draw(painter, frame.topLeft());
            continue;
        }
        const int from = line.xToCursor(local.left() - reach);
        const int to = line.xToCursor(local.right() + reach);
        const QList<QGlyphRun> runs = line.glyphRuns(from, to - from);
        for (const QGlyphRun& run : runs)
            painter->drawGlyphRun(frame.topLeft(), run);
    }
    painter->restore();
}

// The whole frame is a target, whatever the mode.
bool GraphicTextItem::collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode) const
{
    return boundary().contains(point);
}

} // namespace whiteboard
