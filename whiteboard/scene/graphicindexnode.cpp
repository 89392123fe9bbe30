#include "scene/graphicindexnode.h"

#include "graphics/graphicitem.h"

#include <algorithm>
#include <cmath>

namespace whiteboard {

namespace {

// Floats that hold the double or lie beyond it.
float below(double value)
{
    const float f = float(value);
    return double(f) > value ? std::nextafter(f, -std::numeric_limits<float>::infinity()) : f;
}

float above(double value)
{
    const float f = float(value);
    return double(f) < value ? std::nextafter(f, std::numeric_limits<float>::infinity()) : f;
}

// A node with no more entries than this works out its own box again when
// one leaves; a larger one keeps the box it grew to, which still covers them.
constexpr size_t kRecountedEntries = 16;

} // namespace

void GraphicIndexNode::Box::unite(const Box& other)
{
    left = std::min(left, other.left);
    top = std::min(top, other.top);
    right = std::max(right, other.right);
    bottom = std::max(bottom, other.bottom);
}

void GraphicIndexNode::Box::unite(const QRectF& rect)
{
    unite(Box { below(rect.left()), below(rect.top()), above(rect.right()), above(rect.bottom()) });
}

GraphicIndexNode::GraphicIndexNode(const QRectF& bounds, int depth, int quadrant, GraphicIndexNode* parent)
    : m_depth(depth)
    , m_quadrant(quadrant)
    , m_bounds(bounds)
    , m_parent(parent)
{
}

GraphicIndexNode::~GraphicIndexNode()
{
    clear();
}

QRectF GraphicIndexNode::childBounds(int quadrant) const
{
    const double x = m_bounds.x();
    const double y = m_bounds.y();
    const double w = m_bounds.width() / 2;
    const double h = m_bounds.height() / 2;
    switch (quadrant) {
    case 1:
        return QRectF(x + w, y, w, h);
    case 2:
        return QRectF(x, y, w, h);
    case 3:
        return QRectF(x, y + h, w, h);
    default:
        return QRectF(x + w, y + h, w, h);
    }
}

GraphicIndexNode* GraphicIndexNode::insert(const QSharedPointer<GraphicItem>& item)
{
    const QRectF boundary = item->boundary().normalized();
    const QPointF centre = boundary.center();
    GraphicIndexNode* node = this;
    // Loose bounds: a child reaches half its size beyond its square, so an
    // item no larger than a child sinks into the one holding its centre,
    // wherever the dividing lines fall. Items whose centre lies outside the
    // root stay in the root.
    const QRectF& root = m_bounds;
    const bool centred = centre.x() >= root.left() && centre.x() <= root.right() && centre.y() >= root.top() && centre.y() <= root.bottom();
    while (centred && node->m_depth < kMaxDepth) {
        const double w = node->m_bounds.width() / 2;
        const double h = node->m_bounds.height() / 2;
        if (boundary.width() > w || boundary.height() > h)
            break;
        const bool right = centre.x() >= node->m_bounds.x() + w;
        const bool bottom = centre.y() >= node->m_bounds.y() + h;
        const int quadrant = bottom ? (right ? 4 : 3) : (right ? 1 : 2);
        GraphicIndexNode*& child = node->m_children[quadrant - 1];
        if (!child)
            child = new GraphicIndexNode(node->childBounds(quadrant), node->m_depth + 1, quadrant, node);
        node->m_childBoxes[quadrant - 1].unite(boundary);
        node = child;
    }
    node->m_entries.push_back({ boundary, item });
    node->m_ownBox.unite(boundary);
    return node;
}

QSharedPointer<GraphicItem> GraphicIndexNode::take(const GraphicItem* item)
{
    const auto found = std::find_if(m_entries.cbegin(), m_entries.cend(), [item](const Entry& entry) { return entry.item.data() == item; });
    return found == m_entries.cend() ? QSharedPointer<GraphicItem>() : takeAt(int(found - m_entries.cbegin()));
}

QSharedPointer<GraphicItem> GraphicIndexNode::takeAt(int slot)
{
    QSharedPointer<GraphicItem> taken = std::move(m_entries[slot].item);
    if (slot != int(m_entries.size()) - 1)
        m_entries[slot] = std::move(m_entries.back());
    m_entries.pop_back();
    shrinkBoxes();
    return taken;
}

GraphicIndexNode::Box GraphicIndexNode::subtreeBox() const
{
    Box box = m_ownBox;
    for (const Box& child : m_childBoxes)
        box.unite(child);
    return box;
}

void GraphicIndexNode::shrinkBoxes()
{
    if (m_entries.size() > kRecountedEntries)
        return;
    m_ownBox = Box();
    for (const Entry& entry : m_entries)
        m_ownBox.unite(entry.boundary);
    for (GraphicIndexNode* node = this; node->m_parent; node = node->m_parent) {
        Box& held = node->m_parent->m_childBoxes[node->m_quadrant - 1];
        const Box box = node->subtreeBox();
        if (held == box)
            break;
        held = box;
    }
}

void GraphicIndexNode::remove(const QSharedPointer<GraphicItem>& item)
{
    take(item.data());
    // The whole tree is walked: the boundary may have changed since insertion.
    if (m_depth < kMaxDepth) {
        for (GraphicIndexNode* child : m_children) {
            if (child)
                child->remove(item);
        }
    }
}

void GraphicIndexNode::update(const QSharedPointer<GraphicItem>& item)
{
    if (!item)
        return;
    remove(item);
    insert(item);
}

void GraphicIndexNode::updateAll(const QList<QSharedPointer<GraphicItem>>& items)
{
    for (const QSharedPointer<GraphicItem>& item : items)
        update(item);
}

QList<QSharedPointer<GraphicItem>> GraphicIndexNode::query(const QRectF& rect) const
{
    QList<QSharedPointer<GraphicItem>> result;
    visit(rect, [&result](const Entry& entry) { result.append(entry.item); });
    return result;
}

int GraphicIndexNode::count() const
{
    int total = int(m_entries.size());
    for (const GraphicIndexNode* child : m_children) {
        if (child)
            total += child->count();
    }
    return total;
}

bool GraphicIndexNode::holds(const QSharedPointer<GraphicItem>& item) const
{
    return std::any_of(m_entries.cbegin(), m_entries.cend(), [&item](const Entry& entry) { return entry.item == item; });
}

void GraphicIndexNode::clear()
{
    m_entries.clear();
    m_ownBox = Box();
    for (int slot = 0; slot < 4; ++slot) {
        delete m_children[slot];
        m_children[slot] = nullptr;
        m_childBoxes[slot] = Box();
    }
}

} // namespace whiteboard
