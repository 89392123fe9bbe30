#pragma once

#include <QColor>
#include <QList>
#include <QRectF>
#include <QRegion>
#include <QSharedPointer>
#include <QSize>
#include <QTransform>

#include <cmath>

namespace whiteboard {

class GraphicItem;

// What one frame needs from the scene, copied under itemsMutex so that the
// render thread paints without reading the scene's members.
struct FrameState
{
    QRectF viewRect;
    QSize sceneSize;
    QRectF viewport;
    double scale = 1.0;
    double rotation = 0.0;
    QColor backgroundColor;
    QRegion borderRegion;
    // How far, in scene units, an item may paint outside its boundary.
    double paintMargin = 0.0;
    QList<QSharedPointer<GraphicItem>> selectedItems;
    QSharedPointer<GraphicItem> focusItem;

    // Scene units to view units, as the painter is set up. The offset is
    // snapped to 1/65536 of a view unit: a pan by whole pixels then moves it
    // by exactly that many, so that the kept pixels, scrolled, are those a
    // fresh repaint gives (the rasterizer truncates, and a page edge at
    // 399.9999999 instead of 400 covers a different pixel).
    QTransform sceneToView() const
    {
        QTransform transform;
        transform.scale(scale, scale);
        transform.translate(-viewport.x() * sceneSize.width(), -viewport.y() * sceneSize.height());
        transform.rotate(rotation);
        const auto snap = [](double offset) { return std::round(offset * 65536.0) / 65536.0; };
        transform.setMatrix(transform.m11(), transform.m12(), transform.m13(), transform.m21(), transform.m22(), transform.m23(),
                            snap(transform.dx()), snap(transform.dy()), transform.m33());
        return transform;
    }

    // Whether a page painted with `other` shows the same picture, only
    // moved or zoomed: the view, page, rotation, ground and selection agree.
    bool samePicture(const FrameState& other) const
    {
        return viewRect == other.viewRect && sceneSize == other.sceneSize && rotation == other.rotation
            && backgroundColor == other.backgroundColor && selectedItems == other.selectedItems && focusItem == other.focusItem;
    }

    // Whether every kept pixel of a page painted with `other` is still in
    // place; the selection counts because selected items paint a veil.
    bool samePage(const FrameState& other) const
    {
        return viewRect == other.viewRect && sceneSize == other.sceneSize && viewport == other.viewport
            && scale == other.scale && rotation == other.rotation && backgroundColor == other.backgroundColor
            && borderRegion == other.borderRegion && selectedItems == other.selectedItems && focusItem == other.focusItem;
    }
};

} // namespace whiteboard
