#pragma once

#include "tools/tool.h"

namespace whiteboard {

// Moves the content with the pointer while the space bar is held, whatever
// tool is chosen.
class PanTool : public Tool
{
public:
    using Tool::Tool;

    void begin(QMouseEvent* event) override;
    void motion(QMouseEvent* event) override;
    void end(QMouseEvent* event) override;
};

} // namespace whiteboard
