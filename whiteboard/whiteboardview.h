#pragma once

#include "graphicdefine.h"

#include <QPoint>
#include <QQuickPaintedItem>
#include <QRectF>
#include <QSize>

#include <memory>

namespace im::whiteboard {
class TransferData;
}

namespace whiteboard {
class GraphicScene;
class SceneExport;
}

// The item a host places in its QML tree. It owns one scene, hands it every
// input event, paints the frame the render thread left, and mirrors the
// scene's state as properties. It holds no drawing logic.
class WhiteboardView : public QQuickPaintedItem
{
    Q_OBJECT
    Q_PROPERTY(whiteboard::GraphicScene* scene READ scene NOTIFY sceneChanged)
    Q_PROPERTY(GraphicDefine::ToolType toolType READ toolType WRITE setToolType NOTIFY toolTypeChanged)
    Q_PROPERTY(double contentX READ contentX WRITE setContentX NOTIFY contentXChanged)
    Q_PROPERTY(double contentY READ contentY WRITE setContentY NOTIFY contentYChanged)
    Q_PROPERTY(double contentWidth READ contentWidth WRITE setContentWidth NOTIFY contentWidthChanged)
    Q_PROPERTY(double contentHeight READ contentHeight WRITE setContentHeight NOTIFY contentHeightChanged)
    Q_PROPERTY(QRectF sceneViewport READ sceneViewport WRITE setSceneViewport NOTIFY sceneViewportChanged)
    Q_PROPERTY(QQuickItem* textInputer READ textInputer WRITE setTextInputer NOTIFY textInputerChanged)
    Q_PROPERTY(bool canUndo READ canUndo WRITE setCanUndo NOTIFY canUndoChanged)
    Q_PROPERTY(bool canRedo READ canRedo WRITE setCanRedo NOTIFY canRedoChanged)
    Q_PROPERTY(QString id READ id WRITE setId NOTIFY idChanged)
    Q_PROPERTY(qlonglong currentAccountId READ currentAccountId WRITE setCurrentAccountId NOTIFY currentAccountIdChanged)
    Q_PROPERTY(QString userName READ userName WRITE setUserName NOTIFY userNameChanged)
    Q_PROPERTY(bool isOwner READ isOwner WRITE setIsOwner NOTIFY isOwnerChanged)
    Q_PROPERTY(QSize thumbnailSize READ thumbnailSize WRITE setThumbnailSize NOTIFY thumbnailSizeChanged)
    // The least time between frames, in ms: 40 unless the host asks for
    // less (16 on a 60 Hz display); at least 1.
    Q_PROPERTY(int frameInterval READ frameInterval WRITE setFrameInterval NOTIFY frameIntervalChanged)

public:
    explicit WhiteboardView(QQuickItem* parent = nullptr);
    ~WhiteboardView() override;

    whiteboard::GraphicScene* scene() const { return m_scene; }
    GraphicDefine::ToolType toolType() const { return m_toolType; }
    void setToolType(GraphicDefine::ToolType tool);
    double contentX() const { return m_contentX; }
    void setContentX(double value);
    double contentY() const { return m_contentY; }
    void setContentY(double value);
    double contentWidth() const { return m_contentWidth; }
    void setContentWidth(double value);
    double contentHeight() const { return m_contentHeight; }
    void setContentHeight(double value);
    QRectF sceneViewport() const;
    void setSceneViewport(const QRectF& viewport);
    QQuickItem* textInputer() const { return m_textInputer; }
    void setTextInputer(QQuickItem* inputer);
    bool canUndo() const { return m_canUndo; }
    void setCanUndo(bool canUndo);
    bool canRedo() const { return m_canRedo; }
    void setCanRedo(bool canRedo);
    QString id() const { return m_id; }
    void setId(const QString& id);
    qlonglong currentAccountId() const { return m_currentAccountId; }
    void setCurrentAccountId(qlonglong id);
    QString userName() const { return m_userName; }
    void setUserName(const QString& name);
    bool isOwner() const { return m_isOwner; }
    void setIsOwner(bool isOwner);
    QSize thumbnailSize() const { return m_thumbnailSize; }
    int frameInterval() const;
    void setFrameInterval(int interval);
    void setThumbnailSize(const QSize& size);

    void paint(QPainter* painter) override;

public slots:
    void moveSceneTo(QPointF point);
    void scaleScene(double scaleRatio, QPointF pos);
    void scaleSceneToCenter(double scaleRatio);
    void updateUndoRedoStatus(bool canUndo, bool canRedo);
    // Writes the page to `filePath` (a path or a file URL) in the format its
    // suffix names: .svg and .pdf as vector files, .png, .jpg, .webp (where
    // Qt has the plugin) and other image suffixes as pixels. The first form
    // writes the large thumbnail as it stands and returns once the file is
    // written. The second paints the items off the GUI thread at `scale`
    // pixels per scene unit (pixel formats; up to SceneExport::kMaxScale),
    // of the whole page or only of what the items cover (`cropToItems`),
    // and returns once it is under way. Both emit sceneExported; false,
    // with a log line, when the format is unknown, the path cannot be
    // written or the scale is out of bounds, and then nothing is emitted.
    bool exportScene(QString filePath);
    bool exportScene(QString filePath, double scale, bool cropToItems = false);
    void receiveData(im::whiteboard::TransferData* data);
    void updateDevicePixelRatio();
    void sendUserJoinData(qlonglong timestamp, QString whitboardId);
    // Takes the other users' pointers off the board. The host calls it when
    // its connection goes offline (RelayConnection does): while cut off,
    // nobody's position or departure reaches the board.
    void dropRemotePointers();

signals:
    void sceneChanged();
    void toolTypeChanged();
    void contentXChanged();
    void contentYChanged();
    void contentWidthChanged();
    void contentHeightChanged();
    void sceneViewportChanged();
    void textInputerChanged();
    void canUndoChanged();
    void canRedoChanged();
    void idChanged();
    void currentAccountIdChanged();
    void sendData(im::whiteboard::TransferData* data);
    void userNameChanged();
    void isOwnerChanged();
    void thumbnailSizeChanged();
    void frameIntervalChanged();
    // The picture at `path` could not be placed; `reason` says why.
    void pictureRefused(const QString& path, const QString& reason);
    // An export that exportScene accepted is over: `filePath` is written
    // (ok), or failed while painting or writing and keeps what it held.
    void sceneExported(const QString& filePath, bool ok);

protected:
    bool event(QEvent* event) override;
    void itemChange(ItemChange change, const ItemChangeData& value) override;
    void componentComplete() override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;
    void hoverEnterEvent(QHoverEvent* event) override;
    void hoverMoveEvent(QHoverEvent* event) override;
    void hoverLeaveEvent(QHoverEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private slots:
    void onSceneViewportChanged();

private:
    whiteboard::GraphicScene* m_scene = nullptr;
    GraphicDefine::ToolType m_toolType = GraphicDefine::Selector;
    double m_contentX = 0.0;
    double m_contentY = 0.0;
    double m_contentWidth = 0.0;
    double m_contentHeight = 0.0;
    QQuickItem* m_textInputer = nullptr;
    bool m_canUndo = false;
    bool m_canRedo = false;
    QString m_id;
    qlonglong m_currentAccountId = 0;
    QString m_userName;
    bool m_isOwner = false;
    QSize m_thumbnailSize = QSize(1080, 720);
    QPoint m_pressPoint;
    // Made on the first export that paints off the GUI thread.
    std::unique_ptr<whiteboard::SceneExport> m_export;
};
