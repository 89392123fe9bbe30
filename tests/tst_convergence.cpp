// Boards that act on stale state, joined through a relay that holds messages
// back and hands them on in batches, end identical once messages stop: item
// by item and pixel by pixel, a late joiner's replay included.
//
// `tst_convergence --seeds N` runs N random scripts per delivery mode instead
// of the few that CI runs; `--gid CLOCK` prints gids made at that clock and
// exits (the test runs itself so to compare processes).
#include "testsupport.h"

#include "graphics/abstractgraphicshapeitem.h"
#include "graphics/graphicobject.h"
#include "graphics/graphicpalette.h"
#include "scene/itemcodec.h"
#include "scene/scenerender.h"

#include "proto/whiteboard.pb.h"

#include <QCursor>
#include <QGuiApplication>
#include <QMap>
#include <QProcess>
#include <QRandomGenerator>
#include <QSet>

#include <cstdio>
#include <deque>
#include <functional>

using namespace whiteboard;
namespace pb = im::whiteboard;

namespace {

int g_seeds = 3;

// A server as the boards expect it: one order for everybody, item actions
// never echoed to their sender, a join answered with the stored actions in
// `multi` batches and then `userjoin`. It holds what the boards send until the
// test lets some through.
class TestRelay
{
public:
    static constexpr int kReplayBatch = 5;

    void add(WhiteboardView* view)
    {
        QObject::connect(view, &WhiteboardView::sendData, &m_context, [this, view](pb::TransferData* data) {
            m_queue.push_back({ view, std::unique_ptr<pb::TransferData>(data) });
        });
    }
    int pending() const { return int(m_queue.size()); }

    // Hands on the `count` oldest messages, all of them with -1, in the order
    // they came.
    void deliver(int count = -1)
    {
        while (!m_queue.empty() && count-- != 0) {
            Pending next = std::move(m_queue.front());
            m_queue.pop_front();
            if (next.data->has_userjoin()) {
                answerJoin(next.from);
                continue;
            }
            for (const pb::SingleWhiteboardData& envelope : next.data->multi().whiteboarddatalist()) {
                pb::WhiteboardData body;
                body.ParseFromString(envelope.data());
                if (body.datatype() != pb::WhiteboardData::WhiteboardDataUserAction)
                    m_history.push_back(envelope);
            }
            for (WhiteboardView* board : std::as_const(m_joined)) {
                if (board != next.from)
                    board->receiveData(new pb::TransferData(*next.data));
            }
        }
    }

private:
    struct Pending
    {
        WhiteboardView* from = nullptr;
        std::unique_ptr<pb::TransferData> data;
    };

    void answerJoin(WhiteboardView* board)
    {
        for (size_t i = 0; i < m_history.size(); i += kReplayBatch) {
            auto* batch = new pb::TransferData;
            for (size_t j = i; j < std::min(m_history.size(), i + kReplayBatch); ++j)
                *batch->mutable_multi()->add_whiteboarddatalist() = m_history[j];
            board->receiveData(batch);
        }
        auto* loaded = new pb::TransferData;
        loaded->mutable_userjoin();
        board->receiveData(loaded);
        m_joined.append(board);
    }

    QObject m_context;
    std::deque<Pending> m_queue;
    std::vector<pb::SingleWhiteboardData> m_history;
    QList<WhiteboardView*> m_joined;
};

// The owner (board 0), three participants and a late joiner (board 4).
// Boards 1 and 3 are one account on two devices.
struct Boards
{
    static constexpr int kActing = 4;
    static constexpr int kSecondDevice = 3;

    Boards()
    {
        for (int i = 0; i <= kActing; ++i) {
            boards.push_back(std::make_unique<ViewFixture>(QSize(1080, 720), 100 + (i == kSecondDevice ? 1 : i)));
            boards.back()->view->setIsOwner(i == 0);
            boards.back()->view->setId(QStringLiteral("board-7"));
            relay.add(boards.back()->view);
        }
        for (int i = 0; i < kActing; ++i)
            join(i);
        relay.deliver();
    }

    ViewFixture& operator[](int i) { return *boards.at(size_t(i)); }
    void join(int i)
    {
        boards.at(size_t(i))->view->sendUserJoinData(QDateTime::currentMSecsSinceEpoch(), QString());
        joined.insert(i);
    }

    // A drag by real input; `between` runs after each move, while the button is held.
    void drag(int i, QPoint from, QPoint to, const std::function<void()>& between = nullptr)
    {
        ViewFixture& b = (*this)[i];
        b.press(from);
        for (int step = 1; step <= 4; ++step) {
            b.move(from + (to - from) * step / 4);
            if (between)
                between();
        }
        b.release(to);
    }

    void draw(int i, GraphicDefine::ToolType tool, QPoint from, QPoint to, const QColor& colour = Qt::blue)
    {
        GraphicPalette::instance()->setFillStyleByColor(colour);
        GraphicPalette::instance()->setStrokeColor(colour);
        (*this)[i].scene->setFillShape(true);
        (*this)[i].view->setToolType(tool);
        drag(i, from, to);
        (*this)[i].view->setToolType(GraphicDefine::Selector);
    }

    void click(int i, QPoint at) { QTest::mouseClick((*this)[i].window.get(), Qt::LeftButton, Qt::NoModifier, at); }
    // Keys go to the active window.
    void key(int i, Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        ViewFixture& b = (*this)[i];
        b.window->requestActivate();
        QVERIFY(QTest::qWaitForWindowActive(b.window.get()));
        b.view->forceActiveFocus();
        QTest::keyClick(b.window.get(), key, modifiers);
    }

    // Pointer events stay inside the window.
    static QPoint inside(QPoint p) { return QPoint(std::clamp(p.x(), 2, 1077), std::clamp(p.y(), 2, 717)); }
    // Where a press would take the item, unless another lies on it.
    static QPoint grip(const QSharedPointer<GraphicItem>& item) { return inside(item->boundary().center().toPoint()); }

    std::vector<std::unique_ptr<ViewFixture>> boards;
    QSet<int> joined;
    TestRelay relay;
};

QMap<QString, QByteArray> itemsOf(GraphicScene* scene)
{
    QMap<QString, QByteArray> state;
    for (const QSharedPointer<GraphicItem>& item : scene->items(GraphicScene::ItemLayer, 1))
        state.insert(item->gid(), whiteboard::ItemCodec::encode(*item));
    return state;
}

// The large thumbnail of a frame composed after every change so far.
QImage thumbnailOf(ViewFixture& board)
{
    if (!board.settle())
        return QImage();
    return *board.scene->thumbnailImage();
}

// Lets every message through, brings in the late joiner if it has not come
// yet, leaves no pointer, hover or selection on any board, and compares every
// board with the late joiner.
void expectConverged(Boards& boards)
{
    boards.relay.deliver();
    if (!boards.joined.contains(4))
        boards.join(4);
    for (int i = 0; i < Boards::kActing; ++i) {
        boards[i].view->setToolType(GraphicDefine::Selector);
        // A press where nothing lies deselects; the pointer then leaves the window.
        QPoint empty(5, 5);
        for (int y = 5; y < 720 && boards[i].scene->itemAt(empty, 0, Qt::IntersectsItemShape); y += 7)
            empty = QPoint(5 + y % 1000, y);
        boards.click(i, empty);
        QTest::mouseMove(boards[i].window.get(), QPoint(-100, -100));
        QVERIFY(boards[i].scene->selectedItems().isEmpty());
    }
    boards.relay.deliver();

    const QMap<QString, QByteArray> expected = itemsOf(boards[4].scene);
    const QImage picture = thumbnailOf(boards[4]);
    QVERIFY(!picture.isNull());
    for (int i = 0; i < Boards::kActing; ++i) {
        const QMap<QString, QByteArray> held = itemsOf(boards[i].scene);
        QStringList differing;
        QSet<QString> gids(held.keyBegin(), held.keyEnd());
        gids.unite(QSet<QString>(expected.keyBegin(), expected.keyEnd()));
        for (const QString& gid : std::as_const(gids)) {
            if (held.value(gid) != expected.value(gid))
                differing.append(gid);
        }
        QVERIFY2(differing.isEmpty(), qPrintable(QStringLiteral("board %1 differs in %2 of %3 items: %4")
                                                     .arg(i).arg(differing.size()).arg(expected.size()).arg(differing.join(' '))));
        const QImage mine = thumbnailOf(boards[i]);
        QVERIFY2(mine == picture, qPrintable(QStringLiteral("board %1 paints differently").arg(i)));
    }
}

// The first item of a kind: the rectangle drawn first may share its millisecond.
QSharedPointer<GraphicItem> firstOf(GraphicScene* scene, int type)
{
    for (const QSharedPointer<GraphicItem>& item : scene->items(GraphicScene::ItemLayer, 1)) {
        if (item->type() == type)
            return item;
    }
    return {};
}

// True when every point of the item's outline is a float, as the wire carries it.
bool floatExact(const QSharedPointer<GraphicItem>& item)
{
    const auto* shape = qobject_cast<AbstractGraphicShapeItem*>(item.data());
    if (!shape || shape->outlinePath().elementCount() < 2)
        return false;
    for (int e = 0; e < shape->outlinePath().elementCount(); ++e) {
        const QPainterPath::Element p = shape->outlinePath().elementAt(e);
        if (double(float(p.x)) != p.x || double(float(p.y)) != p.y)
            return false;
    }
    return true;
}

const QList<QColor> kColours = { Qt::blue, Qt::red, Qt::darkGreen, QColor("#E0A020") };

} // namespace

class tst_Convergence : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QCursor::setPos(-1000, -1000); }

    void randomScripts_data()
    {
        QTest::addColumn<quint32>("seed");
        QTest::addColumn<bool>("batched");
        for (int seed = 1; seed <= g_seeds; ++seed) {
            QTest::addRow("seed %d, prompt", seed) << quint32(seed) << false;
            QTest::addRow("seed %d, batched", seed) << quint32(seed) << true;
        }
    }

    void randomScripts()
    {
        QFETCH(quint32, seed);
        QFETCH(bool, batched);
        QRandomGenerator rng(seed);
        Boards boards;
        const auto point = [&rng] { return QPoint(60 + rng.bounded(860), 60 + rng.bounded(500)); };
        // In batches, a random part of what waits goes through now and then.
        const auto maybeDeliver = [&] {
            if (!batched)
                boards.relay.deliver();
            else if (rng.bounded(4) == 0)
                boards.relay.deliver(rng.bounded(boards.relay.pending() + 1));
        };
        const int steps = 40;
        const int lateJoin = rng.bounded(steps);
        QString lastTouched;

        for (int step = 0; step < steps; ++step) {
            if (step == lateJoin)
                boards.join(4);
            // The owner acts as often as the others together, and mostly on
            // the item last touched: people work on the same things at once.
            const int i = rng.bounded(2) ? 0 : 1 + rng.bounded(Boards::kActing - 1);
            GraphicScene* scene = boards[i].scene;
            GraphicItemList mine = scene->items(GraphicScene::ItemLayer, 1);
            mine.removeIf([scene](const QSharedPointer<GraphicItem>& item) {
                return !scene->canOperate(item)
                    || (item->type() != GraphicItem::Rectangle && item->type() != GraphicItem::Line);
            });
            const auto hot = std::find_if(mine.cbegin(), mine.cend(), [&](const auto& item) { return item->gid() == lastTouched; });
            const QSharedPointer<GraphicItem> target = hot != mine.cend() && rng.bounded(3) ? *hot
                : mine.isEmpty()                                                      ? nullptr
                                                                                      : mine.at(rng.bounded(int(mine.size())));
            if (target)
                lastTouched = target->gid();
            const int action = rng.bounded(100);
            if (action < 25 || !target) {
                const QPoint from = point();
                boards.draw(i, action % 3 == 0 ? GraphicDefine::Line : action % 3 == 1 ? GraphicDefine::Pen : GraphicDefine::Rectangle,
                            from, Boards::inside(from + QPoint(20 + rng.bounded(150), 20 + rng.bounded(100))),
                            kColours.at(rng.bounded(int(kColours.size()))));
                if (const QSharedPointer<GraphicItem> drawn = scene->items(GraphicScene::ItemLayer, 0).value(0))
                    lastTouched = drawn->gid();
            } else if (action < 50) {
                // Messages may arrive while the button is held.
                boards.drag(i, Boards::grip(target), Boards::inside(Boards::grip(target) + QPoint(rng.bounded(120) - 60, rng.bounded(120) - 60)),
                            maybeDeliver);
            } else if (action < 60) {
                boards.click(i, Boards::grip(target));
                boards.key(i, Qt::Key_Delete);
            } else if (action < 72) {
                scene->undo();
            } else if (action < 78) {
                scene->redo();
            } else if (action < 82) {
                if (i == 0)
                    scene->clearAll();
                else
                    scene->clearByUid(boards[i].view->currentAccountId());
            } else {
                boards.click(i, Boards::grip(target));
                boards.key(i, Qt::Key_C, Qt::ControlModifier);
                boards.key(i, Qt::Key_V, Qt::ControlModifier);
                if (action % 2)
                    boards.key(i, Qt::Key_V, Qt::ControlModifier);
            }
            maybeDeliver();
        }
        expectConverged(boards);
    }

    // The shortest reproductions of boards that ended different.
    void reproductions_data()
    {
        QTest::addColumn<int>("script");
        QTest::newRow("author and owner drag one item at once") << 0;
        QTest::newRow("delete against the undo of a delete") << 1;
        QTest::newRow("clear crosses a drawing in flight") << 2;
        QTest::newRow("undo after somebody else's clear") << 3;
        QTest::newRow("paste twice, then move a copy") << 4;
        QTest::newRow("line at a view pixel the wire rounds") << 5;
        QTest::newRow("stroke scaled by its handle") << 6;
        QTest::newRow("two devices of one account drag one item at once") << 7;
        QTest::newRow("two devices of one account undo their moves at once") << 8;
    }

    void reproductions()
    {
        QFETCH(int, script);
        Boards boards;
        boards.draw(1, GraphicDefine::Rectangle, QPoint(100, 100), QPoint(300, 250));
        boards.relay.deliver();
        const QSharedPointer<GraphicItem> rect = boards[1].scene->items(GraphicScene::ItemLayer, 1).value(0);
        QVERIFY(rect);
        const QString gid = rect->gid();

        switch (script) {
        case 0:
            // Each applies its own change first and hears of the other's later.
            boards.drag(1, QPoint(200, 175), QPoint(260, 175));
            boards.drag(0, QPoint(200, 175), QPoint(200, 300));
            break;
        case 1:
            // The owner deletes while the author deletes and undoes that.
            boards.click(0, QPoint(200, 175));
            boards.key(0, Qt::Key_Delete);
            boards.click(1, QPoint(200, 175));
            boards.key(1, Qt::Key_Delete);
            boards[1].scene->undo();
            QVERIFY(boards[1].scene->itemByGid(gid));
            QVERIFY(!boards[0].scene->itemByGid(gid));
            break;
        case 2:
            // The owner clears before the drawing reaches it; the others get
            // the drawing first.
            boards.draw(2, GraphicDefine::Rectangle, QPoint(500, 300), QPoint(600, 400), Qt::red);
            boards[0].scene->clearAll();
            break;
        case 3:
            boards[0].scene->clearAll();
            boards.relay.deliver();
            QVERIFY(!boards[2].view->canUndo());
            boards[2].scene->undo();
            boards[1].scene->undo();
            // The author's undo of the drawing removes what the clear took already.
            QVERIFY(!boards[1].scene->itemByGid(gid));
            break;
        case 4: {
            boards.click(1, QPoint(200, 175));
            boards.key(1, Qt::Key_C, Qt::ControlModifier);
            boards.key(1, Qt::Key_V, Qt::ControlModifier);
            boards.key(1, Qt::Key_V, Qt::ControlModifier);
            // A copy painted as selected would show in the paster's
            // thumbnail. The participant moves what they pasted; the others
            // follow by gid.
            boards.click(1, QPoint(600, 600));
            boards.drag(1, QPoint(200, 175), QPoint(400, 500));
            QCOMPARE(boards[1].scene->itemsByPoint(GraphicScene::ItemLayer, QPointF(400, 500), Qt::IntersectsItemShape, 1).size(), 1);
            break;
        }
        case 5: {
            // The view maps pixel 371 to a scene value no float holds.
            boards.draw(2, GraphicDefine::Line, QPoint(100, 371), QPoint(500, 371), Qt::black);
            QVERIFY(floatExact(firstOf(boards[2].scene, GraphicItem::Line)));
            break;
        }
        case 6: {
            boards.draw(2, GraphicDefine::Pen, QPoint(500, 300), QPoint(700, 450), Qt::black);
            const QSharedPointer<GraphicItem> stroke = firstOf(boards[2].scene, GraphicItem::Pen);
            QVERIFY(stroke);
            boards.click(2, QPoint(600, 375));
            const QPoint corner = stroke->shape().boundingRect().bottomRight().toPoint();
            boards.drag(2, corner, corner + QPoint(37, 23));
            QVERIFY(stroke->boundary().width() > 180);
            QVERIFY(floatExact(stroke));
            break;
        }
        case 7:
            // One account, one clock value: only the device tells the changes apart.
            boards.drag(1, QPoint(200, 175), QPoint(260, 175));
            boards.drag(Boards::kSecondDevice, QPoint(200, 175), QPoint(200, 300));
            break;
        case 8:
            boards.drag(1, QPoint(200, 175), QPoint(260, 175));
            boards.relay.deliver();
            boards.drag(Boards::kSecondDevice, QPoint(260, 175), QPoint(260, 300));
            boards.relay.deliver();
            boards[1].scene->undo();
            boards[Boards::kSecondDevice].scene->undo();
            QVERIFY(boards[1].scene->itemByGid(gid)->boundary() != boards[Boards::kSecondDevice].scene->itemByGid(gid)->boundary());
            break;
        }
        expectConverged(boards);
        if (script == 4)
            QCOMPARE(boards[4].scene->itemCount(GraphicScene::ItemLayer), 3);
    }

    // Two processes that make items in one millisecond must not make one gid:
    // a generator left unseeded draws the same numbers in every process, so
    // two fresh runs of this binary would print the same gids.
    void gidsOfTwoProcessesDiffer()
    {
        const auto gidsOfProcess = [] {
            QProcess process;
            process.start(QCoreApplication::applicationFilePath(), { QStringLiteral("--gid"), QStringLiteral("1700000000123") });
            if (!process.waitForFinished(30000) || process.exitCode() != 0)
                return QStringList();
            return QString::fromLatin1(process.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        };
        const QStringList first = gidsOfProcess();
        const QStringList second = gidsOfProcess();
        QCOMPARE(first.size(), 3);
        QCOMPARE(second.size(), 3);
        for (const QString& gid : first) {
            QVERIFY2(!second.contains(gid), qPrintable(gid));
            // Decimal text, as every peer expects.
            bool decimal = false;
            gid.toLongLong(&decimal);
            QVERIFY(decimal);
        }
    }
};

int main(int argc, char** argv)
{
    // `--seeds N` and `--gid CLOCK` are ours; everything else goes to the test framework.
    QStringList arguments;
    for (int i = 0; i < argc; ++i) {
        if (qstrcmp(argv[i], "--gid") == 0 && i + 1 < argc) {
            // The first gids a fresh process makes, all at the given clock.
            const qint64 clock = QByteArray(argv[i + 1]).toLongLong();
            for (int n = 0; n < 3; ++n)
                std::printf("%s\n", qPrintable(GraphicObject::makeGid(clock)));
            return 0;
        }
        if (qstrcmp(argv[i], "--seeds") == 0 && i + 1 < argc)
            g_seeds = QByteArray(argv[++i]).toInt();
        else
            arguments.append(QString::fromLocal8Bit(argv[i]));
    }
    QGuiApplication app(argc, argv);
    tst_Convergence test;
    return QTest::qExec(&test, arguments);
}

#include "tst_convergence.moc"
