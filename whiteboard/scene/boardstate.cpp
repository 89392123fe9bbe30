#include "scene/boardstate.h"

#include "graphics/abstractgraphicshapeitem.h"
#include "graphics/graphiccontroller.h"
#include "graphics/graphicitem.h"
#include "scene/layerindex.h"

#include <QVarLengthArray>

#include <algorithm>

namespace whiteboard {

BoardState::BoardState()
{
    for (auto& index : m_indexes)
        index = std::make_unique<LayerIndex>(QRectF(0, 0, GraphicScene::kIndexExtent, GraphicScene::kIndexExtent));
}

BoardState::~BoardState() = default;

LayerIndex* BoardState::index(Layer layer) const
{
    return layer >= 0 && layer < GraphicScene::kLayerCount ? m_indexes[layer].get() : nullptr;
}

QRectF BoardState::unfile(LayerIndex& index, Layer layer, GraphicItem& item)
{
    index.remove(&item);
    item.setFiledIn(layer, false);
    return item.boundary();
}

QRectF BoardState::add(Layer layer, const GraphicItemList& items)
{
    LayerIndex* index = this->index(layer);
    if (!index)
        return {};
    QRectF area;
    for (const QSharedPointer<GraphicItem>& item : items) {
        if (layer == GraphicScene::ItemLayer) {
            // One item per gid: an item already in holds its place, another
            // object of the gid gives way.
            const QSharedPointer<GraphicItem> held = itemByGid(item->gid());
            if (held == item)
                continue;
            if (held)
                area = area.united(unfile(*index, layer, *held));
            GidRecord& record = m_gids[item->gid()];
            record.item = item;
            record.live = true;
        }
        index->insert(item);
        area = area.united(item->boundary());
        item->setFiledIn(layer, true);
        noteHitReach(item.data());
        // Pasted, received and restored items come with handles that were
        // never placed: place them on entry.
        if (GraphicController* controller = item->existingController())
            controller->update();
    }
    return area;
}

QRectF BoardState::remove(Layer layer, const GraphicItemList& items)
{
    LayerIndex* index = this->index(layer);
    if (!index)
        return {};
    QRectF area;
    for (const QSharedPointer<GraphicItem>& item : items) {
        area = area.united(unfile(*index, layer, *item));
        if (layer != GraphicScene::ItemLayer)
            continue;
        const auto record = m_gids.find(item->gid());
        if (record != m_gids.end() && record->item == item)
            record->live = false;
    }
    return area;
}

QRectF BoardState::refile(Layer layer, const QSharedPointer<GraphicItem>& item)
{
    LayerIndex* index = this->index(layer);
    if (!index || !item)
        return {};
    QRectF area = item->boundary();
    if (index->contains(item.data())) {
        const QRectF filed = index->filedBoundary(item.data());
        const QRectF now = item->boundary().normalized();
        area = area.united(filed);
        // Callers after a change find it filed already: the item told the
        // index as its boundary changed. Compared exactly, as queries test
        // the filed copy (QRectF's == is fuzzy).
        if (filed.x() != now.x() || filed.y() != now.y() || filed.width() != now.width() || filed.height() != now.height())
            index->refile(item.data());
    } else {
        index->insert(item);
        item->setFiledIn(layer, true);
    }
    return area;
}

void BoardState::noteHitReach(const GraphicItem* item)
{
    if (auto* shape = qobject_cast<const AbstractGraphicShapeItem*>(item))
        m_hitReach = std::max(m_hitReach, shape->hitTolerance());
}

GraphicItemList BoardState::query(Layer layer, const QRectF& area, Qt::SortOrder order,
                                  const std::function<bool(const GraphicItem&)>& keep) const
{
    const LayerIndex* index = this->index(layer);
    return index ? index->query(area, order, keep) : GraphicItemList();
}

QRectF BoardState::pointQueryRect(const QPointF& p) const
{
    return QRectF(p.x() - m_hitReach, p.y() - m_hitReach, 2 * m_hitReach, 2 * m_hitReach);
}

QSharedPointer<GraphicItem> BoardState::itemAt(const QPointF& p, Qt::SortOrder sort, Qt::ItemSelectionMode mode) const
{
    // The candidates stay in the index while we look: only the winner is shared.
    QVarLengthArray<const QSharedPointer<GraphicItem>*, 32> candidates;
    index(GraphicScene::ItemLayer)->visit(pointQueryRect(p), [&candidates](const GraphicIndexNode::Entry& entry) {
        candidates.append(&entry.item);
    });
    const auto first = [sort](const QSharedPointer<GraphicItem>* a, const QSharedPointer<GraphicItem>* b) {
        return sort == Qt::AscendingOrder ? LayerIndex::older(**a, **b) : LayerIndex::older(**b, **a);
    };
    // Stable either way; the few candidates of most points need no buffer.
    if (candidates.size() > 16) {
        std::stable_sort(candidates.begin(), candidates.end(), first);
    } else {
        for (auto next = candidates.begin(); next != candidates.end(); ++next)
            std::rotate(std::upper_bound(candidates.begin(), next, *next, first), next, next + 1);
    }
    for (const QSharedPointer<GraphicItem>* item : std::as_const(candidates)) {
        if ((*item)->collidesWithPoint(p, mode))
            return *item;
    }
    return {};
}

QSharedPointer<GraphicItem> BoardState::itemByGid(const QString& gid) const
{
    const auto record = m_gids.constFind(gid);
    if (record == m_gids.constEnd() || !record->live)
        return {};
    return record->item.toStrongRef();
}

void BoardState::advanceClock(qint64 seen)
{
    m_clock = std::max(m_clock, seen);
}

BoardState::Version BoardState::clearMarkFor(qlonglong author) const
{
    return std::max(m_clearMark, m_clearMarks.value(author));
}

GraphicItemList BoardState::raiseClearMark(const Version& version, const qlonglong* userId)
{
    Version& mark = userId ? m_clearMarks[*userId] : m_clearMark;
    mark = std::max(mark, version);
    GraphicItemList older;
    for (const GidRecord& record : std::as_const(m_gids)) {
        const QSharedPointer<GraphicItem> item = record.live ? record.item.toStrongRef() : QSharedPointer<GraphicItem>();
        if (item && record.version < version && (!userId || item->userId() == *userId))
            older.append(item);
    }
    return older;
}

} // namespace whiteboard
