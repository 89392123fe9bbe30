#include "scene/textchangecommand.h"

#include "graphics/graphiccontroller.h"
#include "graphics/graphicitem.h"

namespace whiteboard {

TextChangeCommand::TextChangeCommand(const QString& oldText, const QString& newText,
                                     const QSharedPointer<GraphicItem>& item, GraphicScene* scene)
    : GraphicCommand(item, scene)
    , m_oldText(oldText)
    , m_newText(newText)
{
}

void TextChangeCommand::setText(const QString& text)
{
    changeItem([this, &text] {
        m_item->setProperty("text", text);
        if (GraphicController* controller = m_item->controller())
            controller->update();
    });
}

void TextChangeCommand::redo()
{
    setText(m_newText);
}

void TextChangeCommand::undo()
{
    setText(m_oldText);
}

} // namespace whiteboard
