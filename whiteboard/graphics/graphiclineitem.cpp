#include "graphics/graphiclineitem.h"

#include "graphics/graphichittest.h"
#include "graphics/graphiclinecontroller.h"
#include "graphics/graphicpaths.h"
#include "scene/graphicscene.h"

#include <QMouseEvent>
#include <QRegion>

namespace whiteboard {

GraphicLineItem::GraphicLineItem(GraphicScene* scene, GraphicItem* parent)
    : AbstractGraphicShapeItem(scene, parent)
{
    setType(Line);
    setDrawingStyleDefaults();
}

GraphicLineItem::GraphicLineItem(const GraphicLineItem& other)
    : AbstractGraphicShapeItem(other)
    , m_startPoint(other.m_startPoint)
    , m_lastPoint(other.m_lastPoint)
    , m_pressed(other.m_pressed)
{
}

GraphicController* GraphicLineItem::makeController()
{
    return new GraphicLineController(scene(), this);
}

GraphicItem* GraphicLineItem::copy()
{
    return new GraphicLineItem(*this);
}

bool GraphicLineItem::collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const
{
    switch (mode) {
    case Qt::ContainsItemShape:
    case Qt::IntersectsItemShape: {
        if (m_outlinePath.elementCount() != 2)
            return m_outlinePath.boundingRect().contains(point);
        return GraphicHitTest::nearSegment(m_outlinePath, hitTolerance(), point);
    }
    case Qt::ContainsItemBoundingRect:
    case Qt::IntersectsItemBoundingRect:
        return m_outlinePath.boundingRect().contains(point);
    }
    return false;
}

void GraphicLineItem::mousePressEvent(QMouseEvent* event)
{
    const QPointF p = eventScenePos(event);
    m_lastPoint = p;
    if (takePress(event, !m_outlinePath.isEmpty() && collidesWithPoint(p, Qt::IntersectsItemShape)))
        m_pressed = true;
    if (isEditMode())
        m_startPoint = p;
}

void GraphicLineItem::mouseMoveEvent(QMouseEvent* event)
{
    const QPointF p = eventScenePos(event);
    event->setAccepted(false);
    if (!m_pressed) {
        hoverAt(p, event);
    } else if (isEditMode()) {
        event->setAccepted(true);
        const int w = pen().width();
        const QRectF old = GraphicPaths::grownUnlessEmpty(m_outlinePath.boundingRect(), w);

        m_outlinePath = GraphicPaths::segmentPath(m_startPoint, p);

        // A horizontal or vertical line gets a boundary as thick as its pen.
        QRectF r = m_outlinePath.boundingRect();
        if (r.height() == 0.0)
            r.setHeight(w);
        if (r.width() == 0.0)
            r.setWidth(w);
        setHitPath(GraphicPaths::strokeOf(m_outlinePath));
        setBoundary(r);
        scene()->invalidate(r.adjusted(-w, -w, w, w).united(old), GraphicScene::ActiveLayer);
    }
    m_lastPoint = p;
}

void GraphicLineItem::mouseReleaseEvent(QMouseEvent* event)
{
    // The hit path already follows every move of the drawing.
    endPress(event, m_pressed, false);
    m_pressed = false;
}

} // namespace whiteboard
