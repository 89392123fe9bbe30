// The scene's input: item factories, the tool type, clears, and the event
// handlers, which hand pointer and key events to the tools.
#include "scene/graphicscene.h"

#include "graphics/abstractgraphicshapeitem.h"
#include "graphics/graphicimage.h"
#include "graphics/graphicimagecodec.h"
#include "graphics/graphicitem.h"
#include "graphics/graphicpalette.h"
#include "graphics/graphictextitem.h"
#include "inputlimits.h"
#include "scene/batchremovegraphiccommand.h"
#include "scene/itemkind.h"
#include "scene/syncengine.h"
#include "tools/toolcontroller.h"
#include "util.h"

#include "proto/whiteboard.pb.h"

#include <QFont>
#include <QMutexLocker>
#include <QQuickItem>

#include <algorithm>

namespace whiteboard {

// --- tool state and factories -----------------------------------------------

bool GraphicScene::canOperate(const QSharedPointer<GraphicItem>& item) const
{
    if (m_view && m_view->property("isOwner").toBool())
        return true;
    return item && m_currentUserId == item->userId();
}

void GraphicScene::applyPalette(GraphicItem* item, GraphicDefine::ToolType tool) const
{
    auto* shape = qobject_cast<AbstractGraphicShapeItem*>(item);
    if (!shape)
        return;
    const GraphicPalette* palette = GraphicPalette::instance();
    // The palette's stroke and cap styles are not applied: every new stroke is
    // solid. Receivers drop the dash pattern as well, so the drawer's board
    // and theirs paint the same stroke; applying the style here alone would
    // make them differ.
    shape->setPen(QPen(QBrush(palette->strokeColor(), Qt::SolidPattern), palette->strokeWidth(), Qt::SolidLine, Qt::SquareCap,
                       Qt::BevelJoin));
    shape->setBrush(QBrush(Qt::NoBrush));
    if ((tool == GraphicDefine::Rectangle || tool == GraphicDefine::Ellipse) && m_fillShape) {
        shape->setPen(QPen(Qt::NoPen));
        shape->setBrush(palette->fillStyle());
    }
}

GraphicItem* GraphicScene::createItem(GraphicDefine::ToolType tool)
{
    // A picture comes from the file the host named.
    if (tool == GraphicDefine::Image)
        return createImageItem();
    const ItemKind* kind = ItemKind::ofTool(tool);
    if (!kind)
        return nullptr;
    GraphicItem* item = kind->make(this);
    // A text starts in the font of the host's field, which it empties.
    auto* text = qobject_cast<GraphicTextItem*>(item);
    QObject* inputer = textInputer();
    if (text && inputer) {
        text->setFont(inputer->property("font").value<QFont>());
        inputer->setProperty("text", QString());
    }
    stamp(item);
    return item;
}

GraphicItem* GraphicScene::createImageItem()
{
    QString reason;
    const QImage image = m_imageCodec->readPreloaded(Util::instance().toLocalFile(m_imagePath), &reason);
    if (image.isNull()) {
        // Refused before any item or history step exists.
        emit pictureRefused(m_imagePath, reason);
        return nullptr;
    }
    // A loaded picture gets no timestamp here; it keeps the item's default.
    return new GraphicImage(addImage(image), this, nullptr);
}

void GraphicScene::setToolType(GraphicDefine::ToolType tool)
{
    if (m_toolType == tool)
        return;
    m_tools->changingTool(tool);
    m_toolType = tool;
    emit toolTypeChanged();
}

// --- selection --------------------------------------------------------------

void GraphicScene::deselectAll()
{
    SceneLocker locker(&m_itemsMutex);
    QRectF dirty = handlesArea();
    for (const QSharedPointer<GraphicItem>& item : std::as_const(m_selectedItems)) {
        item->setSelected(false);
        dirty = dirty.united(item->shape().boundingRect());
    }
    m_selectedItems.clear();
    repaintHandles(dirty);
}

void GraphicScene::clearAll(bool sync)
{
    // The clear travels as one message of its own; undo and redo of it send
    // the items they bring back or take again.
    pushCommand(new BatchRemoveGraphicCommand(items(ItemLayer, 1), this, sync, sync));
    // The others drop whatever is older than the clear, also off the page: so
    // does this board.
    if (sync)
        m_sync->raiseClearMark(m_sync->sendOperation(im::whiteboard::UserOperation::UserOperationClearAll), nullptr);
}

void GraphicScene::clearByUid(qlonglong userId, bool sync)
{
    GraphicItemList list = items(ItemLayer, 1);
    list.removeIf([userId](const QSharedPointer<GraphicItem>& item) { return item->userId() != userId; });
    pushCommand(new BatchRemoveGraphicCommand(list, this, sync, sync));
    // The message names the sender, not `userId`: the others clear the
    // sender's items, and so does the relay's store, which clears by the
    // authenticated sender. Hence only a clear of one's own items also
    // raises the local clear mark below.
    if (!sync)
        return;
    const Version version = m_sync->sendOperation(im::whiteboard::UserOperation::UserOperationClearByUid);
    if (userId == m_currentUserId)
        m_sync->raiseClearMark(version, &userId);
}

// --- pointer, hover and keys: the tools' -----------------------------------

void GraphicScene::mousePressEvent(QMouseEvent* event)
{
    m_tools->press(event);
}

void GraphicScene::mouseMoveEvent(QMouseEvent* event)
{
    m_tools->move(event);
}

void GraphicScene::mouseReleaseEvent(QMouseEvent* event)
{
    m_tools->release(event);
}

void GraphicScene::mouseDoubleClickEvent(QMouseEvent*)
{
    m_tools->doubleClick();
}

void GraphicScene::hoverMoveEvent(QHoverEvent* event)
{
    m_tools->hover(event);
}

void GraphicScene::hoverLeaveEvent(QHoverEvent*)
{
    setViewCursor(Qt::ArrowCursor);
}

void GraphicScene::keyPressEvent(QKeyEvent* event)
{
    m_tools->keyPress(event);
}

void GraphicScene::keyReleaseEvent(QKeyEvent* event)
{
    m_tools->keyRelease(event);
}

QSharedPointer<GraphicItem> GraphicScene::activeItem() const
{
    return m_tools->gesture().activeItem;
}

GraphicItemList GraphicScene::clipboardItems() const
{
    return m_tools->select().clipboard();
}

void GraphicScene::setSelectedItems(const GraphicItemList& items)
{
    SceneLocker locker(&m_itemsMutex);
    m_selectedItems = items;
}

void GraphicScene::setViewCursor(const QCursor& cursor)
{
    if (m_view)
        m_view->setCursor(cursor);
}

QObject* GraphicScene::textInputer() const
{
    return m_view ? m_view->property("textInputer").value<QObject*>() : nullptr;
}

// --- events the scene does not use ------------------------------------------

void GraphicScene::focusInEvent(QFocusEvent*) { }
void GraphicScene::focusOutEvent(QFocusEvent*) { }
void GraphicScene::inputMethodEvent(QInputMethodEvent*) { }
QVariant GraphicScene::inputMethodQuery(Qt::InputMethodQuery) const { return QVariant(); }
void GraphicScene::hoverEnterEvent(QHoverEvent*) { }
void GraphicScene::wheelEvent(QWheelEvent*) { }
void GraphicScene::dragEnterEvent(QDragEnterEvent*) { }
void GraphicScene::dragMoveEvent(QDragMoveEvent*) { }
void GraphicScene::dragLeaveEvent(QDragLeaveEvent*) { }
void GraphicScene::dropEvent(QDropEvent*) { }

} // namespace whiteboard
