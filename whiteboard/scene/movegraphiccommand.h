#pragma once

#include "scene/graphiccommand.h"

#include <QPointF>

namespace whiteboard {

// Moves an item through its controller, from one drag position to another.
class MoveGraphicCommand : public GraphicCommand
{
public:
    MoveGraphicCommand(const QPointF& oldPosition, const QPointF& newPosition, const QSharedPointer<GraphicItem>& item,
                       GraphicScene* scene);

    void redo() override;
    void undo() override;

private:
    void moveTo(const QPointF& position);

    QPointF m_oldPosition;
    QPointF m_newPosition;
};

} // namespace whiteboard
