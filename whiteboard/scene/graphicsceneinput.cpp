// Pointer, keyboard, hover and text input of the scene.
#include "scene/graphicscene.h"

#include "graphics/abstractgraphicshapeitem.h"
#include "graphics/graphicitem.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QQuickItem>

namespace whiteboard {

bool GraphicScene::canOperate(const QSharedPointer<GraphicItem>& item) const
{
    if (m_view && m_view->property("isOwner").toBool())
        return true;
    return item && m_currentUserId == item->userId();
}

void GraphicScene::applyPalette(GraphicItem*, GraphicDefine::ToolType) const { }
void GraphicScene::setToolType(GraphicDefine::ToolType tool)
{
    if (m_toolType == tool)
        return;
    m_toolType = tool;
    emit toolTypeChanged();
}
void GraphicScene::clearAll(bool) { }
void GraphicScene::clearByUid(qlonglong, bool) { }
void GraphicScene::setViewCursor(const QCursor& cursor)
{
    if (m_view)
        m_view->setCursor(cursor);
}
void GraphicScene::setItemCursor(const QSharedPointer<GraphicItem>&, Qt::CursorShape) { }
QObject* GraphicScene::textInputer() const
{
    return m_view ? m_view->property("textInputer").value<QObject*>() : nullptr;
}
GraphicItem* GraphicScene::createItem(GraphicDefine::ToolType) { return nullptr; }
GraphicItem* GraphicScene::createImageItem() { return nullptr; }
void GraphicScene::deselectAll() { }
void GraphicScene::makeTextBox(QMouseEvent*) { }
void GraphicScene::finishSegment(bool) { }
void GraphicScene::beginTextEdit(const QSharedPointer<GraphicItem>&) { }
void GraphicScene::endTextEdit(QObject*, const QSharedPointer<GraphicItem>&) { }
void GraphicScene::endNewTextBox(QObject*) { }
void GraphicScene::rubberBandMove(QMouseEvent*) { }
void GraphicScene::nudgeSelection(QKeyEvent*) { }

void GraphicScene::focusInEvent(QFocusEvent*) { }
void GraphicScene::focusOutEvent(QFocusEvent*) { }
void GraphicScene::inputMethodEvent(QInputMethodEvent*) { }
QVariant GraphicScene::inputMethodQuery(Qt::InputMethodQuery) const { return QVariant(); }
void GraphicScene::mousePressEvent(QMouseEvent*) { }
void GraphicScene::mouseMoveEvent(QMouseEvent*) { }
void GraphicScene::mouseReleaseEvent(QMouseEvent*) { }
void GraphicScene::mouseDoubleClickEvent(QMouseEvent*) { }
void GraphicScene::hoverEnterEvent(QHoverEvent*) { }
void GraphicScene::hoverMoveEvent(QHoverEvent*) { }
void GraphicScene::hoverLeaveEvent(QHoverEvent*) { }
void GraphicScene::wheelEvent(QWheelEvent*) { }
void GraphicScene::keyPressEvent(QKeyEvent*) { }
void GraphicScene::keyReleaseEvent(QKeyEvent*) { }
void GraphicScene::dragEnterEvent(QDragEnterEvent*) { }
void GraphicScene::dragMoveEvent(QDragMoveEvent*) { }
void GraphicScene::dragLeaveEvent(QDragLeaveEvent*) { }
void GraphicScene::dropEvent(QDropEvent*) { }

} // namespace whiteboard
