#include "scene/movegraphiccommand.h"

#include "graphics/graphiccontroller.h"
#include "graphics/graphicitem.h"

namespace whiteboard {

MoveGraphicCommand::MoveGraphicCommand(const QPointF& oldPosition, const QPointF& newPosition,
                                       const QSharedPointer<GraphicItem>& item, GraphicScene* scene)
    : GraphicCommand(item, scene)
    , m_oldPosition(oldPosition)
    , m_newPosition(newPosition)
{
}

void MoveGraphicCommand::moveTo(const QPointF& position)
{
    changeItem([this, &position] {
        if (GraphicController* controller = m_item->controller())
            controller->moveTo(position);
    });
}

void MoveGraphicCommand::redo()
{
    moveTo(m_newPosition);
}

void MoveGraphicCommand::undo()
{
    moveTo(m_oldPosition);
}

} // namespace whiteboard
