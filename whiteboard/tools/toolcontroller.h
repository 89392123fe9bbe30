#pragma once

#include "graphicdefine.h"
#include "tools/drawtool.h"
#include "tools/erasertool.h"
#include "tools/gesture.h"
#include "tools/pantool.h"
#include "tools/polylinetool.h"
#include "tools/selecttool.h"
#include "tools/texttool.h"

class QHoverEvent;
class QKeyEvent;
class QMouseEvent;

namespace whiteboard {

class GraphicScene;

// Routes the scene's pointer and key events to the tool of the gesture and
// keeps the state the tools share. GUI thread only; one per scene.
class ToolController
{
public:
    explicit ToolController(GraphicScene* scene);

    Gesture& gesture() { return m_gesture; }
    const Gesture& gesture() const { return m_gesture; }
    SelectTool& select() { return m_select; }
    TextTool& text() { return m_text; }

    void press(QMouseEvent* event);
    void move(QMouseEvent* event);
    void release(QMouseEvent* event);
    void doubleClick();
    void hover(QHoverEvent* event);
    void keyPress(QKeyEvent* event);
    void keyRelease(QKeyEvent* event);
    // Before the scene stores `next`: an open text is committed, and an open
    // polyline is finished first, as a right click finishes it, since the
    // release steps of the eraser and the text tool would skip its commit.
    void changingTool(GraphicDefine::ToolType next);
    // The pointer is up: the next press starts afresh.
    void endGesture();

private:
    Tool* current();

    GraphicScene* m_scene = nullptr;
    Gesture m_gesture;
    PanTool m_pan;
    SelectTool m_select;
    DrawTool m_draw;
    PolylineTool m_polyline;
    TextTool m_text;
    EraserTool m_eraser;
};

} // namespace whiteboard
