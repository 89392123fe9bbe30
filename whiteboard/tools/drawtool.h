#pragma once

#include "tools/tool.h"

namespace whiteboard {

// The tools that draw an item by a drag: pen, line, arrow, rectangle,
// ellipse, picture (and the sticker, which draws nothing). A press on a
// handle of the focus item drags that handle instead, as the selector does.
class DrawTool : public Tool
{
public:
    using Tool::Tool;

    void begin(QMouseEvent* event) override;
};

} // namespace whiteboard
