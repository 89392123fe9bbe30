#include "scene/layerindex.h"

#include "graphics/graphicitem.h"

#include <algorithm>

namespace whiteboard {

LayerIndex::LayerIndex(const QRectF& bounds)
    : m_root(bounds)
{
}

void LayerIndex::insert(const QSharedPointer<GraphicItem>& item)
{
    if (!item)
        return;
    // Filed once: a second add of the same item moves it.
    remove(item.data());
    m_filed.insert(item.data(), { m_root.insert(item), item->boundary() });
}

void LayerIndex::remove(const GraphicItem* item)
{
    if (GraphicIndexNode* node = m_filed.take(item).node)
        node->take(item);
}

void LayerIndex::refile(const GraphicItem* item)
{
    GraphicIndexNode* node = m_filed.value(item).node;
    if (!node)
        return;
    const QSharedPointer<GraphicItem> shared = node->take(item);
    m_filed.insert(item, { m_root.insert(shared), item->boundary() });
}

QList<QSharedPointer<GraphicItem>> LayerIndex::query(const QRectF& rect) const
{
    return m_root.query(rect);
}

QList<QSharedPointer<GraphicItem>> LayerIndex::query(const QRectF& rect, int order, const std::function<bool(const GraphicItem&)>& keep) const
{
    QList<QSharedPointer<GraphicItem>> result = m_root.query(rect);
    if (keep)
        result.removeIf([&keep](const QSharedPointer<GraphicItem>& item) { return !keep(*item); });
    sort(result, order);
    return result;
}

void LayerIndex::clear()
{
    m_filed.clear();
    m_root.clear();
}

void LayerIndex::sort(QList<QSharedPointer<GraphicItem>>& items, int order)
{
    // A stable sort takes a buffer, even for the one candidate of most hit tests.
    if (items.size() < 2)
        return;
    // Equal times fall back on the gid, so that every board stacks items drawn
    // in one millisecond alike, whatever order they arrived in.
    const auto older = [](const QSharedPointer<GraphicItem>& a, const QSharedPointer<GraphicItem>& b) {
        return a->timestamp() < b->timestamp() || (a->timestamp() == b->timestamp() && a->gid() < b->gid());
    };
    if (order == 1)
        std::stable_sort(items.begin(), items.end(), older);
    else
        std::stable_sort(items.begin(), items.end(), [&older](const auto& a, const auto& b) { return older(b, a); });
}

} // namespace whiteboard
