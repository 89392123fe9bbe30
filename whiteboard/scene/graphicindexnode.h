#pragma once

#include <QList>
#include <QRectF>
#include <QSharedPointer>

#include <array>
#include <limits>
#include <vector>

namespace whiteboard {

class GraphicItem;

// One node of a layer's loose quad tree. A child reaches half its size beyond
// its square; an item sinks into the child holding its centre as long as it
// is no larger than that child, so items on dividing lines sink too. There is
// no capacity and no split on count. Each node keeps the box of what lies
// below each child, so that a query enters only children whose items may
// meet it, not every child whose reach does.
// Nodes have no lock of their own: the scene's itemsMutex guards the tree
// (LayerIndex), so a query sees it at one instant.
class alignas(64) GraphicIndexNode
{
public:
    static constexpr int kMaxDepth = 8;

    // An item with the boundary it was filed under, normalized. Queries test
    // this copy, so that passing over an item does not touch the item.
    struct Entry
    {
        QRectF boundary;
        QSharedPointer<GraphicItem> item;
    };

    // Where the items of a subtree lie, in floats rounded outwards: never
    // smaller than what it covers, so a query that misses it misses them.
    struct Box
    {
        float left = std::numeric_limits<float>::infinity();
        float top = std::numeric_limits<float>::infinity();
        float right = -std::numeric_limits<float>::infinity();
        float bottom = -std::numeric_limits<float>::infinity();

        bool operator==(const Box& other) const
        {
            return left == other.left && top == other.top && right == other.right && bottom == other.bottom;
        }
        bool meets(const QRectF& rect) const
        {
            return double(left) <= rect.right() && rect.left() <= double(right) && double(top) <= rect.bottom() && rect.top() <= double(bottom);
        }
        void unite(const Box& other);
        void unite(const QRectF& rect);
    };

    GraphicIndexNode(const QRectF& bounds, int depth = 0, int quadrant = 0, GraphicIndexNode* parent = nullptr);
    ~GraphicIndexNode();

    GraphicIndexNode(const GraphicIndexNode&) = delete;
    GraphicIndexNode& operator=(const GraphicIndexNode&) = delete;

    // Returns the node that now holds the item, as its last entry.
    GraphicIndexNode* insert(const QSharedPointer<GraphicItem>& item);
    void remove(const QSharedPointer<GraphicItem>& item);
    // Takes the item out of this very node; null if it was not here.
    QSharedPointer<GraphicItem> take(const GraphicItem* item);
    // Takes the entry at `slot` out of this node: the last entry moves into
    // its place, so slots of the others stay put.
    QSharedPointer<GraphicItem> takeAt(int slot);
    // Re-seats an item whose boundary changed.
    void update(const QSharedPointer<GraphicItem>& item);
    void updateAll(const QList<QSharedPointer<GraphicItem>>& items);
    // Unsorted: the order within a node is the order of filing. Callers sort.
    QList<QSharedPointer<GraphicItem>> query(const QRectF& rect) const;
    // Calls `visit(const Entry&)` for every entry that query(rect) returns,
    // in the same order, without copying a shared pointer.
    template<typename Visit>
    void visit(const QRectF& rect, Visit&& visit) const
    {
        walk(rect.normalized(), visit);
    }
    int count() const;
    void clear();

    QRectF bounds() const { return m_bounds; }
    int depth() const { return m_depth; }
    int quadrant() const { return m_quadrant; }
    GraphicIndexNode* parent() const { return m_parent; }
    GraphicIndexNode* child(int slot) const { return m_children[slot]; }
    const std::vector<Entry>& entries() const { return m_entries; }
    // Whether this very node holds the item (not its descendants).
    bool holds(const QSharedPointer<GraphicItem>& item) const;

private:
    QRectF childBounds(int quadrant) const;
    Box subtreeBox() const;
    // After a removal: the boxes up the tree shrink to what is left.
    void shrinkBoxes();

    // Closed intervals on both axes: a rectangle touching another meets it,
    // and so does one of no width or height, as the boundary of a straight
    // line is. QRectF::intersects would refuse both. Both normalized.
    static bool meets(const QRectF& r, const QRectF& s)
    {
        return r.left() <= s.right() && s.left() <= r.right() && r.top() <= s.bottom() && s.top() <= r.bottom();
    }

    template<typename Visit>
    void walk(const QRectF& rect, Visit& visit) const
    {
        if (m_depth == 0) {
            // Only the root holds items beyond its square, and looks at
            // them only for a rectangle that meets the square.
            if (meets(rect, m_bounds)) {
                const bool all = rect.contains(m_bounds);
                for (const Entry& entry : m_entries) {
                    if (all || meets(entry.boundary, rect))
                        visit(entry);
                }
            }
        } else {
            for (const Entry& entry : m_entries) {
                if (meets(entry.boundary, rect))
                    visit(entry);
            }
        }
        // A child is entered only if the box of what lies below it meets the
        // rectangle; the boxes are kept here, so that a child missed is not
        // loaded. A point query is a chase of memory, not of arithmetic.
        for (int slot = 0; slot < 4; ++slot) {
            if (m_children[slot] && m_childBoxes[slot].meets(rect))
                m_children[slot]->walk(rect, visit);
        }
    }

    // What a query reads first, in the node's first cache line; the
    // children's boxes in the second.
    std::vector<Entry> m_entries;
    std::array<GraphicIndexNode*, 4> m_children { nullptr, nullptr, nullptr, nullptr };
    int m_depth;
    int m_quadrant;
    // The boxes of the children's subtrees, and of this node's own entries.
    std::array<Box, 4> m_childBoxes;
    Box m_ownBox;
    QRectF m_bounds;
    GraphicIndexNode* m_parent;
};

} // namespace whiteboard
