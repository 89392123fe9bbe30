#pragma once

#include <QSharedPointer>
#include <QUndoCommand>

namespace whiteboard {

class GraphicItem;
class GraphicScene;

// Base of the undoable edits. A command holds its item alive while the item
// is out of the scene, so that undo can bring it back. Commands never merge.
class GraphicCommand : public QUndoCommand
{
public:
    GraphicCommand(const QSharedPointer<GraphicItem>& item, GraphicScene* scene);

    QSharedPointer<GraphicItem> item() const { return m_item; }

protected:
    // Take the item out of the scene: focus, selection, index, repaint.
    void detach();
    // Bring the item in: index, repaint.
    void attach();
    // Repaint the item's boundary on the item layer.
    void repaintItem();

    QSharedPointer<GraphicItem> m_item;
    GraphicScene* m_scene = nullptr;
};

} // namespace whiteboard
