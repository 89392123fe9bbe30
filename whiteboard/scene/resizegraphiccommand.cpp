#include "scene/resizegraphiccommand.h"

#include "graphics/abstractgraphicshapeitem.h"
#include "graphics/graphiccontroller.h"

namespace whiteboard {

ResizeGraphicCommand::ResizeGraphicCommand(const QPainterPath& oldPath, const QPainterPath& newPath,
                                           const QSharedPointer<GraphicItem>& item, GraphicScene* scene)
    : GraphicCommand(item, scene)
    , m_oldPath(oldPath)
    , m_newPath(newPath)
{
}

void ResizeGraphicCommand::setPath(const QPainterPath& path)
{
    changeItem([this, &path] {
        if (auto* shape = qobject_cast<AbstractGraphicShapeItem*>(m_item.data())) {
            shape->setOutlinePath(path);
            shape->setBoundary(path.boundingRect());
        }
        if (GraphicController* controller = m_item->controller())
            controller->update();
    });
}

void ResizeGraphicCommand::redo()
{
    setPath(m_newPath);
}

void ResizeGraphicCommand::undo()
{
    setPath(m_oldPath);
}

} // namespace whiteboard
