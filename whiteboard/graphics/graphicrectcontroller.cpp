#include "graphics/graphicrectcontroller.h"

#include "graphics/graphicrectitem.h"
#include "scene/graphicscene.h"

namespace whiteboard {

GraphicRectController::GraphicRectController(GraphicScene* scene, GraphicItem* item)
    : GraphicController(scene, item)
{
    setControlPoints({ GraphicControlPoint(GraphicDefine::GCP_SizeTopLeft),
                       GraphicControlPoint(GraphicDefine::GCP_SizeTopRight),
                       GraphicControlPoint(GraphicDefine::GCP_SizeBottomRight),
                       GraphicControlPoint(GraphicDefine::GCP_SizeBottomLeft) });
}

void GraphicRectController::onControlPointPress(int, QMouseEvent*)
{
    auto* rect = qobject_cast<GraphicRectItem*>(m_item);
    if (!rect)
        return;
    m_pressRect = rect->outlinePath().boundingRect();
}

void GraphicRectController::onControlPointMove(int type, QMouseEvent* event)
{
    auto* rect = qobject_cast<GraphicRectItem*>(m_item);
    if (!rect)
        return;
    const QPointF p = eventPos(event);
    QRectF r = m_pressRect;
    switch (type) {
    case GraphicDefine::GCP_SizeTopLeft:
        r.setTopLeft(p);
        break;
    case GraphicDefine::GCP_SizeTopRight:
        r.setTopRight(p);
        break;
    case GraphicDefine::GCP_SizeBottomLeft:
        r.setBottomLeft(p);
        break;
    case GraphicDefine::GCP_SizeBottomRight:
        r.setBottomRight(p);
        break;
    default:
        break;
    }
    // Normalising lets a corner pass the opposite one without a special case.
    QPainterPath outline;
    outline.addRect(r.normalized());
    rect->setOutlinePath(outline);
    rect->setBoundary(outline.boundingRect());
    QPainterPath dirty = rect->hitPath();
    rect->rebuildHitPath();
    dirty.addPath(rect->hitPath());
    m_scene->updateLayer(GraphicScene::ItemLayer, dirty);
}

} // namespace whiteboard
