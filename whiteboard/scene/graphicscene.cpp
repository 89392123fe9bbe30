#include "scene/graphicscene.h"

#include "graphics/abstractgraphicshapeitem.h"
#include "graphics/graphiccontroller.h"
#include "graphics/graphicimagecodec.h"
#include "graphics/graphicitem.h"
#include "scene/boardstate.h"
#include "scene/layerindex.h"
#include "scene/scenerender.h"
#include "scene/syncengine.h"
#include "util.h"
#include "tools/toolcontroller.h"

#include "proto/whiteboard.pb.h"

#include <QCryptographicHash>
#include <QJSEngine>
#include <QMetaObject>
#include <QMutexLocker>
#include <QQuickItem>

#include <algorithm>
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
    , m_board(std::make_unique<BoardState>())
    , m_tools(std::make_unique<ToolController>(this))
    , m_sync(std::make_unique<SyncEngine>(*this))
{
    if (view) {
        m_geometry.viewBounds = view->boundingRect();
        connect(view, SIGNAL(widthChanged()), this, SLOT(onViewWidthChanged()));
        connect(view, SIGNAL(heightChanged()), this, SLOT(onViewHeightChanged()));
    }

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

QRectF GraphicScene::viewBoundingRect() const
{
    return m_geometry.viewBounds;
}

// --- properties -------------------------------------------------------------

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

void GraphicScene::setBackgroundColor(const QColor& color)
{
    if (m_backgroundColor == color)
        return;
    {
        SceneLocker locker(&m_itemsMutex);
        m_backgroundColor = color;
    }
    // Any visible entry triggers the same full frame.
    invalidate(QRectF(0, 0, 1, 1));
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

LayerIndex* GraphicScene::layerIndex(SceneLayer layer) const
{
    return m_board->index(layer);
}

void GraphicScene::noteFiled(const QRectF& area, SceneLayer layer)
{
    if (m_render)
        m_render->dirt().makeDirtySilently(area, layer);
}

// Adding and removing dirty the items' places, without asking for a frame:
// frames repaint only what is dirty.
void GraphicScene::addItems(SceneLayer layer, const GraphicItemList& items)
{
    SceneLocker locker(&m_itemsMutex);
    noteFiled(board().add(layer, items), layer);
}

void GraphicScene::removeItem(SceneLayer layer, const QSharedPointer<GraphicItem>& item)
{
    removeItems(layer, GraphicItemList { item });
}

void GraphicScene::removeItems(SceneLayer layer, const GraphicItemList& items)
{
    SceneLocker locker(&m_itemsMutex);
    noteFiled(board().remove(layer, items), layer);
}

void GraphicScene::itemGeometryChanged(GraphicItem* item)
{
    SceneLocker locker(&m_itemsMutex);
    const QSharedPointer<GraphicItem> shared = item->sharedFromThis();
    if (!shared)
        return;
    board().noteHitReach(item);
    for (int layer = BackgroundLayer; layer < kLayerCount; ++layer) {
        if (item->filedIn(layer))
            updateItemIndex(SceneLayer(layer), shared);
    }
}

void GraphicScene::updateItemIndex(SceneLayer layer, const QSharedPointer<GraphicItem>& item)
{
    SceneLocker locker(&m_itemsMutex);
    // The place it was filed at and the new one are repainted with the next frame.
    noteFiled(board().refile(layer, item), layer);
}

int GraphicScene::itemCount(SceneLayer layer)
{
    SceneLocker locker(&m_itemsMutex);
    const LayerIndex* index = board().index(layer);
    return index ? index->count() : 0;
}

GraphicItemList GraphicScene::items(SceneLayer layer, int order)
{
    return itemsWhere(layer, QRectF(QPointF(0, 0), m_geometry.sceneSize), sortOrder(order), nullptr);
}

GraphicItemList GraphicScene::itemsInView(SceneLayer layer, const QRectF& viewRect, int order)
{
    return itemsWhere(layer, mapRectToScene(viewRect), sortOrder(order), nullptr);
}

GraphicItemList GraphicScene::itemsWhere(SceneLayer layer, const QRectF& area, Qt::SortOrder order,
                                         const std::function<bool(const GraphicItem&)>& keep)
{
    SceneLocker locker(&m_itemsMutex);
    return board().query(layer, area, order, keep);
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

GraphicItemList GraphicScene::itemsByPoint(SceneLayer layer, const QPointF& point, int mode, int order, const QTransform& transform)
{
    if (!isSelectionMode(mode))
        return {};
    const auto selection = Qt::ItemSelectionMode(mode);
    const QPointF mapped = transform.map(point);
    SceneLocker locker(&m_itemsMutex);
    return itemsWhere(layer, board().pointQueryRect(mapped), sortOrder(order), [&](const GraphicItem& item) {
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
    SceneLocker locker(&m_itemsMutex);
    return board().itemAt(transform.map(mapToScene(viewPos)), sortOrder(order), Qt::ItemSelectionMode(mode));
}

QSharedPointer<GraphicItem> GraphicScene::itemByGid(const QString& gid)
{
    SceneLocker locker(&m_itemsMutex);
    return board().itemByGid(gid);
}

GraphicItemList GraphicScene::selectedItems() const
{
    SceneLocker locker(&m_itemsMutex);
    return m_selectedItems;
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
            const double h = point.size * 0.5 / m_geometry.scale + 1.0;
            area = area.united(QRectF(point.position - QPointF(h, h), point.position + QPointF(h, h)));
        }
    }
    return area;
}

void GraphicScene::repaintHandles(const QRectF& before)
{
    const QRectF area = before.united(handlesArea());
    if (area.width() > 0 && area.height() > 0)
        invalidate(area, ItemLayer);
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
    // The pictures themselves stay until the scene goes: the pointer outlives the lock.
    SceneLocker locker(&m_itemsMutex);
    return m_imageCache.value(key, nullptr);
}

// --- keeping in step with the others: the sync engine's ----------------------

void GraphicScene::updateFocusItem()
{
    const QSharedPointer<GraphicItem> item = focusItem();
    if (!item)
        return;
    takeWireForm(item.data());
    invalidate(item->boundary(), ItemLayer);
    // The host changed the item from outside; no undo step, but the others
    // get its new state, which this board holds as they will.
    sendItemAction(im::whiteboard::GraphicActionUpdate, item);
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
    return m_sync->serverTime();
}

void GraphicScene::joinWhiteboard(qint64 serverTime)
{
    m_sync->join(serverTime);
}

void GraphicScene::sendItemAction(im::whiteboard::GraphicActionType type, const QSharedPointer<GraphicItem>& item)
{
    m_sync->sendItems(type, { item });
}

void GraphicScene::sendItemBatch(im::whiteboard::GraphicActionType type, const GraphicItemList& items)
{
    m_sync->sendItems(type, items);
}

void GraphicScene::sendMouseInfo(const QPointF& position)
{
    m_sync->sendPointer(position);
}

void GraphicScene::takeWireForm(GraphicItem* item)
{
    m_sync->takeWireForm(item);
}

void GraphicScene::receiveData(im::whiteboard::TransferData* data)
{
    m_sync->receive(data);
}

GraphicItemList GraphicScene::markItems() const
{
    return m_sync->marks();
}

void GraphicScene::dropMarks()
{
    m_sync->dropMarks();
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
