#include "scene/graphicindexnode.h"

#include "graphics/graphicitem.h"

#include <QMutexLocker>

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

} // namespace

GraphicIndexNode::GraphicIndexNode(const QRectF& bounds, int depth, int quadrant, GraphicIndexNode* parent)
    : m_mutex(new QRecursiveMutex)
    , m_parent(parent)
    , m_quadrant(quadrant)
    , m_bounds(bounds)
    , m_depth(depth)
{
}

GraphicIndexNode::~GraphicIndexNode()
{
    clear();
    delete m_mutex;
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

void GraphicIndexNode::insert(const QSharedPointer<GraphicItem>& item)
{
    if (m_depth < kMaxDepth) {
        const QRectF boundary = item->boundary();
        for (int quadrant = 1; quadrant <= 4; ++quadrant) {
            const QRectF bounds = childBounds(quadrant);
            // Corner by corner, so that an empty boundary sinks too; touching
            // a child's edge counts as inside.
            if (!bounds.contains(boundary.topLeft()) || !bounds.contains(boundary.bottomRight()))
                continue;
            GraphicIndexNode*& child = m_children[quadrant - 1];
            if (!child)
                child = new GraphicIndexNode(bounds, m_depth + 1, quadrant, this);
            child->insert(item);
            return;
        }
    }
    QMutexLocker locker(m_mutex);
    m_items.insert(item);
}

void GraphicIndexNode::remove(const QSharedPointer<GraphicItem>& item)
{
    {
        QMutexLocker locker(m_mutex);
        if (!m_items.isEmpty() && m_items.contains(item))
            m_items.remove(item);
    }
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
    query(rect, result);
    return result;
}

void GraphicIndexNode::query(const QRectF& rect, QList<QSharedPointer<GraphicItem>>& result) const
{
    {
        QMutexLocker locker(m_mutex);
        if (meets(rect, m_bounds)) {
            if (rect.contains(m_bounds)) {
                for (const QSharedPointer<GraphicItem>& item : m_items)
                    result.append(item);
            } else {
                for (const QSharedPointer<GraphicItem>& item : m_items) {
                    if (meets(item->boundary(), rect))
                        result.append(item);
                }
            }
        }
    }
    // A child holds only items inside its own square, so a child whose square
    // misses the rectangle cannot contribute: skipping it changes no result
    // and keeps a query proportional to what it finds. Only the root holds
    // items outside its square, and the root is always visited.
    if (m_depth < kMaxDepth) {
        for (const GraphicIndexNode* child : m_children) {
            if (child && meets(child->m_bounds, rect))
                child->query(rect, result);
        }
    }
}

int GraphicIndexNode::count() const
{
    int total;
    {
        QMutexLocker locker(m_mutex);
        total = int(m_items.size());
    }
    for (const GraphicIndexNode* child : m_children) {
        if (child)
            total += child->count();
    }
    return total;
}

bool GraphicIndexNode::holds(const QSharedPointer<GraphicItem>& item) const
{
    QMutexLocker locker(m_mutex);
    return m_items.contains(item);
}

void GraphicIndexNode::clear()
{
    QMutexLocker locker(m_mutex);
    m_items.clear();
    for (GraphicIndexNode*& child : m_children) {
        delete child;
        child = nullptr;
    }
}

} // namespace whiteboard
