#pragma once

#include "scene/graphiccommand.h"

namespace whiteboard {

class AddGraphicCommand : public GraphicCommand
{
public:
    AddGraphicCommand(const QSharedPointer<GraphicItem>& item, GraphicScene* scene);

    void redo() override;
    void undo() override;
};

} // namespace whiteboard
