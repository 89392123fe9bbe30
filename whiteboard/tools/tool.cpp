#include "tools/tool.h"

#include "graphics/abstractgraphicshapeitem.h"
#include "graphics/graphiccontroller.h"
#include "graphics/graphicitem.h"
#include "graphics/graphicpalette.h"
#include "scene/addgraphiccommand.h"
#include "scene/graphicscene.h"
#include "scene/movegraphiccommand.h"
#include "scene/resizegraphiccommand.h"
#include "tools/gesture.h"
#include "tools/texttool.h"
#include "tools/toolcontroller.h"

#include <QHoverEvent>
#include <QMouseEvent>
#include <QMutexLocker>

namespace whiteboard {

Tool::Tool(GraphicScene* scene, ToolController& tools)
    : m_scene(scene)
    , m_tools(tools)
    , m_gesture(tools.gesture())
{
}

void Tool::motion(QMouseEvent* event)
{
    if (m_gesture.mouseMoved) {
        if (m_gesture.activeItem)
            m_gesture.activeItem->mouseMoveEvent(event);
        return;
    }
    m_gesture.mouseMoved = true;
    if (m_gesture.activeItem)
        return;
    // Null for the tools that draw nothing by drag (the sticker).
    const GraphicDefine::ToolType tool = m_scene->toolType();
    GraphicItem* item = m_scene->createItem(tool);
    if (!item)
        return;
    m_scene->setFocusItem(QSharedPointer<GraphicItem>());
    m_scene->deselectAll();
    // The item starts here, at the first forwarded move, not at the press.
    startItem(item, tool, event);
}

void Tool::hover(QHoverEvent* event)
{
    const QPointF position = event->position();
    if (hoverHandle(position))
        return;
    m_scene->setViewCursor(Qt::ArrowCursor);
    m_scene->sendMouseInfo(m_scene->mapToScene(position));
}

void Tool::end(QMouseEvent* event)
{
    if (!m_gesture.mouseMoved && event->button() != Qt::RightButton) {
        m_tools.endGesture();
        return;
    }
    finish(event);
}

void Tool::finish(QMouseEvent* event)
{
    {
        SceneLocker locker(&m_scene->itemsMutex());
        const QSharedPointer<GraphicItem> active = m_gesture.activeItem;
        if (active) {
            // A box that waits for its text keeps the gesture open.
            if (commitActiveItem(active, event))
                return;
        } else if (const QSharedPointer<GraphicItem> focus = m_scene->focusItem()) {
            releaseFocusItem(focus, event);
        }
    }
    m_tools.endGesture();
}

bool Tool::commitActiveItem(const QSharedPointer<GraphicItem>& active, QMouseEvent* event)
{
    active->mouseReleaseEvent(event);
    if (active->isEditMode())
        return false;
    m_scene->removeItem(GraphicScene::ActiveLayer, active);
    const QRect r = active->boundary().toRect();
    if (r.width() > 0 || r.height() > 0) {
        if (active->type() == GraphicItem::Text) {
            // Whichever tool is chosen now, a new text box waits for its text.
            m_tools.text().awaitText();
            return true;
        }
        m_scene->pushCommand(new AddGraphicCommand(active, m_scene));
    }
    if (active->focusable())
        m_scene->setFocusItem(active);
    const QRectF boundary = active->boundary();
    m_scene->invalidate(grown(boundary, 1.0), GraphicScene::ActiveLayer);
    m_scene->invalidate(boundary, GraphicScene::ItemLayer);
    m_gesture.activeItem.reset();
    return false;
}

void Tool::releaseFocusItem(const QSharedPointer<GraphicItem>& focus, QMouseEvent* event)
{
    if (GraphicController* controller = focus->controller()) {
        controller->mouseReleaseEvent(event);
        const QPointF position = controller->pressPosition();
        auto* shape = qobject_cast<AbstractGraphicShapeItem*>(focus.data());
        if (position != m_gesture.moveStartPosition) {
            m_scene->pushCommand(new MoveGraphicCommand(m_gesture.moveStartPosition, position, focus, m_scene));
        } else if (shape && m_gesture.resizeStartPath.elementCount() > 0 && shape->outlinePath().elementCount() > 0) {
            // The drag position stayed put: a handle reshaped the item.
            m_scene->pushCommand(new ResizeGraphicCommand(m_gesture.resizeStartPath, shape->outlinePath(), focus, m_scene));
        }
        m_gesture.moveStartPosition = QPointF();
        m_gesture.resizeStartPath.clear();
    }
    if (!event->isAccepted())
        focus->mouseReleaseEvent(event);
}

bool Tool::hoverHandle(const QPointF& viewPos)
{
    SceneLocker locker(&m_scene->itemsMutex());
    const QPoint point(GraphicScene::roundPixel(viewPos.x()), GraphicScene::roundPixel(viewPos.y()));
    const QSharedPointer<GraphicItem> focus = m_scene->focusItem();
    GraphicController* controller = focus ? focus->controller() : nullptr;
    const int type = controller ? controller->controlPointAt(m_scene->mapToScene(point)) : -1;
    if (type < 0)
        return false;
    // Over a handle the others are not told where the pointer is.
    m_scene->setViewCursor(controlPointCursor(controller, type));
    return true;
}

void Tool::setItemCursor(const QSharedPointer<GraphicItem>& item, Qt::CursorShape cursor)
{
    // A held key owns the cursor, so the space bar's hand survives hovering.
    if (m_gesture.pressedKey != Qt::Key_unknown)
        return;
    if (!item)
        m_scene->setViewCursor(Qt::ArrowCursor);
    else if (cursor == Qt::BlankCursor)
        m_scene->setViewCursor(item->cursorShape());
    else
        m_scene->setViewCursor(cursor);
}

void Tool::pointAt(const QPointF& viewPos, Qt::CursorShape cursor)
{
    setItemCursor(m_scene->itemAt(viewPos, 1, Qt::IntersectsItemShape), cursor);
    // Every move, unthrottled and even at the same place.
    m_scene->sendMouseInfo(m_scene->mapToScene(viewPos));
}

QSharedPointer<GraphicItem> Tool::startItem(GraphicItem* item, GraphicDefine::ToolType tool, QMouseEvent* event)
{
    styleNewItem(item, tool);
    m_gesture.activeItem = m_scene->addItem(GraphicScene::ActiveLayer, item);
    m_gesture.activeItem->setIsEditMode(true);
    m_gesture.activeItem->mousePressEvent(event);
    return m_gesture.activeItem;
}

void Tool::styleNewItem(GraphicItem* item, GraphicDefine::ToolType tool)
{
    item->setUserId(m_scene->currentUserId());
    item->setOpacity(GraphicPalette::instance()->opacity());
    m_scene->applyPalette(item, tool);
}

Qt::CursorShape Tool::controlPointCursor(GraphicController* controller, int type)
{
    // The records are read from a snapshot: the render thread may be painting them.
    const QList<GraphicControlPoint> points = controller->controlPoints();
    for (const GraphicControlPoint& point : points) {
        if (point.type == type)
            return Qt::CursorShape(point.cursorShape);
    }
    return Qt::ArrowCursor;
}

QRectF Tool::grown(const QRectF& rect, double margin)
{
    return rect.adjusted(-margin, -margin, margin, margin);
}

} // namespace whiteboard
