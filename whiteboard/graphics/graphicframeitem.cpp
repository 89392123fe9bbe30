#include "graphics/graphicframeitem.h"

#include "graphics/graphicpaths.h"
#include "scene/graphicscene.h"

#include <QMouseEvent>
#include <QRegion>

namespace whiteboard {

GraphicFrameItem::GraphicFrameItem(GraphicScene* scene, GraphicItem* parent)
    : AbstractGraphicShapeItem(scene, parent)
{
}

GraphicFrameItem::GraphicFrameItem(const GraphicFrameItem& other)
    : AbstractGraphicShapeItem(other)
    , m_startPoint(other.m_startPoint)
    , m_pressed(other.m_pressed)
{
}

bool GraphicFrameItem::pressHits(const QPointF& point) const
{
    return hitPath().contains(point);
}

QPainterPath GraphicFrameItem::framePath(const QRectF& frame, Qt::KeyboardModifiers) const
{
    return GraphicPaths::rectPath(frame);
}

void GraphicFrameItem::drawingStarted(const QPointF&, QMouseEvent*) { }

void GraphicFrameItem::mousePressEvent(QMouseEvent* event)
{
    const QPointF p = eventScenePos(event);
    if (takePress(event, !m_outlinePath.isEmpty() && pressHits(p)))
        m_pressed = true;
    if (isEditMode()) {
        m_startPoint = p;
        drawingStarted(p, event);
    }
}

void GraphicFrameItem::mouseMoveEvent(QMouseEvent* event)
{
    event->setAccepted(false);
    const QPointF p = eventScenePos(event);
    if (!m_pressed) {
        hoverAt(p, event);
        return;
    }
    event->accept();
    QPainterPath old = m_outlinePath;
    const QRectF r(QPointF(qMin(m_startPoint.x(), p.x()), qMin(m_startPoint.y(), p.y())),
                   QPointF(qMax(m_startPoint.x(), p.x()), qMax(m_startPoint.y(), p.y())));
    m_outlinePath = framePath(r, event->modifiers());
    setBoundary(m_outlinePath.boundingRect());
    // While dragging, the hit path also covers the previous frame: it is the
    // area to repaint.
    old.addPath(m_outlinePath);
    setHitPath(GraphicPaths::strokeOf(old));
    if (brush() == QBrush(Qt::NoBrush)) {
        scene()->invalidate(hitPath().boundingRect(), GraphicScene::ActiveLayer);
    } else {
        const int w = pen().width();
        scene()->invalidate(old.boundingRect().adjusted(-w, -w, w, w), GraphicScene::ActiveLayer);
    }
}

void GraphicFrameItem::mouseReleaseEvent(QMouseEvent* event)
{
    endPress(event, m_pressed);
    m_pressed = false;
}

void GraphicFrameItem::placeFrame(const QRectF& frame)
{
    m_outlinePath = framePath(frame, Qt::NoModifier);
    rebuildHitPath();
    setBoundary(frame);
}

} // namespace whiteboard
