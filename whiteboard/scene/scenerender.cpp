#include "scene/scenerender.h"

#include "graphics/graphiccontroller.h"
#include "graphics/graphicitem.h"
#include "scene/graphicscene.h"
#include "scene/pagepainter.h"
#include "scene/thumbnailpass.h"
#include "scene/layerindex.h"
#include "scene/paintrecording.h"

#include <QDateTime>
#include <QDebug>
#include <QMutexLocker>
#include <QPainter>
#include <QQuickItem>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

namespace whiteboard {

namespace {

// View pixels kept painted beyond each side of the view, for pans.
constexpr int kMargin = 64;

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
    if (before.geometry.scale != after.geometry.scale || before.geometry.viewport.size() != after.geometry.viewport.size())
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

} // namespace

SceneRender::SceneRender(GraphicScene* scene)
    : m_scene(scene)
    , m_pageRecording(std::make_unique<PaintRecording>())
    , m_painter(std::make_unique<PagePainter>(scene))
    , m_thumbnails(std::make_unique<ThumbnailPass>(scene, this, m_dirt, *m_painter))
{
}

SceneRender::~SceneRender()
{
    if (m_paintTimer)
        m_paintTimer->stop();
}

int SceneRender::thumbnailPasses() const
{
    return m_thumbnails->passes();
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
    m_thumbnails->stop();
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

    // A preview shown asks for its exact page.
    DirtyTracker::Taken taken = m_dirt.take();
    const bool due = taken.due || m_silentDue || m_previewStart != 0;
    m_silentDue = false;
    // Nothing due is no frame: the pacing still counts from the last one,
    // or a stream of requests that each find nothing new (a change recorded
    // just after the frame that took it) would put the next frame off for
    // as long as it lasts.
    if (!due)
        return;
    // Taken only by a frame that is due: silent changes wait for one.
    taken.changed += m_dirt.takeSilent();
    // dirtyMutex is released before we wait here: the GUI thread may hold
    // itemsMutex while it records dirty areas.
    FrameState state;
    {
        SceneLocker locker(&m_scene->itemsMutex());
        m_scene->fillFrameState(state);
    }
    m_lastFrameStart = now;
    composeFrame(state, taken.changed);
    m_lastPaintTime = QDateTime::currentMSecsSinceEpoch();

    // What changed while we painted has asked for its frame; silent changes
    // made meanwhile (items filed anew) make the next one due.
    const bool pending = m_dirt.pending(&m_silentDue) || m_previewStart != 0;
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
    if (kept && !scrolled && !partial && state.geometry.scale != m_pageState.geometry.scale) {
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
            m_dirt.defer(changed);
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
    m_pageValid -= PagePainter::imageRegion(changed, toImage, state.paintMargin);
    // What the page's edge now covers or uncovers: the edge is rounded to
    // view pixels, and the ground outside it is plain.
    m_pageValid -= imageBorder(state, margin).xored(m_keptBorder);
    QRegion dirty = QRegion(inImage) - m_pageValid;
    // Items change while a frame paints: what changed meanwhile is painted
    // again in this same frame, twice at most, when it is small. What
    // changes during the last pass, or much (a stream of received moves),
    // stays for the next frame, which the silent change makes due: a frame
    // under such a stream repainted most of the page three times.
    for (int pass = 0; !dirty.isEmpty(); ++pass) {
        if (!repaintPage(state, dirty, margin)) {
            // Half painted: the next frame starts over.
            m_pageImage = QImage();
            return;
        }
        if (pass == 2)
            break;
        dirty = m_dirt.takeSilentWithin([&](const QRegion& silent) {
            return PagePainter::imageRegion(silent, toImage, state.paintMargin).intersected(imageRect);
        }, qint64(imageRect.width()) * imageRect.height() / 8);
    }
    QImage frame = margin == 0 ? m_pageImage : m_pageImage.copy(QRect(QPointF(inImage.topLeft() * ratio).toPoint(), base.size()));
    frame.setDevicePixelRatio(ratio);
    if (handOver(state, std::move(frame), whole, scrolled))
        m_thumbnails->schedule();
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
    QRegion border = state.borderRegion().translated(margin, margin);
    if (margin == 0)
        return border;
    // Beyond the view the page lies where the scene would put it were the
    // view that large (the view's own border is the view when the page
    // covers it).
    const QRect view = state.geometry.viewBounds.toRect().translated(margin, margin);
    border += QRegion(state.geometry.pageOnScreen().toRect().translated(margin, margin)) - QRegion(view);
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
        painter.setClipRegion(state.borderRegion());
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

bool SceneRender::repaintPage(const FrameState& state, const QRegion& wanted, int margin)
{
    if (wanted.isEmpty())
        return true;
    const QRegion dirty = PagePainter::coarse(wanted);
    const QTransform toImage = imageTransform(state, margin);
    {
        // The only wait the GUI thread has on a frame: finding and recording
        // the items; they are painted from the recording after.
        SceneLocker locker(&m_scene->itemsMutex());
        GraphicItemList all;
        for (int layer = GraphicScene::BackgroundLayer; layer < GraphicScene::kLayerCount; ++layer)
            all.append(PagePainter::itemsMeeting(*m_scene, GraphicScene::SceneLayer(layer), dirty, toImage, state.paintMargin));
        m_pageRecording->record(all, PagePainter::kRenderHints, state.paintMargin);
    }
    // The ground replaces what was there; an invalid colour leaves transparency.
    const QColor ground = state.backgroundColor.isValid() ? state.backgroundColor : QColor(Qt::transparent);
    const QRegion border = imageBorder(state, margin);
    m_painter->paint(m_pageImage, *m_pageRecording, dirty, ground, dirty.intersected(border), toImage, [this] { return quitRequested(); });
    m_pageRecording->clear();
    if (quitRequested())
        return false;
    // Painted on either side of the page's edge as it lies now: a pixel
    // kept across a pan is exact only if the edge still puts it there.
    m_pageValid += dirty;
    m_keptBorder = (m_keptBorder - dirty) + dirty.intersected(border);
    return true;
}

bool SceneRender::finishFrame(const FrameState& state, QImage& frame)
{
    QPainter painter(&frame);
    painter.save();
    painter.setClipRegion(state.borderRegion(), Qt::ReplaceClip);
    painter.setTransform(state.sceneToView());
    painter.setRenderHints(PagePainter::kRenderHints);
    // Control points lie above all layers and are clipped to the page.
    const GraphicItemList controlled = !state.selectedItems.isEmpty() ? state.selectedItems
        : state.focusItem                                             ? GraphicItemList { state.focusItem }
                                                                      : GraphicItemList();
    for (const QSharedPointer<GraphicItem>& item : controlled) {
        if (quitRequested()) {
            painter.restore();
            return false;
        }
        SceneLocker locker(&m_scene->itemsMutex());
        if (GraphicController* controller = item->controller())
            controller->paint(&painter);
    }
    painter.restore();

    // Darken what lies outside the page.
    const QRegion surround = QRegion(state.geometry.viewBounds.toRect()) - state.borderRegion();
    for (const QRect& rect : surround) {
        painter.fillRect(rect, QColor("#90000000"));
        if (quitRequested())
            return false;
    }
    return true;
}

// --- thumbnails -------------------------------------------------------------

void SceneRender::catchUpThumbnails()
{
    m_thumbnails->catchUp();
}

void SceneRender::publishThumbnails()
{
    m_thumbnails->publish();
}

} // namespace whiteboard
