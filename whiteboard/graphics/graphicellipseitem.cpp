#include "graphics/graphicellipseitem.h"

#include "graphics/graphicdistance.h"
#include "graphics/graphicellipsecontroller.h"
#include "graphics/graphichittest.h"
#include "graphics/graphicpaths.h"

namespace whiteboard {

GraphicEllipseItem::GraphicEllipseItem(GraphicScene* scene, GraphicItem* parent)
    : GraphicFrameItem(scene, parent)
{
    setType(Ellipse);
    setDrawingStyleDefaults();
}

GraphicEllipseItem::GraphicEllipseItem(const GraphicEllipseItem& other)
    : GraphicFrameItem(other)
{
}

GraphicController* GraphicEllipseItem::makeController()
{
    return new GraphicEllipseController(scene(), this);
}

GraphicItem* GraphicEllipseItem::copy()
{
    return new GraphicEllipseItem(*this);
}

bool GraphicEllipseItem::collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const
{
    const auto distance = [](const QPointF& q, const QRectF& b) {
        return sdEllipse(q, QPointF(b.width() * 0.5, b.height() * 0.5));
    };
    return GraphicHitTest::closedShape(m_outlinePath, filled(), hitTolerance(), point, mode, distance);
}

// The ellipse's press on a finished item uses the true outline, not the hit band.
bool GraphicEllipseItem::pressHits(const QPointF& point) const
{
    return collidesWithPoint(point, Qt::IntersectsItemShape);
}

QPainterPath GraphicEllipseItem::framePath(const QRectF& frame, Qt::KeyboardModifiers modifiers) const
{
    QRectF r = frame;
    if (modifiers & Qt::AltModifier) {
        // The frame grows by half and is centred on its former top-left corner,
        // wherever the drag started.
        const QPointF topLeft = r.topLeft();
        r.setWidth(r.width() * 1.5);
        r.setHeight(r.height() * 1.5);
        r.moveCenter(topLeft);
    }
    if (modifiers & Qt::ShiftModifier) {
        // As QPainterPath::addEllipse(centre, radius, radius) frames it.
        const double radius = qMin(r.height(), r.width()) * 0.5;
        const QPointF centre = r.center();
        return GraphicPaths::ellipsePath(QRectF(centre.x() - radius, centre.y() - radius, 2 * radius, 2 * radius));
    }
    return GraphicPaths::ellipsePath(r);
}

} // namespace whiteboard
