#include "graphics/graphicrectitem.h"

#include "graphics/graphicdistance.h"
#include "graphics/graphichittest.h"
#include "graphics/graphicrectcontroller.h"
#include "scene/graphicscene.h"

#include <QDebug>
#include <QMouseEvent>

namespace whiteboard {

GraphicRectItem::GraphicRectItem(GraphicScene* scene, GraphicItem* parent)
    : GraphicFrameItem(scene, parent)
{
    setType(Rectangle);
    setDrawingStyleDefaults();
}

GraphicRectItem::GraphicRectItem(const GraphicRectItem& other)
    : GraphicFrameItem(other)
{
}

GraphicController* GraphicRectItem::makeController()
{
    return new GraphicRectController(scene(), this);
}

GraphicItem* GraphicRectItem::copy()
{
    return new GraphicRectItem(*this);
}

bool GraphicRectItem::collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const
{
    const auto distance = [](const QPointF& q, const QRectF& b) {
        return sdBox(q, QPointF(b.width() * 0.5, b.height() * 0.5));
    };
    return GraphicHitTest::closedShape(m_outlinePath, filled(), hitTolerance(), point, mode, distance);
}

void GraphicRectItem::drawingStarted(const QPointF& point, QMouseEvent* event)
{
    qCDebug(lcWhiteboardScene) << "press:" << point << event->pos();
}

} // namespace whiteboard
