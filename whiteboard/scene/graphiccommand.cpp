#include "scene/graphiccommand.h"

#include "graphics/graphicitem.h"
#include "scene/graphicscene.h"

#include "proto/whiteboard.pb.h"

#include <QMutexLocker>

namespace whiteboard {

GraphicCommand::GraphicCommand(const QSharedPointer<GraphicItem>& item, GraphicScene* scene)
    : m_item(item)
    , m_scene(scene)
{
}

void GraphicCommand::detach()
{
    if (m_item->activeFocus())
        m_scene->setFocusItem(QSharedPointer<GraphicItem>());
    if (m_item->selected()) {
        m_scene->deselectItem(m_item);
        m_item->setSelected(false);
    }
    m_scene->removeItem(GraphicScene::ItemLayer, m_item);
    repaintItem();
    m_scene->sendItemAction(im::whiteboard::GraphicActionRemove, m_item);
}

// An undone removal goes out as an add of the same gid: the others need no
// idea of undo.
void GraphicCommand::attach()
{
    m_scene->takeWireForm(m_item.data());
    m_scene->addItem(GraphicScene::ItemLayer, m_item);
    repaintItem();
    m_scene->sendItemAction(im::whiteboard::GraphicActionAdd, m_item);
}

void GraphicCommand::repaintItem()
{
    m_scene->invalidate(m_item->boundary(), GraphicScene::ItemLayer);
}

void GraphicCommand::changeItem(const std::function<void()>& change)
{
    // Somebody else removed the item: there is nothing left to change, here
    // or anywhere, and nothing is sent.
    if (m_scene->itemByGid(m_item->gid()) != m_item)
        return;
    {
        SceneLocker locker(&m_scene->itemsMutex());
        change();
        m_scene->takeWireForm(m_item.data());
    }
    repaintItem();
    m_scene->sendItemAction(im::whiteboard::GraphicActionUpdate, m_item);
}

} // namespace whiteboard
