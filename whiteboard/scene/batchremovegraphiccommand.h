#pragma once

#include "scene/graphiccommand.h"

#include <QList>

namespace whiteboard {

// Removes several items as one step: the delete key, the eraser and clears.
// `sync` tells whether the change is announced to the other participants.
// With `announced`, the first removal has already travelled as a clear of its
// own and stays silent; its undo and redo send like any other.
class BatchRemoveGraphicCommand : public GraphicCommand
{
public:
    BatchRemoveGraphicCommand(const QList<QSharedPointer<GraphicItem>>& items, GraphicScene* scene, bool sync,
                              bool announced = false);

    QList<QSharedPointer<GraphicItem>> items() const { return m_items; }
    bool sync() const { return m_sync; }

    void redo() override;
    void undo() override;

private:
    QRect dirtyRect() const;

    QList<QSharedPointer<GraphicItem>> m_items;
    bool m_sync = false;
    bool m_announced = false;
};

} // namespace whiteboard
