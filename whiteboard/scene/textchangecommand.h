#pragma once

#include "scene/graphiccommand.h"

#include <QString>

namespace whiteboard {

// Sets the "text" property of a text item.
class TextChangeCommand : public GraphicCommand
{
public:
    TextChangeCommand(const QString& oldText, const QString& newText, const QSharedPointer<GraphicItem>& item,
                      GraphicScene* scene);

    void redo() override;
    void undo() override;

private:
    void setText(const QString& text);

    QString m_oldText;
    QString m_newText;
};

} // namespace whiteboard
