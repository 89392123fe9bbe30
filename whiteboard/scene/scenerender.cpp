#include "scene/scenerender.h"

#include "graphics/graphiccontroller.h"
#include "graphics/graphicitem.h"
#include "scene/graphicindexnode.h"

#include <QDateTime>
#include <QDebug>
#include <QMutexLocker>
#include <QPainter>
#include <QQuickItem>
#include <QTimer>

#include <cmath>

namespace whiteboard {

SceneRender::SceneRender(GraphicScene* scene)
    : m_scene(scene)
{
}

SceneRender::~SceneRender()
{
    if (m_paintTimer)
        m_paintTimer->stop();
}

QList<DirtyArea> SceneRender::dirtyAreas(GraphicScene::SceneLayer layer)
{
    QMutexLocker locker(&m_dirtyMutex);
    return m_dirtyAreas.value(layer);
}

// --- dirty tracking ---------------------------------------------------------

void SceneRender::record(const DirtyArea& area, GraphicScene::SceneLayer layer)
{
    QMutexLocker locker(&m_dirtyMutex);
    if (layer == GraphicScene::AllLayers) {
        for (int key = GraphicScene::BackgroundLayer; key < GraphicScene::kLayerCount; ++key)
            m_dirtyAreas[GraphicScene::SceneLayer(key)].append(area);
    } else {
        m_dirtyAreas[layer].append(area);
    }
}

void SceneRender::makeDirty(const QRectF& rect, GraphicScene::SceneLayer layer)
{
    if (!(rect.width() > 0.0 && rect.height() > 0.0))
        return;
    DirtyArea area;
    area.kind = DirtyArea::RegionKind;
    area.region = QRegion(rect.toRect());
    record(area, layer);
}

void SceneRender::makeDirtyPath(const QPainterPath& path, GraphicScene::SceneLayer layer)
{
    if (path.isEmpty())
        return;
    DirtyArea area;
    area.kind = DirtyArea::PathKind;
    area.path = path;
    record(area, layer);
}

void SceneRender::makeDirtyRegion(const QRegion& region, GraphicScene::SceneLayer layer)
{
    if (region.isEmpty())
        return;
    DirtyArea area;
    area.kind = DirtyArea::RegionKind;
    area.region = region;
    record(area, layer);
}

// --- life -------------------------------------------------------------------

void SceneRender::onInitScene()
{
    QMutexLocker locker(&m_scene->m_itemsMutex);
    const QSize size = m_scene->m_sceneSize;
    m_sceneImage = QImage(GraphicScene::roundPixel(size.width() * m_devicePixelRatio), GraphicScene::roundPixel(size.height() * m_devicePixelRatio),
                          QImage::Format_ARGB32);
    m_sceneImage.setDevicePixelRatio(m_devicePixelRatio);
    QPainter painter(&m_sceneImage);
    m_initialized = true;
    emit ready();
}

void SceneRender::quit()
{
    if (m_paintTimer)
        m_paintTimer->stop();
    deleteLater();
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
    QMutexLocker dirtyLocker(&m_dirtyMutex);
    QMutexLocker itemsLocker(&m_scene->m_itemsMutex);
    if (size.width() <= 0 || size.height() <= 0)
        return;
    const QSize pixels(GraphicScene::roundPixel(size.width() * ratio), GraphicScene::roundPixel(size.height() * ratio));
    if (ratio == m_devicePixelRatio && m_frameImage.size() == pixels)
        return;
    qDebug() << "update render size" << size;
    m_devicePixelRatio = ratio;
    m_baseImage = QImage(pixels, QImage::Format_ARGB32_Premultiplied);
    m_baseImage.setDevicePixelRatio(ratio);
    m_baseImage.fill(Qt::transparent);
    m_frameImage = resizeImage(m_frameImage, size, ratio, Qt::NoBrush);
    updateBorderRegion();
}

void SceneRender::updateBorderRegion()
{
    QMutexLocker locker(&m_scene->m_itemsMutex);
    const QRectF viewport = m_scene->m_viewport;
    const QPointF tl = viewport.topLeft();
    const QPointF br = viewport.bottomRight();
    const QRectF viewRect = m_scene->viewBoundingRect();
    QRectF rect;
    if (tl.x() >= 0.0 && tl.y() >= 0.0 && br.x() <= 1.0 && br.y() <= 1.0) {
        rect = viewRect;
    } else {
        // The page is smaller than the view, or shifted.
        rect = QRectF(-tl.x() / viewport.width() * viewRect.width(), -tl.y() / viewport.height() * viewRect.height(),
                      GraphicScene::roundPixel(m_scene->m_sceneSize.width() * m_scene->m_scale),
                      GraphicScene::roundPixel(m_scene->m_sceneSize.height() * m_scene->m_scale));
    }
    m_borderRegion = QRegion(rect.toRect());
}

// --- frames -----------------------------------------------------------------

void SceneRender::paint()
{
    if (!m_initialized)
        return;
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    if (!m_paintTimer) {
        m_paintTimer = new QTimer(this);
        m_paintTimer->setInterval(kFrameInterval);
        m_paintTimer->setSingleShot(true);
        connect(m_paintTimer, &QTimer::timeout, this, &SceneRender::paint);
    }
    if (now - m_lastPaintTime < kFrameInterval) {
        // Too early: one timer arm, and the trailing request is never lost.
        if (!m_paintTimer->isActive())
            m_paintTimer->start();
        return;
    }
    m_lastPaintTime = now;

    QList<DirtyArea> lists[GraphicScene::kLayerCount];
    {
        QMutexLocker locker(&m_dirtyMutex);
        for (int key = 0; key < GraphicScene::kLayerCount; ++key)
            lists[key] = m_dirtyAreas.take(GraphicScene::SceneLayer(key));
        for (int key = 0; key < GraphicScene::kLayerCount; ++key)
            m_dirtyAreas.insert(GraphicScene::SceneLayer(key), QList<DirtyArea>());
    }
    bool dirty = false;
    for (int key = 0; key < GraphicScene::kLayerCount && !dirty; ++key)
        dirty = std::any_of(lists[key].cbegin(), lists[key].cend(), [](const DirtyArea& area) { return area.isVisible(); });
    if (!dirty)
        return;

    // dirtyMutex is released before we wait here: the GUI thread may hold
    // itemsMutex while it records dirty areas.
    if (!m_scene->m_itemsMutex.tryLock(-1))
        return;
    composeFrame();
    m_scene->m_itemsMutex.unlock();
}

void SceneRender::composeFrame()
{
    m_frameImage = m_baseImage;
    if (m_frameImage.isNull())
        return;
    GraphicScene* scene = m_scene;
    if (scene->m_backgroundColor.isValid())
        m_frameImage.fill(scene->m_backgroundColor);

    QPainter painter(&m_frameImage);
    const QRectF viewRect = scene->viewBoundingRect();
    painter.save();
    painter.setClipRegion(m_borderRegion, Qt::ReplaceClip);
    scene->applySceneTransform(&painter);

    const bool complete = paintPage(&painter, viewRect);
    painter.restore();
    if (!complete)
        return;

    // Darken what lies outside the page.
    const QRegion surround = QRegion(viewRect.toRect()) - m_borderRegion;
    for (const QRect& rect : surround) {
        painter.fillRect(rect, QColor("#90000000"));
        if (quitRequested())
            return;
    }

    const GraphicItemList pageItems = scene->items(GraphicScene::ItemLayer, 1);
    if (!paintThumbnail(scene->m_thumbnail, scene->m_thumbnailSize, pageItems))
        return;
    emit scene->thumbnailChanged(&scene->m_thumbnail);
    if (!paintThumbnail(scene->m_smallThumbnail, scene->m_smallThumbnailSize, pageItems))
        return;
    emit scene->smallThumbnailChanged(&scene->m_smallThumbnail);
    ++m_composedFrames;

    // Emitted while the painter is open, so the queued copy is a deep one.
    emit finished(m_frameImage);
}

bool SceneRender::paintPage(QPainter* painter, const QRectF& viewRect)
{
    paintVisibleItems(painter, viewRect);
    if (quitRequested())
        return false;

    // Control points lie above all layers and are clipped to the page.
    const GraphicScene* scene = m_scene;
    if (!scene->m_selectedItems.isEmpty()) {
        const GraphicItemList selected = scene->m_selectedItems;
        for (const QSharedPointer<GraphicItem>& item : selected) {
            if (quitRequested())
                return false;
            if (GraphicController* controller = item->controller())
                controller->paint(painter);
        }
    } else if (const QSharedPointer<GraphicItem> focus = scene->m_focusItem) {
        if (GraphicController* controller = focus->controller())
            controller->paint(painter);
    }
    return true;
}

bool SceneRender::paintThumbnail(QImage& image, const QSize& size, const GraphicItemList& items)
{
    image = QImage(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    const QSize page = m_scene->m_sceneSize;
    painter.scale(double(image.width()) / page.width(), double(image.height()) / page.height());
    painter.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing | QPainter::SmoothPixmapTransform);
    paintItems(&painter, items);
    return !quitRequested();
}

void SceneRender::paintVisibleItems(QPainter* painter, const QRectF& viewRect)
{
    GraphicItemList all;
    for (int layer = GraphicScene::BackgroundLayer; layer < GraphicScene::kLayerCount; ++layer) {
        QMutexLocker locker(&m_scene->m_itemsMutex);
        GraphicIndexNode* root = m_scene->m_layerIndexes.value(GraphicScene::SceneLayer(layer));
        GraphicItemList found = root->query(m_scene->mapRectToScene(viewRect));
        GraphicScene::sortItems(found, 1);
        all.append(found);
    }
    paintItems(painter, all);
}

void SceneRender::paintAllLayers(QPainter* painter)
{
    GraphicItemList all;
    for (int layer = GraphicScene::BackgroundLayer; layer < GraphicScene::kLayerCount; ++layer)
        all.append(m_scene->items(GraphicScene::SceneLayer(layer), 1));
    paintItems(painter, all);
}

void SceneRender::paintItems(QPainter* painter, const GraphicItemList& items)
{
    // Sorting makes the repeats of an item found in several nodes adjacent.
    QString previous;
    bool hasPrevious = false;
    for (const QSharedPointer<GraphicItem>& entry : items) {
        if (quitRequested())
            return;
        const QSharedPointer<GraphicItem> item = entry;
        if (hasPrevious && item && previous == item->gid())
            continue;
        if (item)
            item->paint(painter, nullptr);
        previous = item ? item->gid() : QString();
        hasPrevious = bool(item);
    }
}

void SceneRender::clearPath(QImage* image, const QPainterPath& path, const QColor& color)
{
    QPainter painter(image);
    painter.setCompositionMode(QPainter::CompositionMode_Clear);
    painter.fillPath(path, QBrush(color, Qt::SolidPattern));
}

void SceneRender::setRegionPixels(QImage* image, const QRegion& region, const QColor& color) const
{
    for (const QRect& rect : region) {
        const QRect scaled = QRect(GraphicScene::roundPixel(rect.x() * m_devicePixelRatio), GraphicScene::roundPixel(rect.y() * m_devicePixelRatio),
                                   GraphicScene::roundPixel(rect.width() * m_devicePixelRatio), GraphicScene::roundPixel(rect.height() * m_devicePixelRatio))
                                 .intersected(image->rect());
        for (int y = scaled.top(); y <= scaled.bottom(); ++y) {
            for (int x = scaled.left(); x <= scaled.right(); ++x)
                image->setPixelColor(x, y, color);
        }
    }
}

void SceneRender::fillDirtyArea(QImage* image, const DirtyArea& area, const QBrush& brush)
{
    if (area.kind == DirtyArea::PathKind) {
        QPainterPath bounds;
        bounds.addRect(image->rect());
        QPainter painter(image);
        painter.fillPath(bounds.intersected(area.path), brush);
        return;
    }
    for (const QRect& rect : area.region) {
        const QRect clipped = rect.intersected(image->rect());
        if (clipped.isEmpty())
            continue;
        QPainter painter(image);
        painter.fillRect(clipped, brush);
    }
}

} // namespace whiteboard
