#pragma once

#include "tools/drawtool.h"

#include <QMetaObject>
#include <QPointer>
#include <QSharedPointer>

#include <memory>

class QObject;
class QQuickItem;

namespace whiteboard {

// Places a text box where the pointer is released and edits a text item on
// a double click with the selector. Both are typed in the host's text
// field; the edit ends, and what was typed is committed, when the field
// loses the active focus, on Escape, on Enter, on a press on the board
// outside the field, and on a change of tool.
class TextTool : public DrawTool
{
public:
    TextTool(GraphicScene* scene, ToolController& tools);
    ~TextTool() override;

    void end(QMouseEvent* event) override;

    // Lays the host's text field over `item`, which hides until the edit ends.
    void beginEdit(const QSharedPointer<GraphicItem>& item);
    // The new box left the active layer: the host's field takes the typing.
    void awaitText();

    // True while the host's field takes the typing of a box or an edit.
    bool isOpen() const { return m_open != Open::None; }
    // Commits what was typed, hides the field and, if the field held the
    // keys, hands them back to the board. Nothing happens when no edit is open.
    void finishEdit();

private:
    enum class Open { None, NewBox, Edit };

    void makeBox(QMouseEvent* event);
    // Watches the field until finishEdit().
    void open(QQuickItem* inputer, Open mode, const QSharedPointer<GraphicItem>& edited);
    void commitNewBox(QQuickItem* inputer);
    void commitEdit(QQuickItem* inputer, const QSharedPointer<GraphicItem>& item);

    Open m_open = Open::None;
    QPointer<QQuickItem> m_inputer;
    // The item of an edit; a new box is the gesture's active item.
    QSharedPointer<GraphicItem> m_edited;
    QMetaObject::Connection m_focusWatch;
    // Filters the field's keys for Escape and Enter.
    std::unique_ptr<QObject> m_keys;
};

} // namespace whiteboard
