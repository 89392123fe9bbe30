#include "graphics/graphiccontroller.h"

#include "graphics/abstractgraphicshapeitem.h"
#include "graphics/graphicdistance.h"
#include "graphics/graphicpaths.h"
#include "scene/graphicscene.h"

#include <QJSEngine>
#include <QMouseEvent>
#include <QPainter>
#include <QRegion>

#include <cmath>

namespace whiteboard {

GraphicController::GraphicController(GraphicScene* scene, GraphicItem* item)
    : QObject(item)
    , m_scene(scene)
    , m_item(item)
{
    QJSEngine::setObjectOwnership(this, QJSEngine::CppOwnership);
    connect(item, SIGNAL(boundaryChanged()), this, SLOT(update()));
}

GraphicController::~GraphicController() = default;

void GraphicController::setControlPoints(const QList<GraphicControlPoint>& points)
{
    QMap<int, GraphicControlPoint> map;
    for (const GraphicControlPoint& point : points)
        map.insert(point.type, point);
    m_controlPoints = map;
}

QList<GraphicControlPoint> GraphicController::cornerPoints()
{
    return { GraphicControlPoint(GraphicDefine::GCP_SizeTopLeft), GraphicControlPoint(GraphicDefine::GCP_SizeTopRight),
             GraphicControlPoint(GraphicDefine::GCP_SizeBottomRight), GraphicControlPoint(GraphicDefine::GCP_SizeBottomLeft) };
}

bool GraphicController::moveCorner(QRectF& rect, int type, const QPointF& pos)
{
    switch (type) {
    case GraphicDefine::GCP_SizeTopLeft:
        rect.setTopLeft(pos);
        return true;
    case GraphicDefine::GCP_SizeTopRight:
        rect.setTopRight(pos);
        return true;
    case GraphicDefine::GCP_SizeBottomLeft:
        rect.setBottomLeft(pos);
        return true;
    case GraphicDefine::GCP_SizeBottomRight:
        rect.setBottomRight(pos);
        return true;
    default:
        return false;
    }
}

double GraphicController::sceneScale() const
{
    return m_scene ? m_scene->scale() : 1.0;
}

QPointF GraphicController::eventPos(const QMouseEvent* event) const
{
    return m_item->mapToScene(m_scene->mapToScene(QPointF(event->pos())));
}

void GraphicController::update()
{
    // Detach first: the render thread may be iterating a snapshot of the records.
    m_controlPoints.detach();
    for (auto it = m_controlPoints.begin(); it != m_controlPoints.end(); ++it)
        it->position = controlPointPosition(it.key());
}

void GraphicController::paintFrame(QPainter* painter, const QRectF& rect) const
{
    painter->setPen(QPen(QBrush(Qt::gray, Qt::SolidPattern), 1.0 / sceneScale(), Qt::DashLine, Qt::SquareCap, Qt::BevelJoin));
    painter->setBrush(Qt::NoBrush);
    painter->drawRects(&rect, 1);
}

void GraphicController::paint(QPainter* painter)
{
    auto* shape = qobject_cast<AbstractGraphicShapeItem*>(m_item);
    if (!shape)
        return;
    const double s = sceneScale();
    painter->setPen(QPen(QBrush(QColor("#CCCCCC"), Qt::SolidPattern), 1.0 / s, Qt::SolidLine, Qt::SquareCap, Qt::BevelJoin));
    painter->setBrush(QBrush(Qt::white, Qt::SolidPattern));
    const QList<GraphicControlPoint> points = m_controlPoints.values();
    for (const GraphicControlPoint& point : points) {
        const double d = point.size / s;
        const double h = d * 0.5;
        const QPointF c = point.position + shape->cacheOffset();
        const QRectF rect(c.x() - h, c.y() - h, d, d);
        switch (point.style) {
        case GraphicDefine::GCP_Rectangle:
            painter->drawRects(&rect, 1);
            break;
        case GraphicDefine::GCP_Circle:
            painter->drawEllipse(rect);
            break;
        case GraphicDefine::GCP_Diamond: {
            const QPointF diamond[5] = { QPointF(c.x(), c.y() - h), QPointF(c.x() + h, c.y()), QPointF(c.x(), c.y() + h),
                                         QPointF(c.x() - h, c.y()), QPointF(c.x(), c.y() - h) };
            painter->drawPolyline(diamond, 5);
            break;
        }
        default:
            break;
        }
    }
}

int GraphicController::controlPointAt(const QPointF& itemPos)
{
    const double s = sceneScale();
    const QList<GraphicControlPoint> points = m_controlPoints.values();
    for (const GraphicControlPoint& point : points) {
        const double h = point.size * 0.5 / s;
        const QPointF d = itemPos - point.position;
        double distance = 0.0;
        if (point.style == GraphicDefine::GCP_Rectangle)
            distance = sdBox(d, QPointF(h, h));
        else if (point.style == GraphicDefine::GCP_Circle || point.style == GraphicDefine::GCP_Diamond)
            distance = sdCircle(d, h); // a diamond is hit as its circle
        else
            continue;
        if (distance <= 0.0)
            return point.type;
    }
    return -1;
}

bool GraphicController::contains(const QPointF& itemPos)
{
    if (!m_item)
        return false;
    return m_item->collidesWithPoint(itemPos, Qt::IntersectsItemShape);
}

QRectF GraphicController::boundingRect()
{
    if (!m_item)
        return QRectF();
    // Computed once: a size that grows later is not seen. Every controller
    // gives its points their size when it makes them, so the repaint area of
    // the handles stays right.
    if (m_maxPointSize < 1.0 && !m_controlPoints.isEmpty()) {
        for (const GraphicControlPoint& point : std::as_const(m_controlPoints))
            m_maxPointSize = std::max(m_maxPointSize, double(point.size));
    }
    return m_item->shape().boundingRect().adjusted(-m_maxPointSize, -m_maxPointSize, m_maxPointSize, m_maxPointSize);
}

QPointF GraphicController::controlPointPosition(int type)
{
    const QRectF r = m_item ? m_item->shape().boundingRect() : QRectF();
    switch (type) {
    case GraphicDefine::GCP_SizeTopLeft:
        return r.topLeft();
    case GraphicDefine::GCP_SizeTopRight:
        return r.topRight();
    case GraphicDefine::GCP_SizeBottomLeft:
        return r.bottomLeft();
    case GraphicDefine::GCP_SizeBottomRight:
        return r.bottomRight();
    case GraphicDefine::GCP_SizeTopCenter:
        return QPointF(r.center().x(), r.top());
    case GraphicDefine::GCP_SizeBottomCenter:
        return QPointF(r.center().x(), r.bottom());
    case GraphicDefine::GCP_SizeLeftCenter:
        return QPointF(r.left(), r.center().y());
    case GraphicDefine::GCP_SizeRightCenter:
        return QPointF(r.right(), r.center().y());
    case GraphicDefine::GCP_Rotation:
        return QPointF(r.center().x(), r.top() - 10.0);
    case GraphicDefine::GCP_Move:
        return r.center();
    default:
        return QPointF();
    }
}

void GraphicController::mousePressEvent(QMouseEvent* event)
{
    m_moving = false;
    const QPointF p = eventPos(event);
    m_activePoint = controlPointAt(p);
    if (m_activePoint >= 0) {
        onControlPointPress(m_activePoint, event);
        emit controlPointPress(m_activePoint, event);
    } else if (contains(p)) {
        m_moving = true;
        if (m_item)
            m_pressPos = m_dragStartPos = p;
    } else {
        event->setAccepted(false);
    }
}

void GraphicController::translateItem(const QPointF& target, const QPointF& from)
{
    auto* shape = qobject_cast<AbstractGraphicShapeItem*>(m_item);
    if (!shape)
        return;
    m_moved = true;
    if (shape->cache()) {
        // The raster cache is painted at an offset; the geometry moves at release.
        shape->setCacheOffset(target - from);
        m_scene->invalidate(shape->outlinePath().boundingRect(), GraphicScene::ItemLayer);
        return;
    }
    shape->setOutlinePath(shape->outlinePath().translated(target - from));
    shape->rebuildHitPath();
    shape->setBoundary(shape->outlinePath().boundingRect());
    const int w = shape->pen().width();
    m_scene->invalidate(shape->boundary().adjusted(-w, -w, w, w), GraphicScene::ItemLayer);
    m_pressPos = target;
}

void GraphicController::repaintReshaped(const AbstractGraphicShapeItem* shape, const QRectF& before)
{
    const int w = shape->pen().width();
    m_scene->invalidate(shape->boundary().adjusted(-w, -w, w, w).united(before), GraphicScene::ItemLayer);
}

void GraphicController::mouseMoveEvent(QMouseEvent* event)
{
    if (m_activePoint >= 0) {
        onControlPointMove(m_activePoint, event);
        emit controlPointMove(m_activePoint, event);
    } else if (m_moving) {
        translateItem(eventPos(event), m_pressPos);
    } else {
        event->setAccepted(false);
    }
}

void GraphicController::mouseReleaseEvent(QMouseEvent* event)
{
    m_moving = false;
    if (m_moved) {
        m_moved = false;
        auto* shape = static_cast<AbstractGraphicShapeItem*>(m_item);
        if (shape->cache()) {
            shape->setCacheOffset(QPointF());
            const QPointF p = eventPos(event);
            const QRectF old = GraphicPaths::grownUnlessEmpty(shape->outlinePath().boundingRect(), shape->pen().width());
            shape->setOutlinePath(shape->outlinePath().translated(p - m_dragStartPos));
            shape->rebuildHitPath();
            shape->setBoundary(shape->outlinePath().boundingRect());
            repaintReshaped(shape, old);
        }
    }
    if (m_activePoint >= 0) {
        onControlPointRelease(m_activePoint, event);
        emit controlPointRelease(m_activePoint, event);
        m_activePoint = -1;
    } else {
        event->setAccepted(false);
    }
}

void GraphicController::moveTo(const QPointF& pos)
{
    translateItem(pos, m_pressPos);
}

void GraphicController::hoverEnterEvent(QHoverEvent*) { }
void GraphicController::hoverLeaveEvent(QHoverEvent*) { }
void GraphicController::hoverMoveEvent(QHoverEvent*) { }
void GraphicController::onControlPointPress(int, QMouseEvent*) { }
void GraphicController::onControlPointMove(int, QMouseEvent*) { }
void GraphicController::onControlPointRelease(int, QMouseEvent*) { }

} // namespace whiteboard
