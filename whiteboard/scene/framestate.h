#pragma once

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

    // Scene units to view units, as the painter is set up.
    QTransform sceneToView() const
    {
        QTransform transform;
        transform.scale(scale, scale);
        transform.translate(-viewport.x() * sceneSize.width(), -viewport.y() * sceneSize.height());
        transform.rotate(rotation);
        return transform;
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
