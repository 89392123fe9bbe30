#pragma once

// Shared fixtures: a real WhiteboardView in an offscreen QQuickWindow, driven
// by QTest events, with frames awaited through signals.
#include "graphics/graphicrectitem.h"
#include "scene/graphicscene.h"
#include "whiteboardview.h"

#include "proto/whiteboard.pb.h"

#include <QQuickWindow>
#include <QSignalSpy>
#include <QTest>

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

struct ViewFixture
{
    // A view of the page's size at scale 1 maps view pixels 1:1 to scene units.
    explicit ViewFixture(const QSize& size = QSize(1080, 720), qlonglong accountId = 1)
        : window(new QQuickWindow)
    {
        window->resize(size);
        view = new WhiteboardView(window->contentItem());
        view->setSize(QSizeF(size));
        view->setCurrentAccountId(accountId);
        scene = view->scene();
        window->show();
        view->forceActiveFocus();
        if (!QTest::qWaitForWindowExposed(window.get()))
            qWarning("window not exposed");
    }

    // Waits for the next frame to reach the scene; true if it came.
    bool waitForFrame(int timeout = 2000)
    {
        QSignalSpy spy(scene, &whiteboard::GraphicScene::afterSynchronizing);
        return spy.wait(timeout);
    }

    // Requests a frame and waits until frames stop coming: the trailing
    // request is never lost, so the last frame shows every earlier change.
    QImage frame()
    {
        QSignalSpy spy(scene, &whiteboard::GraphicScene::afterSynchronizing);
        scene->update(QRectF(0, 0, 1, 1));
        if (!spy.wait(2000))
            return QImage();
        settle();
        return scene->renderedImage();
    }

    // Waits until no frame has arrived for a while.
    void settle()
    {
        QSignalSpy spy(scene, &whiteboard::GraphicScene::afterSynchronizing);
        while (spy.wait(150))
            spy.clear();
    }

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
};
