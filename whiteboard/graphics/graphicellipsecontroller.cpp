#include "graphics/graphicellipsecontroller.h"

#include "graphics/graphicellipseitem.h"
#include "graphics/graphicpaths.h"
#include "scene/graphicscene.h"

namespace whiteboard {

GraphicEllipseController::GraphicEllipseController(GraphicScene* scene, GraphicItem* item)
    : GraphicFrameController(scene, item, GraphicEllipseItem::staticMetaObject,
                             { GraphicControlPoint(GraphicDefine::GCP_SizeTopCenter),
                               GraphicControlPoint(GraphicDefine::GCP_SizeBottomCenter),
                               GraphicControlPoint(GraphicDefine::GCP_SizeLeftCenter),
                               GraphicControlPoint(GraphicDefine::GCP_SizeRightCenter) })
{
}

void GraphicEllipseController::onControlPointMove(int type, QMouseEvent* event)
{
    auto* ellipse = frameItem();
    if (!ellipse)
        return;
    const QPointF p = eventPos(event);
    QRectF r = m_pressRect;
    // A handle may pass the opposite edge: the size goes negative and
    // normalized() flips the frame below.
    switch (type) {
    case GraphicDefine::GCP_SizeTopCenter: {
        const double d = p.y() - r.y();
        r = QRectF(r.x(), r.y() + d, r.width(), r.height() - d);
        break;
    }
    case GraphicDefine::GCP_SizeBottomCenter:
        r.setHeight(p.y() - r.y());
        break;
    case GraphicDefine::GCP_SizeLeftCenter: {
        const double d = p.x() - r.x();
        r = QRectF(r.x() + d, r.y(), r.width() - d, r.height());
        break;
    }
    case GraphicDefine::GCP_SizeRightCenter:
        r.setWidth(p.x() - r.x());
        break;
    default:
        break;
    }
    QPainterPath dirty = ellipse->outlinePath();
    const QPainterPath outline = GraphicPaths::ellipsePath(r.normalized());
    dirty.addPath(outline);
    ellipse->setOutlinePath(outline);
    ellipse->setBoundary(outline.boundingRect());
    ellipse->rebuildHitPath();
    m_scene->invalidate(GraphicPaths::strokeOf(dirty).boundingRect(), GraphicScene::ItemLayer);
}

} // namespace whiteboard
