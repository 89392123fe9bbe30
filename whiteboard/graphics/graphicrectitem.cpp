#include "graphics/graphicrectitem.h"

#include "graphics/graphicdistance.h"
#include "graphics/graphicrectcontroller.h"
#include "scene/graphicscene.h"

#include <QDebug>
#include <QMouseEvent>
#include <QRegion>

namespace whiteboard {

GraphicRectItem::GraphicRectItem(GraphicScene* scene, GraphicItem* parent)
    : AbstractGraphicShapeItem(scene, parent)
{
    m_stroker.setWidth(6);
    setType(Rectangle);
    setDrawingStyleDefaults();
    setController(new GraphicRectController(scene, this));
}

GraphicRectItem::GraphicRectItem(const GraphicRectItem& other)
    : AbstractGraphicShapeItem(other)
    , m_startPoint(other.m_startPoint)
    , m_pressed(other.m_pressed)
{
    m_stroker.setWidth(6);
    setController(new GraphicRectController(other.scene(), this));
}

GraphicItem* GraphicRectItem::copy()
{
    return new GraphicRectItem(*this);
}

bool GraphicRectItem::collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const
{
    const QRectF b = m_outlinePath.boundingRect();
    switch (mode) {
    case Qt::ContainsItemBoundingRect:
    case Qt::IntersectsItemBoundingRect:
        return b.contains(point);
    case Qt::ContainsItemShape:
    case Qt::IntersectsItemShape: {
        const double d = sdBox(point - b.center(), QPointF(b.width() * 0.5, b.height() * 0.5));
        const double t = hitTolerance();
        // A band around the outline always hits; the inside only when filled.
        if (d < -t)
            return brush() != QBrush(Qt::NoBrush);
        return d <= t;
    }
    }
    return false;
}

void GraphicRectItem::mousePressEvent(QMouseEvent* event)
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
        qDebug() << "press:" << p << event->pos();
    }
}

void GraphicRectItem::mouseMoveEvent(QMouseEvent* event)
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

void GraphicRectItem::mouseReleaseEvent(QMouseEvent* event)
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
