#pragma once

#include "tools/tool.h"

namespace whiteboard {

// Draws a polyline point by point: the press makes it, each further press
// adds a point, the right button or a change of tool ends it.
class PolylineTool : public Tool
{
public:
    using Tool::Tool;

    void begin(QMouseEvent* event) override;
    void hover(QHoverEvent* event) override;

    // Ends the open polyline, if any, as a right click at the last pan
    // position would. `byToolChange`: the tool is being switched.
    void close(bool byToolChange);
    static bool isOpen(const QSharedPointer<GraphicItem>& item);
};

} // namespace whiteboard
