#include "scene/removegraphiccommand.h"

namespace whiteboard {

RemoveGraphicCommand::RemoveGraphicCommand(const QSharedPointer<GraphicItem>& item, GraphicScene* scene)
    : GraphicCommand(item, scene)
{
}

void RemoveGraphicCommand::redo()
{
    detach();
}

void RemoveGraphicCommand::undo()
{
    attach();
}

} // namespace whiteboard
