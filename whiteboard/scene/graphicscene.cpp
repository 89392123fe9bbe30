#include "scene/graphicscene.h"

#include "graphics/abstractgraphicshapeitem.h"
#include "graphics/graphiccontroller.h"
#include "graphics/graphicimagecodec.h"
#include "graphics/graphicitem.h"
#include "graphics/graphicmarkitem.h"
#include "inputlimits.h"
#include "scene/framestate.h"
#include "scene/layerindex.h"
#include "scene/scenerender.h"
#include "util.h"
#include "tools/toolcontroller.h"

#include "proto/whiteboard.pb.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QJSEngine>
#include <QMetaObject>
#include <QMutexLocker>
#include <QPainter>
#include <QQuickItem>
#include <QVarLengthArray>

#include <algorithm>
#include <cmath>
#include <functional>

Q_LOGGING_CATEGORY(lcWhiteboardScene, "whiteboard.scene", QtInfoMsg)

namespace whiteboard {

namespace {

// The queries take their mode as a plain int from QML: only the four
// selection modes may become a Qt::ItemSelectionMode.
bool isSelectionMode(int mode)
{
    return mode >= Qt::ContainsItemShape && mode <= Qt::IntersectsItemBoundingRect;
}

// The queries' order as QML gives it: 1 is oldest first (unlike
// Qt::SortOrder's numbering), anything else newest first.
Qt::SortOrder sortOrder(int order)
{
    return order == 1 ? Qt::AscendingOrder : Qt::DescendingOrder;
}

} // namespace

GraphicScene::GraphicScene(QQuickItem* view)
    : QObject(view)
    , m_view(view)
    , m_tools(std::make_unique<ToolController>(this))
{
    if (view) {
        connect(view, SIGNAL(widthChanged()), this, SLOT(onViewWidthChanged()));
        connect(view, SIGNAL(heightChanged()), this, SLOT(onViewHeightChanged()));
    }

    for (int layer = BackgroundLayer; layer < kLayerCount; ++layer)
        m_layerIndexes.insert(SceneLayer(layer), new LayerIndex(QRectF(0, 0, kIndexExtent, kIndexExtent)));

    m_imageCodec = new GraphicImageCodec(this);
    m_render = new SceneRender(this);
    m_renderThread.setObjectName(QStringLiteral("graphic_render_thread"));
    m_render->moveToThread(&m_renderThread);

    connect(this, &GraphicScene::initScene, m_render, &SceneRender::onInitScene);
    connect(this, &GraphicScene::startRender, m_render, &SceneRender::paint);
    connect(this, &GraphicScene::viewportChanged, m_render, &SceneRender::updateBorderRegion);
    connect(m_render, &SceneRender::ready, this, &GraphicScene::onReady);
    connect(m_render, &SceneRender::finished, this, &GraphicScene::onRenderFinished);
    connect(&m_renderThread, &QThread::finished, m_render, &SceneRender::quit);

    m_renderThread.start(QThread::InheritPriority);

    qRegisterMetaType<im::whiteboard::TransferData*>("im::whiteboard::TransferData*");
}

GraphicScene::~GraphicScene()
{
    // Stop first: a running frame ends at its next test and releases
    // itemsMutex, under which frames read the view.
    m_render->requestQuit();
    {
        SceneLocker locker(&m_itemsMutex);
        m_view = nullptr;
    }
    SceneRender* render = m_render;
    m_render = nullptr;
    m_renderThread.quit();
    if (!m_renderThread.wait(3000)) {
        m_renderThread.terminate();
        m_renderThread.wait();
    }
    // The worker's last act on its thread was to take and release itemsMutex
    // (SceneRender::quit): taking it here orders all it did before what is
    // torn down below, which Qt's own wait does not show to ThreadSanitizer.
    SceneLocker locker(&m_itemsMutex);
    delete render;

    // No decoded picture may come in from here on.
    delete m_imageCodec;
    m_imageCodec = nullptr;
    qDeleteAll(m_imageCache);
    m_imageCache.clear();
    for (int layer = BackgroundLayer; layer < kLayerCount; ++layer)
        delete m_layerIndexes.take(SceneLayer(layer));
}

QQuickItem* GraphicScene::view() const
{
    return m_view;
}

void GraphicScene::init()
{
    SceneLocker locker(&m_itemsMutex);
    emit initScene();
}

QSizeF GraphicScene::viewSize() const
{
    return m_view ? m_view->size() : QSizeF();
}

QRectF GraphicScene::viewBoundingRect() const
{
    return m_view ? m_view->boundingRect() : QRectF();
}

// --- properties -------------------------------------------------------------

void GraphicScene::setViewport(const QRectF& r)
{
    if (r == m_viewport)
        return;
    if (!InputLimits::isFinite(r.topLeft()) || !InputLimits::isFinite(r.bottomRight())) {
        qCWarning(lcWhiteboardInput, "refused viewport: not finite");
        return;
    }
    const bool insidePage = r.left() >= 0.0 && r.top() >= 0.0 && r.right() <= 1.0 && r.bottom() <= 1.0;
    if (!insidePage) {
        // The board may leave the window only as far as 100 view pixels stay
        // in sight, or all of it when it shows smaller than that. Measured
        // with the new viewport: a zoom changes its size in the same step.
        const QSizeF vs = viewSize();
        const QRectF onScreen(-r.x() / r.width() * vs.width(), -r.y() / r.height() * vs.height(),
                              GraphicScene::roundPixel(m_sceneSize.width() * m_scale), GraphicScene::roundPixel(m_sceneSize.height() * m_scale));
        const QRectF visible = onScreen.intersected(viewBoundingRect());
        if (visible.width() < std::min(100.0, onScreen.width()) || visible.height() < std::min(100.0, onScreen.height()))
            return;
    }
    {
        // The render thread reads the view state under this lock for a whole frame.
        SceneLocker locker(&m_itemsMutex);
        m_viewport = r;
    }
    emit viewportChanged();
    // Nothing on the page changed: the renderer scrolls or scales what it keeps.
    if (m_render)
        m_render->makeViewDirty();
    requestFrame();
}

void GraphicScene::setBackgroundBrush(const QBrush& brush)
{
    if (m_backgroundBrush == brush)
        return;
    {
        SceneLocker locker(&m_itemsMutex);
        m_backgroundBrush = brush;
    }
    emit backgroundBrushChanged();
}

QSharedPointer<GraphicItem> GraphicScene::focusItem()
{
    SceneLocker locker(&m_itemsMutex);
    return m_focusItem;
}

GraphicItem* GraphicScene::focusItemPointer()
{
    return focusItem().data();
}

void GraphicScene::setFocusItem(const QSharedPointer<GraphicItem>& item)
{
    SceneLocker locker(&m_itemsMutex);
    const QString oldGid = m_focusItem ? m_focusItem->gid() : QString();
    const QString newGid = item ? item->gid() : QString();
    if (bool(m_focusItem) == bool(item) && oldGid == newGid)
        return;
    const QRectF handles = handlesArea();
    if (m_focusItem)
        m_focusItem->setActiveFocus(false);
    m_focusItem = item;
    if (m_focusItem) {
        m_focusItem->setActiveFocus(true);
        qCDebug(lcWhiteboardScene) << "focus item:" << m_focusItem->gid();
    }
    repaintHandles(handles);
    emit focusItemChanged();
}

void GraphicScene::setItemsBoundingRect(const QRectF& rect)
{
    if (m_itemsBoundingRect == rect)
        return;
    m_itemsBoundingRect = rect;
    emit itemsBoundingRectChanged();
}

void GraphicScene::setSceneSize(const QSize& size)
{
    const bool zero = size.width() == 0 && size.height() == 0;
    if (zero)
        qCWarning(lcWhiteboardScene) << "scene size cant be 0, please check.";
    if (size == m_sceneSize || zero)
        return;
    {
        // Released before renderMutex below, which comes first in the lock order.
        SceneLocker locker(&m_itemsMutex);
        m_sceneSize = size;
    }
    emit sceneSizeChanged();
    if (m_sceneSize.width() >= 1 && m_sceneSize.height() >= 1) {
        SceneLocker locker(&m_renderMutex);
        m_render->updateRenderSize(viewSize().toSize(), m_devicePixelRatio);
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
    if (m_sceneSize.width() >= 1 && m_sceneSize.height() >= 1) {
        SceneLocker locker(&m_renderMutex);
        m_render->updateRenderSize(viewSize().toSize(), ratio);
    }
}

void GraphicScene::setScale(double scale, const QPointF& center)
{
    if (scale <= 0.01 || qFuzzyCompare(m_scale, scale))
        return;
    // The page's size on screen is computed in whole pixels.
    if (!(scale <= InputLimits::kMaxScale)) {
        qCWarning(lcWhiteboardInput, "refused scale %g", scale);
        return;
    }
    {
        // The scale and its transforms change together for the render thread.
        SceneLocker locker(&m_itemsMutex);
        m_scale = scale;
        m_viewToSceneTransform = QTransform::fromScale(1.0 / scale, 1.0 / scale);
        m_sceneToViewTransform = QTransform::fromScale(scale, scale);
        // Pointers keep their size on the screen: their frames follow the zoom.
        for (const QSharedPointer<GraphicItem>& mark : std::as_const(m_markItems))
            static_cast<GraphicMarkItem*>(mark.data())->place(mark->boundary().topLeft(), scale);
    }
    emit scaleChanged();
    updateViewport(center);
}

void GraphicScene::setRotation(double rotation)
{
    if (qFuzzyCompare(m_rotation, rotation))
        return;
    if (!qIsFinite(rotation)) {
        qCWarning(lcWhiteboardInput, "refused rotation: not finite");
        return;
    }
    {
        SceneLocker locker(&m_itemsMutex);
        m_rotation = rotation;
    }
    emit rotationChanged();
    update(viewportRect());
}

void GraphicScene::setBackgroundColor(const QColor& color)
{
    if (m_backgroundColor == color)
        return;
    {
        SceneLocker locker(&m_itemsMutex);
        m_backgroundColor = color;
    }
    // Any visible entry triggers the same full frame.
    update(QRectF(QRect(0, 0, 1, 1)));
    emit backgroundColorChanged();
}

void GraphicScene::setFillShape(bool fillShape)
{
    if (m_fillShape == fillShape)
        return;
    m_fillShape = fillShape;
    emit fillShapeChanged();
}

void GraphicScene::setImagePath(const QString& path)
{
    if (m_imagePath == path)
        return;
    m_imagePath = path;
    // Read ahead, so that placing the picture need not wait for the file.
    if (!path.isEmpty())
        m_imageCodec->preload(Util::instance().toLocalFile(path));
    emit imagePathChanged();
}

void GraphicScene::setDisableEdit(bool disableEdit)
{
    if (m_disableEdit == disableEdit)
        return;
    m_disableEdit = disableEdit;
    emit disableEditChanged();
}

void GraphicScene::setDisableDrag(bool disableDrag)
{
    if (m_disableDrag == disableDrag)
        return;
    m_disableDrag = disableDrag;
    emit disableDragChanged();
}

// --- viewport ---------------------------------------------------------------

void GraphicScene::updateViewport(const QPointF& center)
{
    const QSizeF vs = viewSize();
    if (vs.width() <= 0 || vs.height() <= 0)
        return;
    const double W = m_sceneSize.width();
    const double H = m_sceneSize.height();
    if (m_viewport.width() == 0 && m_viewport.height() == 0) {
        // First real size: the board is centred.
        const double w = vs.width() / W / m_scale;
        const double h = vs.height() / H / m_scale;
        SceneLocker locker(&m_itemsMutex);
        m_viewport = QRectF(0.5 - w / 2, 0.5 - h / 2, w, h);
    }
    const QRectF viewRect = viewBoundingRect();
    const QRectF visible = mapRectToScene(viewRect);
    const QPointF c0 = visible.center();
    const QPointF p = mapToScene(center);

    QRectF next = m_viewToSceneTransform.mapRect(viewRect);
    const QPointF q = m_viewToSceneTransform.map(center);
    const QPointF c1 = next.center();
    next.moveCenter(c0 - ((q - c1) - (p - c0)));
    setViewport(QRectF(next.x() / W, next.y() / H, next.width() / W, next.height() / H));
}

void GraphicScene::move(const QPointF& d)
{
    if (d.isNull())
        return;
    SceneLocker locker(&m_itemsMutex);
    const QSizeF vs = viewSize();
    QRectF next = m_viewport;
    next.moveTopLeft(QPointF(m_viewport.x() + d.x() / vs.width() * m_viewport.width(),
                             m_viewport.y() + d.y() / vs.height() * m_viewport.height()));
    setViewport(next);
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

// --- coordinates ------------------------------------------------------------

QPointF GraphicScene::mapToScene(const QPointF& p, double f) const
{
    const QSizeF vs = viewSize();
    if (vs.width() <= 0 || vs.height() <= 0)
        return QPointF();
    double x = m_viewport.x(), y = m_viewport.y(), w = m_viewport.width(), h = m_viewport.height();
    if (!qFuzzyCompare(f, 1.0)) {
        x *= f;
        y *= f;
        w *= f;
        h *= f;
    }
    return QPointF((p.x() / vs.width() * w + x) * m_sceneSize.width(), (p.y() / vs.height() * h + y) * m_sceneSize.height());
}

QPointF GraphicScene::mapFromScene(const QPointF& p) const
{
    if (m_sceneSize.width() < 1 || m_sceneSize.height() < 1)
        return QPointF();
    const QSizeF vs = viewSize();
    return QPointF((p.x() / m_sceneSize.width() - m_viewport.x()) / m_viewport.width() * vs.width(),
                   (p.y() / m_sceneSize.height() - m_viewport.y()) / m_viewport.height() * vs.height());
}

QRectF GraphicScene::mapRectToScene(const QRectF& r) const
{
    const QSizeF vs = viewSize();
    if (vs.width() <= 0 || vs.height() <= 0)
        return QRectF(0, 0, 0, 0);
    return QRectF(mapToScene(r.topLeft()), mapToScene(r.bottomRight()));
}

QRectF GraphicScene::mapRectFromScene(const QRectF& r) const
{
    if (m_sceneSize.width() < 1 || m_sceneSize.height() < 1)
        return QRectF(0, 0, 0, 0);
    return QRectF(mapFromScene(r.topLeft()), mapFromScene(r.bottomRight()));
}

namespace {

QPainterPath mapPathThrough(const QPainterPath& path, const QRectF& target)
{
    const QRectF b = path.boundingRect();
    QTransform transform;
    transform.translate(target.x() - b.x(), target.y() - b.y());
    transform.scale(b.width() != 0 ? target.width() / b.width() : 1.0, b.height() != 0 ? target.height() / b.height() : 1.0);
    return transform.map(path);
}

} // namespace

QPainterPath GraphicScene::mapPathToScene(const QPainterPath& path) const
{
    const QSizeF vs = viewSize();
    if (vs.width() <= 0 || vs.height() <= 0)
        return QPainterPath();
    return mapPathThrough(path, mapRectToScene(path.boundingRect()));
}

QPainterPath GraphicScene::mapPathFromScene(const QPainterPath& path) const
{
    if (m_sceneSize.width() < 1 || m_sceneSize.height() < 1)
        return QPainterPath();
    return mapPathThrough(path, mapRectFromScene(path.boundingRect()));
}

QRectF GraphicScene::viewportRect() const
{
    const double W = m_sceneSize.width();
    const double H = m_sceneSize.height();
    return QRectF(QPointF(m_viewport.x() * W, m_viewport.y() * H),
                  QPointF((m_viewport.x() + m_viewport.width()) * W, (m_viewport.y() + m_viewport.height()) * H));
}

void GraphicScene::applySceneTransform(QPainter* painter) const
{
    painter->setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing | QPainter::SmoothPixmapTransform);
    painter->scale(m_scale, m_scale);
    painter->translate(-m_viewport.x() * m_sceneSize.width(), -m_viewport.y() * m_sceneSize.height());
    painter->rotate(m_rotation);
}

// --- items ------------------------------------------------------------------

QSharedPointer<GraphicItem> GraphicScene::makeShared(GraphicItem* item)
{
    // Items belong to the scene; QML must never collect one.
    QJSEngine::setObjectOwnership(item, QJSEngine::CppOwnership);
    return QSharedPointer<GraphicItem>(item, &QObject::deleteLater);
}

QSharedPointer<GraphicItem> GraphicScene::addItem(SceneLayer layer, GraphicItem* item)
{
    QSharedPointer<GraphicItem> shared = makeShared(item);
    addItem(layer, shared);
    return shared;
}

void GraphicScene::addItem(SceneLayer layer, const QSharedPointer<GraphicItem>& item)
{
    addItems(layer, GraphicItemList { item });
}

// Adding and removing dirty the items' places, without asking for a frame:
// frames repaint only what is dirty.
void GraphicScene::addItems(SceneLayer layer, const GraphicItemList& items)
{
    SceneLocker locker(&m_itemsMutex);
    LayerIndex* index = m_layerIndexes.value(layer);
    if (!index)
        return;
    QRectF area;
    for (const QSharedPointer<GraphicItem>& item : items) {
        if (layer == ItemLayer) {
            // One item per gid: an item already in holds its place, another
            // object of the gid gives way.
            GidRecord& record = m_gids[item->gid()];
            const QSharedPointer<GraphicItem> held = record.live ? record.item.toStrongRef() : QSharedPointer<GraphicItem>();
            if (held == item)
                continue;
            if (held) {
                index->remove(held.data());
                area = area.united(held->boundary());
                held->setFiledIn(layer, false);
            }
            record.item = item;
            record.live = true;
        }
        index->insert(item);
        area = area.united(item->boundary());
        item->setFiledIn(layer, true);
        if (auto* shape = qobject_cast<AbstractGraphicShapeItem*>(item.data()))
            m_hitReach = std::max(m_hitReach, shape->hitTolerance());
        // Pasted, received and restored items come with handles that were
        // never placed: place them on entry.
        if (GraphicController* controller = item->existingController())
            controller->update();
    }
    if (m_render)
        m_render->makeDirtySilently(area, layer);
}

void GraphicScene::removeItem(SceneLayer layer, const QSharedPointer<GraphicItem>& item)
{
    removeItems(layer, GraphicItemList { item });
}

void GraphicScene::removeItems(SceneLayer layer, const GraphicItemList& items)
{
    SceneLocker locker(&m_itemsMutex);
    LayerIndex* index = m_layerIndexes.value(layer);
    if (!index)
        return;
    QRectF area;
    for (const QSharedPointer<GraphicItem>& item : items) {
        index->remove(item.data());
        area = area.united(item->boundary());
        item->setFiledIn(layer, false);
        if (layer != ItemLayer)
            continue;
        const auto record = m_gids.find(item->gid());
        if (record != m_gids.end() && record->item == item)
            record->live = false;
    }
    if (m_render)
        m_render->makeDirtySilently(area, layer);
}

void GraphicScene::itemGeometryChanged(GraphicItem* item)
{
    SceneLocker locker(&m_itemsMutex);
    const QSharedPointer<GraphicItem> shared = item->sharedFromThis();
    if (!shared)
        return;
    if (auto* shape = qobject_cast<AbstractGraphicShapeItem*>(item))
        m_hitReach = std::max(m_hitReach, shape->hitTolerance());
    for (int layer = BackgroundLayer; layer < kLayerCount; ++layer) {
        if (item->filedIn(layer))
            updateItemIndex(SceneLayer(layer), shared);
    }
}

void GraphicScene::updateItemIndex(SceneLayer layer, const QSharedPointer<GraphicItem>& item)
{
    SceneLocker locker(&m_itemsMutex);
    LayerIndex* index = m_layerIndexes.value(layer);
    if (!index || !item)
        return;
    // The place it was filed at and the new one are repainted with the next frame.
    QRectF area = item->boundary();
    if (index->contains(item.data())) {
        const QRectF filed = index->filedBoundary(item.data());
        const QRectF now = item->boundary().normalized();
        area = area.united(filed);
        // Callers after a change find it filed already: the item told the
        // index as its boundary changed. Compared exactly, as queries test
        // the filed copy (QRectF's == is fuzzy).
        if (filed.x() != now.x() || filed.y() != now.y() || filed.width() != now.width() || filed.height() != now.height())
            index->refile(item.data());
    } else {
        index->insert(item);
        item->setFiledIn(layer, true);
    }
    if (m_render)
        m_render->makeDirtySilently(area, layer);
}

int GraphicScene::itemCount(SceneLayer layer)
{
    SceneLocker locker(&m_itemsMutex);
    LayerIndex* index = m_layerIndexes.value(layer);
    return index ? index->count() : 0;
}

GraphicItemList GraphicScene::items(SceneLayer layer, int order)
{
    return itemsWhere(layer, QRectF(0, 0, m_sceneSize.width(), m_sceneSize.height()), sortOrder(order), nullptr);
}

GraphicItemList GraphicScene::itemsInView(SceneLayer layer, const QRectF& viewRect, int order)
{
    return itemsWhere(layer, mapRectToScene(viewRect), sortOrder(order), nullptr);
}

GraphicItemList GraphicScene::itemsWhere(SceneLayer layer, const QRectF& area, Qt::SortOrder order,
                                         const std::function<bool(const GraphicItem&)>& keep)
{
    SceneLocker locker(&m_itemsMutex);
    LayerIndex* index = m_layerIndexes.value(layer);
    return index ? index->query(area, order, keep) : GraphicItemList();
}

GraphicItemList GraphicScene::itemsByPath(SceneLayer layer, const QPainterPath& path, int mode, int order, const QTransform& transform)
{
    if (!isSelectionMode(mode))
        return {};
    const auto selection = Qt::ItemSelectionMode(mode);
    const QPainterPath mapped = transform.map(path);
    return itemsWhere(layer, mapped.boundingRect(), sortOrder(order), [&](const GraphicItem& item) {
        return item.collidesWithPath(mapped, selection);
    });
}

QRectF GraphicScene::pointQueryRect(const QPointF& p) const
{
    return QRectF(p.x() - m_hitReach, p.y() - m_hitReach, 2 * m_hitReach, 2 * m_hitReach);
}

GraphicItemList GraphicScene::itemsByPoint(SceneLayer layer, const QPointF& point, int mode, int order, const QTransform& transform)
{
    if (!isSelectionMode(mode))
        return {};
    const auto selection = Qt::ItemSelectionMode(mode);
    const QPointF mapped = transform.map(point);
    return itemsWhere(layer, pointQueryRect(mapped), sortOrder(order), [&](const GraphicItem& item) {
        return item.collidesWithPoint(mapped, selection);
    });
}

GraphicItemList GraphicScene::itemsByRect(SceneLayer layer, const QRectF& rect, int mode, int order, const QTransform& transform)
{
    if (!isSelectionMode(mode))
        return {};
    const auto selection = Qt::ItemSelectionMode(mode);
    const QRectF mapped = transform.mapRect(rect);
    return itemsWhere(layer, mapped, sortOrder(order), [&](const GraphicItem& item) {
        return item.collidesWithRect(mapped, selection);
    });
}

QSharedPointer<GraphicItem> GraphicScene::itemAt(const QPointF& viewPos, int order, int mode, const QTransform& transform)
{
    if (!isSelectionMode(mode))
        return {};
    const auto selection = Qt::ItemSelectionMode(mode);
    const Qt::SortOrder sort = sortOrder(order);
    SceneLocker locker(&m_itemsMutex);
    const QPointF p = transform.map(mapToScene(viewPos));
    // The candidates stay in the index while we look: only the winner is shared.
    QVarLengthArray<const QSharedPointer<GraphicItem>*, 32> candidates;
    m_layerIndexes.value(ItemLayer)->visit(pointQueryRect(p), [&candidates](const GraphicIndexNode::Entry& entry) {
        candidates.append(&entry.item);
    });
    const auto first = [sort](const QSharedPointer<GraphicItem>* a, const QSharedPointer<GraphicItem>* b) {
        return sort == Qt::AscendingOrder ? LayerIndex::older(**a, **b) : LayerIndex::older(**b, **a);
    };
    // Stable either way; the few candidates of most points need no buffer.
    if (candidates.size() > 16) {
        std::stable_sort(candidates.begin(), candidates.end(), first);
    } else {
        for (auto next = candidates.begin(); next != candidates.end(); ++next)
            std::rotate(std::upper_bound(candidates.begin(), next, *next, first), next, next + 1);
    }
    for (const QSharedPointer<GraphicItem>* item : std::as_const(candidates)) {
        if ((*item)->collidesWithPoint(p, selection))
            return *item;
    }
    return {};
}

QSharedPointer<GraphicItem> GraphicScene::itemByGid(const QString& gid)
{
    SceneLocker locker(&m_itemsMutex);
    const auto record = m_gids.constFind(gid);
    if (record == m_gids.constEnd() || !record->live)
        return {};
    return record->item.toStrongRef();
}

void GraphicScene::deselectItem(const QSharedPointer<GraphicItem>& item)
{
    SceneLocker locker(&m_itemsMutex);
    const QRectF handles = handlesArea();
    const QString gid = item->gid();
    m_selectedItems.removeIf([&gid](const QSharedPointer<GraphicItem>& selected) { return selected->gid() == gid; });
    repaintHandles(handles);
}

// Every selected item drops its veil too: one left selected outside the
// list keeps its veil, and no later click reaches it to take it off.
void GraphicScene::clearSelection()
{
    deselectAll();
}

QRectF GraphicScene::handlesArea()
{
    SceneLocker locker(&m_itemsMutex);
    GraphicItemList shown = m_selectedItems;
    if (shown.isEmpty() && m_focusItem)
        shown.append(m_focusItem);
    QRectF area;
    for (const QSharedPointer<GraphicItem>& item : std::as_const(shown)) {
        GraphicController* controller = item->controller();
        if (!controller)
            continue;
        area = area.united(controller->boundingRect());
        // Handles keep their size on screen, so they reach further in scene
        // units when zoomed out; one more unit for their outline.
        const QList<GraphicControlPoint> points = controller->controlPoints();
        for (const GraphicControlPoint& point : points) {
            const double h = point.size * 0.5 / m_scale + 1.0;
            area = area.united(QRectF(point.position - QPointF(h, h), point.position + QPointF(h, h)));
        }
    }
    return area;
}

void GraphicScene::repaintHandles(const QRectF& before)
{
    const QRectF area = before.united(handlesArea());
    if (area.width() > 0 && area.height() > 0)
        updateLayer(ItemLayer, QRegion(area.toAlignedRect()));
}

// --- image cache ------------------------------------------------------------

QString GraphicScene::imageKeyFor(const QImage& image)
{
    // A quick fingerprint: size and the start of the first scan line. The
    // values are cut to a byte each, not encoded.
    QByteArray bytes;
    bytes.append(char(image.width()));
    bytes.append(char(image.height()));
    bytes.append(char(image.bytesPerLine()));
    bytes.append(reinterpret_cast<const char*>(image.constBits()), std::min<qsizetype>(image.bytesPerLine(), 100));
    return QString(QCryptographicHash::hash(bytes, QCryptographicHash::Sha1));
}

QString GraphicScene::addImage(const QImage& image)
{
    const QString key = imageKeyFor(image);
    SceneLocker locker(&m_itemsMutex);
    if (!m_imageCache.contains(key))
        m_imageCache.insert(key, new QImage(image));
    return key;
}

const QImage* GraphicScene::imageByKey(const QString& key) const
{
    return m_imageCache.value(key, nullptr);
}

// --- rendering --------------------------------------------------------------

void GraphicScene::notePaintMargin(double margin)
{
    // A pen's whole width covers a miter join and the antialiased edge.
    const int wanted = int(std::ceil(margin)) + 2;
    int current = m_paintMargin;
    while (wanted > current && !m_paintMargin.compare_exchange_weak(current, wanted)) { }
}

void GraphicScene::requestFrame()
{
    if (m_framesDeferred > 0) {
        m_frameRequested = true;
        return;
    }
    emit beforeRendering();
    emit startRender();
    emit afterRendering();
}

void GraphicScene::makeDirty(const QRectF& rect, SceneLayer layer)
{
    if (m_render)
        m_render->makeDirty(rect, layer);
}

void GraphicScene::update(const QRectF& rect)
{
    makeDirty(rect, AllLayers);
    requestFrame();
}

void GraphicScene::update()
{
    update(QRectF());
}

void GraphicScene::updateLayer(SceneLayer layer, const QRegion& region)
{
    if (m_render)
        m_render->makeDirtyRegion(region, layer);
    requestFrame();
}

void GraphicScene::updateLayer(SceneLayer layer, const QPainterPath& path)
{
    if (m_render)
        m_render->makeDirtyPath(path, layer);
    requestFrame();
}

void GraphicScene::updateFocusItem()
{
    const QSharedPointer<GraphicItem> item = focusItem();
    if (!item)
        return;
    takeWireForm(item.data());
    updateLayer(ItemLayer, QRegion(item->boundary().toRect()));
    // The host changed the item from outside; no undo step, but the others
    // get its new state, which this board holds as they will.
    sendItemAction(im::whiteboard::GraphicActionUpdate, item);
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
    const QPointF topLeft(m_viewport.x() * m_sceneSize.width(), m_viewport.y() * m_sceneSize.height());
    const QPointF bottomRight((m_viewport.x() + m_viewport.width()) * m_sceneSize.width(),
                              (m_viewport.y() + m_viewport.height()) * m_sceneSize.height());
    update(QRectF(topLeft, bottomRight));
}

void GraphicScene::onViewWidthChanged()
{
    if (!m_view)
        return;
    {
        SceneLocker locker(&m_itemsMutex);
        m_viewBounds = viewBoundingRect();
    }
    m_render->updateRenderSize(viewSize().toSize(), m_devicePixelRatio);
    updateViewport(viewBoundingRect().center());
}

void GraphicScene::onViewHeightChanged()
{
    onViewWidthChanged();
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
    state.viewRect = m_viewBounds;
    state.sceneSize = m_sceneSize;
    state.viewport = m_viewport;
    state.scale = m_scale;
    state.rotation = m_rotation;
    state.backgroundColor = m_backgroundColor;
    // From the viewport of this very frame: the queued border update may
    // not have run yet.
    state.borderRegion = pageRegion();
    state.paintMargin = paintMargin();
    state.selectedItems = m_selectedItems;
    state.focusItem = m_focusItem;
}

QRegion GraphicScene::pageRegion() const
{
    const QPointF tl = m_viewport.topLeft();
    const QPointF br = m_viewport.bottomRight();
    QRectF rect;
    if (tl.x() >= 0.0 && tl.y() >= 0.0 && br.x() <= 1.0 && br.y() <= 1.0) {
        rect = m_viewBounds;
    } else {
        // The page is smaller than the view, or shifted.
        rect = QRectF(-tl.x() / m_viewport.width() * m_viewBounds.width(), -tl.y() / m_viewport.height() * m_viewBounds.height(),
                      roundPixel(m_sceneSize.width() * m_scale), roundPixel(m_sceneSize.height() * m_scale));
    }
    return QRegion(rect.toRect());
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
    const QSizeF vs = viewSize();
    const QRectF source(0, 0, vs.width() * m_devicePixelRatio, vs.height() * m_devicePixelRatio);
    painter->drawImage(viewBoundingRect(), m_renderedImage, source, Qt::AutoColor);
}

void GraphicScene::post(im::whiteboard::TransferData* data)
{
    // A message belongs to whoever receives it: one that nobody would
    // receive is deleted here rather than leaked.
    if (isSignalConnected(QMetaMethod::fromSignal(&GraphicScene::sendData)))
        emit sendData(data);
    else
        delete data;
}

qulonglong GraphicScene::serverTimestamp() const
{
    return qulonglong(QDateTime::currentMSecsSinceEpoch() - m_serverTimeOffset);
}

void GraphicScene::stamp(GraphicItem* item) const
{
    item->setTimestamp(qlonglong(serverTimestamp()));
}

// --- history ----------------------------------------------------------------

void GraphicScene::reportUndoRedoStatus()
{
    if (!m_view)
        return;
    QMetaObject::invokeMethod(m_view, "updateUndoRedoStatus", Qt::DirectConnection, Q_ARG(bool, m_undoStack.canUndo()),
                              Q_ARG(bool, m_undoStack.canRedo()));
}

void GraphicScene::pushCommand(QUndoCommand* command)
{
    m_undoStack.push(command);
    reportUndoRedoStatus();
}

void GraphicScene::undo()
{
    m_undoStack.undo();
    reportUndoRedoStatus();
}

void GraphicScene::redo()
{
    m_undoStack.redo();
    reportUndoRedoStatus();
}

} // namespace whiteboard
