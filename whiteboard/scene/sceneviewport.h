#pragma once

#include <QPainterPath>
#include <QPointF>
#include <QRectF>
#include <QRegion>
#include <QSize>
#include <QTransform>

class QPainter;

namespace whiteboard {

// The viewport maths of a board: view pixels, viewport units (fractions of
// the page) and scene units, related by the formulas below. A value: the
// scene keeps the one its view shows, and writes it under itemsMutex, so
// that a frame reads it whole under that lock.
class SceneViewport
{
public:
    // The board's rounding of a double to whole pixels: half away from zero,
    // then truncated.
    static int roundPixel(double value) { return int(value >= 0.0 ? value + 0.5 : value - 0.5); }

    // The part of the page shown, in fractions of the page; empty until the
    // view first has a size.
    QRectF viewport = QRectF(0, 0, 0, 0);
    QSize sceneSize = QSize(1080, 720);
    double scale = 1.0;
    double rotation = 0.0;
    // The view's own rectangle, at (0, 0), in view pixels.
    QRectF viewBounds;

    // View pixels to scene units: a point (`factor` scales the viewport
    // first), a rectangle by its corners, a path by its bounding rectangle.
    // Null without a view size.
    QPointF mapToScene(const QPointF& viewPos, double factor = 1.0) const;
    QRectF mapRectToScene(const QRectF& viewRect) const;
    QPainterPath mapPathToScene(const QPainterPath& path) const;
    // Scene units to view pixels, the same way; null without a page size.
    QPointF mapFromScene(const QPointF& scenePos) const;
    QRectF mapRectFromScene(const QRectF& sceneRect) const;
    QPainterPath mapPathFromScene(const QPainterPath& path) const;
    // The viewport in scene units.
    QRectF viewportRect() const;
    // Scene units to view units, as frames paint: the zoom, the viewport's
    // offset and the rotation. The offset is snapped to 1/65536 of a view
    // unit: a pan by whole pixels then moves it by exactly that many, so
    // that kept pixels, scrolled, are those a fresh repaint gives (the
    // rasterizer truncates, and a page edge at 399.9999999 instead of 400
    // covers a different pixel).
    QTransform sceneToView() const;
    // Sets the painter up as frames paint: their hints and sceneToView().
    void applyTo(QPainter* painter) const;

    // The viewport of a view's first real size: the page centred.
    QRectF centred() const;
    // The viewport that shows the page at `scale`, keeping the scene point
    // under `center` (view pixels) where it is.
    QRectF zoomedAround(const QPointF& center) const;
    // The viewport moved by `delta` view pixels.
    QRectF movedBy(const QPointF& delta) const;
    // Whether `next` keeps enough of the page in sight: it may leave the
    // window only as far as 100 view pixels stay, or all of it when it
    // shows smaller than that.
    bool keepsPageInSight(const QRectF& next) const;
    // The part of the view the page covers, in view pixels.
    QRegion pageRegion() const;
    // Where the whole page lies, in view pixels, inside the view or not.
    QRectF pageOnScreen() const { return pageOnScreen(viewport); }

    bool hasViewSize() const { return viewBounds.width() > 0 && viewBounds.height() > 0; }
    bool hasSceneSize() const { return sceneSize.width() >= 1 && sceneSize.height() >= 1; }

private:
    // Where the page lies in the view for a viewport `r`, in view pixels.
    QRectF pageOnScreen(const QRectF& r) const;
};

} // namespace whiteboard
