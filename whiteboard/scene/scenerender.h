#pragma once

#include "scene/dirtyarea.h"
#include "scene/framestate.h"
#include "scene/graphicscene.h"

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

class BandWorkers;
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
// pieces at once, one thread per core (BandWorkers).
//
// Locks: imageMutex guards the images the GUI thread resizes; it is never
// held while another lock is taken. thumbnailMutex guards the thumbnail pass
// and its images; it is taken before dirtyMutex and itemsMutex.
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
    static constexpr int kThumbnailInterval = 200;

    explicit SceneRender(GraphicScene* scene);
    ~SceneRender() override;

    // Any thread. Set once by the scene's destructor; a frame stops at its next test.
    void requestQuit() { m_quitRequested = 1; }
    bool quitRequested() const { return m_quitRequested == 1; }

    // Any thread: pending entries of one layer, for inspection.
    QList<DirtyArea> dirtyAreas(GraphicScene::SceneLayer layer);
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
    int thumbnailPasses() const { return m_thumbnailPasses; }

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
    // Render thread, queued.
    void onInitScene();
    // GUI thread, directly; takes imageMutex, then itemsMutex for the border.
    void updateRenderSize(const QSize& size, double devicePixelRatio);
    // Any thread; take dirtyMutex only.
    void makeDirty(const QRectF& rect, whiteboard::GraphicScene::SceneLayer layer = GraphicScene::AllLayers);
    void makeDirtyPath(const QPainterPath& path, whiteboard::GraphicScene::SceneLayer layer = GraphicScene::AllLayers);
    void makeDirtyRegion(const QRegion& region, whiteboard::GraphicScene::SceneLayer layer = GraphicScene::AllLayers);
    // Any thread: a change that makes no frame due, repainted with the next
    // frame that is (items added, removed or moved). Takes dirtyMutex only.
    void makeDirtySilently(const QRectF& rect, whiteboard::GraphicScene::SceneLayer layer);
    // Any thread: the viewport moved or zoomed; a frame is due, and the
    // page's items are not dirty. Takes dirtyMutex only.
    void makeViewDirty();
    // Render thread only.
    void paint();
    // Render thread, queued; also the GUI thread inside updateRenderSize.
    void updateBorderRegion();
    // Render thread.
    void quit();

private slots:
    // Render thread: the throttled thumbnail pass.
    void paintThumbnails();

private:
    // Render thread: ms until the next frame may start (<= 0: now).
    int frameWait(qint64 now) const;
    // Any thread, takes dirtyMutex.
    void record(const DirtyArea& area, GraphicScene::SceneLayer layer) EXCLUDES(m_dirtyMutex);
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
    // The pieces (logical pixels of `image`) a repaint of `dirty` with
    // `items` recorded items is painted in, by as many threads as are worth
    // it: its rectangles, or rows across when it has many.
    std::vector<QRect> pieces(const QImage& image, const QRegion& dirty, int items) const;
    // No lock held: repaints `dirty` (logical pixels of `image`) with
    // `ground`, then `recording` through `toImage`, clipped to `clip`; its
    // pieces at once.
    void paintRecording(QImage& image, const PaintRecording& recording, const QRegion& dirty, const QColor& ground, const QRegion& clip,
                        const QTransform& toImage);
    // Under itemsMutex: the items of `layer` that may paint into `area`
    // (scene units), sorted for painting.
    GraphicItemList itemsMeeting(GraphicScene::SceneLayer layer, const QRegion& area, const QTransform& toArea, double margin) const
        REQUIRES(m_scene->itemsMutex());
    // Render thread or GUI thread, under thumbnailMutex: repaints what the
    // thumbnails miss; false when abandoned.
    bool updateThumbnails() REQUIRES(m_thumbnailMutex);
    // Render thread: arms or runs the thumbnail pass so that it lags by
    // kThumbnailInterval at most.
    void scheduleThumbnails();

    std::atomic<int> m_quitRequested { 0 };
    std::atomic<int> m_composedFrames { 0 };
    std::atomic<int> m_partialFrames { 0 };
    std::atomic<int> m_thumbnailPasses { 0 };
    std::atomic<int> m_scrolledFrames { 0 };
    std::atomic<int> m_previewFrames { 0 };
    std::atomic<int> m_frameInterval { kFrameInterval };
    // After thumbnailMutex and the scene's itemsMutex (see GraphicScene).
    SceneMutex m_dirtyMutex ACQUIRED_AFTER(m_thumbnailMutex);
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
    // Shared by frames and thumbnail passes; its threads start on first use.
    std::unique_ptr<BandWorkers> m_bands;
    // Render thread only: when the last frame started and ended.
    qint64 m_lastFrameStart = 0;
    qint64 m_lastPaintTime = 0;
    QTimer* m_paintTimer = nullptr;
    QTimer* m_thumbnailTimer = nullptr;
    qint64 m_lastThumbnailTime = 0;
    // dirtyMutex guards these.
    QMap<GraphicScene::SceneLayer, QList<DirtyArea>> m_dirtyAreas GUARDED_BY(m_dirtyMutex);
    // What the thumbnails miss, in scene units; whole when null.
    QRegion m_thumbnailDirty GUARDED_BY(m_dirtyMutex);
    // Scene units: what the next frame repaints beside its dirty lists.
    QRegion m_silentDirty GUARDED_BY(m_dirtyMutex);
    // Render thread only: silent changes made during the last frame.
    bool m_silentDue = false;
    // Render thread only: when the shown zoom preview began (0: none shown),
    // and the state it previewed.
    qint64 m_previewStart = 0;
    FrameState m_previewState;
    // The viewport moved since the last frame.
    bool m_viewMoved GUARDED_BY(m_dirtyMutex) = false;
    // Under dirtyMutex, like the lists above.
    bool m_thumbnailWhole GUARDED_BY(m_dirtyMutex) = true;
    // thumbnailMutex guards these: the images as last painted, their serial
    // number, the page size they were painted for.
    mutable SceneMutex m_thumbnailMutex;
    QImage m_thumbnailLarge GUARDED_BY(m_thumbnailMutex);
    QImage m_thumbnailSmall GUARDED_BY(m_thumbnailMutex);
    QSize m_smallThumbnailSize GUARDED_BY(m_thumbnailMutex);
    int m_thumbnailSerial GUARDED_BY(m_thumbnailMutex) = 0;
    int m_publishedSerial GUARDED_BY(m_thumbnailMutex) = 0;
    QSize m_thumbnailPage GUARDED_BY(m_thumbnailMutex);
    std::unique_ptr<PaintRecording> m_thumbnailRecording GUARDED_BY(m_thumbnailMutex);
};

} // namespace whiteboard
