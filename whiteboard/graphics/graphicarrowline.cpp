#include "graphics/graphicarrowline.h"

#include "graphics/graphicarrowlinecontroller.h"
#include "graphics/graphichittest.h"
#include "graphics/graphicpaths.h"
#include "graphics/graphicstyles.h"
#include "scene/graphicscene.h"

#include <QMouseEvent>
#include <QPainter>
#include <QRegion>
#include <QTransform>

#include <cmath>

namespace whiteboard {

GraphicArrowLineItem::GraphicArrowLineItem(GraphicScene* scene, GraphicItem* parent)
    : AbstractGraphicShapeItem(scene, parent)
{
    setType(ArrowLine);
    setDrawingStyleDefaults();
}

GraphicArrowLineItem::GraphicArrowLineItem(const GraphicArrowLineItem& other)
    : AbstractGraphicShapeItem(other)
    , m_startPoint(other.m_startPoint)
    , m_headPath(other.m_headPath)
    , m_pressed(other.m_pressed)
    , m_capSize(other.m_capSize)
    , m_capStyle(other.m_capStyle)
{
}

GraphicController* GraphicArrowLineItem::makeController()
{
    return new GraphicArrowLineController(scene(), this);
}

GraphicItem* GraphicArrowLineItem::copy()
{
    return new GraphicArrowLineItem(*this);
}

void GraphicArrowLineItem::setCapSize(int capSize)
{
    if (m_capSize == capSize)
        return;
    m_capSize = capSize;
    emit capSizeChanged();
}

void GraphicArrowLineItem::setCapStyle(GraphicDefine::LineCapStyle capStyle)
{
    if (m_capStyle == capStyle)
        return;
    m_capStyle = capStyle;
    emit capStyleChanged();
}

QPainterPath GraphicArrowLineItem::buildHead(const QPointF& start, const QPointF& end, int style)
{
    const double c = m_capSize;
    // The shape is made once; a later capSize moves the head but keeps its
    // size. Arrows of one size hold one copy of it.
    if (m_headPath.isEmpty()) {
        QPainterPath head;
        if (style == GraphicDefine::LineCapStyleArrow) {
            head.moveTo(0, 0);
            head.lineTo(-c, c * 0.5);
            head.lineTo(-c, -c * 0.5);
            head.closeSubpath();
        } else if (style == GraphicDefine::LineCapStyleCircle) {
            head.addEllipse(QRectF(-c * 0.5, -c * 0.5, c, c));
        }
        m_headPath = GraphicStyles::shared(head);
    }
    double dy = end.y() - start.y();
    const double dx = end.x() - start.x();
    // A horizontal shaft is taken as tilted by one unit; this also keeps a
    // zero-length shaft free of a division by zero.
    if (dy == 0.0)
        dy = 1.0;
    const double k = c * dy / std::sqrt(dx * dx + dy * dy);
    QTransform transform;
    transform.translate(k * dx / dy + end.x(), k + end.y());
    if (style == GraphicDefine::LineCapStyleArrow)
        transform.rotate(std::atan2(dy, dx) / 3.141592653589793 * 180.0, Qt::ZAxis);
    return transform.map(m_headPath);
}

QPainterPath GraphicArrowLineItem::shaftWithHead(const QPointF& start, const QPointF& end)
{
    const QPainterPath head = buildHead(start, end, GraphicDefine::LineCapStyleArrow);
    QPainterPath path = GraphicPaths::segmentPath(start, end, 2 + head.elementCount());
    path.addPath(head);
    return path;
}

bool GraphicArrowLineItem::collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const
{
    switch (mode) {
    case Qt::ContainsItemShape:
    case Qt::IntersectsItemShape:
        // Only the shaft counts: the head is not a hit target.
        if (m_outlinePath.elementCount() >= 2)
            return GraphicHitTest::nearSegment(m_outlinePath, hitTolerance(), point);
        Q_FALLTHROUGH();
    case Qt::ContainsItemBoundingRect:
    case Qt::IntersectsItemBoundingRect: {
        // The point is mapped once more although it is in scene units already;
        // the arrow has always answered this way.
        const QPointF q = scene() ? scene()->mapToScene(point, 1.0) : point;
        return m_outlinePath.boundingRect().contains(q);
    }
    }
    return false;
}

void GraphicArrowLineItem::mousePressEvent(QMouseEvent* event)
{
    const QPointF p = eventScenePos(event);
    if (takePress(event, !m_outlinePath.isEmpty() && collidesWithPoint(p, Qt::IntersectsItemShape)))
        m_pressed = true;
    if (isEditMode())
        m_startPoint = p;
}

void GraphicArrowLineItem::mouseMoveEvent(QMouseEvent* event)
{
    const QPointF p = eventScenePos(event);
    event->setAccepted(false);
    if (!m_pressed) {
        hoverAt(p, event);
        return;
    }
    if (!isEditMode())
        return;
    event->setAccepted(true);
    const int w = pen().width();
    const QRectF old = GraphicPaths::grownUnlessEmpty(m_outlinePath.boundingRect(), w);
    m_outlinePath = shaftWithHead(m_startPoint, p);
    const QRectF r = m_outlinePath.boundingRect();
    setBoundary(r);
    scene()->invalidate(r.adjusted(-w, -w, w, w).united(old), GraphicScene::ActiveLayer);
}

void GraphicArrowLineItem::mouseReleaseEvent(QMouseEvent* event)
{
    // The hit path is built once here rather than at every move of the drawing.
    endPress(event, m_pressed);
    m_pressed = false;
}

void GraphicArrowLineItem::paint(QPainter* painter, const QRectF*)
{
    if (!visible() || opacity() < 0.001)
        return;
    QPen pen = this->pen();
    const QColor color = paintColor(pen.color());
    pen.setColor(color);
    // Shaft and head are filled with the stroke colour whatever the brush is.
    painter->setBrush(QBrush(color, Qt::SolidPattern));
    pen.setJoinStyle(Qt::MiterJoin);
    painter->setPen(pen);
    painter->drawPath(m_outlinePath);
    paintSelectionVeil(painter);
}

} // namespace whiteboard
