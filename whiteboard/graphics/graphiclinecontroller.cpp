#include "graphics/graphiclinecontroller.h"

#include "graphics/graphiclineitem.h"
#include "graphics/graphicpaths.h"

namespace whiteboard {

GraphicLineController::GraphicLineController(GraphicScene* scene, GraphicItem* item)
    : GraphicController(scene, item)
{
    QList<GraphicControlPoint> points;
    for (int type : { StartPoint, EndPoint }) {
        GraphicControlPoint point(type);
        point.cursorShape = Qt::SizeAllCursor;
        points.append(point);
    }
    setControlPoints(points);
}

QPointF GraphicLineController::controlPointPosition(int type)
{
    const QPainterPath path = m_item->shape();
    if (path.elementCount() != 2)
        return QPointF();
    if (type == StartPoint)
        return path.elementAt(0);
    if (type == EndPoint)
        return path.elementAt(1);
    return QPointF();
}

void GraphicLineController::onControlPointMove(int type, QMouseEvent* event)
{
    auto* line = qobject_cast<GraphicLineItem*>(m_item);
    if (!line)
        return;
    const QPointF p = eventPos(event);
    const QRectF old = GraphicPaths::grownUnlessEmpty(line->outlinePath().boundingRect(), line->pen().width());
    QPainterPath path = line->outlinePath();
    if (path.elementCount() == 2) {
        path.setElementPositionAt(type == StartPoint ? 0 : 1, p.x(), p.y());
        line->setOutlinePath(path);
    }
    line->setBoundary(path.boundingRect());
    line->rebuildHitPath();
    repaintReshaped(line, old);
}

} // namespace whiteboard
