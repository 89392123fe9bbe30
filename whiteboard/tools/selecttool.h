#pragma once

#include "tools/tool.h"

#include <QList>
#include <QPainterPath>

namespace whiteboard {

// Selects by a click or a rubber band, drags or reshapes the focus item by
// its handles, nudges the selection with the arrow keys and copies and
// pastes it.
class SelectTool : public Tool
{
public:
    using Tool::Tool;

    void begin(QMouseEvent* event) override;
    void motion(QMouseEvent* event) override;
    void hover(QHoverEvent* event) override;
    void end(QMouseEvent* event) override;

    // One scene unit per arrow key, at every scale; true when it was taken.
    bool nudge(int key);
    void copySelection();
    // Every paste makes fresh copies of the clipboard.
    void paste();
    QList<QSharedPointer<GraphicItem>> clipboard() const { return m_clipboard; }

private:
    // Clears the selection unless Control is held; returns the area it repainted to do so.
    void dropSelection(QMouseEvent* event, QPainterPath& dirty);
    void pressOn(const QSharedPointer<GraphicItem>& hit, QMouseEvent* event);
    void bandMotion(QMouseEvent* event);
    // Selects what the band covers now, of what this user may touch.
    void selectInBand();

    QList<QSharedPointer<GraphicItem>> m_clipboard;
};

} // namespace whiteboard
