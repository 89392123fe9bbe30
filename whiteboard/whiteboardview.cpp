#include "whiteboardview.h"

#include "scene/graphicscene.h"
#include "scene/sceneexport.h"
#include "scene/scenerender.h"
#include "util.h"

#include "proto/whiteboard.pb.h"

#include <QGuiApplication>
#include <QImageWriter>
#include <QJSEngine>
#include <QPainter>
#include <QQuickWindow>
#include <QStyleHints>

#include <algorithm>
#include <cmath>

WhiteboardView::WhiteboardView(QQuickItem* parent)
    : QQuickPaintedItem(parent)
{
    setFlag(ItemIsFocusScope);
    setFlag(ItemAcceptsDrops);
    setAcceptHoverEvents(true);
    setAcceptTouchEvents(true);
    setAcceptedMouseButtons(Qt::AllButtons);
    setAntialiasing(true);
    setFiltersChildMouseEvents(true);

    m_scene = new whiteboard::GraphicScene(this);
    // Set here rather than in the scene's constructor, which QML also runs.
    QJSEngine::setObjectOwnership(m_scene, QJSEngine::CppOwnership);
    m_scene->init();
    // The host owns each message from here on; a host that connects nothing
    // (a read-only viewer) would leak them, so they are deleted instead.
    connect(m_scene, &whiteboard::GraphicScene::sendData, this, [this](im::whiteboard::TransferData* data) {
        if (isSignalConnected(QMetaMethod::fromSignal(&WhiteboardView::sendData)))
            emit sendData(data);
        else
            delete data;
    });
    connect(m_scene, &whiteboard::GraphicScene::viewportChanged, this, &WhiteboardView::onSceneViewportChanged);
    connect(m_scene, &whiteboard::GraphicScene::pictureRefused, this, &WhiteboardView::pictureRefused);
}

// The scene would go with the QObject children, after this item is half
// destroyed; delete it first, so the render thread, which reads the view's
// size, stops while the view is whole.
WhiteboardView::~WhiteboardView()
{
    // An export under way paints the scene's items: stopped first.
    m_export.reset();
    delete m_scene;
}

void WhiteboardView::setToolType(GraphicDefine::ToolType tool)
{
    if (m_toolType == tool)
        return;
    m_toolType = tool;
    m_scene->setToolType(tool);
    emit toolTypeChanged();
}

void WhiteboardView::setContentX(double value)
{
    if (qFuzzyCompare(m_contentX, value))
        return;
    m_contentX = value;
    emit contentXChanged();
}

void WhiteboardView::setContentY(double value)
{
    if (qFuzzyCompare(m_contentY, value))
        return;
    m_contentY = value;
    emit contentYChanged();
}

void WhiteboardView::setContentWidth(double value)
{
    if (qFuzzyCompare(m_contentWidth, value))
        return;
    m_contentWidth = value;
    emit contentWidthChanged();
}

void WhiteboardView::setContentHeight(double value)
{
    if (qFuzzyCompare(m_contentHeight, value))
        return;
    m_contentHeight = value;
    emit contentHeightChanged();
}

QRectF WhiteboardView::sceneViewport() const
{
    return m_scene->viewport();
}

void WhiteboardView::setSceneViewport(const QRectF& viewport)
{
    const QRectF current = m_scene->viewport();
    if (viewport.topLeft() == current.topLeft() && viewport.size() == current.size())
        return;
    m_scene->setViewport(viewport);
    emit sceneViewportChanged();
}

void WhiteboardView::setTextInputer(QQuickItem* inputer)
{
    if (m_textInputer == inputer)
        return;
    m_textInputer = inputer;
    emit textInputerChanged();
}

void WhiteboardView::setCanUndo(bool canUndo)
{
    if (m_canUndo == canUndo)
        return;
    m_canUndo = canUndo;
    emit canUndoChanged();
}

void WhiteboardView::setCanRedo(bool canRedo)
{
    if (m_canRedo == canRedo)
        return;
    m_canRedo = canRedo;
    emit canRedoChanged();
}

void WhiteboardView::setId(const QString& id)
{
    if (m_id == id)
        return;
    m_id = id;
    emit idChanged();
}

void WhiteboardView::setCurrentAccountId(qlonglong id)
{
    if (m_currentAccountId == id)
        return;
    m_currentAccountId = id;
    m_scene->setCurrentUserId(id);
    emit currentAccountIdChanged();
}

void WhiteboardView::setUserName(const QString& name)
{
    if (m_userName == name)
        return;
    m_userName = name;
    m_scene->setUserName(name);
    emit userNameChanged();
}

void WhiteboardView::setIsOwner(bool isOwner)
{
    if (m_isOwner == isOwner)
        return;
    m_isOwner = isOwner;
    emit isOwnerChanged();
}

void WhiteboardView::setThumbnailSize(const QSize& size)
{
    if (m_thumbnailSize == size)
        return;
    m_thumbnailSize = size;
    m_scene->updateThumbnailSize();
    emit thumbnailSizeChanged();
}

// The renderer holds it, as its pacing reads it on the render thread.
int WhiteboardView::frameInterval() const
{
    return m_scene->renderer()->frameInterval();
}

void WhiteboardView::setFrameInterval(int interval)
{
    interval = std::max(1, interval);
    if (frameInterval() == interval)
        return;
    m_scene->renderer()->setFrameInterval(interval);
    emit frameIntervalChanged();
}

void WhiteboardView::moveSceneTo(QPointF point)
{
    QRectF viewport = m_scene->viewport();
    viewport.moveTopLeft(point);
    m_scene->setViewport(viewport);
}

void WhiteboardView::scaleScene(double scaleRatio, QPointF pos)
{
    m_scene->setScale(std::clamp(scaleRatio, 0.1, 10.0), pos);
}

void WhiteboardView::scaleSceneToCenter(double scaleRatio)
{
    scaleScene(scaleRatio, boundingRect().center());
}

void WhiteboardView::updateUndoRedoStatus(bool canUndo, bool canRedo)
{
    setCanUndo(canUndo);
    setCanRedo(canRedo);
}

bool WhiteboardView::exportScene(QString filePath)
{
    filePath = Util::instance().toLocalFile(filePath);
    const QByteArray format = whiteboard::SceneExport::formatOf(filePath);
    if (format.isEmpty()) {
        qCWarning(lcWhiteboardExport, "cannot export to %s: unknown format", qPrintable(filePath));
        return false;
    }
    if (whiteboard::SceneExport::isVector(format))
        return exportScene(filePath, 1.0, false);
    const QImage* source = m_scene->thumbnailImage(false);
    if (!source || source->isNull()) {
        qCWarning(lcWhiteboardExport, "cannot export to %s: no frame painted yet", qPrintable(filePath));
        return false;
    }
    QImage canvas(source->width(), source->height(), source->format());
    canvas.fill(m_scene->backgroundColor());
    QPainter painter(&canvas);
    painter.drawImage(QRectF(canvas.rect()), *source, QRectF(source->rect()), Qt::AutoColor);
    QImageWriter writer(filePath, format);
    const bool ok = writer.write(canvas);
    if (!ok) {
        qCWarning(lcWhiteboardExport, "cannot export to %s: %s", qPrintable(filePath), qPrintable(writer.errorString()));
        return false;
    }
    emit sceneExported(filePath, true);
    return true;
}

bool WhiteboardView::exportScene(QString filePath, double scale, bool cropToItems)
{
    filePath = Util::instance().toLocalFile(filePath);
    const QByteArray format = whiteboard::SceneExport::formatOf(filePath);
    if (format.isEmpty()) {
        qCWarning(lcWhiteboardExport, "cannot export to %s: unknown format", qPrintable(filePath));
        return false;
    }
    if (!m_export) {
        m_export = std::make_unique<whiteboard::SceneExport>(m_scene);
        connect(m_export.get(), &whiteboard::SceneExport::finished, this, &WhiteboardView::sceneExported);
    }
    return m_export->start(filePath, format, scale, cropToItems);
}

// The scene deletes the message, whatever it holds.
void WhiteboardView::receiveData(im::whiteboard::TransferData* data)
{
    m_scene->receiveData(data);
}

void WhiteboardView::updateDevicePixelRatio()
{
    if (!window()) {
        qCWarning(lcWhiteboardScene) << "whiteboard cant access window!";
        return;
    }
    m_scene->setDevicePixelRatio(window()->devicePixelRatio());
}

// The board's id travels from the `id` property; the argument is not used.
// Every message names the board by that property, so the join cannot name
// another board than the messages that follow it.
void WhiteboardView::sendUserJoinData(qlonglong timestamp, QString whitboardId)
{
    Q_UNUSED(whitboardId);
    m_scene->joinWhiteboard(timestamp);
}

void WhiteboardView::dropRemotePointers()
{
    m_scene->dropMarks();
}

bool WhiteboardView::event(QEvent* event)
{
    return QQuickItem::event(event);
}

void WhiteboardView::itemChange(ItemChange change, const ItemChangeData& value)
{
    QQuickPaintedItem::itemChange(change, value);
    if (change == ItemDevicePixelRatioHasChanged)
        m_scene->setDevicePixelRatio(value.realValue);
}

void WhiteboardView::componentComplete()
{
    QQuickPaintedItem::componentComplete();
    if (window())
        m_scene->setDevicePixelRatio(window()->devicePixelRatio());
}

void WhiteboardView::mousePressEvent(QMouseEvent* event)
{
    m_pressPoint = event->pos();
    m_scene->mousePressEvent(event);
    forceActiveFocus();
    event->accept();
}

void WhiteboardView::mouseMoveEvent(QMouseEvent* event)
{
    // Measured from the press point, not the last move: a drag that comes back
    // near its start stays silent, which keeps a plain click from being a drag.
    const QPoint d = event->pos() - m_pressPoint;
    if (std::abs(d.x()) + std::abs(d.y()) < QGuiApplication::styleHints()->startDragDistance())
        return;
    m_scene->mouseMoveEvent(event);
    event->accept();
}

void WhiteboardView::mouseReleaseEvent(QMouseEvent* event)
{
    m_scene->mouseReleaseEvent(event);
    event->accept();
}

void WhiteboardView::mouseDoubleClickEvent(QMouseEvent* event)
{
    m_scene->mouseDoubleClickEvent(event);
    event->accept();
}

void WhiteboardView::keyPressEvent(QKeyEvent* event)
{
    m_scene->keyPressEvent(event);
    if (!event->isAccepted())
        QQuickItem::keyPressEvent(event);
}

void WhiteboardView::keyReleaseEvent(QKeyEvent* event)
{
    m_scene->keyReleaseEvent(event);
    if (!event->isAccepted())
        QQuickItem::keyReleaseEvent(event);
}

void WhiteboardView::hoverEnterEvent(QHoverEvent* event)
{
    m_scene->hoverEnterEvent(event);
}

void WhiteboardView::hoverMoveEvent(QHoverEvent* event)
{
    m_scene->hoverMoveEvent(event);
}

void WhiteboardView::hoverLeaveEvent(QHoverEvent* event)
{
    m_scene->hoverLeaveEvent(event);
}

void WhiteboardView::focusOutEvent(QFocusEvent* event)
{
    m_scene->focusOutEvent(event);
}

void WhiteboardView::paint(QPainter* painter)
{
    if (isComponentComplete())
        m_scene->paint(painter, QRectF(), QRectF(), 1);
}

void WhiteboardView::onSceneViewportChanged()
{
    const QRectF rect = m_scene->viewportRect();
    const QSize size = m_scene->sceneSize();
    const double s = m_scene->scale();
    setContentWidth(s * size.width());
    setContentHeight(s * size.height());
    setContentX(std::max(std::min(rect.left(), m_contentWidth - 100), 100 - width()));
    setContentY(std::max(std::min(rect.top(), m_contentHeight - 100), 100 - height()));
    emit sceneViewportChanged();
}
