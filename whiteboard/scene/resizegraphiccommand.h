#pragma once

#include "scene/graphiccommand.h"

#include <QPainterPath>

namespace whiteboard {

// Replaces the outline of a shape item, as a control point drag left it.
class ResizeGraphicCommand : public GraphicCommand
{
public:
    ResizeGraphicCommand(const QPainterPath& oldPath, const QPainterPath& newPath, const QSharedPointer<GraphicItem>& item,
                         GraphicScene* scene);

    void redo() override;
    void undo() override;

private:
    void setPath(const QPainterPath& path);

    QPainterPath m_oldPath;
    QPainterPath m_newPath;
};

} // namespace whiteboard
