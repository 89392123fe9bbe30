#include "scene/pagepainter.h"

#include "graphics/graphicitem.h"
#include "scene/bandworkers.h"
#include "scene/layerindex.h"
#include "scene/paintrecording.h"

#include <QImage>
#include <QSet>

#include <algorithm>
#include <cmath>
#include <thread>

namespace whiteboard {

namespace {

// Below these a repaint is not worth splitting among threads: readying the
// recording and handing the pieces over cost more than another core saves.
constexpr int kBandItems = 512;
constexpr int kBandRows = 64;
// A repaint of more pieces than this is painted in rows across the image.
constexpr int kMaxPieces = 8;

} // namespace

PagePainter::PagePainter(GraphicScene* scene)
    : m_scene(scene)
    , m_bands(std::make_unique<BandWorkers>(std::clamp(int(std::thread::hardware_concurrency()) - 1, 0, 3)))
{
}

PagePainter::~PagePainter() = default;

GraphicItemList PagePainter::itemsMeeting(GraphicScene& scene, GraphicScene::SceneLayer layer, const QRegion& area, const QTransform& toArea,
                                          double margin)
{
    const LayerIndex* root = scene.layerIndex(layer);
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

QRegion PagePainter::imageRegion(const QRegion& area, const QTransform& toImage, double margin)
{
    QRegion result;
    const double grow = margin * std::max(std::abs(toImage.m11()) + std::abs(toImage.m21()), std::abs(toImage.m12()) + std::abs(toImage.m22())) + 1.0;
    for (const QRect& rect : area)
        result += toImage.mapRect(QRectF(rect)).adjusted(-grow, -grow, grow, grow).toAlignedRect();
    return result;
}

// A join's or a stream's tiles painted slower than their whole box.
QRegion PagePainter::coarse(const QRegion& region)
{
    if (region.rectCount() <= kMaxPieces)
        return region;
    qint64 area = 0;
    for (const QRect& rect : region)
        area += qint64(rect.width()) * rect.height();
    const QRect bounds = region.boundingRect();
    return area * 2 >= qint64(bounds.width()) * bounds.height() ? QRegion(bounds) : region;
}

std::vector<QRect> PagePainter::pieces(const QImage& image, const QRegion& dirty, int items) const
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

void PagePainter::paint(QImage& image, const PaintRecording& recording, const QRegion& dirty, const QColor& ground, const QRegion& clip,
                        const QTransform& toImage, const std::function<bool()>& stop)
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
            recording.replay(&painter, m_scene->itemsMutex(), stop);
            painter.restore();
        }
    });
}

} // namespace whiteboard
