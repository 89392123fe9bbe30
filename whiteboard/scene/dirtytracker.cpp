#include "scene/dirtytracker.h"

#include <algorithm>
#include <cmath>

namespace whiteboard {

namespace {

// A region of many rectangles costs more to query piece by piece than as
// tiles. Frames keep more pieces than the thumbnails: a burst of received
// moves scattered over a big board would otherwise repaint, and record under
// itemsMutex, every item of the page.
constexpr int kMaxQueryRects = 16;
constexpr int kMaxFrameRects = 64;
constexpr int kTile = 64;
// Entries a layer keeps between two frames; a flood beyond (a stream of
// received moves, or any change before the first frame) is kept as the
// tiles it touches, so that what waits stays bounded whatever arrives.
constexpr int kMaxListed = 64;

// Adds `rect` to `region`, which turns into tiles beyond `maxRects` pieces:
// once tiled, what is added is grown to the tiles it touches, so that the
// pieces stay few without tiling the whole again at every change.
void accumulate(QRegion& region, const QRect& rect, int maxRects)
{
    if (region.rectCount() <= maxRects) {
        region += rect;
        if (region.rectCount() > maxRects)
            region = DirtyArea::tiled(region, maxRects, kTile);
    } else {
        const int left = int(std::floor(double(rect.left()) / kTile)) * kTile;
        const int top = int(std::floor(double(rect.top()) / kTile)) * kTile;
        const int right = (int(std::floor(double(rect.right()) / kTile)) + 1) * kTile;
        const int bottom = (int(std::floor(double(rect.bottom()) / kTile)) + 1) * kTile;
        region += QRect(QPoint(left, top), QPoint(right - 1, bottom - 1));
        if (region.rectCount() > maxRects * 4)
            region = DirtyArea::tiled(region, maxRects, kTile);
    }
}

QRect boundsOf(const DirtyArea& area)
{
    return area.kind == DirtyArea::RegionKind ? area.region.boundingRect() : area.path.boundingRect().toAlignedRect();
}

bool reachesThumbnails(GraphicScene::SceneLayer layer)
{
    return layer == GraphicScene::AllLayers || layer == GraphicScene::ItemLayer;
}

} // namespace

DirtyTracker::DirtyTracker()
{
    SceneLocker locker(&m_mutex);
    for (int key = 0; key < GraphicScene::kLayerCount; ++key)
        m_areas.insert(Layer(key), QList<DirtyArea>());
}

void DirtyTracker::record(const DirtyArea& area, Layer layer)
{
    SceneLocker locker(&m_mutex);
    if (layer == GraphicScene::AllLayers) {
        for (int key = GraphicScene::BackgroundLayer; key < GraphicScene::kLayerCount; ++key)
            append(m_areas[Layer(key)], area);
    } else {
        append(m_areas[layer], area);
    }
    if (reachesThumbnails(layer) && !m_thumbnailWhole && area.isVisible())
        accumulate(m_thumbnailDirty, boundsOf(area), kMaxQueryRects);
}

void DirtyTracker::append(QList<DirtyArea>& list, const DirtyArea& area)
{
    list.append(area);
    if (list.size() <= kMaxListed)
        return;
    QRegion merged;
    for (const DirtyArea& each : std::as_const(list)) {
        if (each.isVisible())
            accumulate(merged, boundsOf(each), kMaxFrameRects);
    }
    list = { DirtyArea(merged) };
}

void DirtyTracker::makeDirty(const QRectF& rect, Layer layer)
{
    if (!(rect.width() > 0.0 && rect.height() > 0.0))
        return;
    record(DirtyArea(QRegion(rect.toRect())), layer);
}

void DirtyTracker::makeDirtyPath(const QPainterPath& path, Layer layer)
{
    if (path.isEmpty())
        return;
    record(DirtyArea(path), layer);
}

void DirtyTracker::makeDirtyRegion(const QRegion& region, Layer layer)
{
    if (region.isEmpty())
        return;
    record(DirtyArea(region), layer);
}

void DirtyTracker::makeDirtySilently(const QRectF& rect, Layer layer)
{
    if (rect.isNull())
        return;
    // Grown by a pixel so that a line without width still covers its pixels.
    const QRect area = rect.toAlignedRect().adjusted(-1, -1, 1, 1);
    SceneLocker locker(&m_mutex);
    accumulate(m_silent, area, kMaxFrameRects);
    if (reachesThumbnails(layer) && !m_thumbnailWhole)
        accumulate(m_thumbnailDirty, area, kMaxQueryRects);
}

void DirtyTracker::makeViewDirty()
{
    SceneLocker locker(&m_mutex);
    m_viewMoved = true;
}

QList<DirtyArea> DirtyTracker::areas(Layer layer)
{
    SceneLocker locker(&m_mutex);
    return m_areas.value(layer);
}

DirtyTracker::Taken DirtyTracker::take()
{
    QList<DirtyArea> lists[GraphicScene::kLayerCount];
    Taken taken;
    {
        SceneLocker locker(&m_mutex);
        for (int key = 0; key < GraphicScene::kLayerCount; ++key)
            lists[key] = std::exchange(m_areas[Layer(key)], QList<DirtyArea>());
        taken.due = std::exchange(m_viewMoved, false);
    }
    for (const QList<DirtyArea>& list : lists) {
        for (const DirtyArea& area : list) {
            if (!area.isVisible())
                continue;
            taken.due = true;
            accumulate(taken.changed, boundsOf(area), kMaxFrameRects);
        }
    }
    return taken;
}

QRegion DirtyTracker::takeSilent()
{
    SceneLocker locker(&m_mutex);
    return std::exchange(m_silent, QRegion());
}

void DirtyTracker::defer(const QRegion& changed)
{
    SceneLocker locker(&m_mutex);
    for (const QRect& rect : changed)
        accumulate(m_silent, rect, kMaxFrameRects);
}

QRegion DirtyTracker::takeSilentWithin(const std::function<QRegion(const QRegion&)>& mapped, qint64 most)
{
    SceneLocker locker(&m_mutex);
    if (m_silent.isEmpty())
        return {};
    const QRegion result = mapped(m_silent);
    qint64 area = 0;
    for (const QRect& rect : result)
        area += qint64(rect.width()) * rect.height();
    if (area > most)
        return {};
    m_silent = QRegion();
    return result;
}

bool DirtyTracker::pending(bool* silent)
{
    SceneLocker locker(&m_mutex);
    *silent = !m_silent.isEmpty();
    bool due = *silent || m_viewMoved;
    for (auto it = m_areas.cbegin(); it != m_areas.cend() && !due; ++it)
        due = std::any_of(it->cbegin(), it->cend(), [](const DirtyArea& area) { return area.isVisible(); });
    return due;
}

bool DirtyTracker::thumbnailsDue()
{
    SceneLocker locker(&m_mutex);
    return m_thumbnailWhole || !m_thumbnailDirty.isEmpty();
}

bool DirtyTracker::takeForThumbnails(bool* whole, QRegion* changed)
{
    SceneLocker locker(&m_mutex);
    *whole = *whole || m_thumbnailWhole;
    *changed = m_thumbnailDirty;
    if (!*whole && changed->isEmpty())
        return false;
    m_thumbnailDirty = QRegion();
    m_thumbnailWhole = false;
    return true;
}

} // namespace whiteboard
