#pragma once

#include "scene/annotatedmutex.h"
#include "scene/dirtyarea.h"
#include "scene/graphicscene.h"

#include <QList>
#include <QMap>
#include <QRegion>

#include <functional>

namespace whiteboard {

// What has changed on a board since the frame and the thumbnail pass last
// took it, in scene units: the areas callers marked per layer, the places
// the layer index filed items at or took them from (silent: they make no
// frame due), whether the viewport moved, and what the thumbnails miss.
// Many pieces become the tiles they touch rather than one bounding box, so
// that scattered changes repaint where they are. Any thread records; the
// render thread takes. Its one lock, dirtyMutex, comes after itemsMutex:
// the GUI thread records holding that lock.
class DirtyTracker
{
public:
    using Layer = GraphicScene::SceneLayer;

    // What a frame takes: the changed area of the dirty lists and whether
    // anything at all makes the frame due.
    struct Taken
    {
        QRegion changed;
        bool due = false;
    };

    DirtyTracker();

    // Any thread.
    void record(const DirtyArea& area, Layer layer);
    void makeDirty(const QRectF& rect, Layer layer);
    void makeDirtyPath(const QPainterPath& path, Layer layer);
    void makeDirtyRegion(const QRegion& region, Layer layer);
    // Repainted with the next frame that is due, which it does not make due.
    void makeDirtySilently(const QRectF& rect, Layer layer);
    void makeViewDirty();
    // The pending entries of one layer, for inspection.
    QList<DirtyArea> areas(Layer layer);

    // Render thread: empties the lists and the viewport's flag.
    Taken take();
    // Render thread: the silent changes, emptied.
    QRegion takeSilent();
    // Render thread: puts changes back for the next frame, silently.
    void defer(const QRegion& changed);
    // Render thread: the silent changes as `mapped` maps them, emptied,
    // unless the mapping covers more than `most` pixels: then they stay for
    // the next frame and nothing is returned.
    QRegion takeSilentWithin(const std::function<QRegion(const QRegion&)>& mapped, qint64 most);
    // Render thread, after a frame: whether another is due, and whether of
    // silent changes made meanwhile.
    bool pending(bool* silent);

    // Whether the thumbnails miss anything.
    bool thumbnailsDue();
    // Under itemsMutex: what the thumbnails miss, emptied; `whole` is set
    // when they must be painted whole. False when they miss nothing.
    bool takeForThumbnails(bool* whole, QRegion* changed);

private:
    // Adds `area` to one layer's list, which a flood turns into one entry.
    void append(QList<DirtyArea>& list, const DirtyArea& area) REQUIRES(m_mutex);

    SceneMutex m_mutex;
    QMap<Layer, QList<DirtyArea>> m_areas GUARDED_BY(m_mutex);
    // What the next frame repaints beside its lists.
    QRegion m_silent GUARDED_BY(m_mutex);
    bool m_viewMoved GUARDED_BY(m_mutex) = false;
    // Kept apart from the lists: a thumbnail pass may come long after the
    // frame that took them.
    QRegion m_thumbnailDirty GUARDED_BY(m_mutex);
    bool m_thumbnailWhole GUARDED_BY(m_mutex) = true;
};

} // namespace whiteboard
