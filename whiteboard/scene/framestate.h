#pragma once

#include "scene/sceneviewport.h"

#include <QColor>
#include <QList>
#include <QRectF>
#include <QRegion>
#include <QSharedPointer>
#include <QSize>
#include <QTransform>

namespace whiteboard {

class GraphicItem;

// What one frame needs from the scene, copied under itemsMutex so that the
// render thread paints without reading the scene's members.
struct FrameState
{
    // The viewport, page size, zoom, rotation and the view's size.
    SceneViewport geometry;
    QColor backgroundColor;
    // How far, in scene units, an item may paint outside its boundary.
    double paintMargin = 0.0;
    QList<QSharedPointer<GraphicItem>> selectedItems;
    QSharedPointer<GraphicItem> focusItem;

    QTransform sceneToView() const { return geometry.sceneToView(); }
    // The part of the view the page covers, in view units.
    QRegion borderRegion() const { return geometry.pageRegion(); }

    // Whether a page painted with `other` shows the same picture, only
    // moved or zoomed: the view, page, rotation, ground and selection agree.
    bool samePicture(const FrameState& other) const
    {
        return geometry.viewBounds == other.geometry.viewBounds && geometry.sceneSize == other.geometry.sceneSize
            && geometry.rotation == other.geometry.rotation && backgroundColor == other.backgroundColor
            && selectedItems == other.selectedItems && focusItem == other.focusItem;
    }

    // Whether every kept pixel of a page painted with `other` is still in
    // place; the selection counts because selected items paint a veil.
    bool samePage(const FrameState& other) const
    {
        return samePicture(other) && geometry.viewport == other.geometry.viewport && geometry.scale == other.geometry.scale;
    }
};

} // namespace whiteboard
