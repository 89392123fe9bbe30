#pragma once

#include "scene/graphiccommand.h"

#include <QList>

namespace whiteboard {

// Removes several items as one step: the delete key, the eraser and clears.
// `sync` tells whether the change is announced to the other participants: a
// clear travels as one message of its own, so its command stays silent.
class BatchRemoveGraphicCommand : public GraphicCommand
{
public:
    BatchRemoveGraphicCommand(const QList<QSharedPointer<GraphicItem>>& items, GraphicScene* scene, bool sync);

    QList<QSharedPointer<GraphicItem>> items() const { return m_items; }
    bool sync() const { return m_sync; }

    void redo() override;
    void undo() override;

private:
    QRect dirtyRect() const;

    QList<QSharedPointer<GraphicItem>> m_items;
    bool m_sync = false;
};

} // namespace whiteboard
