#pragma once

#include "tools/drawtool.h"

class QObject;

namespace whiteboard {

// Places a text box where the pointer is released and commits it when the
// host's text field loses the focus; edits a text item on a double click
// with the selector.
class TextTool : public DrawTool
{
public:
    using DrawTool::DrawTool;

    void end(QMouseEvent* event) override;

    // Lays the host's text field over `item`, which hides until the edit ends.
    void beginEdit(const QSharedPointer<GraphicItem>& item);
    // The new box left the active layer: the host's field takes the typing,
    // and its focus loss commits the box.
    void awaitText();

private:
    void makeBox(QMouseEvent* event);
    void endNewBox(QObject* inputer);
    void endEdit(QObject* inputer, const QSharedPointer<GraphicItem>& item);
};

} // namespace whiteboard
