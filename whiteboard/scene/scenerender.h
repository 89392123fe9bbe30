#pragma once

#include "scene/dirtyarea.h"
#include "scene/graphicscene.h"

#include <QImage>
#include <QList>
#include <QMap>
#include <QMutex>
#include <QObject>
#include <QRegion>

#include <atomic>

class QPainter;
class QTimer;

namespace whiteboard {

// The render worker. Lives on "graphic_render_thread"; turns at most one
// frame request per 40 ms into a finished image, composed in full from the
// live items under the scene's itemsMutex.
class SceneRender : public QObject
{
    Q_OBJECT

public:
    static constexpr int kFrameInterval = 40;

    explicit SceneRender(GraphicScene* scene);
    ~SceneRender() override;

    // Set once by the scene's destructor; a frame stops at its next test.
    void requestQuit() { m_quitRequested = 1; }
    bool quitRequested() const { return m_quitRequested == 1; }

    // Pending entries of one layer, for inspection.
    QList<DirtyArea> dirtyAreas(GraphicScene::SceneLayer layer);
    QImage baseImage() const { return m_baseImage; }
    QImage frameImage() const { return m_frameImage; }
    QRegion borderRegion() const { return m_borderRegion; }
    // Frames finished whole, thumbnails included; any thread. A frame counted
    // after a change was made shows it, as frames hold itemsMutex throughout.
    int composedFrames() const { return m_composedFrames; }
    double devicePixelRatio() const { return m_devicePixelRatio; }

    // Composes one whole frame now, thumbnails included; the caller holds
    // the scene's itemsMutex.
    void composeFrame();
    // Paints the items of one list in order, skipping direct repeats.
    void paintItems(QPainter* painter, const GraphicItemList& items);
    void paintVisibleItems(QPainter* painter, const QRectF& viewRect);
    void paintAllLayers(QPainter* painter);

    static QImage resizeImage(const QImage& old, const QSize& size, double ratio, const QBrush& brush);
    static void clearPath(QImage* image, const QPainterPath& path, const QColor& color);
    void setRegionPixels(QImage* image, const QRegion& region, const QColor& color) const;
    static void fillDirtyArea(QImage* image, const DirtyArea& area, const QBrush& brush);

signals:
    void ready();
    void finished(const QImage& result);

public slots:
    void onInitScene();
    // Called directly from the GUI thread; takes dirtyMutex, then itemsMutex.
    void updateRenderSize(const QSize& size, double devicePixelRatio);
    void makeDirty(const QRectF& rect, whiteboard::GraphicScene::SceneLayer layer = GraphicScene::AllLayers);
    void makeDirtyPath(const QPainterPath& path, whiteboard::GraphicScene::SceneLayer layer = GraphicScene::AllLayers);
    void makeDirtyRegion(const QRegion& region, whiteboard::GraphicScene::SceneLayer layer = GraphicScene::AllLayers);
    void paint();
    void updateBorderRegion();
    void quit();

private:
    void record(const DirtyArea& area, GraphicScene::SceneLayer layer);
    // Paints the layers and the control points in scene space; false when
    // the frame was abandoned.
    bool paintPage(QPainter* painter, const QRectF& viewRect);
    // Paints one thumbnail; false when the frame was abandoned.
    bool paintThumbnail(QImage& image, const QSize& size, const GraphicItemList& items);

    std::atomic<int> m_quitRequested { 0 };
    std::atomic<int> m_composedFrames { 0 };
    SceneMutex m_dirtyMutex;
    bool m_initialized = false;
    GraphicScene* m_scene = nullptr;
    double m_devicePixelRatio = 2.0;
    QImage m_baseImage;
    QImage m_frameImage;
    QImage m_sceneImage;
    QRegion m_borderRegion;
    qint64 m_lastPaintTime = 0;
    QTimer* m_paintTimer = nullptr;
    QMap<GraphicScene::SceneLayer, QList<DirtyArea>> m_dirtyAreas;
};

} // namespace whiteboard
