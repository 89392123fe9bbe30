#pragma once

#include <QHash>
#include <QList>
#include <QRectF>
#include <QSharedPointer>

#include <array>

namespace whiteboard {

class GraphicItem;

// One node of a layer's loose quad tree. A child reaches half its size beyond
// its square; an item sinks into the child holding its centre as long as it
// is no larger than that child, so items on dividing lines sink too. There is
// no capacity and no split on count.
// Nodes have no lock of their own: the scene's itemsMutex guards the tree
// (LayerIndex), so a query sees it at one instant.
class GraphicIndexNode
{
public:
    static constexpr int kMaxDepth = 8;

    GraphicIndexNode(const QRectF& bounds, int depth = 0, int quadrant = 0, GraphicIndexNode* parent = nullptr);
    ~GraphicIndexNode();

    GraphicIndexNode(const GraphicIndexNode&) = delete;
    GraphicIndexNode& operator=(const GraphicIndexNode&) = delete;

    // Returns the node that now holds the item.
    GraphicIndexNode* insert(const QSharedPointer<GraphicItem>& item);
    void remove(const QSharedPointer<GraphicItem>& item);
    // Takes the item out of this very node; null if it was not here.
    QSharedPointer<GraphicItem> take(const GraphicItem* item);
    // Re-seats an item whose boundary changed.
    void update(const QSharedPointer<GraphicItem>& item);
    void updateAll(const QList<QSharedPointer<GraphicItem>>& items);
    // Unsorted: the order within a node is the hash's. Callers sort.
    QList<QSharedPointer<GraphicItem>> query(const QRectF& rect) const;
    int count() const;
    void clear();

    QRectF bounds() const { return m_bounds; }
    int depth() const { return m_depth; }
    int quadrant() const { return m_quadrant; }
    GraphicIndexNode* parent() const { return m_parent; }
    GraphicIndexNode* child(int slot) const { return m_children[slot]; }
    // Whether this very node holds the item (not its descendants).
    bool holds(const QSharedPointer<GraphicItem>& item) const;

private:
    QRectF childBounds(int quadrant) const;
    void query(const QRectF& rect, QList<QSharedPointer<GraphicItem>>& result) const;

    QHash<const GraphicItem*, QSharedPointer<GraphicItem>> m_items;
    GraphicIndexNode* m_parent;
    std::array<GraphicIndexNode*, 4> m_children { nullptr, nullptr, nullptr, nullptr };
    int m_quadrant;
    QRectF m_bounds;
    int m_depth;
    // Where the items of this node may lie: the square, grown by half its
    // size below the root.
    QRectF m_reach;
};

} // namespace whiteboard
