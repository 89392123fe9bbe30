#pragma once

// Shared fixtures: a real WhiteboardView in an offscreen QQuickWindow, driven
// by QTest events, with frames awaited through signals.
#include "graphics/graphicellipseitem.h"
#include "graphics/graphicrectitem.h"
#include "moduleregistration.h"
#include "scene/graphicscene.h"
#include "scene/scenerender.h"
#include "whiteboardview.h"

#include "proto/whiteboard.pb.h"

#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QPainter>
#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTest>

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

// A finished rectangle in `layer`, as a drawn or received one stands: with a
// valid `fill` it is filled and has no outline, else it keeps the outline of a
// new rectangle. Without a timestamp it is newer than every item on the board.
inline QSharedPointer<whiteboard::GraphicItem> addRect(whiteboard::GraphicScene* scene, const QRectF& frame,
                                                       qlonglong userId = 1, const QColor& fill = QColor(),
                                                       whiteboard::GraphicScene::SceneLayer layer = whiteboard::GraphicScene::ItemLayer,
                                                       qlonglong timestamp = -1)
{
    auto* item = new whiteboard::GraphicRectItem(scene);
    QPainterPath path;
    path.addRect(frame);
    item->setOutlinePath(path);
    item->rebuildHitPath();
    item->setBoundary(frame);
    item->setUserId(userId);
    if (fill.isValid()) {
        item->setPen(QPen(Qt::NoPen));
        item->setBrush(QBrush(fill));
    }
    item->setTimestamp(timestamp >= 0 ? timestamp : scene->itemCount(layer) + 1);
    return scene->addItem(layer, item);
}

// An ellipse in the item layer, outlined by `pen`, filled with `fill` if valid.
inline whiteboard::GraphicEllipseItem* addEllipse(whiteboard::GraphicScene* scene, const QRectF& frame, const QPen& pen,
                                                  const QColor& fill, qlonglong timestamp)
{
    auto* ellipse = new whiteboard::GraphicEllipseItem(scene);
    QPainterPath oval;
    oval.addEllipse(frame);
    ellipse->setOutlinePath(oval);
    ellipse->setBoundary(oval.boundingRect());
    ellipse->setPen(pen);
    if (fill.isValid())
        ellipse->setBrush(fill);
    ellipse->setTimestamp(timestamp);
    scene->addItem(whiteboard::GraphicScene::ItemLayer, ellipse);
    return ellipse;
}

// The items of the item layer painted directly, in order, over `ground`, as
// a page shown 1:1 at the default size holds them in a frame or thumbnail.
inline QImage paintedDirectly(whiteboard::GraphicScene* scene, const QColor& ground)
{
    QImage image(1080, 720, QImage::Format_ARGB32_Premultiplied);
    image.fill(ground);
    QPainter painter(&image);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing | QPainter::SmoothPixmapTransform);
    for (const QSharedPointer<whiteboard::GraphicItem>& item : scene->items(whiteboard::GraphicScene::ItemLayer, 1))
        item->paint(&painter, nullptr);
    return image;
}

// Every measured text is set in a font the setup script installs, whatever
// else the machine has: fontconfig would otherwise pick by what is there.
inline void pinTestFont()
{
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(13);
    QGuiApplication::setFont(font);
}

// The QML of the README's embedding example, the first `qml` block after its
// heading, as hosts copy it.
inline QByteArray readmeExample()
{
    QFile file(QStringLiteral(WHITEBOARD_SOURCE_DIR "/README.md"));
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    const QByteArray text = file.readAll();
    const qsizetype section = text.indexOf("## Embedding the view");
    const qsizetype start = text.indexOf("```qml\n", section);
    const qsizetype end = text.indexOf("```\n", start + 7);
    return section < 0 || start < 0 || end < 0 ? QByteArray() : text.mid(start + 7, end - start - 7);
}

// The README's example made as a host makes it, its text field inside the
// view, with `connection` (the host's transport) a context property. The
// engine registers the module in-process, as a host linking the library
// does, so the module folder stays off its import path.
inline WhiteboardView* makeReadmeView(QQmlEngine& engine, QObject* connection, QQuickItem* parent)
{
    whiteboard::registerModuleTypes("com.im.whiteboard");
    QStringList importPaths = engine.importPathList();
    importPaths.removeIf([](const QString& path) { return QFileInfo::exists(path + QStringLiteral("/com/im/whiteboard/qmldir")); });
    engine.setImportPathList(importPaths);
    auto* context = new QQmlContext(&engine, &engine);
    context->setContextProperty(QStringLiteral("connection"), connection);
    QQmlComponent component(&engine);
    component.setData(readmeExample(), QUrl(QStringLiteral("readme-example.qml")));
    auto* view = qobject_cast<WhiteboardView*>(component.beginCreate(context));
    if (!view) {
        qWarning("README example: %s", qPrintable(component.errorString()));
        return nullptr;
    }
    // Goes with the parent, as a view made in C++ does.
    view->setParent(parent);
    view->setParentItem(parent);
    component.completeCreate();
    return view;
}

struct ViewFixture
{
    // Makes the view as a child of the window's content item.
    using ViewMaker = std::function<WhiteboardView*(QQuickItem* parent)>;

    // A view of the page's size at scale 1 maps view pixels 1:1 to scene units.
    explicit ViewFixture(const QSize& size = QSize(1080, 720), qlonglong accountId = 1, const ViewMaker& make = {})
        : window(new QQuickWindow)
    {
        pinTestFont();
        window->resize(size);
        view = make ? make(window->contentItem()) : new WhiteboardView(window->contentItem());
        view->setSize(QSizeF(size));
        view->setCurrentAccountId(accountId);
        scene = view->scene();
        // Runs on the render thread right after the frame is counted, and
        // queues behind the scene's own handler: once it lands, the frame
        // numbered `shown` is the rendered image.
        QObject::connect(scene->renderer(), &whiteboard::SceneRender::finished, scene->renderer(), [this](const QImage&) {
            const int shown = scene->renderer()->composedFrames();
            QMetaObject::invokeMethod(scene, [this, shown] { shownFrame = shown; }, Qt::QueuedConnection);
        }, Qt::DirectConnection);
        window->show();
        view->forceActiveFocus();
        if (!QTest::qWaitForWindowExposed(window.get()))
            qWarning("window not exposed");
    }

    // Requests a frame and waits until one composed after every change so far
    // is shown; false if none came. The round trip first lets the render
    // thread finish a frame under way and take what was queued to it (the
    // border region); a frame takes its state and items under itemsMutex as
    // it starts, so the first frame counted after this request shows every
    // earlier change.
    bool settle()
    {
        QMetaObject::invokeMethod(scene->renderer(), [] {}, Qt::BlockingQueuedConnection);
        const int requested = scene->renderer()->composedFrames();
        scene->update(QRectF(0, 0, 1, 1));
        return QTest::qWaitFor([&] { return shownFrame > requested; }, 5000);
    }

    QImage frame() { return settle() ? scene->renderedImage() : QImage(); }

    // True when the render thread is between calls with no visible entry in
    // its dirty lists: no frame is under way and none is due.
    bool renderIdle()
    {
        whiteboard::SceneRender* render = scene->renderer();
        QMetaObject::invokeMethod(render, [] {}, Qt::BlockingQueuedConnection);
        for (int layer = 0; layer < whiteboard::GraphicScene::kLayerCount; ++layer) {
            const QList<whiteboard::DirtyArea> areas = render->dirtyAreas(whiteboard::GraphicScene::SceneLayer(layer));
            if (std::any_of(areas.cbegin(), areas.cend(), [](const whiteboard::DirtyArea& area) { return area.isVisible(); }))
                return false;
        }
        return true;
    }
    int composedFrames() const { return scene->renderer()->composedFrames(); }

    void press(QPoint p, Qt::KeyboardModifiers modifiers = Qt::NoModifier, Qt::MouseButton button = Qt::LeftButton)
    {
        QTest::mousePress(window.get(), button, modifiers, p);
    }
    void move(QPoint p) { QTest::mouseMove(window.get(), p); }
    void release(QPoint p, Qt::KeyboardModifiers modifiers = Qt::NoModifier, Qt::MouseButton button = Qt::LeftButton)
    {
        QTest::mouseRelease(window.get(), button, modifiers, p);
    }
    // A press, moves in `steps` straight steps, and a release.
    void drag(QPoint from, QPoint to, int steps = 4, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        press(from, modifiers);
        for (int i = 1; i <= steps; ++i)
            move(from + (to - from) * i / steps);
        release(to, modifiers);
    }

    // Takes every message the view sends from here on, as a host would:
    // for tests that play no host of their own.
    void keepSent()
    {
        QObject::connect(view, &WhiteboardView::sendData, view,
                         [this](im::whiteboard::TransferData* data) { sent.emplace_back(data); });
    }

    std::unique_ptr<QQuickWindow> window;
    WhiteboardView* view = nullptr;
    whiteboard::GraphicScene* scene = nullptr;
    std::vector<std::unique_ptr<im::whiteboard::TransferData>> sent;
    // The number of the frame last shown; GUI thread.
    int shownFrame = 0;
};
