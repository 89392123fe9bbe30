#pragma once

#include "scene/graphicscene.h"

#include <QPainter>
#include <QRegion>
#include <QTransform>

#include <functional>
#include <memory>
#include <vector>

class QImage;

namespace whiteboard {

class BandWorkers;
class PaintRecording;

// How frames and thumbnails paint: the items that may reach an area are
// found (under itemsMutex) and recorded, and the recording is painted
// without the lock, a big one in pieces at once, one thread per core, each
// through its own painter over the same image, so that the pixels are those
// of a single painter.
class PagePainter
{
public:
    // The hints of every frame and thumbnail painter, and of their recordings.
    static constexpr QPainter::RenderHints kRenderHints =
        QPainter::Antialiasing | QPainter::TextAntialiasing | QPainter::SmoothPixmapTransform;

    explicit PagePainter(GraphicScene* scene);
    ~PagePainter();
    PagePainter(const PagePainter&) = delete;
    PagePainter& operator=(const PagePainter&) = delete;

    // Under itemsMutex: the items of `layer` that may paint into `area`
    // (pixels, mapped from scene units by `toArea`), sorted for painting.
    static GraphicItemList itemsMeeting(GraphicScene& scene, GraphicScene::SceneLayer layer, const QRegion& area, const QTransform& toArea,
                                        double margin) REQUIRES(scene.itemsMutex());
    // `area` in scene units mapped into an image through `toImage`, grown to
    // whole pixels plus `margin` scene units.
    static QRegion imageRegion(const QRegion& area, const QTransform& toImage, double margin);
    // A region of many pieces that covers most of its bounding box, as that
    // box: the rasterizer clips every item against a region piece by piece.
    static QRegion coarse(const QRegion& region);

    // No lock held: repaints `dirty` (logical pixels of `image`) with
    // `ground`, then `recording` through `toImage`, clipped to `clip`; its
    // pieces at once. `stop` abandons the painting between items.
    void paint(QImage& image, const PaintRecording& recording, const QRegion& dirty, const QColor& ground, const QRegion& clip,
               const QTransform& toImage, const std::function<bool()>& stop);

private:
    // The pieces (logical pixels of `image`) a repaint of `dirty` with
    // `items` recorded items is painted in, by as many threads as are worth
    // it: its rectangles, or rows across when it has many.
    std::vector<QRect> pieces(const QImage& image, const QRegion& dirty, int items) const;

    GraphicScene* m_scene = nullptr;
    // Shared by frames and thumbnail passes; its threads start on first use.
    std::unique_ptr<BandWorkers> m_bands;
};

} // namespace whiteboard
