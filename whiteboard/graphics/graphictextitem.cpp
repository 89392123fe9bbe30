#include "graphics/graphictextitem.h"

#include "graphics/graphictextcontroller.h"
#include "scene/graphicscene.h"

#include <QFontMetricsF>
#include <QMouseEvent>
#include <QPainter>
#include <QRegion>

namespace whiteboard {

GraphicTextItem::GraphicTextItem(const QString& text, const QFont& font, GraphicScene* scene, GraphicItem* parent)
    : AbstractGraphicShapeItem(scene, parent)
    , m_text(text)
    , m_font(font)
{
    m_stroker.setWidth(6);
    setType(Text);
    setCursorShape(Qt::PointingHandCursor);
    setController(new GraphicTextController(scene, this));
}

// The alignment is not copied: a copy starts at the default again.
GraphicTextItem::GraphicTextItem(const GraphicTextItem& other)
    : AbstractGraphicShapeItem(other)
    , m_startPoint(other.m_startPoint)
    , m_pressed(other.m_pressed)
    , m_text(other.m_text)
    , m_font(other.m_font)
{
    m_stroker.setWidth(6);
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

void GraphicTextItem::mousePressEvent(QMouseEvent* event)
{
    event->setAccepted(false);
    const QPointF p = eventScenePos(event);
    if (!m_outlinePath.isEmpty() && m_hitPath.contains(p)) {
        event->accept();
        m_pressed = true;
        if (focusable())
            setActiveFocus(true);
    }
    if (isEditMode()) {
        m_pressed = true;
        event->accept();
        m_startPoint = p;
    }
}

void GraphicTextItem::mouseMoveEvent(QMouseEvent* event)
{
    event->setAccepted(false);
    const QPointF p = eventScenePos(event);
    if (!m_pressed) {
        if (collidesWithPoint(p, Qt::IntersectsItemShape) && hoverEnabled()) {
            event->accept();
            setHovered(true);
        }
        return;
    }
    event->accept();
    QPainterPath old = m_outlinePath;
    m_outlinePath = QPainterPath();
    const QRectF r(QPointF(qMin(m_startPoint.x(), p.x()), qMin(m_startPoint.y(), p.y())),
                   QPointF(qMax(m_startPoint.x(), p.x()), qMax(m_startPoint.y(), p.y())));
    m_outlinePath.addRect(r);
    setBoundary(m_outlinePath.boundingRect());
    // While dragging, the hit path also covers the previous frame: it is the
    // area to repaint.
    old.addPath(m_outlinePath);
    m_hitPath = m_stroker.createStroke(old).simplified();
    if (brush() == QBrush(Qt::NoBrush)) {
        scene()->updateLayer(GraphicScene::ActiveLayer, m_hitPath);
    } else {
        const int w = pen().width();
        scene()->updateLayer(GraphicScene::ActiveLayer, QRegion(old.boundingRect().adjusted(-w, -w, w, w).toRect()));
    }
}

void GraphicTextItem::mouseReleaseEvent(QMouseEvent* event)
{
    event->setAccepted(false);
    if (m_pressed) {
        event->accept();
        if (!m_outlinePath.isEmpty())
            m_hitPath = m_stroker.createStroke(m_outlinePath).simplified();
        if (isEditMode())
            setIsEditMode(false);
    }
    m_pressed = false;
}

} // namespace whiteboard
