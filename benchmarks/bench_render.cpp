// Frame composition, hit tests on a large board and the memory of an empty
// view. Run by hand: ./bench_render [-iterations N]
#include "graphics/graphicrectitem.h"
#include "scene/graphicscene.h"
#include "scene/scenerender.h"
#include "whiteboardview.h"

#include <QFile>
#include <QMutexLocker>
#include <QQuickWindow>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTest>

using namespace whiteboard;

namespace {

// A filled or outlined rectangle as a user would have drawn it.
QSharedPointer<GraphicItem> rectItem(GraphicScene* scene, const QRectF& rect, qlonglong timestamp)
{
    auto* item = new GraphicRectItem(scene, nullptr);
    QPainterPath path;
    path.addRect(rect);
    item->setOutlinePath(path);
    item->rebuildHitPath();
    item->setBoundary(rect);
    item->setPen(QPen(QBrush(Qt::darkBlue), 2, Qt::SolidLine, Qt::SquareCap, Qt::BevelJoin));
    if (timestamp % 2)
        item->setBrush(QBrush(QColor(200, 220, 255)));
    item->setTimestamp(timestamp);
    return GraphicScene::makeShared(item);
}

void fill(GraphicScene* scene, int count, const QRectF& area, double side)
{
    QRandomGenerator random(42);
    for (int i = 0; i < count; ++i) {
        const QPointF at(area.x() + random.bounded(area.width() - side), area.y() + random.bounded(area.height() - side));
        scene->addItem(GraphicScene::ItemLayer, rectItem(scene, QRectF(at, QSizeF(side, side)), i));
    }
}

qint64 residentKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

struct Board
{
    explicit Board(const QSize& size)
    {
        window.resize(size);
        view = new WhiteboardView(window.contentItem());
        view->setSize(QSizeF(size));
        window.show();
        if (!QTest::qWaitForWindowExposed(&window))
            qWarning("window not exposed");
    }
    QQuickWindow window;
    WhiteboardView* view = nullptr;
};

} // namespace

class bench_Render : public QObject
{
    Q_OBJECT

private slots:
    void composeFrame_data();
    void composeFrame();
    void hitTests_data();
    void hitTests();
    void emptyViewMemory();
};

void bench_Render::composeFrame_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<double>("scale");
    QTest::newRow("1000 rects, scale 1") << 1000 << 1.0;
    QTest::newRow("10000 rects, scale 1") << 10000 << 1.0;
}

void bench_Render::composeFrame()
{
    QFETCH(int, count);
    QFETCH(double, scale);
    Board board(QSize(1080, 720));
    GraphicScene* scene = board.view->scene();
    scene->setBackgroundColor(Qt::white);
    board.view->scaleSceneToCenter(scale);
    fill(scene, count, QRectF(0, 0, 1080, 720), 20);
    SceneRender* render = scene->renderer();
    QMutexLocker locker(&scene->itemsMutex());
    QBENCHMARK {
        render->composeFrame();
    }
}

void bench_Render::hitTests_data()
{
    QTest::addColumn<bool>("rectQuery");
    QTest::newRow("itemAt, 100000 items") << false;
    QTest::newRow("rect query, 100000 items") << true;
}

void bench_Render::hitTests()
{
    QFETCH(bool, rectQuery);
    Board board(QSize(1080, 720));
    GraphicScene* scene = board.view->scene();
    scene->setSceneSize(QSize(5000, 5000));
    fill(scene, 100000, QRectF(0, 0, 5000, 5000), 10);
    QRandomGenerator random(7);
    qsizetype found = 0;
    if (rectQuery) {
        QBENCHMARK {
            const QRectF area(random.bounded(4800), random.bounded(4800), 200, 200);
            found += scene->itemsByRect(GraphicScene::ItemLayer, area, Qt::IntersectsItemShape, 1).size();
        }
    } else {
        QBENCHMARK {
            const QPointF at(random.bounded(1080), random.bounded(720));
            found += scene->itemAt(at, 0, Qt::IntersectsItemShape) ? 1 : 0;
        }
    }
}

void bench_Render::emptyViewMemory()
{
    const qint64 before = residentKiB();
    auto board = std::make_unique<Board>(QSize(1080, 720));
    QSignalSpy frames(board->view->scene(), &GraphicScene::afterSynchronizing);
    board->view->scene()->update(QRectF(0, 0, 10, 10));
    if (!frames.wait(2000))
        qWarning("no frame");
    const qint64 after = residentKiB();
    qInfo("resident memory of a view with an empty board: %lld KiB (process %lld KiB)", after - before, after);
}

QTEST_MAIN(bench_Render)
#include "bench_render.moc"
