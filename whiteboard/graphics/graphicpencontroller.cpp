#include "graphics/graphicpencontroller.h"

#include "graphics/graphiclineitem.h"
#include "graphics/graphiclinesegmentcontroller.h"
#include "graphics/graphicpenitem.h"
#include "scene/graphicscene.h"

#include <QMouseEvent>
#include <QRegion>

namespace whiteboard {

GraphicPenController::GraphicPenController(GraphicScene* scene, GraphicItem* item)
    : GraphicController(scene, item)
{
    setControlPoints(cornerPoints());
}

void GraphicPenController::paint(QPainter* painter)
{
    if (auto* shape = qobject_cast<AbstractGraphicShapeItem*>(m_item)) {
        const double h = shape->pen().width() * 0.5;
        QRectF r = shape->shape().boundingRect().adjusted(-h, -h, h, h);
        // A cached stroke is painted at an offset while it is dragged.
        r.moveTopLeft(r.topLeft() + shape->cacheOffset());
        paintFrame(painter, r);
    }
    GraphicController::paint(painter);
}

void GraphicPenController::onControlPointPress(int, QMouseEvent* event)
{
    // Only a line would take the press position here, so a stroke's point
    // press leaves pressPos alone.
    if (qobject_cast<GraphicLineItem*>(m_item))
        m_pressPos = QPointF(event->pos());
}

void GraphicPenController::onControlPointMove(int type, QMouseEvent* event)
{
    auto* pen = qobject_cast<GraphicPenItem*>(m_item);
    if (!pen)
        return;
    QPainterPath path = pen->outlinePath();
    if (!GraphicLineSegmentController::scaleFromCorner(path, type, eventPos(event)))
        return;
    // hitPath stays stale until the release: a long stroke is costly to outline.
    pen->setOutlinePath(path);
    // Raw view position: the scene then records this drag as a move.
    m_pressPos = QPointF(event->pos());
    pen->setBoundary(path.boundingRect());
    const int w = pen->pen().width();
    m_scene->invalidate(pen->boundary().adjusted(-w, -w, w, w), GraphicScene::ItemLayer);
}

void GraphicPenController::onControlPointRelease(int, QMouseEvent*)
{
    auto* pen = qobject_cast<GraphicPenItem*>(m_item);
    if (pen && !pen->outlinePath().isEmpty())
        pen->rebuildHitPath();
}

} // namespace whiteboard
