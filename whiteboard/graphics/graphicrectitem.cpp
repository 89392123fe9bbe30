#include "graphics/graphicrectitem.h"

#include "graphics/graphicdistance.h"
#include "graphics/graphicrectcontroller.h"
#include "scene/graphicscene.h"
#include "proto/whiteboard.pb.h"

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
    return closedShapeHit(point, mode, [](const QPointF& q, const QRectF& b) {
        return sdBox(q, QPointF(b.width() * 0.5, b.height() * 0.5));
    });
}

void GraphicRectItem::drawingStarted(const QPointF& point, QMouseEvent* event)
{
    qCDebug(lcWhiteboardScene) << "press:" << point << event->pos();
}

// --- wire message -----------------------------------------------------------

QByteArray GraphicRectItem::serialize()
{
    im::whiteboard::Rect message;
    writeShape(&message);
    return encode(message);
}

void GraphicRectItem::serializeToAction(im::whiteboard::GraphicAction* action)
{
    writeShape(action->mutable_rectdata()->add_data());
}

void GraphicRectItem::deserialize(const QByteArray& data)
{
    deserializeAs<im::whiteboard::Rect>(data);
}

void GraphicRectItem::readEntry(const google::protobuf::MessageLite& entry)
{
    readShape(static_cast<const im::whiteboard::Rect&>(entry));
}

} // namespace whiteboard
