// The scene's view side: the viewport and its properties, coordinates (the
// SceneViewport's maths), and frames: the one repaint entry, the render
// worker's hand-overs and the thumbnails.
#include "scene/graphicscene.h"

#include "graphics/graphicitem.h"
#include "graphics/graphicmarkitem.h"
#include "inputlimits.h"
#include "scene/framestate.h"
#include "scene/scenerender.h"
#include "scene/syncengine.h"

#include <QPainter>
#include <QQuickItem>

#include <cmath>

namespace whiteboard {

// --- viewport ---------------------------------------------------------------

void GraphicScene::setViewport(const QRectF& r)
{
    if (r == m_geometry.viewport)
        return;
    if (!InputLimits::isFinite(r.topLeft()) || !InputLimits::isFinite(r.bottomRight())) {
        qCWarning(lcWhiteboardInput, "refused viewport: not finite");
        return;
    }
    if (!m_geometry.keepsPageInSight(r))
        return;
    {
        // The render thread reads the view state under this lock for a whole frame.
        SceneLocker locker(&m_itemsMutex);
        m_geometry.viewport = r;
    }
    emit viewportChanged();
    // Nothing on the page changed: the renderer scrolls or scales what it keeps.
    if (m_render)
        m_render->dirt().makeViewDirty();
    invalidate();
}

void GraphicScene::setSceneSize(const QSize& size)
{
    const bool zero = size.width() == 0 && size.height() == 0;
    if (zero)
        qCWarning(lcWhiteboardScene) << "scene size cant be 0, please check.";
    if (size == m_geometry.sceneSize || zero)
        return;
    {
        // Released before renderMutex below, which comes first in the lock order.
        SceneLocker locker(&m_itemsMutex);
        m_geometry.sceneSize = size;
    }
    emit sceneSizeChanged();
    if (m_geometry.hasSceneSize()) {
        SceneLocker locker(&m_renderMutex);
        m_render->updateRenderSize(m_geometry.viewBounds.size().toSize(), m_devicePixelRatio);
    }
    updateViewport(viewBoundingRect().center());
}

void GraphicScene::setDevicePixelRatio(double ratio)
{
    if (qFuzzyCompare(m_devicePixelRatio, ratio))
        return;
    // Frame sizes are whole pixels computed from it.
    if (!(ratio > 0.0 && ratio <= InputLimits::kMaxScale)) {
        qCWarning(lcWhiteboardInput, "refused device pixel ratio %g", ratio);
        return;
    }
    {
        SceneLocker locker(&m_itemsMutex);
        m_devicePixelRatio = ratio;
    }
    emit devicePixelRatioChanged();
    if (m_geometry.hasSceneSize()) {
        SceneLocker locker(&m_renderMutex);
        m_render->updateRenderSize(m_geometry.viewBounds.size().toSize(), ratio);
    }
}

void GraphicScene::setScale(double scale, const QPointF& center)
{
    if (scale <= 0.01 || qFuzzyCompare(m_geometry.scale, scale))
        return;
    // The page's size on screen is computed in whole pixels.
    if (!(scale <= InputLimits::kMaxScale)) {
        qCWarning(lcWhiteboardInput, "refused scale %g", scale);
        return;
    }
    {
        // The scale and its transforms change together for the render thread.
        SceneLocker locker(&m_itemsMutex);
        m_geometry.scale = scale;
        // Pointers keep their size on the screen: their frames follow the zoom.
        for (const QSharedPointer<GraphicItem>& mark : m_sync->marks())
            static_cast<GraphicMarkItem*>(mark.data())->place(mark->boundary().topLeft(), scale);
    }
    emit scaleChanged();
    updateViewport(center);
}

void GraphicScene::setRotation(double rotation)
{
    if (qFuzzyCompare(m_geometry.rotation, rotation))
        return;
    if (!qIsFinite(rotation)) {
        qCWarning(lcWhiteboardInput, "refused rotation: not finite");
        return;
    }
    {
        SceneLocker locker(&m_itemsMutex);
        m_geometry.rotation = rotation;
    }
    emit rotationChanged();
    invalidate(viewportRect());
}

void GraphicScene::updateViewport(const QPointF& center)
{
    if (!m_geometry.hasViewSize())
        return;
    if (m_geometry.viewport.width() == 0 && m_geometry.viewport.height() == 0) {
        // First real size: the board is centred.
        SceneLocker locker(&m_itemsMutex);
        m_geometry.viewport = m_geometry.centred();
    }
    setViewport(m_geometry.zoomedAround(center));
}

void GraphicScene::move(const QPointF& d)
{
    if (d.isNull())
        return;
    SceneLocker locker(&m_itemsMutex);
    setViewport(m_geometry.movedBy(d));
}

void GraphicScene::move(double dx, double dy)
{
    move(QPointF(dx, dy));
}

void GraphicScene::moveTo(const QPointF& point)
{
    // A slot of the host's contract that changes nothing: absolute moves go
    // through the view's moveSceneTo.
    Q_UNUSED(point);
}

void GraphicScene::moveTo(double dx, double dy)
{
    moveTo(QPointF(dx, dy));
}

void GraphicScene::onViewWidthChanged()
{
    if (!m_view)
        return;
    {
        SceneLocker locker(&m_itemsMutex);
        m_geometry.viewBounds = m_view->boundingRect();
    }
    m_render->updateRenderSize(m_geometry.viewBounds.size().toSize(), m_devicePixelRatio);
    updateViewport(m_geometry.viewBounds.center());
}

void GraphicScene::onViewHeightChanged()
{
    onViewWidthChanged();
}

// --- coordinates: the viewport's --------------------------------------------

QPointF GraphicScene::mapToScene(const QPointF& p, double f) const
{
    return m_geometry.mapToScene(p, f);
}

QPointF GraphicScene::mapFromScene(const QPointF& p) const
{
    return m_geometry.mapFromScene(p);
}

QRectF GraphicScene::mapRectToScene(const QRectF& r) const
{
    return m_geometry.mapRectToScene(r);
}

QRectF GraphicScene::mapRectFromScene(const QRectF& r) const
{
    return m_geometry.mapRectFromScene(r);
}

QPainterPath GraphicScene::mapPathToScene(const QPainterPath& path) const
{
    return m_geometry.mapPathToScene(path);
}

QPainterPath GraphicScene::mapPathFromScene(const QPainterPath& path) const
{
    return m_geometry.mapPathFromScene(path);
}

QRectF GraphicScene::viewportRect() const
{
    return m_geometry.viewportRect();
}

void GraphicScene::applySceneTransform(QPainter* painter) const
{
    m_geometry.applyTo(painter);
}

QRegion GraphicScene::pageRegion() const
{
    return m_geometry.pageRegion();
}

// --- frames -----------------------------------------------------------------

void GraphicScene::notePaintMargin(double margin)
{
    // A pen's whole width covers a miter join and the antialiased edge.
    const int wanted = int(std::ceil(margin)) + 2;
    int current = m_paintMargin;
    while (wanted > current && !m_paintMargin.compare_exchange_weak(current, wanted)) { }
}

void GraphicScene::invalidate(const QRectF& rect, SceneLayer layer)
{
    if (m_render && rect.width() > 0.0 && rect.height() > 0.0)
        m_render->dirt().makeDirtyRegion(QRegion(rect.toAlignedRect()), layer);
    // Once until the render thread begins the frame, which takes every
    // change recorded before it.
    if (m_frameAsked.exchange(true))
        return;
    emit beforeRendering();
    emit startRender();
    emit afterRendering();
}

void GraphicScene::update(const QRectF& rect)
{
    invalidate(rect, AllLayers);
}

void GraphicScene::update()
{
    invalidate();
}

void GraphicScene::updateLayer(SceneLayer layer, const QRegion& region)
{
    invalidate(region.boundingRect(), layer);
}

void GraphicScene::updateLayer(SceneLayer layer, const QPainterPath& path)
{
    invalidate(path.boundingRect(), layer);
}

QImage* GraphicScene::thumbnailImage(bool smallThumbnail)
{
    // Brings the images up to date; they are the GUI thread's, read without a lock.
    if (m_render)
        m_render->catchUpThumbnails();
    return smallThumbnail ? &m_smallThumbnail : &m_thumbnail;
}

void GraphicScene::setThumbnails(const QImage& large, const QImage& small)
{
    m_thumbnail = large;
    emit thumbnailChanged(&m_thumbnail);
    m_smallThumbnail = small;
    emit smallThumbnailChanged(&m_smallThumbnail);
}

void GraphicScene::onReady()
{
    invalidate(viewportRect());
}

void GraphicScene::onRenderFinished(const QImage& result)
{
    SceneLocker locker(&m_renderMutex);
    emit beforeSynchronizing();
    m_renderedImage = result;
    if (m_view)
        m_view->update();
    emit afterSynchronizing();
}

void GraphicScene::fillFrameState(FrameState& state) const
{
    state.geometry = m_geometry;
    state.backgroundColor = m_backgroundColor;
    state.paintMargin = paintMargin();
    state.selectedItems = m_selectedItems;
    state.focusItem = m_focusItem;
}

QImage GraphicScene::renderedImage()
{
    SceneLocker locker(&m_renderMutex);
    return m_renderedImage;
}

void GraphicScene::paint(QPainter* painter, const QRectF&, const QRectF&, int)
{
    // Never itemsMutex here: a frame may hold it for tens of milliseconds.
    SceneLocker locker(&m_renderMutex);
    if (m_renderedImage.isNull() || !m_view)
        return;
    const QRectF bounds = m_view->boundingRect();
    const QRectF source(0, 0, bounds.width() * m_devicePixelRatio, bounds.height() * m_devicePixelRatio);
    painter->drawImage(bounds, m_renderedImage, source, Qt::AutoColor);
}

} // namespace whiteboard
