#include "tools/selecttool.h"

#include "graphics/abstractgraphicshapeitem.h"
#include "graphics/graphiccontroller.h"
#include "graphics/graphicitem.h"
#include "graphics/graphicrectitem.h"
#include "scene/addgraphiccommand.h"
#include "scene/graphicscene.h"
#include "scene/movegraphiccommand.h"
#include "tools/gesture.h"
#include "tools/toolcontroller.h"

#include <QHoverEvent>
#include <QMouseEvent>
#include <QMutexLocker>
#include <QSet>

namespace whiteboard {

void SelectTool::begin(QMouseEvent* event)
{
    const QSharedPointer<GraphicItem> hit = m_scene->itemAt(event->pos(), 0, Qt::IntersectsItemShape);
    const QRectF handles = m_scene->handlesArea();
    QPainterPath dirty;
    dropSelection(event, dirty);
    if (hit) {
        if (!m_scene->canOperate(hit)) {
            // The deselection stands, unpainted until the next repaint of its
            // region; only the handles that went are repainted.
            qCDebug(lcWhiteboardScene, "this item cant be operate by you.");
            m_scene->repaintHandles(handles);
            return;
        }
        if (hit->selectable()) {
            hit->setSelected(true);
            m_scene->setSelectedItems(m_scene->selectedItems() << hit);
            dirty.addPath(hit->shape());
        }
        const QSharedPointer<GraphicItem> focus = m_scene->focusItem();
        if ((!focus || focus->gid() != hit->gid()) && hit->focusable())
            m_scene->setFocusItem(hit);
    }
    pressOn(hit, event);
    const QRectF bounds = dirty.boundingRect();
    if (bounds.width() > 0 && bounds.height() > 0)
        m_scene->invalidate(grown(bounds, hit ? 0.0 : 5.0), GraphicScene::ItemLayer);
    m_scene->repaintHandles(handles);
}

void SelectTool::dropSelection(QMouseEvent* event, QPainterPath& dirty)
{
    if (event->modifiers() == Qt::ControlModifier)
        return;
    const GraphicItemList selected = m_scene->selectedItems();
    for (const QSharedPointer<GraphicItem>& item : selected) {
        item->setSelected(false);
        dirty.addPath(item->shape());
    }
    m_scene->setSelectedItems(GraphicItemList());
}

void SelectTool::pressOn(const QSharedPointer<GraphicItem>& hit, QMouseEvent* event)
{
    // The item hit, or else the focus item, whose handles may lie outside it.
    const QSharedPointer<GraphicItem> target = hit ? hit : m_scene->focusItem();
    if (!target)
        return;
    GraphicController* controller = target->controller();
    if (controller)
        controller->mousePressEvent(event);
    if (controller && event->isAccepted())
        return;
    if (const QSharedPointer<GraphicItem> focus = m_scene->focusItem())
        focus->mousePressEvent(event);
    if (!event->isAccepted())
        m_scene->setFocusItem(QSharedPointer<GraphicItem>());
}

void SelectTool::motion(QMouseEvent* event)
{
    if (m_scene->disableEdit())
        return;
    const QSharedPointer<GraphicItem> focus = m_scene->focusItem();
    if (!focus) {
        m_gesture.mouseMoved = true;
        bandMotion(event);
        return;
    }
    GraphicController* controller = focus->controller();
    if (m_gesture.moveStartPosition.isNull() && controller)
        m_gesture.moveStartPosition = controller->pressPosition();
    auto* shape = qobject_cast<AbstractGraphicShapeItem*>(focus.data());
    if (m_gesture.resizeStartPath.isEmpty() && shape)
        m_gesture.resizeStartPath = shape->outlinePath();
    if (controller)
        controller->mouseMoveEvent(event);
    if (!event->isAccepted()) {
        focus->mouseMoveEvent(event);
        if (!event->isAccepted())
            return;
    }
    m_gesture.mouseMoved = true;
}

void SelectTool::bandMotion(QMouseEvent* event)
{
    if (m_gesture.activeItem) {
        m_gesture.activeItem->mouseMoveEvent(event);
        selectInBand();
        return;
    }
    // The band is a plain rectangle of no one: it never reaches the wire or the history.
    auto* band = new GraphicRectItem(m_scene, nullptr);
    QPen pen(QColor("#CCCCCC"));
    pen.setStyle(Qt::DashLine);
    band->setPen(pen);
    band->setBrush(QBrush(Qt::NoBrush));
    m_gesture.activeItem = m_scene->addItem(GraphicScene::ActiveLayer, band);
    m_gesture.activeItem->setIsEditMode(true);
    m_gesture.activeItem->mousePressEvent(event);
}

void SelectTool::selectInBand()
{
    GraphicItemList found = m_scene->itemsInView(GraphicScene::ItemLayer,
                                                 m_scene->mapRectFromScene(m_gesture.activeItem->boundary()), 1);
    found.removeIf([this](const QSharedPointer<GraphicItem>& item) { return !m_scene->canOperate(item); });
    const GraphicItemList selected = m_scene->selectedItems();
    // Compared by address in sets: a band over a crowded board meets many.
    QSet<GraphicItem*> wasSelected;
    for (const QSharedPointer<GraphicItem>& item : selected)
        wasSelected.insert(item.data());
    QSet<GraphicItem*> isFound;
    for (const QSharedPointer<GraphicItem>& item : std::as_const(found))
        isFound.insert(item.data());
    const QRectF handles = m_scene->handlesArea();
    QPainterPath dirty;
    for (const QSharedPointer<GraphicItem>& item : selected) {
        if (isFound.contains(item.data()))
            continue;
        item->setSelected(false);
        dirty.addPath(item->shape());
    }
    for (const QSharedPointer<GraphicItem>& item : std::as_const(found)) {
        if (wasSelected.contains(item.data()) || !item->selectable())
            continue;
        item->setSelected(true);
        dirty.addPath(item->shape());
        item->setActiveFocus(true);
    }
    m_scene->setSelectedItems(found);
    const QRectF bounds = dirty.boundingRect();
    if (bounds.width() > 0 && bounds.height() > 0)
        m_scene->invalidate(bounds, GraphicScene::ItemLayer);
    m_scene->repaintHandles(handles);
}

void SelectTool::hover(QHoverEvent* event)
{
    const QPointF position = event->position();
    if (hoverHandle(position))
        return;
    pointAt(position, Qt::BlankCursor);
}

void SelectTool::end(QMouseEvent* event)
{
    if (!m_gesture.mouseMoved && event->button() != Qt::RightButton) {
        m_tools.endGesture();
        return;
    }
    SceneLocker locker(&m_scene->itemsMutex());
    const QSharedPointer<GraphicItem> band = m_gesture.activeItem;
    if (!band || m_gesture.finishingSegment) {
        finish(event);
        return;
    }
    // The rubber band ends; the selection it made stays. The flags stay set
    // until the next press, which clears them: the space bar's cursor waits
    // for it, as after the eraser.
    const QRectF boundary = band->boundary();
    m_scene->invalidate(grown(boundary, 1.0), GraphicScene::ActiveLayer);
    m_scene->removeItem(GraphicScene::ActiveLayer, band);
    m_scene->invalidate(boundary, GraphicScene::ItemLayer);
    m_gesture.activeItem.reset();
}

bool SelectTool::nudge(int key)
{
    QPointF step;
    switch (key) {
    case Qt::Key_Right:
        step = QPointF(1, 0);
        break;
    case Qt::Key_Left:
        step = QPointF(-1, 0);
        break;
    case Qt::Key_Up:
        step = QPointF(0, -1);
        break;
    case Qt::Key_Down:
        step = QPointF(0, 1);
        break;
    default:
        return false;
    }
    // Items in the selection were already allowed in.
    const GraphicItemList selection = m_scene->selectedItems();
    if (selection.isEmpty())
        return false;
    QUndoStack& history = m_scene->undoStack();
    history.beginMacro(QStringLiteral("move selected items"));
    for (const QSharedPointer<GraphicItem>& item : selection) {
        if (GraphicController* controller = item->controller()) {
            const QPointF from = controller->pressPosition();
            history.push(new MoveGraphicCommand(from, from + step, item, m_scene));
            m_scene->reportUndoRedoStatus();
        }
    }
    history.endMacro();
    return true;
}

void SelectTool::copySelection()
{
    const GraphicItemList selection = m_scene->selectedItems();
    if (selection.isEmpty())
        return;
    m_clipboard.clear();
    for (const QSharedPointer<GraphicItem>& item : selection) {
        if (GraphicItem* clone = item->copy()) {
            m_scene->stamp(clone);
            m_clipboard.append(GraphicScene::makeShared(clone));
        }
    }
}

void SelectTool::paste()
{
    // Fresh copies with gids of their own, at the places they were copied
    // from, authored by whoever pastes. The originals were selected: the
    // copies are not.
    const GraphicItemList clipboard = m_clipboard;
    QUndoStack& history = m_scene->undoStack();
    history.beginMacro(QStringLiteral("past selected items"));
    for (const QSharedPointer<GraphicItem>& item : clipboard) {
        GraphicItem* copy = item->copy();
        copy->setUserId(m_scene->currentUserId());
        m_scene->stamp(copy);
        copy->setSelected(false);
        copy->setActiveFocus(false);
        copy->setHovered(false);
        history.push(new AddGraphicCommand(GraphicScene::makeShared(copy), m_scene));
        m_scene->reportUndoRedoStatus();
    }
    history.endMacro();
}

} // namespace whiteboard
