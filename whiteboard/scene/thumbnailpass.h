#pragma once

#include "scene/annotatedmutex.h"

#include <QImage>
#include <QSize>

#include <atomic>
#include <memory>

class QTimer;

namespace whiteboard {

class DirtyTracker;
class GraphicScene;
class PagePainter;
class PaintRecording;
class SceneRender;

// The board's thumbnails: the large one repainted where the items changed,
// at most kInterval after the change, the small one scaled from it; both
// handed to the scene on the GUI thread. Its passes run on the render
// thread, or on the GUI thread when the host asks for the images at once.
// Its lock, thumbnailMutex, is taken before itemsMutex and dirtyMutex.
class ThumbnailPass
{
public:
    // The thumbnails may lag the view by this much.
    static constexpr int kInterval = 200;

    // Its passes run on `render`'s thread and stop when it is asked to quit.
    ThumbnailPass(GraphicScene* scene, SceneRender* render, DirtyTracker& dirt, PagePainter& painter);
    ~ThumbnailPass();
    ThumbnailPass(const ThumbnailPass&) = delete;
    ThumbnailPass& operator=(const ThumbnailPass&) = delete;

    // Any thread: passes run.
    int passes() const { return m_passes; }

    // Render thread: arms or runs the pass so that it lags by kInterval at most.
    void schedule();
    // Render thread, as it ends.
    void stop();
    // GUI thread, holding no scene lock: brings the thumbnails up to date at
    // once if a change is waiting for them, and hands them to the scene.
    void catchUp();
    // GUI thread: gives the scene the thumbnails last painted, if newer than
    // those it holds.
    void publish();

private:
    // Render thread: the throttled pass.
    void run();
    // Repaints what the thumbnails miss; false when abandoned.
    bool update() REQUIRES(m_mutex);

    GraphicScene* const m_scene;
    SceneRender* const m_render;
    DirtyTracker& m_dirt;
    PagePainter& m_painter;
    std::atomic<int> m_passes { 0 };
    // Render thread only.
    QTimer* m_timer = nullptr;
    qint64 m_lastTime = 0;
    // thumbnailMutex guards these: the images as last painted, their serial
    // number, the page size they were painted for.
    mutable SceneMutex m_mutex;
    QImage m_large GUARDED_BY(m_mutex);
    QImage m_small GUARDED_BY(m_mutex);
    QSize m_smallSize GUARDED_BY(m_mutex);
    int m_serial GUARDED_BY(m_mutex) = 0;
    int m_publishedSerial GUARDED_BY(m_mutex) = 0;
    QSize m_page GUARDED_BY(m_mutex);
    const std::unique_ptr<PaintRecording> m_recording GUARDED_BY(m_mutex);
};

} // namespace whiteboard
