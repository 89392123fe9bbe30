#include "scene/graphicindexnode.h"

#include "graphics/graphicitem.h"


namespace whiteboard {

namespace {

// Closed intervals on both axes: a rectangle touching another meets it, and
// so does one of no width or height, as the boundary of a straight line is.
// QRectF::intersects would refuse both.
bool meets(const QRectF& a, const QRectF& b)
{
    const QRectF r = a.normalized();
    const QRectF s = b.normalized();
    return r.left() <= s.right() && s.left() <= r.right() && r.top() <= s.bottom() && s.top() <= r.bottom();
}

// The same for rectangles known to be normalized, as queries and reaches are.
bool meetsNormal(const QRectF& r, const QRectF& s)
{
    return r.left() <= s.right() && s.left() <= r.right() && r.top() <= s.bottom() && s.top() <= r.bottom();
}

} // namespace

GraphicIndexNode::GraphicIndexNode(const QRectF& bounds, int depth, int quadrant, GraphicIndexNode* parent)
    : m_parent(parent)
    , m_quadrant(quadrant)
    , m_bounds(bounds)
    , m_depth(depth)
    , m_reach(depth == 0 ? bounds : bounds.adjusted(-bounds.width() / 2, -bounds.height() / 2, bounds.width() / 2, bounds.height() / 2))
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
    const double w = m_bounds.width() / 2;
    const double h = m_bounds.height() / 2;
    // Loose bounds: a child reaches half its size beyond its square, so an
    // item no larger than a child sinks into the one holding its centre,
    // wherever the dividing lines fall. Items whose centre lies outside the
    // root stay in the root.
    const bool centred = centre.x() >= m_bounds.left() && centre.x() <= m_bounds.right() && centre.y() >= m_bounds.top()
        && centre.y() <= m_bounds.bottom();
    if (m_depth < kMaxDepth && centred && boundary.width() <= w && boundary.height() <= h) {
        const bool right = centre.x() >= m_bounds.x() + w;
        const bool bottom = centre.y() >= m_bounds.y() + h;
        const int quadrant = bottom ? (right ? 4 : 3) : (right ? 1 : 2);
        GraphicIndexNode*& child = m_children[quadrant - 1];
        if (!child)
            child = new GraphicIndexNode(childBounds(quadrant), m_depth + 1, quadrant, this);
        return child->insert(item);
    }
    m_items.insert(item.data(), item);
    return this;
}

QSharedPointer<GraphicItem> GraphicIndexNode::take(const GraphicItem* item)
{
    return m_items.take(item);
}

void GraphicIndexNode::remove(const QSharedPointer<GraphicItem>& item)
{
    m_items.remove(item.data());
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
    query(rect.normalized(), result);
    return result;
}

void GraphicIndexNode::query(const QRectF& rect, QList<QSharedPointer<GraphicItem>>& result) const
{
    if (meetsNormal(rect, m_reach)) {
        if (rect.contains(m_reach)) {
            for (const QSharedPointer<GraphicItem>& item : m_items)
                result.append(item);
        } else {
            for (const QSharedPointer<GraphicItem>& item : m_items) {
                if (meets(item->boundary(), rect))
                    result.append(item);
            }
        }
    }
    // A child holds only items within its reach, so a child whose reach
    // misses the rectangle cannot contribute: skipping it changes no result
    // and keeps a query proportional to what it finds. Only the root holds
    // items beyond its square, and the root is always visited.
    if (m_depth < kMaxDepth) {
        for (const GraphicIndexNode* child : m_children) {
            if (child && meetsNormal(rect, child->m_reach))
                child->query(rect, result);
        }
    }
}

int GraphicIndexNode::count() const
{
    int total = int(m_items.size());
    for (const GraphicIndexNode* child : m_children) {
        if (child)
            total += child->count();
    }
    return total;
}

bool GraphicIndexNode::holds(const QSharedPointer<GraphicItem>& item) const
{
    return m_items.contains(item.data());
}

void GraphicIndexNode::clear()
{
    m_items.clear();
    for (GraphicIndexNode*& child : m_children) {
        delete child;
        child = nullptr;
    }
}

} // namespace whiteboard
