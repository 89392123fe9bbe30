#include "scene/addgraphiccommand.h"

namespace whiteboard {

AddGraphicCommand::AddGraphicCommand(const QSharedPointer<GraphicItem>& item, GraphicScene* scene)
    : GraphicCommand(item, scene)
{
}

void AddGraphicCommand::redo()
{
    attach();
}

void AddGraphicCommand::undo()
{
    detach();
}

} // namespace whiteboard
