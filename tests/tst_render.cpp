// The render worker: paced frames, their contents by pixels, and teardown.
#include "testsupport.h"

#include "graphics/abstractgraphicshapeitem.h"
#include "graphics/graphicellipseitem.h"
#include "graphics/graphictextitem.h"
#include "scene/scenerender.h"

#include <QPointer>
#include <QRandomGenerator>
#include <QSemaphore>

#include <atomic>

using namespace whiteboard;

namespace {

// Holds the render thread inside a frame until the worker is told to quit.
class BlockingItem : public AbstractGraphicShapeItem
{
public:
    BlockingItem(SceneRender* render, QSemaphore* entered)
        : m_render(render)
        , m_entered(entered)
    {
        setBoundary(QRectF(10, 10, 10, 10));
    }

    void paint(QPainter*, const QRectF*) override
    {
        m_entered->release();
        while (!m_render->quitRequested())
            QThread::yieldCurrentThread();
    }

private:
    SceneRender* m_render;
    QSemaphore* m_entered;
};

// Widens as it paints, the way a mark sizes itself: the new boundary asks
// for its own repaint, which widens it again, six times in all.
class GrowingItem : public AbstractGraphicShapeItem
{
public:
    explicit GrowingItem(GraphicScene* scene)
        : AbstractGraphicShapeItem(scene)
    {
        setBoundary(QRectF(100, 100, 20, 20));
    }

    void paint(QPainter* painter, const QRectF*) override
    {
        painter->fillRect(boundary(), Qt::red);
        if (boundary().width() < 260)
            setBoundary(boundary().adjusted(0, 0, 40, 0));
    }
};

bool near(const QColor& a, const QColor& b)
{
    return qAbs(a.red() - b.red()) <= 1 && qAbs(a.green() - b.green()) <= 1 && qAbs(a.blue() - b.blue()) <= 1
        && qAbs(a.alpha() - b.alpha()) <= 1;
}

} // namespace

class tst_Render : public QObject
{
    Q_OBJECT

private slots:
    void burstGivesAtMostTwoFramesShowingTheLast();
    void cleanUpdateGivesNoFrame();
    void dirtyListsPerLayer();
    void backgroundAndSurround();
    void laterLayerOnTop();
    void growthWhilePaintingComesWithLaterFrames();
    void framesPaintAsTheItemsDo_data();
    void framesPaintAsTheItemsDo();
    void keptPixelsAreThoseOfAFreshRepaint_data();
    void keptPixelsAreThoseOfAFreshRepaint();
    void thumbnailsShowFinishedItemsOnly();
    void exportWritesThePage();
    void renderSizeFollowsTheView();
    void teardownDuringAFrame();
};

void tst_Render::burstGivesAtMostTwoFramesShowingTheLast()
{
    ViewFixture f;
    f.frame();
    QTRY_VERIFY(f.renderIdle());
    const int before = f.composedFrames();
    {
        // Holding the items lock makes the burst instantaneous for the render
        // thread, however loaded the machine is.
        QMutexLocker locker(&f.scene->itemsMutex());
        for (int i = 0; i < 100; ++i)
            f.scene->setBackgroundColor(QColor(i, 0, 0));
    }
    // Frames come at least 40 ms apart: the first at once, one trailing
    // frame at most, and the trailing request is never lost.
    QTRY_COMPARE(f.scene->renderedImage().pixelColor(540, 360), QColor(99, 0, 0));
    QTRY_VERIFY(f.renderIdle());
    QVERIFY2(f.composedFrames() - before <= 2, qPrintable(QString::number(f.composedFrames() - before)));

    // A change made as a frame lands falls within its 40 ms: it must still be
    // shown, by the trailing frame.
    QMetaObject::Connection once;
    once = connect(f.scene, &GraphicScene::afterSynchronizing, f.scene, [&] {
        disconnect(once);
        f.scene->setBackgroundColor(QColor(1, 2, 3));
    });
    f.scene->setBackgroundColor(QColor(50, 0, 0));
    QTRY_COMPARE(f.scene->renderedImage().pixelColor(540, 360), QColor(1, 2, 3));
}

void tst_Render::cleanUpdateGivesNoFrame()
{
    ViewFixture f;
    f.frame();
    QTRY_VERIFY(f.renderIdle());
    const int before = f.composedFrames();
    f.scene->update();
    // A horizontal line recorded as a path has no extent: nothing is due.
    QPainterPath line(QPointF(0, 5));
    line.lineTo(100, 5);
    f.scene->updateLayer(GraphicScene::ItemLayer, line);
    QVERIFY(f.renderIdle());
    QCOMPARE(f.composedFrames(), before);
}

void tst_Render::dirtyListsPerLayer()
{
    // No view: nothing is painted, so the lists stay as recorded.
    GraphicScene scene;
    SceneRender* render = scene.renderer();
    render->makeDirty(QRectF(0, 0, 10, 10), GraphicScene::AllLayers);
    render->makeDirtyRegion(QRegion(0, 0, 5, 5), GraphicScene::ActiveLayer);
    render->makeDirty(QRectF(0, 0, 0, 10), GraphicScene::ItemLayer);
    for (int layer = 0; layer < GraphicScene::kLayerCount; ++layer)
        QCOMPARE(render->dirtyAreas(GraphicScene::SceneLayer(layer)).size(), layer == GraphicScene::ActiveLayer ? 2 : 1);
    QVERIFY(render->dirtyAreas(GraphicScene::AllLayers).isEmpty());

    // A flood that no frame takes (a hostile stream, or one before the
    // first frame) stays a few entries that still cover every change.
    QRegion flooded;
    for (int i = 0; i < 5000; ++i) {
        const QRect rect((i * 37) % 1000, (i * 53) % 700, 5, 5);
        render->makeDirty(rect, GraphicScene::ItemLayer);
        flooded += rect;
    }
    const QList<DirtyArea> kept = render->dirtyAreas(GraphicScene::ItemLayer);
    QVERIFY(kept.size() <= 64);
    QRegion covered;
    for (const DirtyArea& area : kept)
        covered += area.region;
    QCOMPARE(flooded - covered, QRegion());
}

void tst_Render::backgroundAndSurround()
{
    ViewFixture f;
    f.scene->setBackgroundColor(QColor(10, 200, 30));
    QImage frame = f.frame();
    QCOMPARE(frame.size(), QSize(1080, 720));
    QCOMPARE(frame.pixelColor(5, 5), QColor(10, 200, 30));

    // Zoomed out: the page is smaller than the view and the rest is darkened
    // by black at alpha 0x90.
    f.view->scaleSceneToCenter(0.5);
    frame = f.frame();
    const QColor darkened(10 * 111 / 255, 200 * 111 / 255, 30 * 111 / 255);
    for (const QPoint& outside : { QPoint(5, 5), QPoint(265, 175), QPoint(1075, 715) })
        QVERIFY2(near(frame.pixelColor(outside), darkened), qPrintable(frame.pixelColor(outside).name(QColor::HexArgb)));
    QCOMPARE(frame.pixelColor(540, 360), QColor(10, 200, 30));
    QCOMPARE(frame.pixelColor(275, 185), QColor(10, 200, 30));

    // An invalid background leaves the page transparent and the surround the overlay alone.
    f.scene->setBackgroundColor(QColor());
    frame = f.frame();
    QCOMPARE(frame.pixelColor(540, 360), QColor(Qt::transparent));
    QCOMPARE(frame.pixelColor(5, 5), QColor(0, 0, 0, 0x90));
}

void tst_Render::laterLayerOnTop()
{
    ViewFixture f;
    f.scene->setBackgroundColor(Qt::white);
    addRect(f.scene, QRectF(100, 100, 100, 100), 1, Qt::red, GraphicScene::ItemLayer, 200);
    addRect(f.scene, QRectF(150, 150, 100, 100), 1, Qt::blue, GraphicScene::ActiveLayer, 100);
    addRect(f.scene, QRectF(120, 120, 20, 20), 1, Qt::green, GraphicScene::ItemLayer, 300);
    const QImage frame = f.frame();
    QCOMPARE(frame.pixelColor(175, 175), QColor(Qt::blue));
    QCOMPARE(frame.pixelColor(130, 130), QColor(Qt::green));
    QCOMPARE(frame.pixelColor(110, 110), QColor(Qt::red));
    QCOMPARE(frame.pixelColor(50, 50), QColor(Qt::white));
}

void tst_Render::growthWhilePaintingComesWithLaterFrames()
{
    ViewFixture f;
    f.scene->setBackgroundColor(Qt::white);
    auto* item = new GrowingItem(f.scene);
    item->setTimestamp(1);
    // Above the item layer, where thumbnails do not paint it (and widen it).
    f.scene->addItem(GraphicScene::ActiveLayer, item);
    // More widenings than one frame's passes: the last pass's is left for
    // the next frame, not dropped.
    QTRY_COMPARE(f.frame().pixelColor(350, 110), QColor(Qt::red));
}

// Frames paint a recording of the items, made under the lock; text is
// painted live in its place. Whole or partial, the pixels are those of the
// items painted directly, in order.
void tst_Render::framesPaintAsTheItemsDo_data()
{
    QTest::addColumn<int>("crowd");
    QTest::newRow("a few items") << 0;
    // Enough for a whole frame to be painted in bands, one per core.
    QTest::newRow("a crowded page") << 1500;
}

void tst_Render::framesPaintAsTheItemsDo()
{
    QFETCH(int, crowd);
    ViewFixture f;
    f.scene->setBackgroundColor(Qt::white);
    QRandomGenerator random(11);
    for (int i = 0; i < crowd; ++i) {
        // Outlined and filled, straddling band edges as they fall.
        const QRectF frame(random.bounded(1040.0), random.bounded(690.0), 7.5 + random.bounded(30.0), 5.5 + random.bounded(25.0));
        addRect(f.scene, frame, 1, i % 3 ? QColor() : QColor::fromHsv(i % 360, 120, 230, 160), GraphicScene::ItemLayer, i + 1);
    }
    addRect(f.scene, QRectF(100, 100, 300, 200), 1, QColor(), GraphicScene::ItemLayer, crowd + 1);
    addEllipse(f.scene, QRectF(250, 150, 260, 180), QPen(QColor(0, 120, 0), 5), QColor(200, 220, 255), crowd + 2);
    auto* text = new GraphicTextItem(QStringLiteral("recorded and live"), QFont(), f.scene);
    text->setBoundary(QRectF(280, 200, 300, 60));
    text->setTimestamp(crowd + 3);
    f.scene->addItem(GraphicScene::ItemLayer, text);
    addRect(f.scene, QRectF(300, 220, 80, 40), 1, QColor(255, 0, 0, 128), GraphicScene::ItemLayer, crowd + 4);

    QCOMPARE(f.frame(), paintedDirectly(f.scene, Qt::white));

    // A partial frame over the kept page: the text moves under the others.
    const int partial = f.scene->renderer()->partialFrames();
    const QRectF before = text->boundary();
    {
        QMutexLocker locker(&f.scene->itemsMutex());
        text->setBoundary(before.translated(40, 30));
    }
    f.scene->updateLayer(GraphicScene::ItemLayer, QRegion(before.united(text->boundary()).toAlignedRect()));
    QTRY_VERIFY(f.scene->renderer()->partialFrames() > partial);
    QCOMPARE(f.frame(), paintedDirectly(f.scene, Qt::white));
    // The large thumbnail of a page of its size is the items alone, painted
    // the same way, in bands too when crowded.
    QCOMPARE(*f.scene->thumbnailImage(false), paintedDirectly(f.scene, Qt::transparent));
}

// A pan by whole pixels scrolls the kept page and repaints the strip that
// comes into view; a zoom shows the kept page scaled, then the exact page.
// Either way the frame that settles is the one a whole repaint gives.
void tst_Render::keptPixelsAreThoseOfAFreshRepaint_data()
{
    QTest::addColumn<double>("scale");
    QTest::addColumn<double>("ratio");
    QTest::addColumn<double>("zoomTo");
    // The page covers the view.
    QTest::newRow("zoomed in") << 2.0 << 1.0 << 2.2;
    // The page's edges are in view and move with it.
    QTest::newRow("zoomed out") << 0.75 << 1.0 << 0.6;
    QTest::newRow("two device pixels a unit") << 2.0 << 2.0 << 1.5;
}

void tst_Render::keptPixelsAreThoseOfAFreshRepaint()
{
    QFETCH(double, scale);
    QFETCH(double, ratio);
    QFETCH(double, zoomTo);
    ViewFixture f;
    f.scene->setDevicePixelRatio(ratio);
    f.scene->setBackgroundColor(Qt::white);
    QRandomGenerator random(7);
    for (int i = 0; i < 600; ++i) {
        // Whole and fractional edges, outlined and filled, some wide pens;
        // none thinner than a device pixel at the smallest zoom here: the
        // raster engine draws those with its thin-line stroker, whose
        // pixels depend on the painter's clip rectangle, so that no repaint
        // of a part of the view was ever exact for them.
        const QRectF frame(random.bounded(1040) + (i % 4) * 0.25, random.bounded(690) + (i % 3) * 0.5, 6 + random.bounded(40), 4 + random.bounded(30));
        auto item = addRect(f.scene, frame, 1, i % 3 ? QColor() : QColor::fromHsv(i % 360, 120, 230, 160), GraphicScene::ItemLayer, i + 1);
        if (i % 3 != 0)
            static_cast<AbstractGraphicShapeItem*>(item.data())->setPen(QPen(QColor(0, 90, 0), 2 + i % 9));
    }
    addEllipse(f.scene, QRectF(250.5, 150, 260, 180.25), QPen(QColor(0, 120, 0), 5), QColor(), 1000);
    auto* text = new GraphicTextItem(QStringLiteral("kept and scrolled"), QFont(), f.scene);
    text->setBoundary(QRectF(500, 300, 300, 60));
    text->setTimestamp(1001);
    f.scene->addItem(GraphicScene::ItemLayer, text);
    f.view->scaleSceneToCenter(scale);
    f.frame();

    // A whole repaint of the view as it stands: the ground changes and back.
    const auto fresh = [&] {
        f.scene->setBackgroundColor(Qt::black);
        f.frame();
        f.scene->setBackgroundColor(Qt::white);
        return f.frame();
    };
    SceneRender* render = f.scene->renderer();
    const auto pan = [&](QPoint by) {
        // Space and a drag, as a user pans: the content follows the hand.
        const QPoint from(540, 360);
        QTest::keyPress(f.window.get(), Qt::Key_Space);
        f.press(from);
        f.move(from + by);
        f.release(from + by);
        QTest::keyRelease(f.window.get(), Qt::Key_Space);
    };

    const int scrolled = render->scrolledFrames();
    pan(QPoint(-12, -8));
    QImage kept = f.frame();
    QVERIFY(render->scrolledFrames() > scrolled);
    QCOMPARE(kept, fresh());
    pan(QPoint(12, 8));
    kept = f.frame();
    QVERIFY(render->scrolledFrames() > scrolled + 1);
    QCOMPARE(kept, fresh());

    // The preview is not exact; the frame after it is, and comes by itself.
    const int previews = render->previewFrames();
    const int frames = render->composedFrames();
    f.view->scaleSceneToCenter(zoomTo);
    QTRY_VERIFY(render->previewFrames() > previews);
    QTRY_VERIFY(render->composedFrames() > frames);
    kept = f.frame();
    QCOMPARE(kept, fresh());

    // Scattered changes, more than a frame keeps apart: repainted as the
    // tiles they touch, in a frame of the kept page.
    const int partial = render->partialFrames();
    {
        QMutexLocker locker(&f.scene->itemsMutex());
        const GraphicItemList all = f.scene->items(GraphicScene::ItemLayer, 1);
        for (int i = 0; i < all.size(); i += 6) {
            auto* shape = qobject_cast<AbstractGraphicShapeItem*>(all.at(i).data());
            if (!shape || shape->type() != GraphicItem::Rectangle)
                continue;
            const QRectF before = shape->boundary();
            QPainterPath outline;
            outline.addRect(before.translated(3, 2));
            shape->setOutlinePath(outline);
            shape->setBoundary(outline.boundingRect());
            f.scene->updateLayer(GraphicScene::ItemLayer, QRegion(before.united(shape->boundary()).toAlignedRect()));
        }
    }
    kept = f.frame();
    QVERIFY(render->partialFrames() > partial);
    QCOMPARE(kept, fresh());
}

void tst_Render::thumbnailsShowFinishedItemsOnly()
{
    ViewFixture f;
    QSignalSpy large(f.scene, &GraphicScene::thumbnailChanged);
    QSignalSpy small(f.scene, &GraphicScene::smallThumbnailChanged);
    addRect(f.scene, QRectF(0, 0, 540, 360), 1, Qt::red, GraphicScene::ItemLayer, 1);
    addRect(f.scene, QRectF(540, 360, 540, 360), 1, Qt::blue, GraphicScene::ActiveLayer, 2);
    f.view->scaleSceneToCenter(3.0);
    f.frame();
    // Thumbnails may lag the frame; asking for one brings both up to date.
    const QImage* thumbnail = f.scene->thumbnailImage(false);
    QVERIFY(large.count() >= 1 && small.count() >= 1);
    QCOMPARE(large.last().at(0).value<QImage*>(), thumbnail);
    QCOMPARE(thumbnail->size(), QSize(1080, 720));
    QCOMPARE(thumbnail->pixelColor(100, 100), QColor(Qt::red));
    QCOMPARE(thumbnail->pixelColor(800, 600), QColor(Qt::transparent));
    const QImage* smallImage = f.scene->thumbnailImage(true);
    QCOMPARE(smallImage->size(), QSize(120, 90));
    QCOMPARE(smallImage->pixelColor(20, 20), QColor(Qt::red));
}

void tst_Render::exportWritesThePage()
{
    {
        // No frame yet, no thumbnail to export.
        WhiteboardView view;
        const QString never = QDir::temp().filePath(QStringLiteral("never.png"));
        QTest::ignoreMessage(QtWarningMsg, qPrintable(QStringLiteral("cannot export to %1: no frame painted yet").arg(never)));
        QVERIFY(!view.exportScene(never));
    }
    ViewFixture f;
    const QString path = QDir::temp().filePath(QStringLiteral("whiteboard-export-%1.png").arg(QCoreApplication::applicationPid()));
    QFile::remove(path);
    f.scene->setBackgroundColor(Qt::white);
    addRect(f.scene, QRectF(0, 0, 100, 100), 1, Qt::blue, GraphicScene::ItemLayer, 1);
    f.view->scaleSceneToCenter(2.0);
    f.frame();
    QVERIFY(f.view->exportScene(QUrl::fromLocalFile(path).toString()));
    const QImage exported(path);
    QCOMPARE(exported.size(), QSize(1080, 720));
    QCOMPARE(exported.pixelColor(50, 50), QColor(Qt::blue));
    QCOMPARE(exported.pixelColor(500, 500), QColor(Qt::white));
    QFile::remove(path);
    QTest::ignoreMessage(QtWarningMsg, "cannot export to /nonexistent/dir/x.png: Cannot open device for writing: No such file or directory");
    QVERIFY(!f.view->exportScene(QStringLiteral("/nonexistent/dir/x.png")));
}

void tst_Render::renderSizeFollowsTheView()
{
    ViewFixture f(QSize(400, 300));
    f.frame();
    SceneRender* render = f.scene->renderer();
    QCOMPARE(render->frameImage().size(), QSize(400, 300));

    // The same size and ratio change nothing and log nothing.
    const QImage before = render->baseImage();
    render->updateRenderSize(QSize(400, 300), 1.0);
    QCOMPARE(render->baseImage().constBits(), before.constBits());

    f.view->setWidth(800);
    QCOMPARE(render->frameImage().size(), QSize(800, 300));
    f.scene->setBackgroundColor(Qt::red);
    QCOMPARE(f.frame().size(), QSize(800, 300));

    f.scene->setDevicePixelRatio(2.0);
    QCOMPARE(render->baseImage().size(), QSize(1600, 600));
    QCOMPARE(render->baseImage().devicePixelRatio(), 2.0);
}

void tst_Render::teardownDuringAFrame()
{
    auto f = std::make_unique<ViewFixture>();
    f->frame();
    QPointer<SceneRender> render = f->scene->renderer();
    QSemaphore entered;
    f->scene->addItem(GraphicScene::ItemLayer, GraphicScene::makeShared(new BlockingItem(render, &entered)));
    QSignalSpy finished(render.data(), &SceneRender::finished);
    f->scene->update(QRectF(0, 0, 50, 50));
    QVERIFY(entered.tryAcquire(1, 5000));

    f.reset();
    // The frame was abandoned, and the worker went with its thread.
    QCOMPARE(finished.count(), 0);
    QVERIFY(render.isNull());
}

QTEST_MAIN(tst_Render)
#include "tst_render.moc"
