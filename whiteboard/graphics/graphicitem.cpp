#include "graphics/graphicitem.h"

#include "graphics/graphiccontroller.h"
#include "scene/graphicscene.h"
#include "scene/itemcodec.h"

#include <QMouseEvent>
#include <QThread>

namespace whiteboard {

GraphicItem::GraphicItem(GraphicScene* scene, GraphicItem* parent)
    : GraphicObject(parent)
    , m_scene(scene)
    , m_parentItem(parent)
{
}

GraphicItem::GraphicItem(const GraphicItem& other)
    : GraphicObject(other)
    , QEnableSharedFromThis<GraphicItem>()
    , m_scene(other.m_scene)
    , m_parentItem(other.m_parentItem)
    , m_cursorShape(other.m_cursorShape)
    , m_type(other.m_type)
    , m_width(other.m_width)
    , m_height(other.m_height)
    , m_boundary(other.m_boundary)
    , m_selected(other.m_selected)
    , m_moveable(other.m_moveable)
    , m_selectable(other.m_selectable)
    , m_focusable(other.m_focusable)
    , m_activeFocus(other.m_activeFocus)
    , m_isEditMode(other.m_isEditMode)
    , m_hoverEnabled(other.m_hoverEnabled)
    , m_hovered(other.m_hovered)
    , m_cache(other.m_cache)
{
}

// The controller is a QObject child of the item and goes with it.
GraphicItem::~GraphicItem() = default;

GraphicController* GraphicItem::controller() const
{
    // A QObject child must be made on its parent's thread.
    if (!m_controller && QThread::currentThread() == thread()) {
        m_controller = const_cast<GraphicItem*>(this)->makeController();
        if (m_controller)
            m_controller->update();
    }
    return m_controller;
}

void GraphicItem::setParentItem(GraphicItem* parentItem)
{
    if (m_parentItem == parentItem)
        return;
    m_parentItem = parentItem;
    emit parentItemChanged();
}

void GraphicItem::setType(int type)
{
    if (m_type == type)
        return;
    m_type = type;
    emit typeChanged();
}

void GraphicItem::setWidth(double width)
{
    if (qFuzzyCompare(m_width, width))
        return;
    m_width = width;
    emit widthChanged();
}

void GraphicItem::setHeight(double height)
{
    if (qFuzzyCompare(m_height, height))
        return;
    m_height = height;
    emit heightChanged();
}

void GraphicItem::setBoundary(const QRectF& rect)
{
    if (rect.topLeft() == m_boundary.topLeft() && rect.size() == m_boundary.size())
        return;
    m_boundary = rect;
    setX(m_boundary.x());
    setY(m_boundary.y());
    if (!qFuzzyCompare(m_width, m_boundary.width())) {
        m_width = m_boundary.width();
        emit widthChanged();
    }
    if (!qFuzzyCompare(m_height, m_boundary.height())) {
        m_height = m_boundary.height();
        emit heightChanged();
    }
    notifyGeometryChange();
    emit boundaryChanged();
}

void GraphicItem::notifyGeometryChange()
{
    if (m_scene && m_indexLayers)
        m_scene->itemGeometryChanged(this);
}

void GraphicItem::setSelected(bool selected)
{
    if (m_selected == selected)
        return;
    m_selected = selected;
    // Handles show from the next frame on: the render thread cannot make them.
    if (selected)
        controller();
    emit selectedChanged();
}

void GraphicItem::setActiveFocus(bool activeFocus)
{
    if (m_activeFocus == activeFocus)
        return;
    m_activeFocus = activeFocus;
    if (activeFocus)
        controller();
    emit activeFocusChanged();
}

void GraphicItem::setCursorShape(Qt::CursorShape cursorShape)
{
    if (m_cursorShape == cursorShape)
        return;
    m_cursorShape = cursorShape;
    emit cursorShapeChanged();
}

void GraphicItem::setMoveable(bool moveable)
{
    if (m_moveable == moveable)
        return;
    m_moveable = moveable;
    emit moveableChanged();
}

void GraphicItem::setSelectable(bool selectable)
{
    if (m_selectable == selectable)
        return;
    m_selectable = selectable;
    emit selectableChanged();
}

void GraphicItem::setFocusable(bool focusable)
{
    if (m_focusable == focusable)
        return;
    m_focusable = focusable;
    emit focusableChanged();
}

void GraphicItem::setIsEditMode(bool isEditMode)
{
    if (m_isEditMode == isEditMode)
        return;
    m_isEditMode = isEditMode;
    emit isEditModeChanged();
}

void GraphicItem::setHoverEnabled(bool hoverEnabled)
{
    if (m_hoverEnabled == hoverEnabled)
        return;
    m_hoverEnabled = hoverEnabled;
    emit hoverEnabledChanged();
}

void GraphicItem::setHovered(bool hovered)
{
    if (m_hovered == hovered)
        return;
    m_hovered = hovered;
    emit hoveredChanged();
}

void GraphicItem::setCache(bool cache)
{
    if (m_cache == cache)
        return;
    m_cache = cache;
    emit cacheChanged();
}

QPointF GraphicItem::chainOffset() const
{
    QPointF sum;
    for (const GraphicItem* item = m_parentItem; item; item = item->m_parentItem)
        sum += QPointF(item->x(), item->y());
    return sum;
}

QPointF GraphicItem::mapToScene(const QPointF& point) const
{
    return point + chainOffset();
}

QPointF GraphicItem::mapToScene(double x, double y) const
{
    return mapToScene(QPointF(x, y));
}

QPointF GraphicItem::mapFromScene(const QPointF& point) const
{
    return -(point + QPointF(x(), y()) + chainOffset());
}

QPointF GraphicItem::mapFromScene(double x, double y) const
{
    return mapFromScene(QPointF(x, y));
}

QPointF GraphicItem::mapToItem(const GraphicItem* other, const QPointF& point) const
{
    if (!other)
        return point;
    return point + chainOffset() - other->chainOffset();
}

QPointF GraphicItem::mapToItem(const GraphicItem* other, double x, double y) const
{
    return mapToItem(other, QPointF(x, y));
}

QPointF GraphicItem::mapFromItem(const GraphicItem* other, const QPointF& point) const
{
    if (!other)
        return -point;
    return -(point + chainOffset() - other->chainOffset());
}

QPointF GraphicItem::mapFromItem(const GraphicItem* other, double x, double y) const
{
    return mapFromItem(other, QPointF(x, y));
}

QPointF GraphicItem::eventScenePos(const QMouseEvent* event) const
{
    return mapToScene(m_scene->mapToScene(QPointF(event->pos())));
}

void GraphicItem::paint(QPainter*, const QRectF*) { }
QByteArray GraphicItem::serialize() { return ItemCodec::encode(*this); }
void GraphicItem::deserialize(const QByteArray& data) { ItemCodec::decode(*this, data); }
void GraphicItem::serializeToAction(im::whiteboard::GraphicAction* action) { ItemCodec::write(*this, action); }
GraphicItem* GraphicItem::copy() { return nullptr; }
bool GraphicItem::collidesWithPath(const QPainterPath&, Qt::ItemSelectionMode) const { return false; }
bool GraphicItem::collidesWithRect(const QRectF&, Qt::ItemSelectionMode) const { return false; }
bool GraphicItem::collidesWithPoint(const QPointF&, Qt::ItemSelectionMode) const { return false; }

const QPainterPath& GraphicItem::shape() const
{
    static const QPainterPath empty;
    return empty;
}

void GraphicItem::focusInEvent(QFocusEvent*) { }
void GraphicItem::focusOutEvent(QFocusEvent*) { }
void GraphicItem::inputMethodEvent(QInputMethodEvent*) { }
QVariant GraphicItem::inputMethodQuery(Qt::InputMethodQuery) const { return QVariant(); }
void GraphicItem::mousePressEvent(QMouseEvent*) { }
void GraphicItem::mouseMoveEvent(QMouseEvent*) { }
void GraphicItem::mouseReleaseEvent(QMouseEvent*) { }
void GraphicItem::hoverEnterEvent(QHoverEvent*) { }
void GraphicItem::hoverMoveEvent(QHoverEvent*) { }
void GraphicItem::hoverLeaveEvent(QHoverEvent*) { }
void GraphicItem::wheelEvent(QWheelEvent*) { }
void GraphicItem::keyPressEvent(QKeyEvent*) { }
void GraphicItem::keyReleaseEvent(QKeyEvent*) { }
void GraphicItem::dragEnterEvent(QDragEnterEvent*) { }
void GraphicItem::dragMoveEvent(QDragMoveEvent*) { }
void GraphicItem::dragLeaveEvent(QDragLeaveEvent*) { }
void GraphicItem::dropEvent(QDropEvent*) { }

} // namespace whiteboard
