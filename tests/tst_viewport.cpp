// Viewport, scale and coordinate arithmetic of the scene, and the view's
// mirrored properties.
#include "testsupport.h"

#include "scene/graphicscene.h"
#include "whiteboardview.h"

#include <QMetaProperty>

using whiteboard::GraphicScene;

class tst_Viewport : public QObject
{
    Q_OBJECT

private slots:
    void firstSizeCentresTheBoard_data();
    void firstSizeCentresTheBoard();
    void viewportRefusesToHideTheBoard_data();
    void viewportRefusesToHideTheBoard();
    void scaleKeepsThePointUnderTheCursor();
    void scaleLimits();
    void zoomOutInOneStepShowsThePageSmall_data();
    void zoomOutInOneStepShowsThePageSmall();
    void moveIsInViewPixels();
    void mappingsRoundTrip();
    void mappingsWithoutView();
    void zeroSceneSizeIsRefused();
    void contentGeometryFollowsTheViewport();
    void repeatedWritesEmitOnce_data();
    void repeatedWritesEmitOnce();
    void devicePixelRatioNeedsAWindow();
};

void tst_Viewport::firstSizeCentresTheBoard_data()
{
    QTest::addColumn<QSize>("viewSize");
    QTest::addColumn<QRectF>("viewport");
    QTest::newRow("page size") << QSize(1080, 720) << QRectF(0, 0, 1, 1);
    QTest::newRow("half page") << QSize(540, 360) << QRectF(0.25, 0.25, 0.5, 0.5);
    QTest::newRow("twice the page") << QSize(2160, 1440) << QRectF(-0.5, -0.5, 2, 2);
}

void tst_Viewport::firstSizeCentresTheBoard()
{
    QFETCH(QSize, viewSize);
    QFETCH(QRectF, viewport);
    ViewFixture f(viewSize);
    QCOMPARE(f.scene->viewport(), viewport);
    QCOMPARE(f.scene->mapToScene(QPointF(viewSize.width() / 2.0, viewSize.height() / 2.0)), QPointF(540, 360));
}

void tst_Viewport::viewportRefusesToHideTheBoard_data()
{
    QTest::addColumn<QRectF>("viewport");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("inside the page") << QRectF(0.1, 0.1, 0.5, 0.5) << true;
    QTest::newRow("shifted, most in sight") << QRectF(-0.2, 0, 1, 1) << true;
    QTest::newRow("exactly 100 pixels left") << QRectF(-1080.0 * 0.0 - 980.0 / 1080.0, 0, 1, 1) << true;
    QTest::newRow("99 pixels left") << QRectF(-981.0 / 1080.0, 0, 1, 1) << false;
    QTest::newRow("off the bottom") << QRectF(0, 0.95, 1, 1) << false;
}

void tst_Viewport::viewportRefusesToHideTheBoard()
{
    QFETCH(QRectF, viewport);
    QFETCH(bool, accepted);
    ViewFixture f;
    const QRectF before = f.scene->viewport();
    QSignalSpy spy(f.scene, &GraphicScene::viewportChanged);
    f.scene->setViewport(viewport);
    QCOMPARE(spy.count(), accepted ? 1 : 0);
    QCOMPARE(f.scene->viewport(), accepted ? viewport : before);
}

void tst_Viewport::scaleKeepsThePointUnderTheCursor()
{
    ViewFixture f;
    const QPointF cursor(300, 200);
    const QPointF before = f.scene->mapToScene(cursor);
    for (double scale : { 1.5, 3.0, 2.0, 1.0 }) {
        f.view->scaleScene(scale, cursor);
        QCOMPARE(f.scene->scale(), scale);
        const QPointF after = f.scene->mapToScene(cursor);
        QVERIFY2(qAbs(after.x() - before.x()) < 1e-6 && qAbs(after.y() - before.y()) < 1e-6,
                 qPrintable(QStringLiteral("%1,%2").arg(after.x()).arg(after.y())));
        // One scene unit shows as `scale` view pixels.
        QCOMPARE(f.scene->viewport().width() * 1080 * scale, 1080.0);
    }
}

void tst_Viewport::scaleLimits()
{
    ViewFixture f;
    f.view->scaleSceneToCenter(50);
    QCOMPARE(f.scene->scale(), 10.0);
    f.view->scaleSceneToCenter(0.01);
    QCOMPARE(f.scene->scale(), 0.1);

    QSignalSpy spy(f.scene, &GraphicScene::scaleChanged);
    f.scene->setScale(0.01);
    f.scene->setScale(0.1 + 1e-15);
    QCOMPARE(spy.count(), 0);
    QCOMPARE(f.scene->scale(), 0.1);
}

void tst_Viewport::zoomOutInOneStepShowsThePageSmall_data()
{
    QTest::addColumn<double>("scale");
    QTest::newRow("to a tenth, smaller than 100 pixels") << 0.1;
    QTest::newRow("to a quarter") << 0.25;
}

void tst_Viewport::zoomOutInOneStepShowsThePageSmall()
{
    QFETCH(double, scale);
    ViewFixture f;
    f.view->scaleSceneToCenter(scale);
    QCOMPARE(f.scene->scale(), scale);
    const double side = 1.0 / scale;
    QCOMPARE(f.scene->viewport(), QRectF(0.5 - side / 2, 0.5 - side / 2, side, side));

    // The page, transparent, in the middle; the darkened surround around it.
    const QImage frame = f.frame();
    QCOMPARE(frame.pixelColor(540, 360).alpha(), 0);
    QVERIFY(frame.pixelColor(540, 360 - 720 * scale / 2 - 2).alpha() > 0);
    QVERIFY(frame.pixelColor(100, 100).alpha() > 0);
}

void tst_Viewport::moveIsInViewPixels()
{
    ViewFixture f(QSize(540, 360));
    f.scene->move(54, -36);
    QCOMPARE(f.scene->viewport(), QRectF(0.25 + 0.05, 0.25 - 0.05, 0.5, 0.5));
    QSignalSpy spy(f.scene, &GraphicScene::viewportChanged);
    f.scene->move(0, 0);
    QCOMPARE(spy.count(), 0);
    // Absolute moves go through the view.
    f.view->moveSceneTo(QPointF(0.1, 0.2));
    QCOMPARE(f.scene->viewport(), QRectF(0.1, 0.2, 0.5, 0.5));
}

void tst_Viewport::mappingsRoundTrip()
{
    ViewFixture f(QSize(800, 600));
    f.view->scaleScene(2.0, QPointF(100, 100));
    const QPointF view(123.5, 456.25);
    const QPointF scene = f.scene->mapToScene(view);
    const QPointF back = f.scene->mapFromScene(scene);
    QVERIFY(qAbs(back.x() - view.x()) < 1e-9 && qAbs(back.y() - view.y()) < 1e-9);

    const QRectF rect = f.scene->mapRectToScene(QRectF(0, 0, 800, 600));
    QCOMPARE(rect.size(), QSizeF(400, 300));
    QCOMPARE(f.scene->viewportRect(), rect);

    QPainterPath path;
    path.addRect(10, 10, 20, 40);
    QCOMPARE(f.scene->mapPathToScene(path).boundingRect().size(), QSizeF(10, 20));
}

void tst_Viewport::mappingsWithoutView()
{
    GraphicScene scene;
    QCOMPARE(scene.view(), nullptr);
    QCOMPARE(scene.mapToScene(QPointF(10, 10)), QPointF(0, 0));
    QCOMPARE(scene.mapRectToScene(QRectF(0, 0, 10, 10)), QRectF(0, 0, 0, 0));
    QVERIFY(scene.mapPathToScene(QPainterPath(QPointF(1, 1))).isEmpty());
    // No view, no size: nothing to fit.
    scene.updateViewport(QPointF(5, 5));
    QCOMPARE(scene.viewport(), QRectF(0, 0, 0, 0));
}

void tst_Viewport::zeroSceneSizeIsRefused()
{
    ViewFixture f;
    QSignalSpy spy(f.scene, &GraphicScene::sceneSizeChanged);
    QTest::ignoreMessage(QtWarningMsg, "scene size cant be 0, please check.");
    f.scene->setSceneSize(QSize(0, 0));
    QCOMPARE(spy.count(), 0);
    QCOMPARE(f.scene->sceneSize(), QSize(1080, 720));

    f.scene->setSceneSize(QSize(2160, 1440));
    QCOMPARE(spy.count(), 1);
    // The view still shows half the page's width at scale 1, centred anew.
    QCOMPARE(f.scene->viewport().width(), 0.5);
}

void tst_Viewport::contentGeometryFollowsTheViewport()
{
    ViewFixture f(QSize(500, 400));
    f.view->scaleSceneToCenter(2.0);
    QCOMPARE(f.view->contentWidth(), 2160.0);
    QCOMPARE(f.view->contentHeight(), 1440.0);
    const QRectF rect = f.scene->viewportRect();
    // The left edge in scene units, kept within the margins; unscaled on purpose.
    QCOMPARE(f.view->contentX(), std::max(std::min(rect.left(), 2160.0 - 100), 100.0 - 500));
    QCOMPARE(f.view->contentY(), std::max(std::min(rect.top(), 1440.0 - 100), 100.0 - 400));

    QSignalSpy spy(f.view, &WhiteboardView::sceneViewportChanged);
    f.view->setSceneViewport(QRectF(0.1, 0.1, 0.25, 0.25));
    QVERIFY(spy.count() >= 1);
    QCOMPARE(f.view->sceneViewport(), QRectF(0.1, 0.1, 0.25, 0.25));
}

void tst_Viewport::repeatedWritesEmitOnce_data()
{
    QTest::addColumn<bool>("onScene");
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QVariant>("value");
    QTest::newRow("view toolType") << false << QByteArray("toolType") << QVariant::fromValue(GraphicDefine::Pen);
    QTest::newRow("view contentX") << false << QByteArray("contentX") << QVariant(12.5);
    QTest::newRow("view currentAccountId") << false << QByteArray("currentAccountId") << QVariant(qlonglong(42));
    QTest::newRow("view userName") << false << QByteArray("userName") << QVariant(QStringLiteral("ann"));
    QTest::newRow("view id") << false << QByteArray("id") << QVariant(QStringLiteral("board-1"));
    QTest::newRow("view isOwner") << false << QByteArray("isOwner") << QVariant(true);
    QTest::newRow("view canUndo") << false << QByteArray("canUndo") << QVariant(true);
    QTest::newRow("view thumbnailSize") << false << QByteArray("thumbnailSize") << QVariant(QSize(500, 500));
    QTest::newRow("view frameInterval") << false << QByteArray("frameInterval") << QVariant(16);
    QTest::newRow("scene backgroundColor") << true << QByteArray("backgroundColor") << QVariant(QColor(Qt::white));
    QTest::newRow("scene rotation") << true << QByteArray("rotation") << QVariant(15.0);
    QTest::newRow("scene fillShape") << true << QByteArray("fillShape") << QVariant(true);
    QTest::newRow("scene imagePath") << true << QByteArray("imagePath") << QVariant(QStringLiteral("/tmp/a.png"));
    QTest::newRow("scene disableEdit") << true << QByteArray("disableEdit") << QVariant(true);
    QTest::newRow("scene disableDrag") << true << QByteArray("disableDrag") << QVariant(true);
    QTest::newRow("scene backgroundBrush") << true << QByteArray("backgroundBrush") << QVariant(QBrush(Qt::red));
}

void tst_Viewport::repeatedWritesEmitOnce()
{
    QFETCH(bool, onScene);
    QFETCH(QByteArray, name);
    QFETCH(QVariant, value);
    ViewFixture f;
    QObject* object = onScene ? static_cast<QObject*>(f.scene) : f.view;
    const QMetaProperty property = object->metaObject()->property(object->metaObject()->indexOfProperty(name));
    QVERIFY(property.hasNotifySignal());
    QSignalSpy spy(object, property.notifySignal());
    QVERIFY(object->setProperty(name, value));
    QVERIFY(object->setProperty(name, value));
    QCOMPARE(spy.count(), 1);
    QCOMPARE(object->property(name), value);
}

void tst_Viewport::devicePixelRatioNeedsAWindow()
{
    WhiteboardView view;
    QTest::ignoreMessage(QtWarningMsg, "whiteboard cant access window!");
    view.updateDevicePixelRatio();
    QCOMPARE(view.scene()->devicePixelRatio(), 1.0);
}

QTEST_MAIN(tst_Viewport)
#include "tst_viewport.moc"
