#include "scene/batchremovegraphiccommand.h"

#include "graphics/graphicitem.h"
#include "scene/graphicscene.h"

#include "proto/whiteboard.pb.h"

namespace whiteboard {

BatchRemoveGraphicCommand::BatchRemoveGraphicCommand(const QList<QSharedPointer<GraphicItem>>& items, GraphicScene* scene,
                                                     bool sync, bool announced)
    : GraphicCommand(QSharedPointer<GraphicItem>(), scene)
    , m_items(items)
    , m_sync(sync)
    , m_announced(announced)
{
}

QRect BatchRemoveGraphicCommand::dirtyRect() const
{
    QRect rect;
    for (const QSharedPointer<GraphicItem>& item : m_items)
        rect = rect.united(item->boundary().toRect());
    return rect;
}

void BatchRemoveGraphicCommand::redo()
{
    m_scene->clearSelection();
    for (const QSharedPointer<GraphicItem>& item : std::as_const(m_items)) {
        if (item->activeFocus())
            m_scene->setFocusItem(QSharedPointer<GraphicItem>());
        if (item->selected())
            item->setSelected(false);
    }
    const QRect rect = dirtyRect();
    m_scene->removeItems(GraphicScene::ItemLayer, m_items);
    m_scene->invalidate(rect, GraphicScene::ItemLayer);
    if (m_sync && !m_announced)
        m_scene->sendItemBatch(im::whiteboard::GraphicActionRemove, m_items);
    m_announced = false;
}

void BatchRemoveGraphicCommand::undo()
{
    const QRect rect = dirtyRect();
    m_scene->addItems(GraphicScene::ItemLayer, m_items);
    m_scene->invalidate(rect, GraphicScene::ItemLayer);
    if (m_sync)
        m_scene->sendItemBatch(im::whiteboard::GraphicActionAdd, m_items);
}

} // namespace whiteboard
