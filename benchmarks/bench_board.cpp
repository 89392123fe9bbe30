// Big boards side by side with QGraphicsScene doing the same work, in one
// process: frames, partial repaints, pans and zooms (beside a QGraphicsView),
// hit tests, remote updates, removals, late joins, memory and export. Prints
// one table. Run by hand, offscreen:
//   QT_QPA_PLATFORM=offscreen ./bench_board [memory] [frames] [pan] [flood] [hits] [sync] [export]
#include "graphics/abstractgraphicshapeitem.h"
#include "scene/graphicscene.h"
#include "scene/scenerender.h"
#include "whiteboardview.h"

#include "proto/whiteboard.pb.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QGraphicsRectItem>
#include <QGraphicsScene>
#include <QGraphicsView>
#include <QHash>
#include <QLoggingCategory>
#include <QPainter>
#include <QPdfWriter>
#include <QProcess>
#include <QQuickWindow>
#include <QRandomGenerator>
#include <QScrollBar>
#include <QSvgGenerator>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <malloc.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <memory>
#include <string>
#include <vector>

using namespace whiteboard;
namespace pb = im::whiteboard;

namespace {

const QSize kView(1080, 720);
const QImage::Format kFormat = QImage::Format_ARGB32_Premultiplied;
// Updates, removals and joins give up and extrapolate past this.
constexpr qint64 kBudgetMs = 20000;

// --- the table --------------------------------------------------------------

void printRow(const QString& scenario, const QString& ours, const QString& theirs, double ratio, const QString& goal)
{
    printf("| %-58s | %14s | %14s | %7s | %-26s |\n", qPrintable(scenario), qPrintable(ours), qPrintable(theirs),
           ratio > 0 ? qPrintable(QString::number(ratio, 'f', 2) + QLatin1Char('x')) : "", qPrintable(goal));
    fflush(stdout);
}

QString ms(double value)
{
    return value >= 100 ? QStringLiteral("%1 ms").arg(value, 0, 'f', 0) : QStringLiteral("%1 ms").arg(value, 0, 'f', 2);
}

QString us(double value)
{
    return QStringLiteral("%1 us").arg(value, 0, 'f', 2);
}

// --- the same items on both sides -------------------------------------------

struct Shape
{
    QRectF rect;
    bool filled = false;
};

std::vector<Shape> shapes(int count, const QRectF& area, double side, quint32 seed = 42)
{
    QRandomGenerator random(seed);
    std::vector<Shape> result;
    result.reserve(count);
    for (int i = 0; i < count; ++i) {
        const QPointF at(area.x() + random.bounded(area.width() - side), area.y() + random.bounded(area.height() - side));
        result.push_back({ QRectF(at, QSizeF(side, side)), i % 2 == 1 });
    }
    return result;
}

std::string gidOf(int i)
{
    return "bench-" + std::to_string(i);
}

pb::WhiteboardData rectBody(pb::GraphicActionType type, int i, const Shape& shape)
{
    const std::string gid = gidOf(i);
    pb::WhiteboardData body;
    pb::GraphicAction* action = body.mutable_graphicactiondata();
    action->set_graphicactiontype(type);
    action->set_gid(gid);
    action->set_timestamp(i + 1);
    pb::Rect* rect = action->mutable_rectdata()->add_data();
    rect->mutable_baseinfo()->set_gid(gid);
    rect->mutable_baseinfo()->set_timestamp(i + 1);
    rect->mutable_leftpos()->set_x(float(shape.rect.x()));
    rect->mutable_leftpos()->set_y(float(shape.rect.y()));
    rect->set_width(float(shape.rect.width()));
    rect->set_heigth(float(shape.rect.height()));
    rect->mutable_strokestyle()->set_color("#00008b");
    rect->mutable_strokestyle()->set_width(2);
    if (shape.filled)
        rect->mutable_fillstyle()->set_color("#c8dcff");
    return body;
}

// One message of many envelopes, as a relay replays a board.
pb::TransferData* message(const std::vector<pb::WhiteboardData>& bodies)
{
    auto* data = new pb::TransferData;
    for (const pb::WhiteboardData& body : bodies)
        data->mutable_multi()->add_whiteboarddatalist()->set_data(body.SerializeAsString());
    return data;
}

QGraphicsRectItem* graphicsItem(const Shape& shape)
{
    auto* item = new QGraphicsRectItem(shape.rect);
    item->setPen(QPen(QBrush(QColor("#00008b")), 2));
    if (shape.filled)
        item->setBrush(QBrush(QColor("#c8dcff")));
    return item;
}

// --- a live board -----------------------------------------------------------

struct Board
{
    explicit Board(const QSize& page = QSize(1080, 720))
    {
        window.resize(kView);
        view = new WhiteboardView(window.contentItem());
        view->setSize(QSizeF(kView));
        scene = view->scene();
        scene->setBackgroundColor(Qt::white);
        scene->setSceneSize(page);
        window.show();
        if (!QTest::qWaitForWindowExposed(&window))
            qWarning("window not exposed");
        settle();
    }

    SceneRender* render() const { return scene->renderer(); }

    // Waits until the frame counter passes `count`, asleep in an event loop
    // that the frame's signal wakes: polling would take a core from the
    // render thread on a two-core machine.
    bool waitFrames(int count, int timeout = 60000)
    {
        QEventLoop loop;
        const auto check = [&] {
            if (render()->composedFrames() >= count)
                loop.quit();
        };
        QObject::connect(render(), &SceneRender::finished, &loop, check, Qt::QueuedConnection);
        QTimer::singleShot(timeout, &loop, &QEventLoop::quit);
        if (render()->composedFrames() < count)
            loop.exec();
        return render()->composedFrames() >= count;
    }

    // Lets the render thread go idle: no change pending, pacing slot free.
    void settle()
    {
        int frames = -1;
        while (frames != render()->composedFrames()) {
            frames = render()->composedFrames();
            QTest::qWait(120);
        }
    }

    // Lets the board finish all it owes for a change made after `frames`
    // frames: the frame that shows it, the thumbnails, and whatever the
    // render thread was doing, so that no recording, dirty list or frame
    // state is alive. settle() alone may return in the middle of a frame that
    // takes longer than its quiet spell.
    void idle(int frames)
    {
        waitFrames(frames + 1);
        scene->thumbnailImage(false);
        drain();
    }

    // settle(), and the render thread back in its event loop.
    void drain()
    {
        settle();
        QMetaObject::invokeMethod(render(), [] {}, Qt::BlockingQueuedConnection);
    }

    // Milliseconds from a change to the frame that shows it.
    double timeFrame(const std::function<void()>& change)
    {
        settle();
        const int before = render()->composedFrames();
        QElapsedTimer clock;
        clock.start();
        change();
        waitFrames(before + 1);
        return clock.nsecsElapsed() / 1e6;
    }

    // Milliseconds from a zoom to its preview, and to its exact frame.
    std::pair<double, double> timeZoom(double scale)
    {
        settle();
        const int previews = render()->previewFrames();
        const int frames = render()->composedFrames();
        QElapsedTimer clock;
        std::atomic<qint64> preview { 0 };
        QEventLoop loop;
        // Connected first: the preview may be out before the call returns.
        const QMetaObject::Connection timing = QObject::connect(render(), &SceneRender::finished, render(), [&] {
            if (preview == 0 && render()->previewFrames() > previews)
                preview = clock.nsecsElapsed();
            if (render()->composedFrames() > frames)
                QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
        }, Qt::DirectConnection);
        QTimer::singleShot(60000, &loop, &QEventLoop::quit);
        clock.start();
        view->scaleSceneToCenter(scale);
        loop.exec();
        QObject::disconnect(timing);
        const double exact = clock.nsecsElapsed() / 1e6;
        // No preview: the exact frame came first.
        return { preview == 0 ? exact : preview / 1e6, exact };
    }

    void join(int count, const std::vector<Shape>& items)
    {
        std::vector<pb::WhiteboardData> bodies;
        bodies.reserve(count);
        for (int i = 0; i < count; ++i)
            bodies.push_back(rectBody(pb::GraphicActionAdd, i, items[i]));
        view->receiveData(message(bodies));
    }

    QQuickWindow window;
    WhiteboardView* view = nullptr;
    GraphicScene* scene = nullptr;
};

// Median of `runs` calls.
double median(int runs, const std::function<double()>& run)
{
    std::vector<double> values;
    for (int i = 0; i < runs; ++i)
        values.push_back(run());
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double graphicsRender(QGraphicsScene& scene, const QSize& size, const QRectF& source, const QRectF& target = QRectF())
{
    QImage image(size, kFormat);
    QElapsedTimer clock;
    clock.start();
    image.fill(Qt::white);
    QPainter painter(&image);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing | QPainter::SmoothPixmapTransform);
    if (!target.isNull())
        painter.setClipRect(target);
    scene.render(&painter, target.isNull() ? QRectF(image.rect()) : target, source);
    painter.end();
    return clock.nsecsElapsed() / 1e6;
}

struct Memory
{
    qint64 sizeKiB = 0;
    qint64 residentKiB = 0;
    // In use on the heap, all arenas: mallinfo2() sums the render thread's
    // arena with the main one. Chunks parked in a thread's cache count as in
    // use: a few hundred KiB at most, a few bytes per item at 10,000.
    qint64 heapBytes = 0;
};

Memory memory()
{
    Memory result;
    QFile status(QStringLiteral("/proc/self/status"));
    if (status.open(QIODevice::ReadOnly)) {
        for (const QByteArray& line : status.readAll().split('\n')) {
            if (line.startsWith("VmSize:"))
                result.sizeKiB = line.mid(7).trimmed().split(' ').first().toLongLong();
            if (line.startsWith("VmRSS:"))
                result.residentKiB = line.mid(6).trimmed().split(' ').first().toLongLong();
        }
    }
    result.heapBytes = qint64(mallinfo2().uordblks);
    return result;
}

// --- rows -------------------------------------------------------------------

void frames()
{
    const std::vector<Shape> items = shapes(10000, QRectF(0, 0, 1080, 720), 20);
    Board board;
    board.join(int(items.size()), items);
    board.settle();
    QGraphicsScene graphics(QRectF(0, 0, 1080, 720));
    for (const Shape& shape : items)
        graphics.addItem(graphicsItem(shape));

    // A frame of the live board: a collaborator's change to one item, from
    // its message to the frame that shows it, with both thumbnails brought
    // up to date. The other side does the same work: the item changed, the
    // places it left and took repainted in the view and in both thumbnails.
    QRandomGenerator random(5);
    const double liveFrame = median(9, [&] {
        const int i = int(random.bounded(int(items.size())));
        Shape shape = items[size_t(i)];
        shape.rect.translate(random.bounded(20.0), random.bounded(20.0));
        const double frame = board.timeFrame([&] { board.view->receiveData(message({ rectBody(pb::GraphicActionUpdate, i, shape) })); });
        QElapsedTimer clock;
        clock.start();
        board.scene->thumbnailImage(false);
        return frame + clock.nsecsElapsed() / 1e6;
    });
    const double graphicsLiveFrame = median(9, [&] {
        const int i = int(random.bounded(int(items.size())));
        const QRectF area = items[size_t(i)].rect.united(items[size_t(i)].rect.translated(20, 20)).adjusted(-2, -2, 2, 2);
        const QRectF small(area.x() / 9, area.y() / 8, area.width() / 9 + 1, area.height() / 8 + 1);
        return graphicsRender(graphics, kView, area, area) + graphicsRender(graphics, QSize(1080, 720), area, area)
            + graphicsRender(graphics, QSize(120, 90), area, small);
    });
    printRow(QStringLiteral("whole frame, 10,000 visible items, with both thumbnails"), ms(liveFrame), ms(graphicsLiveFrame) + QStringLiteral(" part"),
             liveFrame / graphicsLiveFrame, QStringLiteral("< 40 ms"));

    // A full repaint of everything, as after a zoom (the view) or a change
    // of every item (the thumbnails): a background change repaints the
    // view in full; thumbnails are repainted in full when asked to.
    int toggle = 0;
    const auto wholeFrame = [&] {
        return board.timeFrame([&] {
            board.scene->setBackgroundColor(++toggle % 2 ? QColor(250, 250, 250) : QColor(Qt::white));
        });
    };
    const double view = median(5, wholeFrame);
    const double thumbnails = median(5, [&] {
        board.settle();
        QElapsedTimer clock;
        clock.start();
        board.scene->invalidate(QRectF(0, 0, 1080, 720), GraphicScene::ItemLayer);
        board.scene->thumbnailImage(false);
        return clock.nsecsElapsed() / 1e6;
    });
    const double graphicsView = median(5, [&] { return graphicsRender(graphics, kView, QRectF(0, 0, 1080, 720)); });
    const double graphicsThumbs = median(5, [&] {
        return graphicsRender(graphics, QSize(1080, 720), QRectF(0, 0, 1080, 720)) + graphicsRender(graphics, QSize(120, 90), QRectF(0, 0, 1080, 720));
    });
    printRow(QStringLiteral("view pass alone, 10,000 items"), ms(view), ms(graphicsView), view / graphicsView, QStringLiteral("<= 1.0x"));
    printRow(QStringLiteral("  full repaint of both thumbnails, 10,000 items"), ms(thumbnails), ms(graphicsThumbs), thumbnails / graphicsThumbs,
             QString());

    // One item moves as a drag moves it, under itemsMutex, then asks for its
    // old and new places: the frame repaints those.
    auto* moving = static_cast<AbstractGraphicShapeItem*>(board.scene->itemByGid(QString::fromStdString(gidOf(5000))).data());
    int step = 0;
    const double moved = median(9, [&] {
        return board.timeFrame([&] {
            const QRectF before = moving->boundary();
            const QRectF after = items[5000].rect.translated(++step % 2 ? 30 : 0, 0);
            {
                QMutexLocker locker(&board.scene->itemsMutex());
                QPainterPath outline;
                outline.addRect(after);
                moving->setOutlinePath(outline);
                moving->setBoundary(after);
            }
            board.scene->invalidate(before.united(after), GraphicScene::ItemLayer);
        });
    });
    const double graphicsMoved = median(9, [&] {
        // What QGraphicsView repaints for a move: the old and new places.
        const QRectF area = items[5000].rect.united(items[5000].rect.translated(30, 0)).adjusted(-2, -2, 2, 2);
        return graphicsRender(graphics, kView, area, area);
    });
    printRow(QStringLiteral("frame after moving one item, 10,000-item board"), ms(moved), ms(graphicsMoved) + QStringLiteral(" part"),
             moved / graphicsMoved, QStringLiteral("< 5 ms"));
    printf("|   (frames painted %d, of them partial %d, thumbnail passes %d)\n", board.render()->composedFrames(),
           board.render()->partialFrames(), board.render()->thumbnailPasses());
}

// A QGraphicsView of the same rectangles, the same size, at the same zoom:
// each step is timed from the call to its repaint, flushed.
struct GraphicsBoard
{
    explicit GraphicsBoard(const std::vector<Shape>& items)
        : scene(QRectF(0, 0, 1080, 720))
    {
        for (const Shape& shape : items)
            scene.addItem(graphicsItem(shape));
        view.setScene(&scene);
        view.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing | QPainter::SmoothPixmapTransform);
        view.setBackgroundBrush(Qt::white);
        view.setFrameShape(QFrame::NoFrame);
        view.setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        view.setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        view.resize(kView);
        view.show();
        (void)QTest::qWaitForWindowExposed(&view);
        QCoreApplication::processEvents();
    }

    double step(const std::function<void()>& change)
    {
        QCoreApplication::processEvents();
        QElapsedTimer clock;
        clock.start();
        change();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::UpdateRequest);
        QCoreApplication::processEvents();
        return clock.nsecsElapsed() / 1e6;
    }

    QGraphicsScene scene;
    QGraphicsView view;
};

struct Spread
{
    double median = 0.0;
    double worst = 0.0;
};

Spread spread(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return { values[values.size() / 2], values.back() };
}

QString spreadText(const Spread& value)
{
    return ms(value.median) + QStringLiteral(" / ") + ms(value.worst);
}

// Pans and zooms of a view at scale 2 over boards of 1,000 to 50,000
// rectangles, each step timed from the call to the frame that shows it, with
// the render thread idle between steps.
void panAndZoom()
{
    constexpr int kSteps = 15;
    for (const int count : { 1000, 10000, 50000 }) {
        const std::vector<Shape> items = shapes(count, QRectF(0, 0, 1080, 720), 20);
        Board board;
        board.join(count, items);
        board.view->scaleSceneToCenter(2.0);
        board.idle(board.render()->composedFrames());
        GraphicsBoard graphics(items);
        graphics.view.setTransform(QTransform::fromScale(2.0, 2.0));
        graphics.view.centerOn(540, 360);
        QCoreApplication::processEvents();

        std::vector<double> ours;
        std::vector<double> theirs;
        const int scrolled = board.render()->scrolledFrames();
        for (int i = 0; i < kSteps; ++i) {
            // There and back, so that the view stays over the board.
            const QPointF by = i % 2 ? QPointF(-12, -8) : QPointF(12, 8);
            ours.push_back(board.timeFrame([&] { board.scene->move(by); }));
            theirs.push_back(graphics.step([&] {
                QScrollBar* h = graphics.view.horizontalScrollBar();
                QScrollBar* v = graphics.view.verticalScrollBar();
                h->setValue(h->value() + int(by.x()));
                v->setValue(v->value() + int(by.y()));
            }));
        }
        const Spread pan = spread(ours);
        const Spread graphicsPan = spread(theirs);
        printRow(QStringLiteral("pan 12 x 8 px at scale 2, %1 items (median / worst)").arg(count), spreadText(pan), spreadText(graphicsPan),
                 pan.median / graphicsPan.median, count >= 10000 ? QStringLiteral("<= 0.5x%1").arg(count == 50000 ? ", < 8 ms" : "") : QString());
        printf("|   (of %d pans, %d scrolled the kept page)\n", kSteps, board.render()->scrolledFrames() - scrolled);
        if (count == 1000)
            continue;

        std::vector<double> previews;
        std::vector<double> exacts;
        std::vector<double> graphicsZooms;
        for (int i = 0; i < kSteps; ++i) {
            const double scale = i % 2 ? 2.0 : 2.2;
            const auto [preview, exact] = board.timeZoom(scale);
            previews.push_back(preview);
            exacts.push_back(exact);
            graphicsZooms.push_back(graphics.step([&] { graphics.view.setTransform(QTransform::fromScale(scale, scale)); }));
        }
        const Spread preview = spread(previews);
        const Spread exact = spread(exacts);
        const Spread graphicsZoom = spread(graphicsZooms);
        printRow(QStringLiteral("zoom 2.0 <-> 2.2, %1 items: preview (median / worst)").arg(count), spreadText(preview),
                 spreadText(graphicsZoom), preview.median / graphicsZoom.median, count == 50000 ? QStringLiteral("< 8 ms") : QString());
        printRow(QStringLiteral("  the exact frame after it"), spreadText(exact), spreadText(graphicsZoom), exact.median / graphicsZoom.median,
                 QStringLiteral("< 200 ms"));
    }

    // A burst of scattered remote moves in one message: 200 items across
    // a 10,000-item board, at scale 1. The other side repaints the same
    // items' old and new places.
    const std::vector<Shape> items = shapes(10000, QRectF(0, 0, 1080, 720), 20);
    Board board;
    board.join(int(items.size()), items);
    board.idle(board.render()->composedFrames());
    GraphicsBoard graphics(items);
    QRandomGenerator random(9);
    std::vector<double> ours;
    std::vector<double> theirs;
    for (int round = 0; round < 7; ++round) {
        std::vector<pb::WhiteboardData> bodies;
        std::vector<std::pair<int, QRectF>> moves;
        for (int n = 0; n < 200; ++n) {
            const int i = int(random.bounded(int(items.size())));
            Shape shape = items[size_t(i)];
            shape.rect.translate(random.bounded(10.0), random.bounded(10.0));
            bodies.push_back(rectBody(pb::GraphicActionUpdate, i, shape));
            moves.emplace_back(i, shape.rect);
        }
        ours.push_back(board.timeFrame([&] { board.view->receiveData(message(bodies)); }));
        const QList<QGraphicsItem*> all = graphics.scene.items(Qt::AscendingOrder);
        theirs.push_back(graphics.step([&] {
            for (const auto& [i, rect] : moves)
                static_cast<QGraphicsRectItem*>(all.at(i))->setRect(rect);
        }));
    }
    const Spread burst = spread(ours);
    const Spread graphicsBurst = spread(theirs);
    printRow(QStringLiteral("burst of 200 scattered remote moves, 10,000 items"), spreadText(burst), spreadText(graphicsBurst),
             burst.median / graphicsBurst.median, QString());
}

// The longest gap between frames while 10,000 remote updates arrive one
// message each, the GUI thread handling its events every 64 messages as
// with a live connection; beside it, a QGraphicsView's longest gap between
// repaints while its scene takes the same updates the same way.
void flood()
{
    const std::vector<Shape> items = shapes(10000, QRectF(0, 0, 1080, 720), 20);
    Board board;
    board.join(int(items.size()), items);
    board.idle(board.render()->composedFrames());

    std::mutex stampsMutex;
    std::vector<qint64> stamps;
    QElapsedTimer clock;
    clock.start();
    const QMetaObject::Connection stamping = QObject::connect(board.render(), &SceneRender::finished, board.render(), [&](const QImage&) {
        std::lock_guard<std::mutex> locker(stampsMutex);
        stamps.push_back(clock.nsecsElapsed());
    }, Qt::DirectConnection);
    const auto longestGap = [](std::vector<qint64> times, qint64 start, qint64 end) {
        times.insert(times.begin(), start);
        times.push_back(end);
        qint64 longest = 0;
        for (size_t i = 1; i < times.size(); ++i)
            longest = std::max(longest, times[i] - times[i - 1]);
        return longest / 1e6;
    };
    QRandomGenerator random(3);
    const qint64 start = clock.nsecsElapsed();
    for (int n = 0; n < 10000; ++n) {
        const int i = int(random.bounded(int(items.size())));
        Shape shape = items[size_t(i)];
        shape.rect.translate(random.bounded(10.0), random.bounded(10.0));
        board.view->receiveData(message({ rectBody(pb::GraphicActionUpdate, i, shape) }));
        if (n % 64 == 0)
            QCoreApplication::processEvents();
    }
    const qint64 end = clock.nsecsElapsed();
    QObject::disconnect(stamping);
    std::vector<qint64> ours;
    {
        std::lock_guard<std::mutex> locker(stampsMutex);
        ours = stamps;
    }

    GraphicsBoard graphics(items);
    const QList<QGraphicsItem*> all = graphics.scene.items(Qt::AscendingOrder);
    struct Painted : QObject
    {
        bool eventFilter(QObject*, QEvent* event) override
        {
            if (event->type() == QEvent::Paint)
                times.push_back(clock->nsecsElapsed());
            return false;
        }
        QElapsedTimer* clock = nullptr;
        std::vector<qint64> times;
    } painted;
    painted.clock = &clock;
    graphics.view.viewport()->installEventFilter(&painted);
    QRandomGenerator again(3);
    const qint64 graphicsStart = clock.nsecsElapsed();
    for (int n = 0; n < 10000; ++n) {
        const int i = int(again.bounded(int(items.size())));
        static_cast<QGraphicsRectItem*>(all.at(i))->setRect(items[size_t(i)].rect.translated(again.bounded(10.0), again.bounded(10.0)));
        if (n % 64 == 0)
            QCoreApplication::processEvents();
    }
    const qint64 graphicsEnd = clock.nsecsElapsed();
    graphics.view.viewport()->removeEventFilter(&painted);
    printRow(QStringLiteral("longest gap between frames, 10,000 updates arriving"), ms(longestGap(ours, start, end)),
             ms(longestGap(painted.times, graphicsStart, graphicsEnd)), 0.0, QStringLiteral("< 100 ms"));
    printf("|   (%zu frames in %.0f ms of updates; QGraphicsView painted %zu times in %.0f ms)\n", ours.size(), (end - start) / 1e6,
           painted.times.size(), (graphicsEnd - graphicsStart) / 1e6);
}

void hitTests()
{
    const QSize page(5000, 5000);
    const std::vector<Shape> items = shapes(100000, QRectF(0, 0, 5000, 5000), 10);
    Board board(page);
    // Whole page in view, so a view point reaches every scene point.
    board.join(int(items.size()), items);
    // Measured once the frame of the join is painted, as the other side has none.
    board.settle();
    QGraphicsScene graphics(QRectF(0, 0, 5000, 5000));
    for (const Shape& shape : items)
        graphics.addItem(graphicsItem(shape));
    // QGraphicsScene builds its index on the first query, ours as items
    // enter: neither build is timed.
    (void)graphics.itemAt(QPointF(0, 0), QTransform());
    // Some 0.2 s of ours: a loop of a few ms would be moved by half by one
    // time slice lost to another process.
    constexpr int kQueries = 100000;
    std::vector<QPointF> points;
    QRandomGenerator random(7);
    for (int i = 0; i < kQueries; ++i)
        points.emplace_back(random.bounded(5000.0), random.bounded(5000.0));
    // itemAt maps view to scene: a translation brings each view point onto its page point.
    const QPointF origin = board.scene->mapToScene(QPointF(0, 0));
    qsizetype found = 0;
    QElapsedTimer clock;
    clock.start();
    for (const QPointF& p : points)
        found += board.scene->itemAt(QPointF(0, 0), 0, Qt::IntersectsItemShape, QTransform::fromTranslate(p.x() - origin.x(), p.y() - origin.y())) ? 1 : 0;
    const double ours = clock.nsecsElapsed() / 1e3 / kQueries;
    clock.restart();
    for (const QPointF& p : points)
        found += graphics.itemAt(p, QTransform()) ? 1 : 0;
    const double theirs = clock.nsecsElapsed() / 1e3 / kQueries;
    printRow(QStringLiteral("itemAt, 100,000 items, uniformly random points"), us(ours), us(theirs), ours / theirs, QStringLiteral("<= 1.0x"));

    constexpr int kRects = 2000;
    std::vector<QRectF> rects;
    for (int i = 0; i < kRects; ++i)
        rects.emplace_back(random.bounded(4800.0), random.bounded(4800.0), 200, 200);
    clock.restart();
    for (const QRectF& r : rects)
        found += board.scene->itemsByRect(GraphicScene::ItemLayer, r, Qt::IntersectsItemShape, 1).size();
    const double oursRect = clock.nsecsElapsed() / 1e3 / kRects;
    clock.restart();
    for (const QRectF& r : rects)
        found += graphics.items(r, Qt::IntersectsItemShape).size();
    const double theirsRect = clock.nsecsElapsed() / 1e3 / kRects;
    printRow(QStringLiteral("200 x 200 rectangle query, 100,000 items"), us(oursRect), us(theirsRect), oursRect / theirsRect,
             QStringLiteral("stays ahead (< 1.0x)"));
    if (found < 0)
        printf("unreachable\n");
}

// `count` messages of one envelope each, at most kBudgetMs; the total is
// extrapolated to `count` when the budget runs out.
double applyMessages(Board& board, int count, const std::function<pb::WhiteboardData(int)>& body, bool* extrapolated)
{
    QElapsedTimer clock;
    clock.start();
    int done = 0;
    for (; done < count; ++done) {
        board.view->receiveData(message({ body(done) }));
        // Frames and input keep flowing, as with a live connection.
        if (done % 64 == 0)
            QCoreApplication::processEvents();
        if (clock.elapsed() > kBudgetMs)
            break;
    }
    const double elapsed = clock.nsecsElapsed() / 1e6;
    *extrapolated = done < count;
    return done < count ? elapsed / (done + 1) * count : elapsed;
}

struct SyncFigures
{
    double updates = 0, removals = 0, join = 0;
    double graphicsUpdates = 0, graphicsRemovals = 0, graphicsJoin = 0;
    bool updatesExtrapolated = false, removalsExtrapolated = false;
};

// `removals` take distinct items, so at most one per item.
SyncFigures syncRun(int boardSize, int updates, int removals)
{
    SyncFigures f;
    const std::vector<Shape> items = shapes(boardSize, QRectF(0, 0, 1080, 720), 20);
    {
        Board board;
        QElapsedTimer clock;
        clock.start();
        const int before = board.render()->composedFrames();
        board.join(boardSize, items);
        board.waitFrames(before + 1);
        f.join = clock.nsecsElapsed() / 1e6;
        // The join is timed to its first frame; what it leaves for the render
        // thread after that (the thumbnails of every item, under itemsMutex:
        // some 100 ms at 50,000) is the join's, not the first updates'.
        board.settle();

        QRandomGenerator random(3);
        f.updates = applyMessages(board, updates, [&](int) {
            const int i = int(random.bounded(boardSize));
            Shape shape = items[i];
            shape.rect.translate(random.bounded(10.0), random.bounded(10.0));
            return rectBody(pb::GraphicActionUpdate, i, shape);
        }, &f.updatesExtrapolated);
        f.removals = applyMessages(board, removals, [&](int n) {
            const int i = int(qint64(n) * boardSize / removals);
            return rectBody(pb::GraphicActionRemove, i, items[i]);
        }, &f.removalsExtrapolated);
    }
    // The anchor is the scene's own work, with a gid hash, no view.
    QGraphicsScene graphics(QRectF(0, 0, 1080, 720));
    QHash<QString, QGraphicsRectItem*> byGid;
    QElapsedTimer clock;
    clock.start();
    for (int i = 0; i < boardSize; ++i) {
        QGraphicsRectItem* item = graphicsItem(items[i]);
        graphics.addItem(item);
        byGid.insert(QString::fromStdString(gidOf(i)), item);
    }
    QCoreApplication::processEvents();
    f.graphicsJoin = clock.nsecsElapsed() / 1e6;
    QRandomGenerator random(3);
    clock.restart();
    for (int n = 0; n < updates; ++n) {
        const int i = int(random.bounded(boardSize));
        if (QGraphicsRectItem* item = byGid.value(QString::fromStdString(gidOf(i))))
            item->setRect(items[i].rect.translated(random.bounded(10.0), random.bounded(10.0)));
    }
    f.graphicsUpdates = clock.nsecsElapsed() / 1e6;
    clock.restart();
    for (int n = 0; n < removals; ++n) {
        const int i = int(qint64(n) * boardSize / removals);
        delete byGid.take(QString::fromStdString(gidOf(i)));
    }
    f.graphicsRemovals = clock.nsecsElapsed() / 1e6;
    return f;
}

QString total(double value, bool extrapolated)
{
    return (value >= 1000 ? QStringLiteral("%1 s").arg(value / 1000, 0, 'f', 2) : ms(value)) + (extrapolated ? QStringLiteral("*") : QString());
}

void sync()
{
    const SyncFigures f = syncRun(10000, 10000, 10000);
    printRow(QStringLiteral("10,000 remote updates, 10,000-item board, live view"), total(f.updates, f.updatesExtrapolated),
             total(f.graphicsUpdates, false), f.updates / f.graphicsUpdates, QStringLiteral("< 0.3 s"));
    printRow(QStringLiteral("10,000 remote removals, same"), total(f.removals, f.removalsExtrapolated), total(f.graphicsRemovals, false),
             f.removals / f.graphicsRemovals, QStringLiteral("< 0.3 s"));
    printRow(QStringLiteral("late join of 10,000 items, live view"), total(f.join, false), total(f.graphicsJoin, false), f.join / f.graphicsJoin,
             QStringLiteral("< 0.5 s"));
    for (int size : { 1000, 10000, 50000 }) {
        // Long enough to span as many of the render thread's paced passes
        // (frames every 40 ms, thumbnails every 200 ms, each holding
        // itemsMutex a while on a dense page) at every size: over 1,000
        // messages, some 10 ms, one pass more or less moved the figure by
        // half.
        const int updates = 5000;
        const int removals = std::min(5000, size);
        const SyncFigures s = syncRun(size, updates, removals);
        const QString board = QStringLiteral("%1-item board").arg(size);
        printRow(QStringLiteral("remote update, per message, ") + board, us(s.updates * 1000 / updates) + (s.updatesExtrapolated ? "*" : ""),
                 us(s.graphicsUpdates * 1000 / updates), s.updates / s.graphicsUpdates, QStringLiteral("flat"));
        printRow(QStringLiteral("remote removal, per message, ") + board, us(s.removals * 1000 / removals) + (s.removalsExtrapolated ? "*" : ""),
                 us(s.graphicsRemovals * 1000 / removals), s.removals / s.graphicsRemovals, QStringLiteral("flat"));
        printRow(QStringLiteral("late join of the ") + board, total(s.join, false), total(s.graphicsJoin, false), s.join / s.graphicsJoin,
                 size == 50000 ? QStringLiteral("< 2.5 s") : QString());
    }
}

void memoryRows()
{
    // The heap figures count what the items cost only if images stay out of
    // the heap. glibc raises its mmap threshold to the size of each mapped
    // block that is freed (up to 32 MiB), so after the first 3-MB frame or
    // thumbnail goes, the next ones come from the heap, and whichever of
    // them happen to be alive at a reading count in it (0.3 KiB per item
    // each, at 10,000). With readings taken in the middle of a frame as well
    // (see Board::idle()), the figure swung by 2 KiB per item between runs.
    // A threshold set by hand stays put, for the rest of the process: see
    // memoryRowsApart().
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    // Warm both toolkits once, so that neither pays for loading the other's plugins.
    {
        Board warm;
        QGraphicsScene scene;
        QGraphicsView view(&scene);
        view.resize(kView);
        view.show();
        (void)QTest::qWaitForWindowExposed(&view);
    }
    malloc_trim(0);
    const Memory before = memory();
    auto board = std::make_unique<Board>();
    const Memory withBoard = memory();
    auto scene = std::make_unique<QGraphicsScene>(QRectF(0, 0, 1080, 720));
    auto view = std::make_unique<QGraphicsView>(scene.get());
    view->resize(kView);
    view->show();
    (void)QTest::qWaitForWindowExposed(view.get());
    QCoreApplication::processEvents();
    const Memory withView = memory();
    printRow(QStringLiteral("empty view: added address space / resident"),
             QStringLiteral("%1 / %2 MiB").arg((withBoard.sizeKiB - before.sizeKiB) / 1024).arg((withBoard.residentKiB - before.residentKiB) / 1024),
             QStringLiteral("%1 / %2 MiB").arg((withView.sizeKiB - withBoard.sizeKiB) / 1024).arg((withView.residentKiB - withBoard.residentKiB) / 1024),
             0, QStringLiteral("< 150 MiB / < 30 MiB"));

    const std::vector<Shape> items = shapes(10000, QRectF(0, 0, 1080, 720), 20);
    board->drain();
    const int frames = board->render()->composedFrames();
    const Memory empty = memory();
    board->join(10000, items);
    board->idle(frames);
    const Memory full = memory();
    for (const Shape& shape : items)
        scene->addItem(graphicsItem(shape));
    // Its index is built and the items painted, as on the board.
    view->viewport()->repaint();
    QCoreApplication::processEvents();
    const Memory graphicsFull = memory();
    const double ours = double(full.heapBytes - empty.heapBytes) / 10000 / 1024;
    const double theirs = double(graphicsFull.heapBytes - full.heapBytes) / 10000 / 1024;
    printRow(QStringLiteral("memory per item (heap, 10,000 rectangles)"), QStringLiteral("%1 KiB").arg(ours, 0, 'f', 2),
             QStringLiteral("%1 KiB").arg(theirs, 0, 'f', 2), ours / theirs, QStringLiteral("<= 4 KiB"));
}

// Exports of a 10,000-item board, from the call to the file written, and
// the longest the GUI thread was held up meanwhile: a 1 ms timer on it takes
// itemsMutex at each tick, as input would, and the longest gap between ticks
// (the call itself included) is the block. The other side renders its scene
// into the same device on the GUI thread: all of that is its block.
void exports()
{
    const std::vector<Shape> items = shapes(10000, QRectF(0, 0, 1080, 720), 20);
    Board board;
    board.join(int(items.size()), items);
    board.idle(board.render()->composedFrames());
    QGraphicsScene graphics(QRectF(0, 0, 1080, 720));
    for (const Shape& shape : items)
        graphics.addItem(graphicsItem(shape));
    QTemporaryDir dir;

    // The GUI thread's longest gap between ticks of a 1 ms timer that takes
    // itemsMutex at each, as input would, from construction on. On a loaded
    // machine a wait also holds the time the woken thread waits for a core.
    struct Blocks
    {
        explicit Blocks(GraphicScene* scene)
        {
            ticks.setInterval(1);
            // Measured from tick to tick: a gap holds the last tick's wait.
            QObject::connect(&ticks, &QTimer::timeout, [this, scene] {
                note();
                sinceTick.restart();
                QMutexLocker locker(&scene->itemsMutex());
                longestWait = std::max(longestWait, sinceTick.nsecsElapsed() / 1e6);
            });
            sinceTick.start();
            ticks.start();
        }
        void note() { longest = std::max(longest, sinceTick.nsecsElapsed() / 1e6); }

        QTimer ticks;
        QElapsedTimer sinceTick;
        double longest = 0.0;
        // Of it, the longest wait for the lock: what the export's batches
        // cost the GUI thread, apart from the machine's scheduling.
        double longestWait = 0.0;
    };
    struct Timed
    {
        double total = 0.0;
        double block = 0.0;
        double wait = 0.0;
    };
    const auto ours = [&](const QString& name, double scale) {
        const QString path = dir.filePath(name);
        QEventLoop loop;
        const QMetaObject::Connection done = QObject::connect(board.view, &WhiteboardView::sceneExported, &loop, &QEventLoop::quit);
        QElapsedTimer clock;
        clock.start();
        Blocks blocks(board.scene);
        if (!board.view->exportScene(path, scale, false))
            qWarning("export refused");
        blocks.note();
        loop.exec();
        const Timed timed { clock.nsecsElapsed() / 1e6, blocks.longest, blocks.longestWait };
        QObject::disconnect(done);
        QFile::remove(path);
        return timed;
    };
    const auto theirs = [&](QPaintDevice* device, const QRectF& target) {
        QElapsedTimer clock;
        clock.start();
        QPainter painter(device);
        painter.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing | QPainter::SmoothPixmapTransform);
        painter.fillRect(target, Qt::white);
        graphics.render(&painter, target, QRectF(0, 0, 1080, 720));
        painter.end();
        return clock.nsecsElapsed() / 1e6;
    };
    const auto row = [&](const QString& format, const Timed& timed, double anchor) {
        printRow(QStringLiteral("export %1, 10,000 items, until written").arg(format), ms(timed.total), ms(anchor), timed.total / anchor, QString());
        printRow(QStringLiteral("  GUI thread's longest block meanwhile"), ms(timed.block), ms(anchor), timed.block / anchor, QStringLiteral("< 16 ms"));
        printRow(QStringLiteral("    of it, its longest wait for itemsMutex"), ms(timed.wait), QString(), 0.0, QString());
    };

    // The floor: the same timer over as long as an export takes, with none.
    {
        Blocks blocks(board.scene);
        QTest::qWait(300);
        printRow(QStringLiteral("GUI thread's longest block, 300 ms without export"), ms(blocks.longest), QString(), 0.0, QString());
        printRow(QStringLiteral("    of it, its longest wait for itemsMutex"), ms(blocks.longestWait), QString(), 0.0, QString());
    }
    const Timed svg = ours(QStringLiteral("board.svg"), 1.0);
    const double graphicsSvg = [&] {
        QSvgGenerator generator;
        generator.setFileName(dir.filePath(QStringLiteral("graphics.svg")));
        generator.setSize(QSize(1080, 720));
        generator.setViewBox(QRect(0, 0, 1080, 720));
        return theirs(&generator, QRectF(0, 0, 1080, 720));
    }();
    row(QStringLiteral("SVG"), svg, graphicsSvg);

    const Timed pdf = ours(QStringLiteral("board.pdf"), 1.0);
    const double graphicsPdf = [&] {
        QPdfWriter writer(dir.filePath(QStringLiteral("graphics.pdf")));
        writer.setResolution(72);
        writer.setPageLayout(QPageLayout(QPageSize(QSizeF(1080, 720), QPageSize::Point, QString(), QPageSize::ExactMatch), QPageLayout::Portrait,
                                         QMarginsF()));
        return theirs(&writer, QRectF(0, 0, 1080, 720));
    }();
    row(QStringLiteral("PDF"), pdf, graphicsPdf);

    for (const double scale : { 1.0, 2.0 }) {
        const Timed png = ours(QStringLiteral("board.png"), scale);
        QImage image(QSize(1080, 720) * scale, kFormat);
        const double painted = theirs(&image, QRectF(image.rect()));
        QElapsedTimer clock;
        clock.start();
        image.save(dir.filePath(QStringLiteral("graphics.png")));
        row(QStringLiteral("PNG %1x").arg(scale), png, painted + clock.nsecsElapsed() / 1e6);
    }
}

// The memory rows in a process of their own, when other sections run too:
// the threshold they fix would change how those sections' images are
// allocated, and so their times.
void memoryRowsApart()
{
    QProcess child;
    child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    child.start(QCoreApplication::applicationFilePath(), { QStringLiteral("memory") });
    if (!child.waitForFinished(-1) || child.exitCode() != 0)
        qWarning("memory rows failed");
    // Its rows, without its header and footnote.
    for (const QByteArray& line : child.readAllStandardOutput().split('\n')) {
        if (line.startsWith("| ") && !line.startsWith("| scenario"))
            printf("%s\n", line.constData());
    }
    fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    // The board logs every size change and focus; the table is what counts.
    qputenv("QT_LOGGING_RULES", "*.debug=false");
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
    printf("| %-58s | %14s | %14s | %7s | %-26s |\n", "scenario", "board", "QGraphicsScene", "ratio", "goal");
    printf("|%s|%s|%s|%s|%s|\n", QByteArray(60, '-').constData(), QByteArray(16, '-').constData(), QByteArray(16, '-').constData(),
           QByteArray(9, '-').constData(), QByteArray(28, '-').constData());
    // A section name runs that section alone: memory, frames, pan, flood, hits, sync, export.
    const QStringList only = QCoreApplication::arguments().mid(1);
    const auto wanted = [&](const QString& name) { return only.isEmpty() || only.contains(name); };
    if (only == QStringList { QStringLiteral("memory") })
        memoryRows();
    else if (wanted(QStringLiteral("memory")))
        memoryRowsApart();
    if (wanted(QStringLiteral("frames")))
        frames();
    if (wanted(QStringLiteral("pan")))
        panAndZoom();
    if (wanted(QStringLiteral("flood")))
        flood();
    if (wanted(QStringLiteral("hits")))
        hitTests();
    if (wanted(QStringLiteral("sync")))
        sync();
    if (wanted(QStringLiteral("export")))
        exports();
    printf("(* extrapolated from the messages applied in %lld s)\n", kBudgetMs / 1000);
    return 0;
}
