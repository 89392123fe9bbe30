#pragma once

#include <QList>
#include <QSharedPointer>
#include <QUndoCommand>

#include <functional>

namespace im::whiteboard {
enum GraphicActionType : int;
}

namespace whiteboard {

class GraphicItem;
class GraphicScene;

// Base of the undoable edits. A command holds its item alive while the item
// is out of the scene, so that undo can bring it back. Commands never merge.
// Each step also tells the other participants what it did, so that undo and
// redo reach them like the first edit.
class GraphicCommand : public QUndoCommand
{
public:
    GraphicCommand(const QSharedPointer<GraphicItem>& item, GraphicScene* scene);

    QSharedPointer<GraphicItem> item() const { return m_item; }

protected:
    // Take the item out of the scene: focus, selection, index, repaint; a removal goes out.
    void detach();
    // Bring the item in, rounded as the wire carries it: index, repaint; an add goes out.
    void attach();
    // Repaint the item's boundary on the item layer.
    void repaintItem();
    // Changes the item's state inside itemsMutex, since the render thread
    // paints it, rounds it as the wire does, then repaints it and sends its
    // whole new state. The message leaves after the lock is released. An item
    // that somebody else removed is left alone.
    void changeItem(const std::function<void()>& change);

    QSharedPointer<GraphicItem> m_item;
    GraphicScene* m_scene = nullptr;
};

} // namespace whiteboard
