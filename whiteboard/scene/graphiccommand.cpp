#include "scene/graphiccommand.h"

#include "graphics/graphicitem.h"
#include "scene/graphicscene.h"

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
}

void GraphicCommand::attach()
{
    m_scene->addItem(GraphicScene::ItemLayer, m_item);
    repaintItem();
}

void GraphicCommand::repaintItem()
{
    m_scene->updateLayer(GraphicScene::ItemLayer, QRegion(m_item->boundary().toRect()));
}

} // namespace whiteboard
