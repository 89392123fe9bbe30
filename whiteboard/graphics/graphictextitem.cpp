#include "graphics/graphictextitem.h"

#include "graphics/graphictextcontroller.h"

#include <QFontMetricsF>
#include <QPainter>

namespace whiteboard {

GraphicTextItem::GraphicTextItem(const QString& text, const QFont& font, GraphicScene* scene, GraphicItem* parent)
    : GraphicFrameItem(scene, parent)
    , m_text(text)
    , m_font(font)
{
    setType(Text);
    setCursorShape(Qt::PointingHandCursor);
    setController(new GraphicTextController(scene, this));
}

// The alignment is not copied: a copy starts at the default again.
GraphicTextItem::GraphicTextItem(const GraphicTextItem& other)
    : GraphicFrameItem(other)
    , m_text(other.m_text)
    , m_font(other.m_font)
{
    setController(new GraphicTextController(other.scene(), this));
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
    m_outlinePath.clear();
    const QFontMetricsF metrics(m_font);
    // One line high whatever the text holds, until the frame is resized.
    const QRectF frame(position, QPointF(position.x() + metrics.horizontalAdvance(m_text), position.y() + metrics.height()));
    m_outlinePath.addRect(frame);
    m_hitPath = m_stroker.createStroke(m_outlinePath).simplified();
    setBoundary(frame);
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
    painter->setPen(pen);
    painter->setBrush(brush());
    painter->setFont(m_font);
    // Fixed flags: no wrapping and no use of the alignment; the frame clips.
    painter->drawText(boundary(), Qt::AlignLeft | Qt::AlignTop, m_text);
}

// The whole frame is a target, whatever the mode.
bool GraphicTextItem::collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode) const
{
    return boundary().contains(point);
}

} // namespace whiteboard
