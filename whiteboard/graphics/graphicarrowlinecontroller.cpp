#include "graphics/graphicarrowlinecontroller.h"

#include "graphics/graphicarrowline.h"
#include "graphics/graphicpaths.h"

namespace whiteboard {

GraphicArrowLineController::GraphicArrowLineController(GraphicScene* scene, GraphicItem* item)
    : GraphicController(scene, item)
{
    GraphicControlPoint tail(TailPoint);
    tail.style = GraphicDefine::GCP_Diamond;
    GraphicControlPoint head(HeadPoint);
    head.style = GraphicDefine::GCP_Circle;
    for (GraphicControlPoint* point : { &tail, &head }) {
        point->size = 8;
        point->cursorShape = Qt::SizeAllCursor;
    }
    setControlPoints({ tail, head });
}

QPointF GraphicArrowLineController::controlPointPosition(int type)
{
    if (type == TailPoint) {
        const QPainterPath path = m_item->shape();
        return path.elementCount() >= 2 ? QPointF(path.elementAt(0)) : QPointF();
    }
    if (type == HeadPoint) {
        // Element 2 is where the head begins.
        auto* arrow = qobject_cast<GraphicArrowLineItem*>(m_item);
        if (arrow && arrow->outlinePath().elementCount() >= 3)
            return arrow->outlinePath().elementAt(2);
    }
    return QPointF();
}

void GraphicArrowLineController::onControlPointPress(int, QMouseEvent*)
{
    auto* arrow = qobject_cast<GraphicArrowLineItem*>(m_item);
    if (!arrow)
        return;
    const QPainterPath path = arrow->outlinePath();
    if (path.elementCount() >= 2) {
        m_lineStart = path.elementAt(0);
        m_lineEnd = path.elementAt(1);
    }
}

void GraphicArrowLineController::onControlPointMove(int type, QMouseEvent* event)
{
    auto* arrow = qobject_cast<GraphicArrowLineItem*>(m_item);
    if (!arrow || arrow->outlinePath().elementCount() < 2)
        return;
    const QPointF p = eventPos(event);
    const QRectF old = GraphicPaths::grownUnlessEmpty(arrow->outlinePath().boundingRect(), arrow->pen().width());
    // The end that is not dragged stays where it was at the press.
    const QPointF from = type == TailPoint ? p : m_lineStart;
    const QPointF to = type == TailPoint ? m_lineEnd : p;
    const QPainterPath path = arrow->shaftWithHead(from, to);
    arrow->setOutlinePath(path);
    arrow->rebuildHitPath();
    arrow->setBoundary(path.boundingRect());
    repaintReshaped(arrow, old);
}

} // namespace whiteboard
