#include "graphics/graphicellipseitem.h"

#include "graphics/graphicdistance.h"
#include "graphics/graphicellipsecontroller.h"
#include "scene/graphicscene.h"

#include <QMouseEvent>
#include <QRegion>

namespace whiteboard {

GraphicEllipseItem::GraphicEllipseItem(GraphicScene* scene, GraphicItem* parent)
    : AbstractGraphicShapeItem(scene, parent)
{
    m_stroker.setWidth(6);
    setType(Ellipse);
    setDrawingStyleDefaults();
    setController(new GraphicEllipseController(scene, this));
}

GraphicEllipseItem::GraphicEllipseItem(const GraphicEllipseItem& other)
    : AbstractGraphicShapeItem(other)
    , m_startPoint(other.m_startPoint)
    , m_pressed(other.m_pressed)
{
    m_stroker.setWidth(6);
    setController(new GraphicEllipseController(other.scene(), this));
}

GraphicItem* GraphicEllipseItem::copy()
{
    return new GraphicEllipseItem(*this);
}

bool GraphicEllipseItem::collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const
{
    const QRectF b = m_outlinePath.boundingRect();
    switch (mode) {
    case Qt::ContainsItemBoundingRect:
    case Qt::IntersectsItemBoundingRect:
        return b.contains(point);
    case Qt::ContainsItemShape:
    case Qt::IntersectsItemShape: {
        const QPointF q = point - b.center();
        // The closed form divides by the difference of the axes: a circle takes its own.
        const double d = b.width() == b.height() ? sdCircle(q, b.width() * 0.5)
                                                 : sdEllipse(q, QPointF(b.width() * 0.5, b.height() * 0.5));
        const double t = hitTolerance();
        // A band around the outline always hits; the inside only when filled.
        if (d < -t)
            return brush() != QBrush(Qt::NoBrush);
        return d <= t;
    }
    }
    return false;
}

void GraphicEllipseItem::mousePressEvent(QMouseEvent* event)
{
    event->setAccepted(false);
    const QPointF p = eventScenePos(event);
    if (!m_outlinePath.isEmpty() && collidesWithPoint(p, Qt::IntersectsItemShape)) {
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

void GraphicEllipseItem::mouseMoveEvent(QMouseEvent* event)
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
    QRectF r(QPointF(qMin(m_startPoint.x(), p.x()), qMin(m_startPoint.y(), p.y())),
             QPointF(qMax(m_startPoint.x(), p.x()), qMax(m_startPoint.y(), p.y())));
    const Qt::KeyboardModifiers modifiers = event->modifiers();
    if (modifiers & Qt::AltModifier) {
        // The frame grows by half and is centred on its former top-left corner,
        // wherever the drag started.
        const QPointF topLeft = r.topLeft();
        r.setWidth(r.width() * 1.5);
        r.setHeight(r.height() * 1.5);
        r.moveCenter(topLeft);
    }
    if (modifiers & Qt::ShiftModifier) {
        const double radius = qMin(r.height(), r.width()) * 0.5;
        m_outlinePath.addEllipse(r.center(), radius, radius);
    } else {
        m_outlinePath.addEllipse(r);
    }
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

void GraphicEllipseItem::mouseReleaseEvent(QMouseEvent* event)
{
    event->setAccepted(false);
    if (m_pressed) {
        event->accept();
        if (!m_outlinePath.isEmpty())
            rebuildHitPath();
        if (isEditMode())
            setIsEditMode(false);
    }
    m_pressed = false;
}

} // namespace whiteboard
