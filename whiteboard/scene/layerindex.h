#pragma once

#include "scene/graphicindexnode.h"

#include <QHash>
#include <QList>
#include <QRectF>
#include <QSharedPointer>

#include <functional>

namespace whiteboard {

class GraphicItem;

// The spatial index of one layer: its quad tree, and where in it each item
// is filed, so that removing or re-filing an item costs a hash look-up rather
// than a walk of the tree. No lock of its own: every member is called under
// the scene's itemsMutex.
class LayerIndex
{
public:
    explicit LayerIndex(const QRectF& bounds);

    LayerIndex(const LayerIndex&) = delete;
    LayerIndex& operator=(const LayerIndex&) = delete;

    const GraphicIndexNode* root() const { return &m_root; }

    void insert(const QSharedPointer<GraphicItem>& item);
    void remove(const GraphicItem* item);
    bool contains(const GraphicItem* item) const { return m_filed.contains(item); }
    // The boundary the item was filed under, normalized; null if absent.
    QRectF filedBoundary(const GraphicItem* item) const;
    // Files the item again under its current boundary; nothing if absent.
    void refile(const GraphicItem* item);
    // Unsorted, as the tree yields them.
    QList<QSharedPointer<GraphicItem>> query(const QRectF& rect) const;
    // The items met by `rect` that `keep` accepts (all without it), sorted
    // by timestamp (see older()).
    QList<QSharedPointer<GraphicItem>> query(const QRectF& rect, Qt::SortOrder order, const std::function<bool(const GraphicItem&)>& keep) const;
    // Calls `visit(const GraphicIndexNode::Entry&)` for each item that
    // query(rect) returns, without copying a shared pointer.
    template<typename Visit>
    void visit(const QRectF& rect, Visit&& visit) const
    {
        m_root.visit(rect, visit);
    }
    int count() const { return int(m_filed.size()); }
    void clear();

    static void sort(QList<QSharedPointer<GraphicItem>>& items, Qt::SortOrder order);
    // The order of sort(): older first, equal times by gid.
    static bool older(const GraphicItem& a, const GraphicItem& b);

private:
    // The node and the slot among its entries.
    struct Filed
    {
        GraphicIndexNode* node = nullptr;
        int slot = 0;
    };

    QSharedPointer<GraphicItem> take(const GraphicItem* item);
    void file(const QSharedPointer<GraphicItem>& item);

    GraphicIndexNode m_root;
    QHash<const GraphicItem*, Filed> m_filed;
};

} // namespace whiteboard
