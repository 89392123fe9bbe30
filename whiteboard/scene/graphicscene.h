#pragma once

#include "graphicdefine.h"
#include "scene/annotatedmutex.h"
#include "scene/dirtyarea.h"
#include "scene/itemversion.h"
#include "scene/sceneviewport.h"

#include <QBrush>
#include <QColor>
#include <QCursor>
#include <QHash>
#include <QImage>
#include <QLoggingCategory>
#include <QMap>
#include <QMutex>
#include <QObject>
#include <QPainterPath>
#include <QPointer>
#include <QRecursiveMutex>
#include <QRectF>
#include <QRegion>
#include <QSharedPointer>
#include <QThread>
#include <QTransform>
#include <QUndoStack>
#include <QWeakPointer>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <tuple>

// What the board does, for whoever debugs it: "whiteboard.scene", quiet
// below warnings unless QT_LOGGING_RULES="whiteboard.scene.debug=true".
Q_DECLARE_LOGGING_CATEGORY(lcWhiteboardScene)

class QFocusEvent;
class QHoverEvent;
class QInputMethodEvent;
class QKeyEvent;
class QMouseEvent;
class QPainter;
class QQuickItem;
class QUndoCommand;
class QWheelEvent;
class QDragEnterEvent;
class QDragMoveEvent;
class QDragLeaveEvent;
class QDropEvent;

namespace im::whiteboard {
class GraphicAction;
class TransferData;
class UserAction;
class UserMouseInfoData;
class UserOperation;
enum GraphicActionType : int;
enum UserOperation_Type : int;
}

namespace whiteboard {

class BoardState;
class GraphicCommand;
class GraphicImageCodec;
class LayerIndex;
class ToolController;
class GraphicItem;
class SceneRender;
class SyncEngine;
struct FrameState;

using GraphicItemList = QList<QSharedPointer<GraphicItem>>;

// The heart of a board and the host's contract with it. It delegates: what
// the board holds to its BoardState (items by layer and by gid, versions,
// clock, clear marks), keeping in step with the others to its SyncEngine,
// the coordinates to a SceneViewport, pointer input to the tools, and frames
// to the render worker on its thread, through the one repaint entry
// invalidate(). It keeps the selection, the focus, the undo stack and the
// picture cache. One scene per WhiteboardView.
//
// Locks, in the one order every thread takes them (a thread holding one may
// take only those below it; the analysis of the clang build checks the
// annotated ones):
//   1. the export's jobMutex (held for a whole export);
//   2. renderMutex (the frame handed to the view);
//   3. ThumbnailPass's thumbnailMutex (a thumbnail pass);
//   4. itemsMutex (items, indexes and what frames read of the scene;
//      recursive: tools re-enter it through the scene's queries; fair: a
//      thread that lets it go while the other waits gives way);
//   5. DirtyTracker's dirtyMutex (the dirty lists): the GUI thread records
//      dirty areas holding itemsMutex, and a thumbnail pass takes it under
//      itemsMutex; the render thread releases it before it waits for
//      itemsMutex.
// Leaves, under which nothing is taken: the worker's imageMutex, the image
// codec's taskEnd, the mark's renderer lock, the pen's stroke cache lock.
class GraphicScene : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QRectF viewport READ viewport WRITE setViewport NOTIFY viewportChanged)
    Q_PROPERTY(QBrush backgroundBrush READ backgroundBrush WRITE setBackgroundBrush NOTIFY backgroundBrushChanged)
    Q_PROPERTY(whiteboard::GraphicItem* focusItem READ focusItemPointer NOTIFY focusItemChanged)
    Q_PROPERTY(QRectF itemsBoundingRect READ itemsBoundingRect WRITE setItemsBoundingRect NOTIFY itemsBoundingRectChanged)
    Q_PROPERTY(QSize sceneSize READ sceneSize WRITE setSceneSize NOTIFY sceneSizeChanged)
    Q_PROPERTY(double devicePixelRatio READ devicePixelRatio WRITE setDevicePixelRatio NOTIFY devicePixelRatioChanged)
    Q_PROPERTY(double scale READ scale WRITE setScale NOTIFY scaleChanged)
    Q_PROPERTY(double rotation READ rotation WRITE setRotation NOTIFY rotationChanged)
    Q_PROPERTY(QColor backgroundColor READ backgroundColor WRITE setBackgroundColor NOTIFY backgroundColorChanged)
    Q_PROPERTY(bool fillShape READ fillShape WRITE setFillShape NOTIFY fillShapeChanged)
    Q_PROPERTY(QString imagePath READ imagePath WRITE setImagePath NOTIFY imagePathChanged)
    Q_PROPERTY(bool disableEdit READ disableEdit WRITE setDisableEdit NOTIFY disableEditChanged)
    Q_PROPERTY(GraphicDefine::ToolType toolType READ toolType WRITE setToolType NOTIFY toolTypeChanged)
    Q_PROPERTY(bool disableDrag READ disableDrag WRITE setDisableDrag NOTIFY disableDragChanged)

public:
    // Painted in this order, so a later layer lies on top. AllLayers is a
    // dirty target only and never a map key.
    enum SceneLayer {
        BackgroundLayer = 0,
        ItemLayer = 1,
        ActiveLayer = 2,
        MarkLayer = 3,
        AllLayers = 4
    };

    static constexpr int kLayerCount = 4;

    // The place of a change in the board's order: a Lamport clock that every
    // board advances past each version it sees, then the account id of the
    // user who made the change, then the device that made it (one account may
    // be on several at once). Compared in that order; all zero for changes
    // that never carried a version, and the device 0 for peers that send none.
    using Version = ItemVersion;

    // The board's rounding of a double to whole pixels: half away from zero,
    // then truncated.
    static int roundPixel(double value) { return SceneViewport::roundPixel(value); }
    static constexpr double kIndexExtent = 5000.0;

    explicit GraphicScene(QQuickItem* view = nullptr);
    ~GraphicScene() override;

    QQuickItem* view() const;
    SceneRender* renderer() const { return m_render; }
    SceneRecursiveMutex& itemsMutex() RETURN_CAPABILITY(m_itemsMutex) { return m_itemsMutex; }
    QUndoStack& undoStack() { return m_undoStack; }

    // Properties.
    QRectF viewport() const { return m_geometry.viewport; }
    void setViewport(const QRectF& viewport);
    QBrush backgroundBrush() const { return m_backgroundBrush; }
    void setBackgroundBrush(const QBrush& brush);
    QSharedPointer<GraphicItem> focusItem();
    GraphicItem* focusItemPointer();
    void setFocusItem(const QSharedPointer<GraphicItem>& item);
    QRectF itemsBoundingRect() const { return m_itemsBoundingRect; }
    void setItemsBoundingRect(const QRectF& rect);
    // GUI thread; the GUI thread writes it under itemsMutex, so another
    // thread reads it holding that lock.
    QSize sceneSize() const { return m_geometry.sceneSize; }
    void setSceneSize(const QSize& size);
    double devicePixelRatio() const { return m_devicePixelRatio; }
    void setDevicePixelRatio(double ratio);
    double scale() const { return m_geometry.scale; }
    void setScale(double scale, const QPointF& center = QPointF());
    double rotation() const { return m_geometry.rotation; }
    void setRotation(double rotation);
    QColor backgroundColor() const { return m_backgroundColor; }
    void setBackgroundColor(const QColor& color);
    bool fillShape() const { return m_fillShape; }
    void setFillShape(bool fillShape);
    QString imagePath() const { return m_imagePath; }
    void setImagePath(const QString& path);
    bool disableEdit() const { return m_disableEdit; }
    void setDisableEdit(bool disableEdit);
    GraphicDefine::ToolType toolType() const { return m_toolType; }
    void setToolType(GraphicDefine::ToolType tool);
    bool disableDrag() const { return m_disableDrag; }
    void setDisableDrag(bool disableDrag);

    qint64 currentUserId() const { return m_currentUserId; }
    void setCurrentUserId(qint64 userId) { m_currentUserId = userId; }
    QString userName() const { return m_userName; }
    void setUserName(const QString& name) { m_userName = name; }
    QSize thumbnailSize() const { return m_thumbnailSize; }
    QSize smallThumbnailSize() const { return m_smallThumbnailSize; }
    // Kept empty: the host's contract names it as the thumbnailSize hook; the sizes are fixed.
    void updateThumbnailSize() { }
    // GUI thread: the render worker hands over the thumbnails it painted;
    // they are stored and thumbnailChanged, then smallThumbnailChanged, emitted.
    void setThumbnails(const QImage& large, const QImage& small);

    // Coordinates: view pixels, viewport units (fractions of the page) and
    // scene units, related by the formulas below.
    QPointF mapToScene(const QPointF& viewPos, double factor = 1.0) const;
    QPointF mapFromScene(const QPointF& scenePos) const;
    QRectF mapRectToScene(const QRectF& viewRect) const;
    QRectF mapRectFromScene(const QRectF& sceneRect) const;
    QPainterPath mapPathToScene(const QPainterPath& path) const;
    QPainterPath mapPathFromScene(const QPainterPath& path) const;
    QRectF viewportRect() const;
    QRectF viewBoundingRect() const;
    void applySceneTransform(QPainter* painter) const;

    // Items and their indexes; each takes itemsMutex.
    // Shares an item the way the scene does: the last owner may be the render
    // thread, so the item is deleted on its own thread.
    static QSharedPointer<GraphicItem> makeShared(GraphicItem* item);
    // Call its members under itemsMutex.
    LayerIndex* layerIndex(SceneLayer layer) const;
    QSharedPointer<GraphicItem> addItem(SceneLayer layer, GraphicItem* item);
    void addItem(SceneLayer layer, const QSharedPointer<GraphicItem>& item);
    void addItems(SceneLayer layer, const GraphicItemList& items);
    void removeItem(SceneLayer layer, const QSharedPointer<GraphicItem>& item);
    void removeItems(SceneLayer layer, const GraphicItemList& items);
    void updateItemIndex(SceneLayer layer, const QSharedPointer<GraphicItem>& item);
    // Items call this when their boundary or hit tolerance changed: the item
    // is filed again in the index of every layer that holds it, so that no
    // caller of a geometry change has to remember it. Any thread that may
    // write item geometry (under itemsMutex).
    void itemGeometryChanged(GraphicItem* item);
    int itemCount(SceneLayer layer);
    // Order 1 sorts ascending by timestamp, anything else descending.
    GraphicItemList items(SceneLayer layer, int order);
    GraphicItemList itemsInView(SceneLayer layer, const QRectF& viewRect, int order);
    GraphicItemList itemsByPath(SceneLayer layer, const QPainterPath& path, int mode, int order, const QTransform& transform = QTransform());
    GraphicItemList itemsByPoint(SceneLayer layer, const QPointF& point, int mode, int order, const QTransform& transform = QTransform());
    GraphicItemList itemsByRect(SceneLayer layer, const QRectF& rect, int mode, int order, const QTransform& transform = QTransform());
    QSharedPointer<GraphicItem> itemAt(const QPointF& viewPos, int order, int mode, const QTransform& transform = QTransform());
    // The item of the item layer with this gid, case-sensitive, wherever it
    // lies; the key of received updates and removals.
    QSharedPointer<GraphicItem> itemByGid(const QString& gid);
    // Gives `item` the state that its message carries, so that the board that
    // makes a change holds what the others receive (float points, path text).
    void takeWireForm(GraphicItem* item);

    GraphicItemList selectedItems() const;
    GraphicItemList clipboardItems() const;
    // The item being drawn, the rubber band or a new text box; null between gestures.
    QSharedPointer<GraphicItem> activeItem() const;
    // Takes every entry with the item's gid out of the selection.
    void deselectItem(const QSharedPointer<GraphicItem>& item);
    void clearSelection();
    // Unselects every item and repaints them.
    void deselectAll();
    // Stores the selection as the tools made it; they flag the items.
    void setSelectedItems(const GraphicItemList& items);
    // The scene area of the handles on screen: those of the selection, or
    // of the focus item when nothing is selected. Under itemsMutex.
    QRectF handlesArea();
    // Repaints `before` and the handles shown now: a change of focus or
    // selection makes handles appear or go.
    void repaintHandles(const QRectF& before);
    void setViewCursor(const QCursor& cursor);
    // The host's text field, the view's "textInputer"; null without one.
    QObject* textInputer() const;

    // The scene's picture cache, shared by all image items.
    static QString imageKeyFor(const QImage& image);
    // Stores a copy of `image` unless its key is present; returns the key.
    QString addImage(const QImage& image);
    const QImage* imageByKey(const QString& key) const;
    // Decodes received pictures off the GUI thread.
    GraphicImageCodec* imageCodec() const { return m_imageCodec; }

    // Only the owner of the board, or the author of the item, may touch it.
    bool canOperate(const QSharedPointer<GraphicItem>& item) const;
    // Styles a new item from the palette for the tool that made it.
    void applyPalette(GraphicItem* item, GraphicDefine::ToolType tool) const;
    // A new item of the kind `tool` draws, stamped now; null for a tool that
    // draws none, or a picture that could not be read.
    GraphicItem* createItem(GraphicDefine::ToolType tool);
    // Gives `item` the server time of now: new, copied and pasted items.
    void stamp(GraphicItem* item) const;

    // The one way to have the page repainted: `rect` (scene units) of
    // `layer` is dirty, and a frame is asked for unless one is asked already
    // and the render thread has not begun it: a burst of changes, such as a
    // received message of many envelopes, makes one queued request. An empty
    // rect asks for a frame alone. GUI thread: the request is a queued call
    // to the render thread.
    void invalidate(const QRectF& rect = QRectF(), SceneLayer layer = AllLayers);
    // Render thread, as a frame begins: changes from now on ask for the next.
    void frameBegun() { m_frameAsked.store(false); }
    // Any thread. How far, in scene units, items may paint outside their
    // boundary: the widest pen seen, never shrinking. Partial repaints grow
    // their regions by it.
    double paintMargin() const { return m_paintMargin; }
    void notePaintMargin(double margin);

    // Pushes a command, then reports the undo state to the view.
    void pushCommand(QUndoCommand* command);
    void reportUndoRedoStatus();

    // Render thread, or GUI thread with the render thread stopped; caller
    // holds itemsMutex. What the next frame needs from the scene.
    void fillFrameState(FrameState& state) const REQUIRES(m_itemsMutex);
    // Any thread; caller holds itemsMutex. The part of the view the page
    // covers, in view units.
    QRegion pageRegion() const REQUIRES(m_itemsMutex);

    // The last finished frame, as the view will draw it.
    QImage renderedImage();
    // Paints the last finished frame; called from the view's paint callback.
    void paint(QPainter* painter, const QRectF& = QRectF(), const QRectF& = QRectF(), int = 0);

    // Emits initScene under itemsMutex: the worker makes its images then.
    void init();

    // Fixes the server clock offset and announces this user on the board.
    void joinWhiteboard(qint64 serverTime);
    // Tells the others the whole state of `item` (or of each of `items`, in
    // one message) with the action `type`, each change under a new version.
    void sendItemAction(im::whiteboard::GraphicActionType type, const QSharedPointer<GraphicItem>& item);
    void sendItemBatch(im::whiteboard::GraphicActionType type, const GraphicItemList& items);
    // The pointer marks of the other users, one per user seen.
    GraphicItemList markItems() const;
    // Takes every other user's pointer off the board: nobody's position is
    // known while the board is cut off from the others.
    void dropMarks();
    // Tells the others where this user's pointer is, in scene units.
    void sendMouseInfo(const QPointF& position);

    virtual void focusInEvent(QFocusEvent* event);
    virtual void focusOutEvent(QFocusEvent* event);
    virtual void inputMethodEvent(QInputMethodEvent* event);
    virtual QVariant inputMethodQuery(Qt::InputMethodQuery query) const;
    virtual void mousePressEvent(QMouseEvent* event);
    virtual void mouseMoveEvent(QMouseEvent* event);
    virtual void mouseReleaseEvent(QMouseEvent* event);
    virtual void mouseDoubleClickEvent(QMouseEvent* event);
    virtual void hoverEnterEvent(QHoverEvent* event);
    virtual void hoverMoveEvent(QHoverEvent* event);
    virtual void hoverLeaveEvent(QHoverEvent* event);
    virtual void wheelEvent(QWheelEvent* event);
    virtual void keyPressEvent(QKeyEvent* event);
    virtual void keyReleaseEvent(QKeyEvent* event);
    virtual void dragEnterEvent(QDragEnterEvent* event);
    virtual void dragMoveEvent(QDragMoveEvent* event);
    virtual void dragLeaveEvent(QDragLeaveEvent* event);
    virtual void dropEvent(QDropEvent* event);

public slots:
    void updateViewport(const QPointF& center);
    void updateFocusItem();
    // The host's names for invalidate(), kept for it: the region and the
    // path are repainted by their bounding rectangles.
    void update(const QRectF& rect);
    void update();
    void updateLayer(whiteboard::GraphicScene::SceneLayer layer, const QRegion& region);
    void updateLayer(whiteboard::GraphicScene::SceneLayer layer, const QPainterPath& path);
    void move(double dx, double dy);
    void move(const QPointF& point);
    void moveTo(double dx, double dy);
    void moveTo(const QPointF& point);
    void undo();
    void redo();
    void clearAll(bool sync = true);
    void clearByUid(qlonglong userId, bool sync = true);
    // GUI thread, without itemsMutex: it may wait for a thumbnail pass,
    // which takes that lock.
    QImage* thumbnailImage(bool smallThumbnail = false);
    // Applies one message from the others; takes ownership of `data`.
    void receiveData(im::whiteboard::TransferData* data);

signals:
    void initScene();
    void startRender();
    void beforeRendering();
    void afterRendering();
    void beforeSynchronizing();
    void afterSynchronizing();
    void backgroundBrushChanged();
    void viewportChanged();
    void focusItemChanged();
    void itemsBoundingRectChanged();
    void sceneSizeChanged();
    void devicePixelRatioChanged();
    void scaleChanged();
    void rotationChanged();
    void backgroundColorChanged();
    void fillShapeChanged();
    void imagePathChanged();
    // Kept though never emitted: part of the signal list hosts are given.
    void offlinePathChanged();
    void sendData(im::whiteboard::TransferData* data);
    void disableEditChanged();
    void thumbnailChanged(QImage* imageData);
    void smallThumbnailChanged(QImage* imageData);
    void toolTypeChanged();
    void disableDragChanged();
    // A picture the host named could not be read; nothing was placed.
    void pictureRefused(const QString& path, const QString& reason);

protected slots:
    // Local milliseconds less the offset fixed at the join: the time of every
    // item and message.
    qulonglong serverTimestamp() const;
    void onReady();
    void onViewWidthChanged();
    void onViewHeightChanged();
    void onRenderFinished(const QImage& result);

private:
    friend class SyncEngine;

    // What the board holds; only under itemsMutex.
    BoardState& board() REQUIRES(m_itemsMutex) { return *m_board; }
    // Every outgoing message leaves through here.
    void post(im::whiteboard::TransferData* data);
    // The items of `layer` met by `area`, those that `keep` accepts (all
    // without it), sorted by `order`; under itemsMutex.
    GraphicItemList itemsWhere(SceneLayer layer, const QRectF& area, Qt::SortOrder order,
                               const std::function<bool(const GraphicItem&)>& keep);
    // The board filed or took out items over `area`: repainted with the next
    // frame, which it does not ask for.
    void noteFiled(const QRectF& area, SceneLayer layer);
    // The picture named by imagePath, read within the size limit.
    GraphicItem* createImageItem();

    // Mutable: const queries of what it guards take it too.
    mutable SceneRecursiveMutex m_itemsMutex ACQUIRED_AFTER(m_renderMutex);
    SceneMutex m_renderMutex;
    QPointer<QQuickItem> m_view;
    QThread m_renderThread;
    SceneRender* m_render = nullptr;
    GraphicImageCodec* m_imageCodec = nullptr;
    // Written by the GUI thread under itemsMutex; held through board().
    const std::unique_ptr<BoardState> m_board;
    QSharedPointer<GraphicItem> m_focusItem GUARDED_BY(m_itemsMutex);
    GraphicItemList m_selectedItems GUARDED_BY(m_itemsMutex);
    // The viewport, the page's size, zoom, rotation and the view's size:
    // written by the GUI thread under itemsMutex, so that a frame reads it
    // whole under that lock.
    SceneViewport m_geometry;
    QImage m_renderedImage;
    qint64 m_currentUserId = 0;
    QBrush m_backgroundBrush = QBrush(QColor("#b2b2b2"), Qt::CrossPattern);
    QRectF m_itemsBoundingRect;
    QSize m_thumbnailSize = QSize(1080, 720);
    QSize m_smallThumbnailSize = QSize(120, 90);
    double m_devicePixelRatio = 1.0;
    QUndoStack m_undoStack;
    QMap<QString, QImage*> m_imageCache GUARDED_BY(m_itemsMutex);
    QColor m_backgroundColor;
    bool m_fillShape = false;
    QString m_imagePath;
    QString m_userName;
    bool m_disableEdit = false;
    QImage m_thumbnail;
    QImage m_smallThumbnail;
    std::atomic<int> m_paintMargin { 2 };
    // A frame is asked for and the render thread has not begun it.
    std::atomic<bool> m_frameAsked { false };
    GraphicDefine::ToolType m_toolType = GraphicDefine::Selector;
    bool m_disableDrag = false;
    // The gesture state and the tools; GUI thread.
    std::unique_ptr<ToolController> m_tools;
    std::unique_ptr<SyncEngine> m_sync;
};

} // namespace whiteboard

Q_DECLARE_METATYPE(whiteboard::GraphicScene::SceneLayer)
