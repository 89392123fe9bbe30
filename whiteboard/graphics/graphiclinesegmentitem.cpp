#include "graphics/graphiclinesegmentitem.h"

#include "graphics/graphichittest.h"
#include "graphics/graphiclinesegmentcontroller.h"
#include "graphics/graphicpaths.h"
#include "scene/graphicscene.h"
#include "scene/sceneexport.h"

#include <QHoverEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QRegion>

namespace whiteboard {

GraphicLineSegmentItem::GraphicLineSegmentItem(GraphicScene* scene, GraphicItem* parent)
    : AbstractGraphicShapeItem(scene, parent)
{
    setType(Segment);
    setDrawingStyleDefaults();
}

GraphicLineSegmentItem::GraphicLineSegmentItem(const GraphicLineSegmentItem& other)
    : AbstractGraphicShapeItem(other)
    , m_currentSegment(other.m_currentSegment)
    , m_lastPoint(other.m_lastPoint)
    , m_segmentDragged(other.m_segmentDragged)
{
}

GraphicController* GraphicLineSegmentItem::makeController()
{
    return new GraphicLineSegmentController(scene(), this);
}

GraphicItem* GraphicLineSegmentItem::copy()
{
    return new GraphicLineSegmentItem(*this);
}

void GraphicLineSegmentItem::mousePressEvent(QMouseEvent* event)
{
    event->setAccepted(false);
    if (event->button() == Qt::LeftButton) {
        const QPointF p = eventScenePos(event);
        if (isEditMode()) {
            // Commit the rubber band; the next one starts here.
            event->setAccepted(true);
            m_lastPoint = p;
            if (!m_currentSegment.isEmpty())
                m_outlinePath.addPath(m_currentSegment);
        } else if (!m_outlinePath.isEmpty() && collidesWithPoint(p, Qt::IntersectsItemShape)) {
            event->setAccepted(true);
            if (focusable())
                setActiveFocus(true);
        }
        return;
    }

    // Any other button finishes the polyline and drops the rubber band.
    if (!isEditMode())
        return;
    event->setAccepted(true);
    setIsEditMode(false);
    if (!m_currentSegment.isEmpty()) {
        const int w = pen().width();
        const QRectF dirty = m_currentSegment.boundingRect().adjusted(-w, -w, w, w).united(m_outlinePath.boundingRect());
        scene()->invalidate(dirty, GraphicScene::ActiveLayer);
        m_currentSegment.clear();
    }
    if (m_outlinePath.isEmpty())
        return;
    rebuildHitPath();
    setBoundary(m_outlinePath.boundingRect());
}

void GraphicLineSegmentItem::mouseMoveEvent(QMouseEvent* event)
{
    event->setAccepted(false);
    const QPointF p = eventScenePos(event);
    if (!isEditMode()) {
        hoverAt(p, event);
        return;
    }
    event->setAccepted(true);
    if (p == m_lastPoint)
        return;
    const int w = pen().width();
    const QRectF old = GraphicPaths::grownUnlessEmpty(m_outlinePath.boundingRect(), w);
    m_currentSegment.clear();
    m_currentSegment.moveTo(m_lastPoint);
    m_currentSegment.lineTo(p);
    if (m_outlinePath.isEmpty())
        setHitPath(GraphicPaths::strokeOf(m_currentSegment));
    scene()->invalidate(m_currentSegment.boundingRect().adjusted(-w, -w, w, w).united(old), GraphicScene::ActiveLayer);
    m_segmentDragged = true;
}

void GraphicLineSegmentItem::hoverMoveEvent(QHoverEvent* event)
{
    event->setAccepted(false);
    if (!isEditMode())
        return;
    event->setAccepted(true);
    const QPointF p = mapToScene(scene()->mapToScene(event->position()));
    const int w = pen().width();
    const QRectF old = GraphicPaths::grownUnlessEmpty(m_currentSegment.boundingRect(), w);
    m_currentSegment.clear();
    m_currentSegment.moveTo(m_lastPoint);
    m_currentSegment.lineTo(p);
    setHitPath(GraphicPaths::strokeOf(m_currentSegment));
    scene()->invalidate(m_currentSegment.boundingRect().adjusted(-w, -w, w, w).united(old), GraphicScene::ActiveLayer);
}

void GraphicLineSegmentItem::mouseReleaseEvent(QMouseEvent*) { }

bool GraphicLineSegmentItem::collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const
{
    // While the polyline is drawn its band is the rubber band's.
    if (!isEditMode() && (mode == Qt::ContainsItemShape || mode == Qt::IntersectsItemShape) && hasHitPath())
        return GraphicHitTest::nearPolyline(m_outlinePath, GraphicPaths::kHitBandHalfWidth, point);
    return AbstractGraphicShapeItem::collidesWithPoint(point, mode);
}

QPainterPath GraphicLineSegmentItem::makeHitPath() const
{
    return GraphicPaths::plainStrokeOf(m_outlinePath);
}

void GraphicLineSegmentItem::paint(QPainter* painter, const QRectF*)
{
    if (!visible() || opacity() < 0.001)
        return;
    const QPen pen = this->pen();
    // An export shows the item as the others see it, unselected.
    if (!selected() || SceneExport::exporting()) {
        QPen copy = pen;
        QColor color = copy.color();
        color.setAlphaF(float(opacity()));
        copy.setColor(color);
        painter->setPen(copy);
    } else {
        // The selected stroke is opaque and solid.
        painter->setPen(QPen(QBrush(pen.color().darker(110), Qt::SolidPattern), pen.width(), Qt::SolidLine, Qt::SquareCap, Qt::BevelJoin));
    }
    painter->setBrush(brush());
    drawOutline(painter);
    painter->drawPath(m_currentSegment);
    paintSelectionVeil(painter);
}

} // namespace whiteboard
