#include "graphics/abstractgraphicshapeitem.h"

#include "graphics/graphichittest.h"
#include "graphics/graphicpaths.h"
#include "graphics/graphicstyles.h"
#include "scene/graphicscene.h"
#include "scene/sceneexport.h"

#include <QDebug>
#include <QMouseEvent>
#include <QPainter>

namespace whiteboard {

AbstractGraphicShapeItem::AbstractGraphicShapeItem(GraphicScene* scene, GraphicItem* parent)
    : GraphicItem(scene, parent)
{
}

AbstractGraphicShapeItem::AbstractGraphicShapeItem(const AbstractGraphicShapeItem& other)
    : GraphicItem(other)
    , m_outlinePath(other.m_outlinePath)
    , m_hitPath(other.m_hitPath)
    , m_hitPathPending(other.m_hitPathPending)
    , m_brush(other.m_brush)
    , m_pen(other.m_pen)
    , m_brushHovered(other.m_brushHovered)
    , m_penHovered(other.m_penHovered)
    , m_cacheOffset(other.m_cacheOffset)
{
}

void AbstractGraphicShapeItem::setDrawingStyleDefaults()
{
    setPen(QPen(QColor(Qt::red)));
    setBrushHovered(QBrush(QColor("#80ffff00"), Qt::SolidPattern));
    setPenHovered(QPen(QColor("#80ff0000")));
    setCursorShape(Qt::PointingHandCursor);
}

void AbstractGraphicShapeItem::setBrush(const QBrush& brush)
{
    if (m_brush == brush)
        return;
    m_brush = GraphicStyles::sharedBrush(brush);
    emit brushChanged();
}

void AbstractGraphicShapeItem::setPen(const QPen& pen)
{
    if (m_pen == pen)
        return;
    // The pen's width is part of the hit tolerance, so of where the item is hit.
    const bool reachChanged = pen.width() != m_pen.width();
    m_pen = GraphicStyles::sharedPen(pen);
    if (GraphicScene* scene = this->scene())
        scene->notePaintMargin(pen.widthF());
    if (reachChanged)
        notifyGeometryChange();
    emit penChanged();
}

void AbstractGraphicShapeItem::setBrushHovered(const QBrush& brush)
{
    if (m_brushHovered == brush)
        return;
    m_brushHovered = GraphicStyles::sharedBrush(brush);
    emit brushHoveredChanged();
}

void AbstractGraphicShapeItem::setPenHovered(const QPen& pen)
{
    if (m_penHovered == pen)
        return;
    m_penHovered = GraphicStyles::sharedPen(pen);
    emit penHoveredChanged();
}

QColor AbstractGraphicShapeItem::color() const
{
    return GraphicStyles::colorOf(m_brush, m_pen);
}

void AbstractGraphicShapeItem::setColor(const QColor& color)
{
    if (!filled()) {
        QPen pen = m_pen;
        if (pen.color() == color)
            return;
        pen.setColor(color);
        setPen(pen);
    } else {
        QBrush brush = m_brush;
        if (brush.color() == color)
            return;
        brush.setColor(color);
        setBrush(brush);
    }
    emit colorChanged();
}

double AbstractGraphicShapeItem::strokeWidth() const
{
    return GraphicStyles::strokeWidthOf(m_pen);
}

void AbstractGraphicShapeItem::setStrokeWidth(double width)
{
    if (m_pen == QPen(Qt::NoPen) || qFuzzyCompare(m_pen.widthF(), width))
        return;
    QPen pen = m_pen;
    pen.setWidthF(width);
    setPen(pen);
    emit strokeWidthChanged();
}

QPainterPath AbstractGraphicShapeItem::paintedPath(const QPainterPath& path)
{
    if (path.isEmpty())
        return path;
    // Setting a fill rule other than the path's detaches it; setting the
    // path's own back leaves the copy as it was.
    QPainterPath copy = path;
    const Qt::FillRule rule = copy.fillRule();
    copy.setFillRule(rule == Qt::OddEvenFill ? Qt::WindingFill : Qt::OddEvenFill);
    copy.setFillRule(rule);
    return copy;
}

void AbstractGraphicShapeItem::rebuildHitPath()
{
    m_hitPath = QPainterPath();
    m_hitPathPending = true;
}

QPainterPath AbstractGraphicShapeItem::makeHitPath() const
{
    return GraphicPaths::strokeOf(m_outlinePath);
}

QPainterPath AbstractGraphicShapeItem::hitPath() const
{
    if (m_hitPathPending) {
        m_hitPath = makeHitPath();
        m_hitPathPending = false;
    }
    return m_hitPath;
}

void AbstractGraphicShapeItem::setHitPath(const QPainterPath& path)
{
    m_hitPath = path;
    m_hitPathPending = false;
}

double AbstractGraphicShapeItem::hitTolerance() const
{
    return GraphicHitTest::tolerance(m_pen);
}

bool AbstractGraphicShapeItem::takePress(QMouseEvent* event, bool onItem)
{
    event->setAccepted(false);
    if (onItem) {
        event->accept();
        if (focusable())
            setActiveFocus(true);
    }
    if (isEditMode())
        event->accept();
    return event->isAccepted();
}

void AbstractGraphicShapeItem::hoverAt(const QPointF& point, QMouseEvent* event)
{
    if (collidesWithPoint(point, Qt::IntersectsItemShape) && hoverEnabled()) {
        event->accept();
        setHovered(true);
    }
}

void AbstractGraphicShapeItem::endPress(QMouseEvent* event, bool pressed, bool rebuildHit)
{
    event->setAccepted(false);
    if (!pressed)
        return;
    event->accept();
    if (rebuildHit && !m_outlinePath.isEmpty())
        rebuildHitPath();
    if (isEditMode())
        setIsEditMode(false);
}

bool AbstractGraphicShapeItem::showsSelection() const
{
    // An exported file shows the page, not who selected what.
    return selected() && !SceneExport::exporting();
}

QColor AbstractGraphicShapeItem::paintColor(QColor color) const
{
    return GraphicStyles::paintColor(color, showsSelection(), opacity());
}

void AbstractGraphicShapeItem::paint(QPainter* painter, const QRectF*)
{
    if (!visible() || opacity() < 0.001)
        return;
    painter->setPen(GraphicStyles::paintedPen(m_pen, showsSelection(), opacity()));
    painter->setBrush(GraphicStyles::paintedBrush(m_brush, showsSelection(), opacity()));
    drawOutline(painter);
    paintSelectionVeil(painter);
}

void AbstractGraphicShapeItem::drawOutline(QPainter* painter)
{
    // A stroke still being drawn changes with every point: painted whole.
    // So is an exported one: a file keeps the path, off the GUI thread.
    if (GraphicStrokeCache::wanted(m_outlinePath) && !isEditMode() && !SceneExport::exporting())
        m_strokeCache.paint(painter, scene(), m_outlinePath, painter->pen(), painter->brush());
    else
        painter->drawPath(m_outlinePath);
}

void AbstractGraphicShapeItem::paintSelectionVeil(QPainter* painter) const
{
    if (!showsSelection() || !filled())
        return;
    painter->setPen(GraphicStyles::veilPen(m_pen.width()));
    painter->setBrush(GraphicStyles::veilBrush());
    painter->drawPath(m_outlinePath);
}

bool AbstractGraphicShapeItem::collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const
{
    // The band is made only where it is asked for.
    switch (mode) {
    case Qt::ContainsItemShape:
    case Qt::IntersectsItemShape:
        return hitPath().contains(point);
    case Qt::ContainsItemBoundingRect:
    case Qt::IntersectsItemBoundingRect:
        return m_outlinePath.boundingRect().contains(point);
    }
    return false;
}

bool AbstractGraphicShapeItem::collidesWithPath(const QPainterPath& path, Qt::ItemSelectionMode mode) const
{
    return GraphicHitTest::path(m_outlinePath, hitPath(), filled(), path, mode);
}

bool AbstractGraphicShapeItem::collidesWithRect(const QRectF& rect, Qt::ItemSelectionMode mode) const
{
    // A band still to be built is the outline's stroke, which covers the
    // outline: where the outline's bounds overlap the rectangle, so do the
    // band's, and a rubber band need not build it to know.
    if (mode == Qt::IntersectsItemShape && m_hitPathPending && rect.intersects(m_outlinePath.boundingRect()))
        return true;
    return GraphicHitTest::rect(m_outlinePath, hitPath(), rect, mode);
}

const QPainterPath& AbstractGraphicShapeItem::shape() const
{
    return m_outlinePath;
}

} // namespace whiteboard
