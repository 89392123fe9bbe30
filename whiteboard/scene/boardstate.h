#pragma once

#include "scene/graphicscene.h"
#include "scene/itemversion.h"

#include <QHash>
#include <QSharedPointer>
#include <QWeakPointer>

#include <array>
#include <functional>
#include <memory>

namespace whiteboard {

class GraphicItem;
class LayerIndex;

// What a board holds: the items of each layer in their spatial indexes, the
// item layer's items by gid with the version of each (kept after removal as
// a tombstone), the Lamport clock and the clear marks. No lock of its own:
// the scene hands it out only under itemsMutex.
class BoardState
{
public:
    using Layer = GraphicScene::SceneLayer;
    using Version = ItemVersion;

    // Per gid ever seen: the version held and the item object, kept weakly
    // after its removal so that a later add of the gid brings back the object
    // that undo commands hold.
    struct GidRecord
    {
        Version version;
        QWeakPointer<GraphicItem> item;
        bool live = false;
    };

    BoardState();
    ~BoardState();
    BoardState(const BoardState&) = delete;
    BoardState& operator=(const BoardState&) = delete;

    LayerIndex* index(Layer layer) const;

    // Files each item in the index of `layer`; returns the scene area they
    // cover, and that of any item of the same gid they displace.
    QRectF add(Layer layer, const GraphicItemList& items);
    // Takes each item out of the index of `layer`; returns the area.
    QRectF remove(Layer layer, const GraphicItemList& items);
    // Files the item again under its boundary now (or for the first time);
    // returns where it was and where it is.
    QRectF refile(Layer layer, const QSharedPointer<GraphicItem>& item);
    // An item's hit tolerance may have grown: point queries look that far.
    void noteHitReach(const GraphicItem* item);

    // The items of `layer` met by `area`, those that `keep` accepts (all
    // without it), sorted by `order`.
    GraphicItemList query(Layer layer, const QRectF& area, Qt::SortOrder order,
                          const std::function<bool(const GraphicItem&)>& keep) const;
    // The topmost (or bottommost) item of the item layer at `point`.
    QSharedPointer<GraphicItem> itemAt(const QPointF& point, Qt::SortOrder order, Qt::ItemSelectionMode mode) const;
    // Where a point query looks: the point grown by the widest hit tolerance
    // of the items filed, so that every item is found within its own.
    QRectF pointQueryRect(const QPointF& point) const;

    // The live item of `gid`, null when none.
    QSharedPointer<GraphicItem> itemByGid(const QString& gid) const;
    // The record of `gid`, made on first sight.
    GidRecord& record(const QString& gid) { return m_gids[gid]; }

    // The version of a local change by `user` on `device`; the clock steps.
    Version nextVersion(qint64 user, qint64 device) { return { ++m_clock, user, device }; }
    // Advances the clock past a version seen.
    void advanceClock(qint64 seen);

    // Changes older than the mark of everybody, or of their author, stay out.
    Version clearMarkFor(qlonglong author) const;
    // Raises the clear mark of everybody (`userId` null) or of one author to
    // `version`; returns the live items now older than the mark.
    GraphicItemList raiseClearMark(const Version& version, const qlonglong* userId);

private:
    // Takes `item` out of the index of `layer`; returns where it lay.
    static QRectF unfile(LayerIndex& index, Layer layer, GraphicItem& item);

    std::array<std::unique_ptr<LayerIndex>, GraphicScene::kLayerCount> m_indexes;
    QHash<QString, GidRecord> m_gids;
    qint64 m_clock = 0;
    Version m_clearMark;
    QHash<qlonglong, Version> m_clearMarks;
    // The widest hit tolerance of any item filed so far; it only grows.
    double m_hitReach = 0.0;
};

} // namespace whiteboard
