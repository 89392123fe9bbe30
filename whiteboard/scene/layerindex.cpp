#include "scene/layerindex.h"

#include "graphics/graphicitem.h"

#include <algorithm>

namespace whiteboard {

LayerIndex::LayerIndex(const QRectF& bounds)
    : m_root(bounds)
{
}

void LayerIndex::file(const QSharedPointer<GraphicItem>& item)
{
    Q_ASSERT(!m_filed.contains(item.data()));
    GraphicIndexNode* node = m_root.insert(item);
    // The tree appends: the item's slot is the node's last.
    Q_ASSERT(node && !node->entries().empty() && node->entries().back().item == item);
    m_filed.insert(item.data(), { node, int(node->entries().size()) - 1 });
}

QSharedPointer<GraphicItem> LayerIndex::take(const GraphicItem* item)
{
    const auto filed = m_filed.constFind(item);
    if (filed == m_filed.cend())
        return {};
    const Filed where = *filed;
    Q_ASSERT(where.slot >= 0 && where.slot < int(where.node->entries().size()));
    m_filed.erase(filed);
    QSharedPointer<GraphicItem> taken = where.node->takeAt(where.slot);
    Q_ASSERT(taken.data() == item);
    // The node's last entry has moved into the freed slot.
    if (where.slot < int(where.node->entries().size())) {
        Filed& moved = m_filed[where.node->entries()[where.slot].item.data()];
        Q_ASSERT(moved.node == where.node && moved.slot == int(where.node->entries().size()));
        moved.slot = where.slot;
    }
    return taken;
}

void LayerIndex::insert(const QSharedPointer<GraphicItem>& item)
{
    if (!item)
        return;
    // Filed once: a second add of the same item moves it.
    take(item.data());
    file(item);
}

void LayerIndex::remove(const GraphicItem* item)
{
    take(item);
}

QRectF LayerIndex::filedBoundary(const GraphicItem* item) const
{
    const auto filed = m_filed.constFind(item);
    if (filed == m_filed.cend())
        return QRectF();
    const GraphicIndexNode::Entry& entry = filed->node->entries()[filed->slot];
    Q_ASSERT(entry.item.data() == item);
    return entry.boundary;
}

void LayerIndex::refile(const GraphicItem* item)
{
    if (const QSharedPointer<GraphicItem> shared = take(item))
        file(shared);
}

QList<QSharedPointer<GraphicItem>> LayerIndex::query(const QRectF& rect) const
{
    return m_root.query(rect);
}

QList<QSharedPointer<GraphicItem>> LayerIndex::query(const QRectF& rect, Qt::SortOrder order, const std::function<bool(const GraphicItem&)>& keep) const
{
    QList<QSharedPointer<GraphicItem>> result;
    // Filtered before anything is copied: only what is returned is shared and sorted.
    m_root.visit(rect, [&](const GraphicIndexNode::Entry& entry) {
        if (!keep || keep(*entry.item))
            result.append(entry.item);
    });
    sort(result, order);
    return result;
}

void LayerIndex::clear()
{
    m_filed.clear();
    m_root.clear();
}

bool LayerIndex::older(const GraphicItem& a, const GraphicItem& b)
{
    // Equal times fall back on the gid, so that every board stacks items drawn
    // in one millisecond alike, whatever order they arrived in.
    return a.timestamp() < b.timestamp() || (a.timestamp() == b.timestamp() && a.gid() < b.gid());
}

void LayerIndex::sort(QList<QSharedPointer<GraphicItem>>& items, Qt::SortOrder order)
{
    // A stable sort takes a buffer, even for the one candidate of most hit tests.
    if (items.size() < 2)
        return;
    if (order == Qt::AscendingOrder)
        std::stable_sort(items.begin(), items.end(), [](const auto& a, const auto& b) { return older(*a, *b); });
    else
        std::stable_sort(items.begin(), items.end(), [](const auto& a, const auto& b) { return older(*b, *a); });
}

} // namespace whiteboard
