#pragma once

#include "scene/dirtytracker.h"
#include "scene/framestate.h"
#include "scene/graphicscene.h"
#include "scene/thumbnailpass.h"

#include <QImage>
#include <QList>
#include <QMap>
#include <QMutex>
#include <QObject>
#include <QRegion>

#include <algorithm>
#include <atomic>
#include <memory>
#include <vector>

class QPainter;
class QTimer;

namespace whiteboard {

class PagePainter;
class PaintRecording;

// The render worker. Lives on "graphic_render_thread"; turns at most one
// frame request per frame interval (40 ms unless the host asks for less) into
// a finished image. It keeps the painted page, with a margin past the view
// painted after each frame, and repaints only what the dirty lists name, from
// a FrameState copied under the scene's itemsMutex. A pan by whole device
// pixels scrolls the kept page and repaints what it does not hold; a zoom
// first shows the kept page scaled (a preview), then the exact page one frame
// interval later. The items of a repaint are found and recorded under that
// lock and painted from the recording without it (PaintRecording), so the
// GUI thread never waits for a frame's painting. A big repaint is painted in
// pieces at once, one thread per core (PagePainter). What changed is told to
// its DirtyTracker; the thumbnails are its ThumbnailPass's.
//
// Locks: imageMutex guards the images the GUI thread resizes; it is never
// held while another lock is taken.
class SceneRender : public QObject
{
    Q_OBJECT

public:
    // The default least time between frames.
    static constexpr int kFrameInterval = 40;
    // A zoom is previewed from the kept page for this long at most; the
    // exact page follows within a frame interval after.
    static constexpr int kPreviewSpan = 100;
    // The thumbnails may lag the view by this much.
    static constexpr int kThumbnailInterval = ThumbnailPass::kInterval;

    explicit SceneRender(GraphicScene* scene);
    ~SceneRender() override;

    // Any thread. Set once by the scene's destructor; a frame stops at its next test.
    void requestQuit() { m_quitRequested = 1; }
    bool quitRequested() const { return m_quitRequested == 1; }

    // Any thread: where changes are told (see DirtyTracker).
    DirtyTracker& dirt() { return m_dirt; }
    // Any thread: pending entries of one layer, for inspection.
    QList<DirtyArea> dirtyAreas(GraphicScene::SceneLayer layer) { return m_dirt.areas(layer); }
    // Any thread.
    QImage baseImage() const;
    QImage frameImage() const;
    QRegion borderRegion() const;
    double devicePixelRatio() const;
    // Any thread: frames handed over, of them those that repainted only
    // their dirty regions, of those the pans that scrolled the kept page,
    // zoom previews, and thumbnail passes. A frame counted after a change
    // was made may have started before it; thumbnailImage() brings the
    // thumbnails up to date whatever the count. Previews are not composed
    // frames: those are exact, and the frame after a preview is one.
    int composedFrames() const { return m_composedFrames; }
    int partialFrames() const { return m_partialFrames; }
    int scrolledFrames() const { return m_scrolledFrames; }
    int previewFrames() const { return m_previewFrames; }
    int thumbnailPasses() const;

    // Any thread: the least time between the starts of two frames, in ms
    // (at least 1); a quarter of it also passes after each frame's end.
    int frameInterval() const { return m_frameInterval; }
    void setFrameInterval(int interval) { m_frameInterval = std::max(1, interval); }

    // Render thread, or GUI thread with the render thread stopped: composes
    // one frame now; a full one unless only dirty regions are due.
    void composeFrame();
    // GUI thread, holding no scene lock: brings the thumbnails up to date at
    // once if a change is waiting for them, and hands them to the scene.
    void catchUpThumbnails();
    // GUI thread: gives the scene the thumbnails last painted, if newer than
    // those it holds, and emits their signals.
    void publishThumbnails();

    static QImage resizeImage(const QImage& old, const QSize& size, double ratio, const QBrush& brush);

signals:
    void ready();
    void finished(const QImage& result);

public slots:
    // Any thread: one DirtyArea recorded (see DirtyTracker).
    void makeDirty(const QRectF& rect, whiteboard::GraphicScene::SceneLayer layer = GraphicScene::AllLayers) { m_dirt.makeDirty(rect, layer); }
    void makeDirtyPath(const QPainterPath& path, whiteboard::GraphicScene::SceneLayer layer = GraphicScene::AllLayers)
    {
        m_dirt.makeDirtyPath(path, layer);
    }
    void makeDirtyRegion(const QRegion& region, whiteboard::GraphicScene::SceneLayer layer = GraphicScene::AllLayers)
    {
        m_dirt.makeDirtyRegion(region, layer);
    }
    // Render thread, queued.
    void onInitScene();
    // GUI thread, directly; takes imageMutex, then itemsMutex for the border.
    void updateRenderSize(const QSize& size, double devicePixelRatio);
    // Render thread only.
    void paint();
    // Render thread, queued; also the GUI thread inside updateRenderSize.
    void updateBorderRegion();
    // Render thread.
    void quit();

private:
    // Render thread: ms until the next frame may start (<= 0: now).
    int frameWait(qint64 now) const;
    // Render thread: a whole frame, or one that repaints `changed` (scene
    // units) of the kept page when nothing else moved, or scrolls it when
    // only the viewport did, or previews a zoom.
    void composeFrame(const FrameState& state, const QRegion& changed);
    // Render thread: the kept page scaled to `state`, handed over; the
    // exact page is due next.
    void composePreview(const FrameState& state, const QImage& base, int margin);
    // Render thread, queued after a frame: paints what the kept page misses
    // beyond the view, so that a pan finds it painted.
    void fillMargin();
    // The kept page's margin (view units) for a device pixel ratio.
    static int marginFor(double ratio);
    // Scene units to the kept page's pixels (view units plus the margin).
    static QTransform imageTransform(const FrameState& state, int margin);
    // Where items may paint on the kept page: the view's border, and the
    // page beyond the view.
    static QRegion imageBorder(const FrameState& state, int margin);
    // Render thread: control points, surround, hand-over; false when
    // abandoned. Moved in: a second holder would make the painter copy it.
    bool handOver(const FrameState& state, QImage frame, bool whole, bool scrolled);
    // Render thread: repaints `dirty` (view units plus `margin`) of the kept
    // page; false when the frame was abandoned.
    bool repaintPage(const FrameState& state, const QRegion& dirty, int margin);
    // Render thread: control points and surround over a copy of the page.
    bool finishFrame(const FrameState& state, QImage& frame);

    std::atomic<int> m_quitRequested { 0 };
    std::atomic<int> m_composedFrames { 0 };
    std::atomic<int> m_partialFrames { 0 };
    std::atomic<int> m_scrolledFrames { 0 };
    std::atomic<int> m_previewFrames { 0 };
    std::atomic<int> m_frameInterval { kFrameInterval };
    DirtyTracker m_dirt;
    // A leaf: nothing else is taken while it is held.
    mutable SceneMutex m_imageMutex;
    bool m_initialized = false;
    GraphicScene* m_scene = nullptr;
    // imageMutex guards these four.
    double m_devicePixelRatio GUARDED_BY(m_imageMutex) = 2.0;
    QImage m_baseImage GUARDED_BY(m_imageMutex);
    QImage m_frameImage GUARDED_BY(m_imageMutex);
    QRegion m_borderRegion GUARDED_BY(m_imageMutex);
    // Render thread only: the page as last painted, a margin beyond the view
    // on each side, the state it was painted with, what of it is up to date
    // and what of that was painted inside the page's edge (its pixels'
    // coordinates, view units), and the recording of its last repaint.
    QImage m_pageImage;
    FrameState m_pageState;
    QRegion m_pageValid;
    QRegion m_keptBorder;
    std::unique_ptr<PaintRecording> m_pageRecording;
    const std::unique_ptr<PagePainter> m_painter;
    const std::unique_ptr<ThumbnailPass> m_thumbnails;
    // Render thread only: when the last frame started and ended.
    qint64 m_lastFrameStart = 0;
    qint64 m_lastPaintTime = 0;
    QTimer* m_paintTimer = nullptr;
    // Render thread only: silent changes made during the last frame.
    bool m_silentDue = false;
    // Render thread only: when the shown zoom preview began (0: none shown),
    // and the state it previewed.
    qint64 m_previewStart = 0;
    FrameState m_previewState;
};

} // namespace whiteboard
