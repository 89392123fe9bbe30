#pragma once

#include "tools/tool.h"

namespace whiteboard {

// Removes the item pressed at once, or, by a drag, every item passed over
// in one step at the release.
class EraserTool : public Tool
{
public:
    using Tool::Tool;

    void begin(QMouseEvent* event) override;
    void motion(QMouseEvent* event) override;
    void hover(QHoverEvent* event) override;
    void end(QMouseEvent* event) override;
};

} // namespace whiteboard
