#include "scene/scenerender.h"

#include "graphics/graphiccontroller.h"
#include "graphics/graphicitem.h"
#include "scene/bandworkers.h"
#include "scene/graphicscene.h"
#include "scene/layerindex.h"
#include "scene/paintrecording.h"

#include <QDateTime>
#include <QDebug>
#include <QMutexLocker>
#include <QPainter>
#include <QQuickItem>
#include <QSet>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <thread>
#include <utility>

namespace whiteboard {

namespace {

// A region of many rectangles costs more to query piece by piece than as
// tiles. Frames keep more pieces than the thumbnails: a burst of received
// moves scattered over a big board would otherwise repaint, and record under
// itemsMutex, every item of the page.
constexpr int kMaxQueryRects = 16;
constexpr int kMaxFrameRects = 64;
constexpr int kTile = 64;
// Below these a repaint is not worth splitting among threads: readying the
// recording and handing the pieces over cost more than another core saves.
constexpr int kBandItems = 512;
constexpr int kBandRows = 64;
// A repaint of more pieces than this is painted in rows across the image.
constexpr int kMaxPieces = 8;
// View pixels kept painted beyond each side of the view, for pans.
constexpr int kMargin = 64;

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

// Scrolls the pixels of `image` by `by` device pixels; what comes into view
// keeps its old pixels until repainted.
void scrollImage(QImage& image, const QPoint& by)
{
    const int width = image.width() - std::abs(by.x());
    if (width <= 0 || std::abs(by.y()) >= image.height())
        return;
    const int pixel = image.depth() / 8;
    const qsizetype line = image.bytesPerLine();
    uchar* const bits = image.bits();
    const int from = std::max(0, -by.x()) * pixel;
    const int to = std::max(0, by.x()) * pixel;
    const auto row = [&](int y) { std::memmove(bits + y * line + to, bits + (y - by.y()) * line + from, size_t(width) * pixel); };
    if (by.y() > 0) {
        for (int y = image.height() - 1; y >= by.y(); --y)
            row(y);
    } else {
        for (int y = 0; y < image.height() + by.y(); ++y)
            row(y);
    }
}

// How far a page painted with `before` moves, in view units, when painted
// with `after` at the same zoom; false unless by whole view and device pixels.
bool scrollShift(const FrameState& before, const FrameState& after, double ratio, QPoint* shift)
{
    if (before.scale != after.scale || before.viewport.size() != after.viewport.size())
        return false;
    const QTransform from = before.sceneToView();
    const QTransform to = after.sceneToView();
    const QPointF by(to.dx() - from.dx(), to.dy() - from.dy());
    const QPoint whole(int(std::lround(by.x())), int(std::lround(by.y())));
    const auto integral = [](double value) { return value == std::round(value); };
    if (by.x() != whole.x() || by.y() != whole.y() || !integral(whole.x() * ratio) || !integral(whole.y() * ratio))
        return false;
    *shift = whole;
    return true;
}

// A region of many pieces that covers most of its bounding box, as that
// box: the rasterizer clips every item against a region piece by piece, and
// a join's or a stream's tiles painted slower than their whole box.
QRegion coarse(const QRegion& region)
{
    if (region.rectCount() <= kMaxPieces)
        return region;
    qint64 area = 0;
    for (const QRect& rect : region)
        area += qint64(rect.width()) * rect.height();
    const QRect bounds = region.boundingRect();
    return area * 2 >= qint64(bounds.width()) * bounds.height() ? QRegion(bounds) : region;
}

QRect boundsOf(const DirtyArea& area)
{
    return area.kind == DirtyArea::RegionKind ? area.region.boundingRect() : area.path.boundingRect().toAlignedRect();
}

// The hints of every frame and thumbnail painter, and of their recordings.
constexpr QPainter::RenderHints kRenderHints = QPainter::Antialiasing | QPainter::TextAntialiasing | QPainter::SmoothPixmapTransform;

// `area` in scene units mapped into an image through `toImage`, grown to
// whole pixels plus `margin` scene units.
QRegion imageRegion(const QRegion& area, const QTransform& toImage, double margin)
{
    QRegion result;
    const double grow = margin * std::max(std::abs(toImage.m11()) + std::abs(toImage.m21()), std::abs(toImage.m12()) + std::abs(toImage.m22())) + 1.0;
    for (const QRect& rect : area)
        result += toImage.mapRect(QRectF(rect)).adjusted(-grow, -grow, grow, grow).toAlignedRect();
    return result;
}

} // namespace

SceneRender::SceneRender(GraphicScene* scene)
    : m_scene(scene)
    , m_pageRecording(std::make_unique<PaintRecording>())
    , m_bands(std::make_unique<BandWorkers>(std::clamp(int(std::thread::hardware_concurrency()) - 1, 0, 3)))
    , m_thumbnailRecording(std::make_unique<PaintRecording>())
{
}

SceneRender::~SceneRender()
{
    if (m_paintTimer)
        m_paintTimer->stop();
}

QList<DirtyArea> SceneRender::dirtyAreas(GraphicScene::SceneLayer layer)
{
    SceneLocker locker(&m_dirtyMutex);
    return m_dirtyAreas.value(layer);
}

QImage SceneRender::baseImage() const
{
    SceneLocker locker(&m_imageMutex);
    return m_baseImage;
}

QImage SceneRender::frameImage() const
{
    SceneLocker locker(&m_imageMutex);
    return m_frameImage;
}

QRegion SceneRender::borderRegion() const
{
    SceneLocker locker(&m_imageMutex);
    return m_borderRegion;
}

double SceneRender::devicePixelRatio() const
{
    SceneLocker locker(&m_imageMutex);
    return m_devicePixelRatio;
}

// --- dirty tracking ---------------------------------------------------------

void SceneRender::record(const DirtyArea& area, GraphicScene::SceneLayer layer)
{
    SceneLocker locker(&m_dirtyMutex);
    if (layer == GraphicScene::AllLayers) {
        for (int key = GraphicScene::BackgroundLayer; key < GraphicScene::kLayerCount; ++key)
            m_dirtyAreas[GraphicScene::SceneLayer(key)].append(area);
    } else {
        m_dirtyAreas[layer].append(area);
    }
    // Kept apart from the lists: a thumbnail pass may come long after the
    // frame that consumed them.
    if ((layer == GraphicScene::AllLayers || layer == GraphicScene::ItemLayer) && !m_thumbnailWhole && area.isVisible()) {
        accumulate(m_thumbnailDirty, boundsOf(area), kMaxQueryRects);
    }
}

void SceneRender::makeDirty(const QRectF& rect, GraphicScene::SceneLayer layer)
{
    if (!(rect.width() > 0.0 && rect.height() > 0.0))
        return;
    record(DirtyArea(QRegion(rect.toRect())), layer);
}

void SceneRender::makeDirtySilently(const QRectF& rect, GraphicScene::SceneLayer layer)
{
    if (rect.isNull())
        return;
    // Grown by a pixel so that a line without width still covers its pixels.
    const QRect area = rect.toAlignedRect().adjusted(-1, -1, 1, 1);
    SceneLocker locker(&m_dirtyMutex);
    accumulate(m_silentDirty, area, kMaxFrameRects);
    if ((layer == GraphicScene::AllLayers || layer == GraphicScene::ItemLayer) && !m_thumbnailWhole)
        accumulate(m_thumbnailDirty, area, kMaxQueryRects);
}

void SceneRender::makeViewDirty()
{
    SceneLocker locker(&m_dirtyMutex);
    m_viewMoved = true;
}

void SceneRender::makeDirtyPath(const QPainterPath& path, GraphicScene::SceneLayer layer)
{
    if (path.isEmpty())
        return;
    record(DirtyArea(path), layer);
}

void SceneRender::makeDirtyRegion(const QRegion& region, GraphicScene::SceneLayer layer)
{
    if (region.isEmpty())
        return;
    record(DirtyArea(region), layer);
}

// --- life -------------------------------------------------------------------

void SceneRender::onInitScene()
{
    SceneLocker locker(&m_scene->itemsMutex());
    m_initialized = true;
    emit ready();
}

void SceneRender::quit()
{
    if (m_paintTimer)
        m_paintTimer->stop();
    if (m_thumbnailTimer)
        m_thumbnailTimer->stop();
    // The scene deletes us once the thread has ended; this lock is what
    // orders our work before that, for ThreadSanitizer as for the reader.
    SceneLocker locker(&m_scene->itemsMutex());
}

QImage SceneRender::resizeImage(const QImage& old, const QSize& size, double ratio, const QBrush& brush)
{
    // Frames are painted premultiplied: the raster engine strokes much faster into it.
    QImage image(GraphicScene::roundPixel(size.width() * ratio), GraphicScene::roundPixel(size.height() * ratio), QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(ratio);
    image.fill(Qt::transparent);
    if (brush != QBrush()) {
        QPainter painter(&image);
        painter.fillRect(QRectF(0, 0, size.width(), size.height()), brush);
    }
    if (!old.isNull()) {
        // Keep the top left corner: cropped or padded, never scaled.
        const QRect common = old.rect().intersected(QRect(QPoint(0, 0), image.size()));
        QPainter painter(&image);
        painter.drawImage(QRectF(0, 0, GraphicScene::roundPixel(common.width() / ratio), GraphicScene::roundPixel(common.height() / ratio)), old,
                          QRectF(common));
    }
    return image;
}

void SceneRender::updateRenderSize(const QSize& size, double ratio)
{
    if (size.width() <= 0 || size.height() <= 0)
        return;
    {
        SceneLocker locker(&m_imageMutex);
        const QSize pixels(GraphicScene::roundPixel(size.width() * ratio), GraphicScene::roundPixel(size.height() * ratio));
        if (ratio == m_devicePixelRatio && m_frameImage.size() == pixels)
            return;
        qCDebug(lcWhiteboardScene) << "update render size" << size;
        m_devicePixelRatio = ratio;
        m_baseImage = QImage(pixels, QImage::Format_ARGB32_Premultiplied);
        m_baseImage.setDevicePixelRatio(ratio);
        m_baseImage.fill(Qt::transparent);
        m_frameImage = resizeImage(m_frameImage, size, ratio, Qt::NoBrush);
    }
    updateBorderRegion();
}

void SceneRender::updateBorderRegion()
{
    QRegion region;
    {
        SceneLocker locker(&m_scene->itemsMutex());
        region = m_scene->pageRegion();
    }
    SceneLocker locker(&m_imageMutex);
    m_borderRegion = region;
}

// --- frames -----------------------------------------------------------------

void SceneRender::paint()
{
    // Before anything is taken: a change made from now on asks again.
    m_scene->frameBegun();
    if (!m_initialized)
        return;
    if (!m_paintTimer) {
        m_paintTimer = new QTimer(this);
        m_paintTimer->setSingleShot(true);
        connect(m_paintTimer, &QTimer::timeout, this, &SceneRender::paint);
    }
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    const int wait = frameWait(now);
    if (wait > 0) {
        // Too early: one timer arm, and the trailing request is never lost.
        if (!m_paintTimer->isActive())
            m_paintTimer->start(int(wait));
        return;
    }

    QList<DirtyArea> lists[GraphicScene::kLayerCount];
    QRegion changed;
    // A preview shown asks for its exact page.
    bool dirty = m_silentDue || m_previewStart != 0;
    {
        SceneLocker locker(&m_dirtyMutex);
        for (int key = 0; key < GraphicScene::kLayerCount; ++key)
            lists[key] = m_dirtyAreas.take(GraphicScene::SceneLayer(key));
        for (int key = 0; key < GraphicScene::kLayerCount; ++key)
            m_dirtyAreas.insert(GraphicScene::SceneLayer(key), QList<DirtyArea>());
        dirty = dirty || m_viewMoved;
        m_viewMoved = false;
    }
    m_silentDue = false;
    for (int key = 0; key < GraphicScene::kLayerCount && !dirty; ++key)
        dirty = std::any_of(lists[key].cbegin(), lists[key].cend(), [](const DirtyArea& area) { return area.isVisible(); });
    // Nothing due is no frame: the pacing still counts from the last one,
    // or a stream of requests that each find nothing new (a change recorded
    // just after the frame that took it) would put the next frame off for
    // as long as it lasts.
    if (!dirty)
        return;
    {
        // Taken only by a frame that is due: silent changes wait for one.
        SceneLocker locker(&m_dirtyMutex);
        changed += m_silentDirty;
        m_silentDirty = QRegion();
    }
    // dirtyMutex is released before we wait here: the GUI thread may hold
    // itemsMutex while it records dirty areas.
    FrameState state;
    {
        SceneLocker locker(&m_scene->itemsMutex());
        m_scene->fillFrameState(state);
    }
    for (const QList<DirtyArea>& list : lists) {
        for (const DirtyArea& area : list) {
            if (!area.isVisible())
                continue;
            accumulate(changed, boundsOf(area), kMaxFrameRects);
        }
    }
    m_lastFrameStart = now;
    composeFrame(state, changed);
    m_lastPaintTime = QDateTime::currentMSecsSinceEpoch();

    // What changed while we painted has asked for its frame, unless the
    // frame itself wrote it (a mark sizes itself as it paints): then the
    // silent change is due.
    bool pending = false;
    {
        SceneLocker locker(&m_dirtyMutex);
        m_silentDue = !m_silentDirty.isEmpty();
        pending = m_silentDue || m_viewMoved || m_previewStart != 0;
        for (auto it = m_dirtyAreas.cbegin(); it != m_dirtyAreas.cend() && !pending; ++it)
            pending = std::any_of(it->cbegin(), it->cend(), [](const DirtyArea& area) { return area.isVisible(); });
    }
    if (pending && !m_paintTimer->isActive())
        m_paintTimer->start(std::max(1, frameWait(QDateTime::currentMSecsSinceEpoch())));
}

int SceneRender::frameWait(qint64 now) const
{
    // An interval from the start of the last frame, and a quarter of one
    // after its end: a long frame (a stream of changes all over a big page)
    // is followed by the next one soon, but never back to back, so that
    // the GUI thread has its turn at the items and a core.
    const int interval = m_frameInterval;
    return int(std::max(m_lastFrameStart + interval, m_lastPaintTime + interval / 4) - now);
}

void SceneRender::composeFrame()
{
    FrameState state;
    {
        SceneLocker locker(&m_scene->itemsMutex());
        m_scene->fillFrameState(state);
    }
    composeFrame(state, QRegion());
}

void SceneRender::composeFrame(const FrameState& state, const QRegion& changed)
{
    const QImage base = baseImage();
    if (base.isNull())
        return;
    const double ratio = base.devicePixelRatio();
    const QRect viewRect(QPoint(0, 0), (QSizeF(base.size()) / ratio).toSize());
    const int margin = marginFor(ratio);
    const QRect inImage = viewRect.translated(margin, margin);
    const QRect imageRect(0, 0, viewRect.width() + 2 * margin, viewRect.height() + 2 * margin);
    const QSize pixels(base.width() + int(std::lround(2 * margin * ratio)), base.height() + int(std::lround(2 * margin * ratio)));
    const bool kept = !m_pageImage.isNull() && m_pageImage.size() == pixels && m_pageImage.devicePixelRatio() == ratio
        && state.samePicture(m_pageState);
    QPoint shift;
    const bool scrolled = kept && !state.samePage(m_pageState) && scrollShift(m_pageState, state, ratio, &shift)
        && std::abs(shift.x()) < imageRect.width() && std::abs(shift.y()) < imageRect.height();
    const bool partial = kept && state.samePage(m_pageState) && !changed.isEmpty();
    if (kept && !scrolled && !partial && state.scale != m_pageState.scale) {
        // A zoom: the kept page scaled at once, for a while, unless this is
        // the very state previewed (its exact page is due) or the preview
        // has lasted long enough.
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        const bool previewed = m_previewStart != 0 && state.samePage(m_previewState);
        if (!previewed && (m_previewStart == 0 || now - m_previewStart < kPreviewSpan)) {
            if (m_previewStart == 0)
                m_previewStart = now;
            m_previewState = state;
            // What changed meanwhile waits for the exact page.
            if (!changed.isEmpty()) {
                SceneLocker locker(&m_dirtyMutex);
                for (const QRect& rect : changed)
                    accumulate(m_silentDirty, rect, kMaxFrameRects);
            }
            composePreview(state, base, margin);
            return;
        }
    }
    m_previewStart = 0;
    const bool whole = !scrolled && !partial;
    if (whole) {
        // The margin is painted after the frame is handed over.
        m_pageImage = QImage(pixels, base.format());
        m_pageImage.setDevicePixelRatio(ratio);
        m_pageValid = QRegion();
        m_keptBorder = QRegion();
    } else if (scrolled) {
        // Whole device pixels: the kept pixels are those a repaint at the
        // new place gives.
        scrollImage(m_pageImage, (QPointF(shift) * ratio).toPoint());
        m_pageValid = m_pageValid.translated(shift).intersected(imageRect);
        m_keptBorder = m_keptBorder.translated(shift).intersected(imageRect);
    }
    m_pageState = state;
    const QTransform toImage = imageTransform(state, margin);
    m_pageValid -= imageRegion(changed, toImage, state.paintMargin);
    // What the page's edge now covers or uncovers: the edge is rounded to
    // view pixels, and the ground outside it is plain.
    m_pageValid -= imageBorder(state, margin).xored(m_keptBorder);
    QRegion dirty = QRegion(inImage) - m_pageValid;
    // A mark sizes itself as it paints, and items change while a frame
    // paints: what changed meanwhile is painted again in this same frame,
    // twice at most, when it is small. What changes during the last pass,
    // or much (a stream of received moves), stays for the next frame, which
    // the silent change makes due: a frame under such a stream repainted
    // most of the page three times.
    for (int pass = 0; !dirty.isEmpty(); ++pass) {
        if (!repaintPage(state, dirty, margin)) {
            // Half painted: the next frame starts over.
            m_pageImage = QImage();
            return;
        }
        if (pass == 2)
            break;
        SceneLocker locker(&m_dirtyMutex);
        dirty = m_silentDirty.isEmpty() ? QRegion() : imageRegion(m_silentDirty, toImage, state.paintMargin).intersected(imageRect);
        qint64 area = 0;
        for (const QRect& rect : dirty)
            area += qint64(rect.width()) * rect.height();
        if (area * 8 > qint64(imageRect.width()) * imageRect.height())
            break;
        m_silentDirty = QRegion();
    }
    QImage frame = margin == 0 ? m_pageImage : m_pageImage.copy(QRect(QPointF(inImage.topLeft() * ratio).toPoint(), base.size()));
    frame.setDevicePixelRatio(ratio);
    if (handOver(state, std::move(frame), whole, scrolled))
        scheduleThumbnails();
    if (m_pageValid != QRegion(imageRect))
        QMetaObject::invokeMethod(this, &SceneRender::fillMargin, Qt::QueuedConnection);
}

int SceneRender::marginFor(double ratio)
{
    // Only where it is whole device pixels, so that the view is a copy.
    const double pixels = kMargin * ratio;
    return pixels == std::round(pixels) ? kMargin : 0;
}

QTransform SceneRender::imageTransform(const FrameState& state, int margin)
{
    // Both offsets are whole or snapped: the sum is exact.
    return state.sceneToView() * QTransform::fromTranslate(margin, margin);
}

QRegion SceneRender::imageBorder(const FrameState& state, int margin)
{
    QRegion border = state.borderRegion.translated(margin, margin);
    if (margin == 0)
        return border;
    // Beyond the view the page lies where the scene would put it were the
    // view that large (the view's own border is the view when the page
    // covers it).
    const QPointF topLeft = state.viewport.topLeft();
    const QRectF onScreen(-topLeft.x() / state.viewport.width() * state.viewRect.width(),
                          -topLeft.y() / state.viewport.height() * state.viewRect.height(),
                          GraphicScene::roundPixel(state.sceneSize.width() * state.scale),
                          GraphicScene::roundPixel(state.sceneSize.height() * state.scale));
    const QRect view = state.viewRect.toRect().translated(margin, margin);
    border += QRegion(onScreen.toRect().translated(margin, margin)) - QRegion(view);
    return border;
}

void SceneRender::fillMargin()
{
    // Not while a preview waits for its exact page: the kept one is old.
    if (m_pageImage.isNull() || m_previewStart != 0 || quitRequested())
        return;
    const double ratio = m_pageImage.devicePixelRatio();
    const QRect imageRect(QPoint(0, 0), (QSizeF(m_pageImage.size()) / ratio).toSize());
    const QRegion dirty = QRegion(imageRect) - m_pageValid;
    if (dirty.isEmpty())
        return;
    if (!repaintPage(m_pageState, dirty, marginFor(ratio)))
        m_pageImage = QImage();
}

void SceneRender::composePreview(const FrameState& state, const QImage& base, int margin)
{
    QImage frame(base.size(), base.format());
    frame.setDevicePixelRatio(base.devicePixelRatio());
    {
        QPainter painter(&frame);
        const QRect viewRect(QPoint(0, 0), (QSizeF(base.size()) / base.devicePixelRatio()).toSize());
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.fillRect(viewRect, state.backgroundColor.isValid() ? state.backgroundColor : QColor(Qt::transparent));
        painter.setClipRegion(state.borderRegion);
        // The kept page's view units to the new ones; nearest pixels, for
        // speed: the exact page follows. Its margin shows what a zoom out
        // brings into view, where it is painted.
        painter.setTransform(m_pageState.sceneToView().inverted() * state.sceneToView());
        painter.drawImage(QPointF(-margin, -margin), m_pageImage);
    }
    handOver(state, std::move(frame), false, false);
}

bool SceneRender::handOver(const FrameState& state, QImage frame, bool whole, bool scrolled)
{
    if (!finishFrame(state, frame))
        return false;
    {
        SceneLocker locker(&m_imageMutex);
        m_frameImage = frame;
    }
    // Handed over under itemsMutex: the scene's destructor takes it after
    // asking us to quit, so no receiver sees a scene being torn down.
    SceneLocker locker(&m_scene->itemsMutex());
    if (quitRequested())
        return false;
    if (m_previewStart != 0) {
        ++m_previewFrames;
    } else {
        ++m_composedFrames;
        if (!whole)
            ++m_partialFrames;
        if (scrolled)
            ++m_scrolledFrames;
    }
    emit finished(frame);
    return true;
}

GraphicItemList SceneRender::itemsMeeting(GraphicScene::SceneLayer layer, const QRegion& area, const QTransform& toArea, double margin) const
{
    const LayerIndex* root = m_scene->layerIndex(layer);
    if (!root)
        return {};
    const QTransform back = toArea.inverted();
    const auto sceneRect = [&](const QRect& rect) {
        return back.mapRect(QRectF(rect)).adjusted(-margin, -margin, margin, margin);
    };
    GraphicItemList found;
    if (area.rectCount() == 1) {
        found = root->query(sceneRect(area.boundingRect()));
    } else {
        QSet<const GraphicItem*> seen;
        for (const QRect& rect : area) {
            for (const QSharedPointer<GraphicItem>& item : root->query(sceneRect(rect))) {
                if (!seen.contains(item.data())) {
                    seen.insert(item.data());
                    found.append(item);
                }
            }
        }
    }
    LayerIndex::sort(found, Qt::AscendingOrder);
    return found;
}

bool SceneRender::repaintPage(const FrameState& state, const QRegion& wanted, int margin)
{
    if (wanted.isEmpty())
        return true;
    const QRegion dirty = coarse(wanted);
    const QTransform toImage = imageTransform(state, margin);
    {
        // The only wait the GUI thread has on a frame: finding and recording
        // the items; they are painted from the recording after.
        SceneLocker locker(&m_scene->itemsMutex());
        GraphicItemList all;
        for (int layer = GraphicScene::BackgroundLayer; layer < GraphicScene::kLayerCount; ++layer)
            all.append(itemsMeeting(GraphicScene::SceneLayer(layer), dirty, toImage, state.paintMargin));
        m_pageRecording->record(all, kRenderHints, state.paintMargin);
    }
    // The ground replaces what was there; an invalid colour leaves transparency.
    const QColor ground = state.backgroundColor.isValid() ? state.backgroundColor : QColor(Qt::transparent);
    const QRegion border = imageBorder(state, margin);
    paintRecording(m_pageImage, *m_pageRecording, dirty, ground, dirty.intersected(border), toImage);
    m_pageRecording->clear();
    if (quitRequested())
        return false;
    // Painted on either side of the page's edge as it lies now: a pixel
    // kept across a pan is exact only if the edge still puts it there.
    m_pageValid += dirty;
    m_keptBorder = (m_keptBorder - dirty) + dirty.intersected(border);
    return true;
}

std::vector<QRect> SceneRender::pieces(const QImage& image, const QRegion& dirty, int items) const
{
    const double ratio = image.devicePixelRatio();
    const QRect whole(QPoint(0, 0), (QSizeF(image.size()) / ratio).toSize());
    const int count = items < kBandItems ? 1 : m_bands->width();
    // Cuts [first, first + length) into `count` spans at logical pixels that
    // are whole device pixels too, so that the pieces' clips neither overlap
    // nor leave a pixel out.
    const auto cuts = [&](int first, int length) {
        std::vector<int> edges { first };
        for (int piece = 1; piece < count && length >= 2 * kBandRows; ++piece) {
            int at = first + length * piece / count;
            for (int step = 0; step < 8 && std::abs(at * ratio - std::round(at * ratio)) > 1e-6; ++step)
                ++at;
            if (std::abs(at * ratio - std::round(at * ratio)) > 1e-6 || at <= edges.back() || at >= first + length)
                break;
            edges.push_back(at);
        }
        edges.push_back(first + length);
        return edges;
    };
    std::vector<QRect> result;
    if (dirty.rectCount() > kMaxPieces) {
        // Many pieces (tiles): rows across the image, each clipped to them.
        const QRect area = dirty.boundingRect();
        std::vector<int> edges = cuts(area.top(), area.height());
        edges.front() = whole.top();
        edges.back() = whole.bottom() + 1;
        for (size_t band = 0; band + 1 < edges.size(); ++band)
            result.emplace_back(whole.left(), edges[band], whole.width(), edges[band + 1] - edges[band]);
        return result;
    }
    // Few pieces (a pan's strips, a whole view): each cut into rows, as a
    // whole view always was, or into columns when too short for rows, so
    // that a thin strip is shared by the threads and each painter's clip is
    // a rectangle, which the rasterizer bounds its work by.
    for (const QRect& rect : dirty) {
        const bool across = rect.height() < 2 * kBandRows && rect.width() > rect.height();
        const std::vector<int> edges = across ? cuts(rect.left(), rect.width()) : cuts(rect.top(), rect.height());
        for (size_t piece = 0; piece + 1 < edges.size(); ++piece) {
            if (across)
                result.emplace_back(edges[piece], rect.top(), edges[piece + 1] - edges[piece], rect.height());
            else
                result.emplace_back(rect.left(), edges[piece], rect.width(), edges[piece + 1] - edges[piece]);
        }
    }
    return result;
}

void SceneRender::paintRecording(QImage& image, const PaintRecording& recording, const QRegion& dirty, const QColor& ground,
                                 const QRegion& clip, const QTransform& toImage)
{
    const std::vector<QRect> parts = pieces(image, dirty, recording.itemCount());
    const int threads = std::min(int(parts.size()), recording.itemCount() < kBandItems ? 1 : m_bands->width());
    // Every piece paints through its own image over the same pixels, clipped
    // to it. Not a strip of its own: the rasterizer rounds coordinates
    // toward zero, so a shape crossing a strip's top edge would be covered a
    // little differently than over the whole image.
    uchar* const bits = image.bits(); // detached here, once, before the threads share it
    m_bands->run(threads, [&](int thread) {
        QImage shared(bits, image.width(), image.height(), image.bytesPerLine(), image.format());
        shared.setDevicePixelRatio(image.devicePixelRatio());
        // The pieces are dealt in turn: a pan's two strips are each cut in
        // as many pieces as there are threads. One painter a thread, its
        // state saved around each piece: beginning a painter costs more
        // than a small piece.
        QPainter painter(&shared);
        for (size_t index = size_t(thread); index < parts.size(); index += size_t(threads)) {
            const QRect& part = parts[index];
            painter.save();
            painter.setCompositionMode(QPainter::CompositionMode_Source);
            for (const QRect& rect : dirty)
                painter.fillRect(rect.intersected(part), ground);
            painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
            // A clip on every painter: thin pens stroke slowly without one.
            painter.setClipRegion(clip.intersected(part));
            painter.setTransform(toImage);
            painter.setRenderHints(kRenderHints);
            recording.replay(&painter, m_scene->itemsMutex(), [this] { return quitRequested(); });
            painter.restore();
        }
    });
}

bool SceneRender::finishFrame(const FrameState& state, QImage& frame)
{
    QPainter painter(&frame);
    painter.save();
    painter.setClipRegion(state.borderRegion, Qt::ReplaceClip);
    painter.setTransform(state.sceneToView());
    painter.setRenderHints(kRenderHints);
    // Control points lie above all layers and are clipped to the page.
    const GraphicItemList controlled = !state.selectedItems.isEmpty() ? state.selectedItems
        : state.focusItem                                             ? GraphicItemList { state.focusItem }
                                                                      : GraphicItemList();
    for (const QSharedPointer<GraphicItem>& item : controlled) {
        if (quitRequested())
            return false;
        SceneLocker locker(&m_scene->itemsMutex());
        if (GraphicController* controller = item->controller())
            controller->paint(&painter);
    }
    painter.restore();

    // Darken what lies outside the page.
    const QRegion surround = QRegion(state.viewRect.toRect()) - state.borderRegion;
    for (const QRect& rect : surround) {
        painter.fillRect(rect, QColor("#90000000"));
        if (quitRequested())
            return false;
    }
    return true;
}

// --- thumbnails -------------------------------------------------------------

void SceneRender::scheduleThumbnails()
{
    {
        SceneLocker locker(&m_dirtyMutex);
        if (!m_thumbnailWhole && m_thumbnailDirty.isEmpty())
            return;
    }
    if (!m_thumbnailTimer) {
        m_thumbnailTimer = new QTimer(this);
        m_thumbnailTimer->setSingleShot(true);
        connect(m_thumbnailTimer, &QTimer::timeout, this, &SceneRender::paintThumbnails);
    }
    const qint64 wait = m_lastThumbnailTime + kThumbnailInterval - QDateTime::currentMSecsSinceEpoch();
    if (wait <= 0) {
        paintThumbnails();
    } else if (!m_thumbnailTimer->isActive()) {
        m_thumbnailTimer->start(int(wait));
    }
}

void SceneRender::paintThumbnails()
{
    {
        SceneLocker locker(&m_thumbnailMutex);
        if (!updateThumbnails())
            return;
    }
    m_lastThumbnailTime = QDateTime::currentMSecsSinceEpoch();
    // The scene's images are the GUI thread's: handed over there.
    GraphicScene* scene = m_scene;
    QMetaObject::invokeMethod(scene, [scene] {
        if (SceneRender* render = scene->renderer())
            render->publishThumbnails();
    }, Qt::QueuedConnection);
}

void SceneRender::catchUpThumbnails()
{
    {
        // Waits for a pass under way; before the first frame there is
        // nothing to catch up with.
        SceneLocker locker(&m_thumbnailMutex);
        if (!m_thumbnailLarge.isNull())
            updateThumbnails();
    }
    publishThumbnails();
}

void SceneRender::publishThumbnails()
{
    QImage large;
    QImage small;
    {
        SceneLocker locker(&m_thumbnailMutex);
        if (m_thumbnailSerial == m_publishedSerial)
            return;
        m_publishedSerial = m_thumbnailSerial;
        large = m_thumbnailLarge;
        small = m_thumbnailSmall;
    }
    m_scene->setThumbnails(large, small);
}

bool SceneRender::updateThumbnails()
{
    GraphicScene* scene = m_scene;
    QRegion changed;
    QRegion dirty;
    QTransform toThumbnail;
    {
        SceneLocker locker(&m_scene->itemsMutex());
        const QSize page = scene->sceneSize();
        const QSize size = scene->thumbnailSize();
        bool whole = m_thumbnailLarge.isNull() || page != m_thumbnailPage || m_thumbnailLarge.size() != size;
        {
            // Taken under itemsMutex: a change recorded from here on is
            // either seen by this recording or left for the next pass.
            SceneLocker dirtyLocker(&m_dirtyMutex);
            whole = whole || m_thumbnailWhole;
            changed = m_thumbnailDirty;
            if (!whole && changed.isEmpty())
                return true;
            m_thumbnailDirty = QRegion();
            m_thumbnailWhole = false;
        }
        toThumbnail.scale(double(size.width()) / page.width(), double(size.height()) / page.height());
        if (whole) {
            m_thumbnailLarge = QImage(size, QImage::Format_ARGB32_Premultiplied);
            dirty = QRegion(m_thumbnailLarge.rect());
            m_thumbnailPage = page;
        } else {
            dirty = coarse(imageRegion(changed, toThumbnail, scene->paintMargin()).intersected(m_thumbnailLarge.rect()));
        }
        m_smallThumbnailSize = scene->smallThumbnailSize();
        m_thumbnailRecording->record(itemsMeeting(GraphicScene::ItemLayer, dirty, toThumbnail, scene->paintMargin()), kRenderHints,
                                     scene->paintMargin());
    }
    paintRecording(m_thumbnailLarge, *m_thumbnailRecording, dirty, Qt::transparent, dirty, toThumbnail);
    m_thumbnailRecording->clear();
    if (quitRequested()) {
        m_thumbnailLarge = QImage();
        return false;
    }
    // Scaled from the large one rather than painted again from every item.
    m_thumbnailSmall = m_thumbnailLarge.scaled(m_smallThumbnailSize, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    ++m_thumbnailSerial;
    ++m_thumbnailPasses;
    return true;
}

} // namespace whiteboard
