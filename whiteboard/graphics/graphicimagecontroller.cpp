#include "graphics/graphicimagecontroller.h"

#include "graphics/graphicimage.h"
#include "scene/graphicscene.h"

#include <QPainter>

namespace whiteboard {

GraphicImageController::GraphicImageController(GraphicScene* scene, GraphicItem* item)
    : GraphicController(scene, item)
{
    setControlPoints({ GraphicControlPoint(GraphicDefine::GCP_SizeTopLeft),
                       GraphicControlPoint(GraphicDefine::GCP_SizeTopRight),
                       GraphicControlPoint(GraphicDefine::GCP_SizeBottomRight),
                       GraphicControlPoint(GraphicDefine::GCP_SizeBottomLeft) });
}

void GraphicImageController::paint(QPainter* painter)
{
    paintFrame(painter, m_item->shape().boundingRect());
    GraphicController::paint(painter);
}

void GraphicImageController::onControlPointPress(int, QMouseEvent*)
{
    auto* image = qobject_cast<GraphicImage*>(m_item);
    if (!image)
        return;
    m_pressRect = image->outlinePath().boundingRect();
}

void GraphicImageController::onControlPointMove(int type, QMouseEvent* event)
{
    auto* image = qobject_cast<GraphicImage*>(m_item);
    if (!image)
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
    image->setOutlinePath(outline);
    image->setBoundary(outline.boundingRect());
    QPainterPath dirty = image->hitPath();
    image->rebuildHitPath();
    dirty.addPath(image->hitPath());
    m_scene->updateLayer(GraphicScene::ItemLayer, dirty);
}

} // namespace whiteboard
