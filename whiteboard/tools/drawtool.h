#pragma once

#include "tools/tool.h"

namespace whiteboard {

// The tools that draw an item by a drag: pen, line, arrow, rectangle,
// ellipse, picture (and the sticker, which draws nothing). A press on a
// handle of the focus item drags that handle instead, as the selector does.
// A click with the picture tool places the picture there.
class DrawTool : public Tool
{
public:
    using Tool::Tool;

    void begin(QMouseEvent* event) override;
    void end(QMouseEvent* event) override;

private:
    // The picture at its own size, within half the page, its top left at
    // the click.
    void placePicture(QMouseEvent* event);
};

} // namespace whiteboard
