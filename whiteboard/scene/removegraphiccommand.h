#pragma once

#include "scene/graphiccommand.h"

namespace whiteboard {

class RemoveGraphicCommand : public GraphicCommand
{
public:
    RemoveGraphicCommand(const QSharedPointer<GraphicItem>& item, GraphicScene* scene);

    void redo() override;
    void undo() override;
};

} // namespace whiteboard
