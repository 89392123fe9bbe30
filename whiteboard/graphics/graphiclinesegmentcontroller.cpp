#include "graphics/graphiclinesegmentcontroller.h"

#include "graphics/graphiclinesegmentitem.h"
#include "graphics/graphicpaths.h"

#include <QMouseEvent>
#include <QTransform>

#include <algorithm>

namespace whiteboard {

namespace {

QPointF corner(const QRectF& rect, int type)
{
    switch (type) {
    case GraphicDefine::GCP_SizeTopLeft:
        return rect.topLeft();
    case GraphicDefine::GCP_SizeTopRight:
        return rect.topRight();
    case GraphicDefine::GCP_SizeBottomLeft:
        return rect.bottomLeft();
    default:
        return rect.bottomRight();
    }
}

int oppositeCorner(int type)
{
    switch (type) {
    case GraphicDefine::GCP_SizeTopLeft:
        return GraphicDefine::GCP_SizeBottomRight;
    case GraphicDefine::GCP_SizeTopRight:
        return GraphicDefine::GCP_SizeBottomLeft;
    case GraphicDefine::GCP_SizeBottomLeft:
        return GraphicDefine::GCP_SizeTopRight;
    default:
        return GraphicDefine::GCP_SizeTopLeft;
    }
}

} // namespace

GraphicLineSegmentController::GraphicLineSegmentController(GraphicScene* scene, GraphicItem* item)
    : GraphicController(scene, item)
{
    setControlPoints(cornerPoints());
}

bool GraphicLineSegmentController::scaleFromCorner(QPainterPath& path, int type, const QPointF& pos)
{
    const QRectF old = path.boundingRect();
    QRectF r = old;
    if (!moveCorner(r, type, pos))
        return false;
    const int anchorType = oppositeCorner(type);
    const QPointF anchor = corner(r, anchorType);
    // The width alone gives the scale, so the stroke keeps its aspect ratio;
    // a drag past the anchor collapses it instead of mirroring it.
    const double f = std::max(r.width(), 1.0) / std::max(old.width(), 0.001);
    path = QTransform().scale(f, f).map(path);
    path.translate(anchor - corner(path.boundingRect(), anchorType));
    return true;
}

void GraphicLineSegmentController::paint(QPainter* painter)
{
    if (auto* shape = qobject_cast<AbstractGraphicShapeItem*>(m_item)) {
        const double h = shape->pen().width() * 0.5;
        paintFrame(painter, shape->shape().boundingRect().adjusted(-h, -h, h, h));
    }
    GraphicController::paint(painter);
}

void GraphicLineSegmentController::onControlPointPress(int, QMouseEvent*)
{
    if (auto* segment = qobject_cast<GraphicLineSegmentItem*>(m_item))
        m_pressRect = segment->outlinePath().boundingRect();
}

void GraphicLineSegmentController::onControlPointMove(int type, QMouseEvent* event)
{
    auto* segment = qobject_cast<GraphicLineSegmentItem*>(m_item);
    if (!segment)
        return;
    QPainterPath path = segment->outlinePath();
    const QRectF old = path.boundingRect();
    if (!scaleFromCorner(path, type, eventPos(event)))
        return;
    segment->setOutlinePath(path);
    segment->rebuildHitPath();
    // Raw view position: the scene then records this drag as a move.
    m_pressPos = QPointF(event->pos());
    segment->setBoundary(path.boundingRect());
    repaintReshaped(segment, GraphicPaths::grownUnlessEmpty(old, segment->pen().width()));
}

} // namespace whiteboard
