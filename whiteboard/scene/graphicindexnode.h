#pragma once

#include <QList>
#include <QRectF>
#include <QSharedPointer>

#include <array>
#include <vector>

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

    // An item with the boundary it was filed under, normalized. Queries test
    // this copy, so that passing over an item does not touch the item.
    struct Entry
    {
        QRectF boundary;
        QSharedPointer<GraphicItem> item;
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
        // Items of a node below the root lie within its reach: its square
        // grown by half its size. The root's reach is its square, and only
        // the root holds items beyond it.
        const double growX = m_depth == 0 ? 0.0 : m_bounds.width() / 2;
        const double growY = m_depth == 0 ? 0.0 : m_bounds.height() / 2;
        const QRectF reach = m_bounds.adjusted(-growX, -growY, growX, growY);
        if (meets(rect, reach)) {
            const bool all = rect.contains(reach);
            for (const Entry& entry : m_entries) {
                if (all || meets(entry.boundary, rect))
                    visit(entry);
            }
        }
        if (m_depth >= kMaxDepth)
            return;
        // A child holds only items within its reach, so a child whose reach
        // misses the rectangle cannot contribute: skipping it changes no
        // result and keeps a query proportional to what it finds. The
        // reaches are worked out here, so that a child missed is not loaded.
        const double qx = m_bounds.width() / 4;
        const double qy = m_bounds.height() / 4;
        const double x = m_bounds.x();
        const double y = m_bounds.y();
        const bool left = rect.left() <= x + 3 * qx && x - qx <= rect.right();
        const bool right = rect.left() <= x + 5 * qx && x + qx <= rect.right();
        const bool top = rect.top() <= y + 3 * qy && y - qy <= rect.bottom();
        const bool bottom = rect.top() <= y + 5 * qy && y + qy <= rect.bottom();
        const bool meetsChild[4] = { right && top, left && top, left && bottom, right && bottom };
        for (int slot = 0; slot < 4; ++slot) {
            if (meetsChild[slot] && m_children[slot])
                m_children[slot]->walk(rect, visit);
        }
    }

    std::vector<Entry> m_entries;
    std::array<GraphicIndexNode*, 4> m_children { nullptr, nullptr, nullptr, nullptr };
    QRectF m_bounds;
    GraphicIndexNode* m_parent;
    int m_depth;
    int m_quadrant;
};

} // namespace whiteboard
