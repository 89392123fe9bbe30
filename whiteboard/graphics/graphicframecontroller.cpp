#include "graphics/graphicframecontroller.h"

#include "graphics/abstractgraphicshapeitem.h"
#include "graphics/graphicpaths.h"
#include "scene/graphicscene.h"

namespace whiteboard {

GraphicFrameController::GraphicFrameController(GraphicScene* scene, GraphicItem* item, const QMetaObject& itemClass,
                                               const QList<GraphicControlPoint>& points)
    : GraphicController(scene, item)
    , m_itemClass(&itemClass)
{
    setControlPoints(points);
}

AbstractGraphicShapeItem* GraphicFrameController::frameItem() const
{
    return qobject_cast<AbstractGraphicShapeItem*>(m_itemClass->cast(m_item));
}

void GraphicFrameController::frameResized(AbstractGraphicShapeItem*) { }

void GraphicFrameController::onControlPointPress(int, QMouseEvent*)
{
    auto* shape = frameItem();
    if (!shape)
        return;
    m_pressRect = shape->outlinePath().boundingRect();
}

void GraphicFrameController::onControlPointMove(int type, QMouseEvent* event)
{
    auto* shape = frameItem();
    if (!shape)
        return;
    QRectF r = m_pressRect;
    // Any other handle rebuilds the frame as it was at the press.
    moveCorner(r, type, eventPos(event));
    // Normalising lets a corner pass the opposite one without a special case.
    const QPainterPath outline = GraphicPaths::rectPath(r.normalized());
    shape->setOutlinePath(outline);
    shape->setBoundary(outline.boundingRect());
    QPainterPath dirty = shape->hitPath();
    shape->rebuildHitPath();
    dirty.addPath(shape->hitPath());
    frameResized(shape);
    m_scene->invalidate(dirty.boundingRect(), GraphicScene::ItemLayer);
}

} // namespace whiteboard
