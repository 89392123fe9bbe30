// Two boards talking through their messages: what a local change sends, and
// what a received message does to the other board.
#include "messages.h"
#include "testsupport.h"

#include "graphics/graphicimagecodec.h"
#include "graphics/graphiclinesegmentitem.h"
#include "graphics/graphicmarkitem.h"
#include "graphics/graphicpalette.h"
#include "graphics/graphictextitem.h"
#include "scene/addgraphiccommand.h"
#include "scene/layerindex.h"
#include "scene/movegraphiccommand.h"
#include "scene/scenerender.h"
#include "scene/versionbound.h"


#include <QCursor>
#include <QDataStream>
#include <QDateTime>
#include <QPainter>
#include <QPointer>
#include <QRegularExpression>

#include <limits>
#include <string>

using namespace whiteboard;

namespace {

struct Envelope
{
    pb::SingleWhiteboardData single;
    pb::WhiteboardData body;
    pb::GraphicActionType action() const { return body.graphicactiondata().graphicactiontype(); }
};

QList<Envelope> envelopesOf(const pb::TransferData* data)
{
    QList<Envelope> result;
    for (const pb::SingleWhiteboardData& single : data->multi().whiteboarddatalist()) {
        result.append({ single, {} });
        result.last().body.ParseFromString(single.data());
    }
    return result;
}

// Plays the host: owns every message a view emits and, like a relay, hands a
// copy to the peer view when there is one.
class Host
{
public:
    explicit Host(WhiteboardView* from, WhiteboardView* to = nullptr)
        : m_to(to)
    {
        QObject::connect(from, &WhiteboardView::sendData, &m_context, [this](pb::TransferData* data) {
            sent.emplace_back(data);
            if (m_to)
                m_to->receiveData(new pb::TransferData(*data));
        });
    }

    // The messages whose bodies are of `type`, in the order of sending.
    std::vector<const pb::TransferData*> messagesOf(pb::WhiteboardData::Type type = pb::WhiteboardData::WhiteboardDataGraphicAction) const
    {
        std::vector<const pb::TransferData*> result;
        for (const std::unique_ptr<pb::TransferData>& data : sent) {
            const QList<Envelope> envelopes = envelopesOf(data.get());
            if (!envelopes.isEmpty() && envelopes.first().body.datatype() == type)
                result.push_back(data.get());
        }
        return result;
    }
    QList<Envelope> lastItemMessage() const { return envelopesOf(messagesOf().back()); }

    std::vector<std::unique_ptr<pb::TransferData>> sent;

private:
    QObject m_context;
    QPointer<WhiteboardView> m_to;
};

pb::TransferData* wrap(const QList<pb::WhiteboardData>& bodies)
{
    return new pb::TransferData(transferOf(bodies));
}

// A zig-zag of `points` points across a `width` x `height` box: every piece
// crosses many others, which made a received stroke's hit band take minutes.
std::string crossingPathText(int points, int width = 800, int height = 600)
{
    std::string text = "M 0 0";
    for (int i = 1; i < points; ++i)
        text += " L " + std::to_string((i * 7919) % width) + " " + std::to_string((i % 2) * height);
    return text + " z";
}

const float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kInf = std::numeric_limits<float>::infinity();

QStringList gidsOf(const GraphicItemList& items)
{
    QStringList gids;
    for (const QSharedPointer<GraphicItem>& item : items)
        gids.append(item->gid());
    gids.sort();
    return gids;
}

bool near(const QColor& a, const QColor& b)
{
    return qAbs(a.red() - b.red()) < 40 && qAbs(a.green() - b.green()) < 40 && qAbs(a.blue() - b.blue()) < 40;
}

} // namespace

class tst_Sync : public QObject
{
    Q_OBJECT

private:
    // Board A is user 1, board B user 2; A's host relays to B.
    std::unique_ptr<ViewFixture> a;
    std::unique_ptr<ViewFixture> b;
    std::unique_ptr<Host> hostA;
    std::unique_ptr<Host> hostB;

private slots:
    // Windows open at the origin; the pointer stays off them unless a test moves it.
    void initTestCase() { QCursor::setPos(-1000, -1000); }

    void init()
    {
        GraphicPalette::instance()->setFillStyleByColor(Qt::blue);
        a = std::make_unique<ViewFixture>(QSize(1080, 720), 1);
        b = std::make_unique<ViewFixture>(QSize(1080, 720), 2);
        a->view->setId(QStringLiteral("board-7"));
        a->view->setUserName(QStringLiteral("Alice"));
        hostA = std::make_unique<Host>(a->view, b->view);
        hostB = std::make_unique<Host>(b->view);
    }
    void cleanup()
    {
        QTest::mouseMove(a->window.get(), QPoint(-100, -100));
        hostA.reset();
        hostB.reset();
        a.reset();
        b.reset();
    }

    void drawnRectangleTravelsWithItsMovesAndUndo()
    {
        a->scene->setFillShape(true);
        a->view->setToolType(GraphicDefine::Rectangle);
        a->press(QPoint(100, 100));
        a->move(QPoint(140, 130));
        a->move(QPoint(300, 250));
        a->release(QPoint(300, 250));
        const QSharedPointer<GraphicItem> mine = a->scene->items(GraphicScene::ItemLayer, 1).value(0);
        QVERIFY(mine);

        QCOMPARE(hostA->messagesOf().size(), size_t(1));
        QCOMPARE(hostA->messagesOf().front()->whiteboardid(), std::string("board-7"));
        const Envelope added = hostA->lastItemMessage().value(0);
        QCOMPARE(added.single.gid(), mine->gid().toStdString());
        QCOMPARE(added.action(), pb::GraphicActionAdd);
        QCOMPARE(added.body.graphicactiondata().timestamp(), added.single.timestamp());

        // The other board holds the same item: identity, author, age, geometry.
        const GraphicItemList received = b->scene->items(GraphicScene::ItemLayer, 1);
        QCOMPARE(received.size(), 1);
        const QSharedPointer<GraphicItem> theirs = received.first();
        QCOMPARE(theirs->gid(), mine->gid());
        QCOMPARE(theirs->userId(), qlonglong(1));
        QCOMPARE(theirs->timestamp(), mine->timestamp());
        QCOMPARE(theirs->type(), int(GraphicItem::Rectangle));
        QCOMPARE(theirs->boundary(), QRectF(140, 130, 160, 120));
        QTRY_VERIFY(near(b->frame().pixelColor(220, 190), Qt::blue));

        // A drag is one update; undo and redo travel the same way.
        a->view->setToolType(GraphicDefine::Selector);
        a->drag(QPoint(220, 190), QPoint(270, 230), 5);
        QCOMPARE(mine->boundary(), QRectF(190, 170, 160, 120));
        QCOMPARE(hostA->messagesOf().size(), size_t(2));
        QCOMPARE(hostA->lastItemMessage().first().action(), pb::GraphicActionUpdate);
        QCOMPARE(theirs->boundary(), mine->boundary());
        a->scene->undo();
        QCOMPARE(theirs->boundary(), QRectF(140, 130, 160, 120));
        a->scene->redo();
        QCOMPARE(theirs->boundary(), QRectF(190, 170, 160, 120));

        // Undoing the drawing sends a removal.
        a->scene->undo();
        a->scene->undo();
        QCOMPARE(hostA->lastItemMessage().first().action(), pb::GraphicActionRemove);
        QCOMPARE(b->scene->itemCount(GraphicScene::ItemLayer), 0);
        QVERIFY(hostB->messagesOf().empty());
    }

    void deleteOfThreeIsOneBatchAndSoIsItsUndo()
    {
        GraphicItemList three;
        for (int x : { 100, 300, 500 })
            three.append(addRect(a->scene, QRectF(x, 100, 50, 50), 1, Qt::blue));
        // The band starts at the first forwarded move: a short first step.
        a->drag(QPoint(20, 20), QPoint(1000, 600), 98);
        QCOMPARE(a->scene->selectedItems().size(), 3);
        // Keys go to the active window, and B was shown last.
        a->window->requestActivate();
        QVERIFY(QTest::qWaitForWindowActive(a->window.get()));

        QTest::keyClick(a->window.get(), Qt::Key_Delete);
        QCOMPARE(a->scene->itemCount(GraphicScene::ItemLayer), 0);
        a->scene->undo();
        QCOMPARE(hostA->messagesOf().size(), size_t(2));
        for (const auto& [message, type] : { std::pair { 0, pb::GraphicActionRemove }, std::pair { 1, pb::GraphicActionAdd } }) {
            const QList<Envelope> envelopes = envelopesOf(hostA->messagesOf().at(size_t(message)));
            QCOMPARE(envelopes.size(), 3);
            QStringList gids;
            for (const Envelope& envelope : envelopes) {
                QCOMPARE(envelope.action(), type);
                QCOMPARE(envelope.single.timestamp(), envelopes.first().single.timestamp());
                gids.append(QString::fromStdString(envelope.single.gid()));
            }
            gids.sort();
            QCOMPARE(gids, gidsOf(three));
        }
        // B never had them, so the removals did nothing there; the undo brought them.
        QCOMPARE(gidsOf(b->scene->items(GraphicScene::ItemLayer, 1)), gidsOf(three));
    }

    void clearTravelsAsOneOperation_data()
    {
        QTest::addColumn<int>("call");
        QTest::addColumn<QList<qlonglong>>("leftOnSender");
        QTest::addColumn<QList<qlonglong>>("leftOnReceiver");
        QTest::newRow("all, not synced") << 0 << QList<qlonglong>() << QList<qlonglong> { 42, 7 };
        QTest::newRow("all") << 1 << QList<qlonglong>() << QList<qlonglong>();
        // The message names the sender: the receiver clears 7's items, not 42's.
        QTest::newRow("by uid 42") << 2 << QList<qlonglong> { 7 } << QList<qlonglong> { 42 };
    }

    void clearTravelsAsOneOperation()
    {
        QFETCH(int, call);
        QFETCH(QList<qlonglong>, leftOnSender);
        QFETCH(QList<qlonglong>, leftOnReceiver);
        a->view->setCurrentAccountId(7);
        for (GraphicScene* scene : { a->scene, b->scene }) {
            addRect(scene, QRectF(100, 100, 50, 50), 42);
            addRect(scene, QRectF(300, 100, 50, 50), 7);
        }
        const auto authors = [](GraphicScene* scene) {
            QList<qlonglong> list;
            for (const QSharedPointer<GraphicItem>& item : scene->items(GraphicScene::ItemLayer, 1))
                list.append(item->userId());
            return list;
        };

        if (call == 2)
            a->scene->clearByUid(42, true);
        else
            a->scene->clearAll(call == 1);
        QCOMPARE(authors(a->scene), leftOnSender);
        QVERIFY(a->view->canUndo());
        QCOMPARE(authors(b->scene), leftOnReceiver);
        if (call == 0) {
            QVERIFY(hostA->sent.empty());
            return;
        }

        QCOMPARE(hostA->sent.size(), size_t(1));
        const QList<Envelope> envelopes = envelopesOf(hostA->sent.front().get());
        QCOMPARE(envelopes.size(), 1);
        const pb::UserOperation operation = envelopes.first().body.useroperationdata();
        QCOMPARE(envelopes.first().body.datatype(), pb::WhiteboardData::WhiteboardDataUserOperation);
        QCOMPARE(int(operation.operationtype()), call == 2 ? int(pb::UserOperation::UserOperationClearByUid)
                                                           : int(pb::UserOperation::UserOperationClearAll));
        QCOMPARE(operation.userid(), qint64(7));

        // A received clear is not the receiver's to undo; the sender's undo
        // brings its items back on every board.
        QVERIFY(!b->view->canUndo());
        a->scene->undo();
        QCOMPARE(hostA->lastItemMessage().first().action(), pb::GraphicActionAdd);
        if (call == 1)
            QCOMPARE(gidsOf(b->scene->items(GraphicScene::ItemLayer, 1)), gidsOf(a->scene->items(GraphicScene::ItemLayer, 1)));
    }

    void joinFixesClockAndSendsOldestTime_data()
    {
        QTest::addColumn<QList<qlonglong>>("timestamps");
        QTest::addColumn<qint64>("oldest");
        QTest::newRow("empty board") << QList<qlonglong>() << qint64(1);
        // Only the low 32 bits travel, read as a signed number.
        QTest::newRow("one item") << QList<qlonglong> { 0x18BCFE56800 } << qint64(-807049216);
        QTest::newRow("oldest of two") << QList<qlonglong> { 0x18BCFE56900, 0x18BCFE56800 } << qint64(-807049216);
    }

    void joinFixesClockAndSendsOldestTime()
    {
        QFETCH(QList<qlonglong>, timestamps);
        QFETCH(qint64, oldest);
        for (int i = 0; i < timestamps.size(); ++i)
            addRect(a->scene, QRectF(100 + 100 * i, 100, 50, 50), 1, QColor(), GraphicScene::ItemLayer, timestamps.at(i));

        // B sees the join as a server's end of load would look.
        const qint64 serverTime = QDateTime::currentMSecsSinceEpoch() - 3600 * 1000;
        a->view->sendUserJoinData(serverTime, QStringLiteral("not this id"));
        QCOMPARE(hostA->sent.size(), size_t(1));
        const pb::TransferData& join = *hostA->sent.front();
        QVERIFY(join.has_userjoin());
        QCOMPARE(join.whiteboardid(), std::string("board-7"));
        QCOMPARE(join.userjoin().oldesttimestamp(), oldest);

        // Everything sent from now on is stamped in server time.
        a->scene->clearAll(true);
        const qint64 stamp = envelopesOf(hostA->sent.back().get()).first().single.timestamp();
        QVERIFY2(stamp >= serverTime && stamp < serverTime + 60 * 1000, QByteArray::number(stamp - serverTime));
    }

    void focusItemUpdateSendsItsState()
    {
        a->scene->updateFocusItem();
        QVERIFY(hostA->sent.empty());

        auto* rect = new GraphicRectItem(a->scene);
        rect->setBoundary(QRectF(100, 100, 80, 60));
        rect->setBrush(QBrush(Qt::blue));
        const QSharedPointer<GraphicItem> item = GraphicScene::makeShared(rect);
        a->scene->pushCommand(new AddGraphicCommand(item, a->scene));
        a->scene->setFocusItem(item);
        rect->setBrush(QBrush(Qt::green));
        a->scene->updateFocusItem();

        QCOMPARE(hostA->messagesOf().size(), size_t(2));
        QCOMPARE(hostA->lastItemMessage().first().action(), pb::GraphicActionUpdate);
        const auto* theirs = qobject_cast<GraphicRectItem*>(b->scene->itemByGid(item->gid()).data());
        QVERIFY(theirs);
        QCOMPARE(theirs->brush().color(), QColor(Qt::green));
        QCOMPARE(a->scene->undoStack().count(), 1);
    }

    void updatesAndRemovesFindTheirItemByGid_data()
    {
        QTest::addColumn<int>("kind");
        QTest::newRow("update") << int(pb::GraphicActionUpdate);
        QTest::newRow("modify") << int(pb::GraphicActionModify);
        QTest::newRow("remove") << int(pb::GraphicActionRemove);
    }

    void updatesAndRemovesFindTheirItemByGid()
    {
        QFETCH(int, kind);
        const auto type = pb::GraphicActionType(kind);
        const QSharedPointer<GraphicItem> known = addRect(b->scene, QRectF(100, 100, 50, 50), 9);
        QTest::failOnWarning(QRegularExpression(QStringLiteral(".*")));
        b->view->receiveData(wrap({ rectBody(type, "nope", QRectF(0, 0, 500, 500)) }));
        QCOMPARE(b->scene->items(GraphicScene::ItemLayer, 1), GraphicItemList { known });
        QCOMPARE(known->boundary(), QRectF(100, 100, 50, 50));

        b->view->receiveData(wrap({ rectBody(type, known->gid().toStdString(), QRectF(0, 0, 500, 500)) }));
        if (type == pb::GraphicActionRemove) {
            QCOMPARE(b->scene->itemCount(GraphicScene::ItemLayer), 0);
            return;
        }
        QCOMPARE(known->boundary(), QRectF(0, 0, 500, 500));

        // A pen's entry would be read as the rectangle's own message, its
        // text as a corner: entries of another kind are refused.
        pb::WhiteboardData pen = itemBody(type, known->gid().toStdString());
        pen.mutable_graphicactiondata()->mutable_pathdata()->add_data()->set_path("M 1 1 L 2 2 z");
        const QString log = QStringLiteral("refused update %1: entries of another kind of item").arg(known->gid());
        QTest::ignoreMessage(QtWarningMsg, qPrintable(log));
        b->view->receiveData(wrap({ pen }));
        QCOMPARE(known->boundary(), QRectF(0, 0, 500, 500));
    }

    // A versioned message applies only if it is newer than what the board
    // holds for its gid; so any order of arrival ends alike.
    void versionsDecideWhateverTheOrder_data()
    {
        // Each step: kind (0 add, 1 update, 3 remove, 9 clear all), clock,
        // account id, width of the rectangle.
        QTest::addColumn<QList<QList<qint64>>>("steps");
        QTest::addColumn<int>("width"); // 0: no item
        QTest::newRow("update before its add") << QList<QList<qint64>> { { 0, 1, 9, 100 }, { 1, 2, 9, 200 } } << 200;
        QTest::newRow("two adds of one gid") << QList<QList<qint64>> { { 0, 1, 9, 100 }, { 0, 2, 8, 200 } } << 200;
        QTest::newRow("equal clocks, higher account") << QList<QList<qint64>> { { 1, 2, 9, 100 }, { 1, 2, 10, 200 } } << 200;
        QTest::newRow("removal keeps older changes out")
            << QList<QList<qint64>> { { 0, 1, 9, 100 }, { 3, 3, 9, 0 }, { 1, 2, 8, 200 } } << 0;
        QTest::newRow("undone removal") << QList<QList<qint64>> { { 0, 1, 9, 100 }, { 3, 2, 8, 0 }, { 0, 3, 9, 300 } } << 300;
        QTest::newRow("clear keeps older changes out")
            << QList<QList<qint64>> { { 0, 1, 9, 100 }, { 9, 3, 8, 0 }, { 1, 2, 9, 200 } } << 0;
        QTest::newRow("change newer than the clear") << QList<QList<qint64>> { { 0, 1, 9, 100 }, { 9, 2, 8, 0 }, { 1, 3, 9, 300 } } << 300;
        // Past the clocks' end a version is a forgery that would put every
        // later change behind it; at the end it still applies.
        const qint64 end = VersionBound::kCeiling + VersionBound::kLead;
        const qint64 last = std::numeric_limits<qint64>::max();
        QTest::newRow("change past the clocks' end") << QList<QList<qint64>> { { 0, 1, 9, 100 }, { 1, last, 9, 200 } } << 100;
        QTest::newRow("clear past the clocks' end") << QList<QList<qint64>> { { 0, 1, 9, 100 }, { 9, end + 1, 8, 0 } } << 100;
        QTest::newRow("change at the clocks' end") << QList<QList<qint64>> { { 0, 1, 9, 100 }, { 1, end, 9, 200 } } << 200;
    }

    void versionsDecideWhateverTheOrder()
    {
        QFETCH(QList<QList<qint64>>, steps);
        QFETCH(int, width);
        for (const QList<qint64>& step : std::as_const(steps)) {
            if (!VersionBound::belowEnd(step[1])) {
                const QString log = QStringLiteral("refused a change at version %1: past the clock's end").arg(step[1]);
                QTest::ignoreMessage(QtWarningMsg, qPrintable(log));
                QTest::ignoreMessage(QtWarningMsg, qPrintable(log));
            }
        }
        const auto message = [](const QList<qint64>& step) {
            pb::WhiteboardData body;
            if (step[0] == 9) {
                body.set_datatype(pb::WhiteboardData::WhiteboardDataUserOperation);
                body.mutable_useroperationdata()->set_operationtype(pb::UserOperation::UserOperationClearAll);
                body.mutable_useroperationdata()->set_version(step[1]);
                body.mutable_useroperationdata()->set_versionuser(step[2]);
            } else {
                body = rectBody(pb::GraphicActionType(step[0]), "g", QRectF(100, 100, qreal(step[3]), 50));
                body.mutable_graphicactiondata()->mutable_rectdata()->mutable_data(0)->mutable_baseinfo()->set_userid(9);
                body.mutable_graphicactiondata()->set_version(step[1]);
                body.mutable_graphicactiondata()->set_versionuser(step[2]);
            }
            return wrap({ body });
        };
        // Board A takes the steps in order, board B backwards.
        for (int i = 0; i < steps.size(); ++i) {
            a->view->receiveData(message(steps.at(i)));
            b->view->receiveData(message(steps.at(steps.size() - 1 - i)));
        }
        for (GraphicScene* scene : { a->scene, b->scene }) {
            QCOMPARE(scene->itemCount(GraphicScene::ItemLayer), width ? 1 : 0);
            if (width)
                QCOMPARE(scene->itemByGid(QStringLiteral("g"))->boundary().width(), double(width));
        }
        QVERIFY(hostA->sent.empty() && hostB->sent.empty());
    }

    // Whatever kind of item a remote change moves, the receiving board finds
    // it where it now draws it.
    void remoteUpdateIsHitWhereItIsDrawn_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QPoint>("probe");
        QTest::newRow("rectangle") << int(GraphicItem::Rectangle) << QPoint(700, 480);
        QTest::newRow("polyline") << int(GraphicItem::Segment) << QPoint(740, 450);
        // A received text is laid out one line high around its own text.
        QTest::newRow("text") << int(GraphicItem::Text) << QPoint(705, 455);
    }

    void remoteUpdateIsHitWhereItIsDrawn()
    {
        QFETCH(int, type);
        QFETCH(QPoint, probe);
        AbstractGraphicShapeItem* shape = nullptr;
        QPainterPath path;
        if (type == GraphicItem::Segment) {
            shape = new GraphicLineSegmentItem(a->scene);
            path.moveTo(100, 100);
            path.lineTo(180, 100);
            path.lineTo(180, 160);
        } else {
            shape = type == GraphicItem::Text ? static_cast<AbstractGraphicShapeItem*>(new GraphicTextItem("hi", QFont(), a->scene))
                                              : new GraphicRectItem(a->scene);
            path.addRect(100, 100, 80, type == GraphicItem::Text ? 30 : 60);
        }
        shape->setOutlinePath(path);
        shape->rebuildHitPath();
        shape->setBoundary(path.boundingRect());
        shape->setUserId(1);
        const QSharedPointer<GraphicItem> item = GraphicScene::makeShared(shape);
        a->scene->pushCommand(new AddGraphicCommand(item, a->scene));
        a->scene->pushCommand(new MoveGraphicCommand(QPointF(), QPointF(600, 350), item, a->scene));
        const QSharedPointer<GraphicItem> theirs = b->scene->itemByGid(item->gid());
        QVERIFY(theirs);
        QCOMPARE(theirs->boundary().topLeft(), QPointF(700, 450));

        b->view->setIsOwner(true);
        QTest::mouseClick(b->window.get(), Qt::LeftButton, Qt::NoModifier, probe);
        QCOMPARE(b->scene->selectedItems(), GraphicItemList { theirs });
    }

    // A filled rectangle changed by the host to an outline only: the other
    // board draws the outline.
    void strokeOnlyUpdateOfAFilledItemShows()
    {
        const QSharedPointer<GraphicItem> item = addRect(a->scene, QRectF(100, 100, 200, 100), 1, Qt::blue);
        a->scene->pushCommand(new AddGraphicCommand(item, a->scene));
        const QSharedPointer<GraphicItem> theirs = b->scene->itemByGid(item->gid());
        QVERIFY(theirs);
        QTRY_VERIFY(near(b->frame().pixelColor(200, 150), Qt::blue));

        auto* shape = static_cast<AbstractGraphicShapeItem*>(item.data());
        shape->setBrush(QBrush(Qt::NoBrush));
        shape->setPen(QPen(QBrush(Qt::red), 5));
        a->scene->setFocusItem(item);
        a->scene->updateFocusItem();
        QTRY_VERIFY(near(b->frame().pixelColor(100, 150), Qt::red));
        QCOMPARE(b->frame().pixelColor(200, 150).alpha(), 0);
    }

    // A board whose host takes no messages deletes what it would have sent.
    // (A host that takes them owns them: the Host above deletes each one.)
    // A board whose host listens to nothing still sends: what it would have
    // sent must be freed. LeakSanitizer, which the sanitizer stage runs over
    // the suite, fails this test when a message is left on the heap.
    void messagesWithoutReceiverAreDeleted()
    {
        ViewFixture lone(QSize(400, 300), 3);
        // The first position only enters the view.
        QTest::mouseMove(lone.window.get(), QPoint(50, 50));
        QSignalSpy sent(lone.scene, &GraphicScene::sendData);
        QTest::mouseMove(lone.window.get(), QPoint(100, 100));
        QVERIFY(!sent.isEmpty());
    }

    void invalidEnvelopeBetweenTwoGoodOnes()
    {
        pb::TransferData* data = wrap({ rectBody(pb::GraphicActionAdd, "g1", QRectF(100, 100, 50, 50)),
                                        pb::WhiteboardData(),
                                        rectBody(pb::GraphicActionAdd, "g3", QRectF(300, 100, 50, 50)) });
        data->mutable_multi()->mutable_whiteboarddatalist(1)->set_data("\xff\xff\xff\xff");
        QTest::ignoreMessage(QtWarningMsg, "unknown graphic action data");
        b->view->receiveData(data);
        QCOMPARE(gidsOf(b->scene->items(GraphicScene::ItemLayer, 1)), QStringList({ "g1", "g3" }));
    }

    // Whatever one participant sends, each entry is bounded or refused on
    // its own with one line on "whiteboard.input", and the rest of the
    // message applies: here a good rectangle after the hostile entry.
    void hostileEntryIsBoundedAndTheRestApplies_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("log");
        QTest::addColumn<int>("elements"); // of the hostile item's outline; -1: no item
        QTest::addColumn<QRectF>("bounds");

        auto bytes = [](const pb::WhiteboardData& body) { return QByteArray::fromStdString(body.SerializeAsString()); };
        pb::WhiteboardData crossing = itemBody(pb::GraphicActionAdd, "s");
        pb::Path* path = crossing.mutable_graphicactiondata()->mutable_pathdata()->add_data();
        path->mutable_baseinfo()->set_gid("s");
        path->set_path(crossingPathText(600));
        QTest::newRow("600 crossing points") << bytes(crossing) << QString() << 600 << QRectF(0, 0, 797, 600);
        // Small: painting 20,000 pieces across the page takes seconds in a sanitizer build.
        path->set_path(crossingPathText(20500, 50, 10));
        QTest::newRow("stroke past the point limit") << bytes(crossing) << "clamped pen stroke s: points" << 20000
                                                     << QRectF(0, 0, 49, 10);
        path->set_path("M 10 10 L 1e30 20 L 30 30 z");
        QTest::newRow("stroke far out") << bytes(crossing) << "clamped pen stroke s: coordinates" << 3
                                        << QRectF(QPointF(10, 10), QPointF(100000, 30));

        pb::WhiteboardData polyline = itemBody(pb::GraphicActionAdd, "p");
        pb::Polyline* points = polyline.mutable_graphicactiondata()->mutable_polylinedata()->add_data();
        points->mutable_baseinfo()->set_gid("p");
        QTest::newRow("polyline without points") << bytes(polyline) << "refused polyline p: no points" << -1 << QRectF();
        for (int i = 0; i < 25000; ++i) {
            pb::Point* point = points->add_points();
            point->set_x(float(i % 50));
            point->set_y(i == 10 ? 1e30f : float(i % 3));
        }
        QTest::newRow("polyline far out and past the point limit")
            << bytes(polyline) << "clamped polyline p: points, coordinates" << 20000 << QRectF(0, 0, 49, 100000);

        pb::WhiteboardData rect = rectBody(pb::GraphicActionAdd, "r", QRectF());
        pb::Rect* frame = rect.mutable_graphicactiondata()->mutable_rectdata()->mutable_data(0);
        frame->set_width(kNaN);
        QTest::newRow("rectangle of NaN width") << bytes(rect) << "refused rectangle r: coordinates not finite" << -1 << QRectF();
        frame->mutable_leftpos()->set_x(3e38f);
        frame->mutable_leftpos()->set_y(-1e30f);
        frame->set_width(1e30f);
        frame->set_heigth(1e30f);
        frame->mutable_strokestyle()->set_linecap(pb::StrokeStyle_LineCapStyle(1000));
        QTest::newRow("rectangle far out") << bytes(rect) << "clamped rectangle r: frame, line cap" << 5
                                           << QRectF(QPointF(100000, -100000), QPointF(100000, 0));

        pb::WhiteboardData line = itemBody(pb::GraphicActionAdd, "l");
        pb::Line* ends = line.mutable_graphicactiondata()->mutable_linedata()->add_data();
        ends->mutable_baseinfo()->set_gid("l");
        ends->mutable_endpoint()->set_x(kInf);
        QTest::newRow("line to infinity") << bytes(line) << "refused line l: coordinates not finite" << -1 << QRectF();

        pb::WhiteboardData text = itemBody(pb::GraphicActionAdd, "t");
        pb::Text* words = text.mutable_graphicactiondata()->mutable_textdata()->add_data();
        words->mutable_baseinfo()->set_gid("t");
        words->set_text(std::string(1 << 20, 'W'));
        words->mutable_fontstyle()->set_pixelsize(1 << 20);
        QTest::newRow("text of a megabyte") << bytes(text) << "clamped text t: text length, font size" << 5
                                            << QRectF(QPointF(0, 0), QPointF(100000, 0));
    }

    void hostileEntryIsBoundedAndTheRestApplies()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, log);
        QFETCH(int, elements);
        QFETCH(QRectF, bounds);
        pb::WhiteboardData hostile;
        QVERIFY(hostile.ParseFromArray(body.constData(), int(body.size())));
        if (!log.isEmpty())
            QTest::ignoreMessage(QtWarningMsg, qPrintable(log));
        if (log.startsWith(QLatin1String("clamped text")))
            QTest::ignoreMessage(QtWarningMsg, "clamped text t: frame");
        b->view->receiveData(wrap({ hostile, rectBody(pb::GraphicActionAdd, "good", QRectF(100, 100, 50, 50)) }));

        const GraphicItemList all = b->scene->layerIndex(GraphicScene::ItemLayer)->query(QRectF(-2e5, -2e5, 4e5, 4e5));
        QCOMPARE(all.size(), elements < 0 ? 1 : 2);
        QVERIFY(b->scene->itemByGid(QStringLiteral("good")));
        if (elements < 0)
            return;
        const auto* item = qobject_cast<AbstractGraphicShapeItem*>(all.first()->gid() == "good" ? all.last().data() : all.first().data());
        QCOMPARE(item->outlinePath().elementCount(), elements);
        if (bounds.height() == 0.0) {
            // A text: one line high, as wide as its frame may be.
            QCOMPARE(item->boundary().topLeft(), bounds.topLeft());
            QCOMPARE(item->boundary().right(), bounds.right());
            QCOMPARE(item->property("text").toString().size(), 64 * 1024);
        } else {
            QCOMPARE(item->boundary(), bounds);
        }
        QVERIFY(item->pen().capStyle() == Qt::SquareCap || item->pen() == QPen(Qt::NoPen));
        // Strokes are hit along their pieces only, not between them.
        if (elements == 600) {
            QVERIFY(item->collidesWithPoint(QPointF(720, 600), Qt::IntersectsItemShape));
            QVERIFY(!item->collidesWithPoint(QPointF(5, 299), Qt::IntersectsItemShape));
        }
        QVERIFY(!b->frame().isNull());
    }

    // The worst items within the limits paint without holding the board:
    // a frame comes at once (stroking 20,000 crossing pieces took minutes),
    // and the whole item shows once the pool has drawn or laid it out.
    void worstItemsPaintWithoutHoldingTheBoard_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QPoint>("inked"); // a pixel the finished item inks
        QTest::addColumn<QPoint>("blank"); // one it leaves white
        auto bytes = [](const pb::WhiteboardData& body) { return QByteArray::fromStdString(body.SerializeAsString()); };
        // A zig-zag between the tops and the bottoms: its first piece
        // crosses (360, 300), which the stand-in's lines along y = 0 miss.
        pb::WhiteboardData pen = itemBody(pb::GraphicActionAdd, "s");
        pb::Path* path = pen.mutable_graphicactiondata()->mutable_pathdata()->add_data();
        path->mutable_baseinfo()->set_gid("s");
        path->mutable_strokestyle()->set_color("#ff0000");
        path->mutable_strokestyle()->set_width(3);
        path->set_path(crossingPathText(20000));
        QTest::newRow("pen, 20,000 crossing points") << bytes(pen) << QPoint(360, 300) << QPoint(1000, 300);
        pb::WhiteboardData polyline = itemBody(pb::GraphicActionAdd, "s");
        pb::Polyline* points = polyline.mutable_graphicactiondata()->mutable_polylinedata()->add_data();
        points->mutable_baseinfo()->set_gid("s");
        points->mutable_strokestyle()->set_color("#ff0000");
        points->mutable_strokestyle()->set_width(3);
        for (int i = 0; i < 20000; ++i) {
            pb::Point* point = points->add_points();
            point->set_x(float((i * 7919) % 800));
            point->set_y(float((i % 2) * 600));
        }
        QTest::newRow("polyline, 20,000 crossing points") << bytes(polyline) << QPoint(360, 300) << QPoint(1000, 300);
        for (const int lineLength : { 0, 80 }) {
            pb::WhiteboardData text = itemBody(pb::GraphicActionAdd, "s");
            pb::Text* words = text.mutable_graphicactiondata()->mutable_textdata()->add_data();
            words->mutable_baseinfo()->set_gid("s");
            words->mutable_strokestyle()->set_color("#ff0000");
            words->mutable_fontstyle()->set_pixelsize(40);
            words->mutable_position()->set_x(10);
            words->mutable_position()->set_y(10);
            std::string letters(64 * 1024, '|');
            for (size_t i = lineLength; lineLength && i < letters.size(); i += lineLength)
                letters[i - 1] = '\n';
            words->set_text(letters);
            // Bars from the frame's left edge; a frame of one line is as
            // high as one line.
            QTest::addRow("text, 64 Ki characters, lines of %d", lineLength)
                << bytes(text) << QPoint(-1, 30) << QPoint(500, 200);
        }
    }
    void worstItemsPaintWithoutHoldingTheBoard()
    {
        QFETCH(QByteArray, body);
        QFETCH(QPoint, inked);
        QFETCH(QPoint, blank);
        pb::WhiteboardData item;
        QVERIFY(item.ParseFromArray(body.constData(), int(body.size())));
        b->scene->setBackgroundColor(Qt::white);
        b->view->receiveData(wrap({ item }));
        QVERIFY(!b->frame().isNull());
        // The pool draws 20,000 pieces in seconds under the sanitizers.
        const auto red = [this](const QPoint& at) {
            if (at.x() >= 0)
                return near(b->scene->renderedImage().pixelColor(at), Qt::red);
            // A text: red in the row at the frame's top left.
            const QImage frame = b->scene->renderedImage();
            for (int x = 10; x < 200; ++x) {
                if (near(frame.pixelColor(x, at.y()), Qt::red))
                    return true;
            }
            return false;
        };
        QTRY_VERIFY_WITH_TIMEOUT(red(inked), 60000);
        QCOMPARE(b->frame().pixelColor(blank), QColor(Qt::white));
    }

    void receivedLineAloneDirtiesNothing()
    {
        pb::WhiteboardData line = itemBody(pb::GraphicActionAdd, "l1");
        pb::Line* entry = line.mutable_graphicactiondata()->mutable_linedata()->add_data();
        entry->mutable_startpoint()->set_x(100);
        entry->mutable_endpoint()->set_x(300);
        QVERIFY(b->settle());
        QTRY_VERIFY(b->renderIdle());
        const int before = b->composedFrames();
        b->view->receiveData(wrap({ line }));
        QCOMPARE(b->scene->itemCount(GraphicScene::ItemLayer), 1);
        QVERIFY(b->renderIdle());
        QCOMPARE(b->composedFrames(), before);
        b->view->receiveData(wrap({ rectBody(pb::GraphicActionAdd, "r1", QRectF(100, 200, 50, 50)) }));
        QVERIFY(!b->renderIdle() || b->composedFrames() > before);
    }

    // Frames repaint only what changed and thumbnails follow later: a board
    // that got there by one received change must look, frame and thumbnails,
    // like a board that received the end state whole.
    void receivedChangesLeaveNoStalePixels_data()
    {
        QTest::addColumn<int>("change");
        QTest::addColumn<int>("penWidth");
        QTest::newRow("move across others") << int(pb::GraphicActionUpdate) << 0;
        QTest::newRow("move of a thick outline") << int(pb::GraphicActionUpdate) << 24;
        QTest::newRow("removal uncovers what lay below") << int(pb::GraphicActionRemove) << 3;
        QTest::newRow("add on top") << int(pb::GraphicActionAdd) << 9;
    }
    void receivedChangesLeaveNoStalePixels()
    {
        QFETCH(int, change);
        QFETCH(int, penWidth);
        const QStringList colours { "#0000ff", "#ff0000", "#00a000", "#e0e000" };
        const auto body = [&](pb::GraphicActionType type, int n, const QRectF& frame, int width) {
            pb::WhiteboardData data = rectBody(type, "g" + std::to_string(n), frame);
            pb::Rect* rect = data.mutable_graphicactiondata()->mutable_rectdata()->mutable_data(0);
            rect->mutable_baseinfo()->set_timestamp(n + 1);
            // A wide pen outlines an item without fill, outside its boundary.
            if (width > 1)
                rect->clear_fillstyle();
            else
                rect->mutable_fillstyle()->set_color(colours.at(n % 4).toStdString());
            rect->mutable_strokestyle()->set_color("#101010");
            rect->mutable_strokestyle()->set_width(width);
            return data;
        };
        QList<pb::WhiteboardData> board;
        for (int n = 0; n < 24; ++n)
            board << body(pb::GraphicActionAdd, n, QRectF(100 + n % 6 * 90, 100 + n / 6 * 70, 120, 100), 1);
        const QRectF from(230, 180, 80, 60);
        const QRectF to(460, 260, 80, 60);
        if (change != pb::GraphicActionAdd)
            board << body(pb::GraphicActionAdd, 30, from, penWidth);
        QList<pb::WhiteboardData> end = board;
        if (change == pb::GraphicActionRemove)
            end.removeLast();
        else if (change == pb::GraphicActionUpdate)
            end.last() = body(pb::GraphicActionAdd, 30, to, penWidth);
        else
            end << body(pb::GraphicActionAdd, 30, to, penWidth);
        // The reference is painted whole: its background changes last.
        ViewFixture reference(QSize(1080, 720), 3);
        reference.view->receiveData(wrap(end));
        reference.scene->setBackgroundColor(Qt::white);
        QTRY_COMPARE(reference.scene->renderedImage().pixelColor(1000, 700), QColor(Qt::white));
        const QImage thumbnail = paintedDirectly(reference.scene, Qt::transparent);

        b->scene->setBackgroundColor(Qt::white);
        SceneRender* render = b->scene->renderer();
        b->view->receiveData(wrap(board));
        QTRY_VERIFY(near(b->scene->renderedImage().pixelColor(110, 110), Qt::blue));
        // Brought up to date here, so that the change alone is pending.
        b->scene->thumbnailImage(false);
        QSignalSpy thumbnails(b->scene, &GraphicScene::thumbnailChanged);
        const int partial = render->partialFrames();
        const int passes = render->thumbnailPasses();
        b->view->receiveData(wrap({ body(pb::GraphicActionType(change), 30, to, penWidth) }));

        QTRY_VERIFY(render->partialFrames() > partial);
        QTRY_COMPARE(b->scene->renderedImage(), reference.scene->renderedImage());
        // Caught up by the render thread on its own, without a call that forces it.
        QTRY_VERIFY(render->thumbnailPasses() > passes);
        // Handed to the scene on the GUI thread, after the pass.
        QTRY_VERIFY(!thumbnails.isEmpty());
        QCOMPARE(*thumbnails.last().at(0).value<QImage*>(), thumbnail);
    }

    // A received picture is decoded off the GUI thread: its item is on the
    // board at once, and what follows for its gid applies as if the pixels
    // had come with the add. Messages given before the event loop runs are
    // all received while the pixels are still decoding.
    void receivedPictureKeepsMessageOrder_data()
    {
        // Each step: kind (0 add, 1 update, 3 remove), colour of the pixels
        // carried (none: frame only), frame.
        QTest::addColumn<bool>("versioned");
        QTest::addColumn<QList<QVariantList>>("steps");
        QTest::addColumn<QColor>("shown"); // at the centre of the last frame; none: no item
        const QRectF first(100, 100, 200, 150);
        const QRectF moved(500, 300, 200, 150);
        for (const bool versioned : { false, true }) {
            const char* way = versioned ? "versioned: " : "in order: ";
            QTest::addRow("%sadd", way) << versioned << QList<QVariantList> { { 0, QColor(Qt::red), first } } << QColor(Qt::red);
            QTest::addRow("%smove while decoding", way)
                << versioned << QList<QVariantList> { { 0, QColor(Qt::red), first }, { 1, QColor(), moved } } << QColor(Qt::red);
            QTest::addRow("%sother pixels while decoding", way)
                << versioned << QList<QVariantList> { { 0, QColor(Qt::red), first }, { 1, QColor(Qt::green), moved } }
                << QColor(Qt::green);
            QTest::addRow("%sremoved while decoding", way)
                << versioned << QList<QVariantList> { { 0, QColor(Qt::red), first }, { 3, QColor(), first } } << QColor();
        }
    }
    void receivedPictureKeepsMessageOrder()
    {
        QFETCH(bool, versioned);
        QFETCH(QList<QVariantList>, steps);
        QFETCH(QColor, shown);
        b->scene->setBackgroundColor(Qt::white);
        for (int i = 0; i < steps.size(); ++i) {
            const QVariantList& step = steps.at(i);
            pb::WhiteboardData body = itemBody(pb::GraphicActionType(step.at(0).toInt()), "p", versioned ? i + 1 : -1, 9);
            pb::Image* image = body.mutable_graphicactiondata()->mutable_imagedata()->add_data();
            image->mutable_baseinfo()->set_gid("p");
            const QRectF frame = step.at(2).toRectF();
            image->mutable_leftpos()->set_x(float(frame.x()));
            image->mutable_leftpos()->set_y(float(frame.y()));
            image->set_width(float(frame.width()));
            image->set_heigth(float(frame.height()));
            if (const QColor colour = step.at(1).value<QColor>(); colour.isValid()) {
                QImage picture(64, 48, QImage::Format_ARGB32);
                picture.fill(colour);
                QByteArray bytes;
                QDataStream stream(&bytes, QIODevice::WriteOnly);
                stream << picture;
                image->set_data(bytes.toStdString());
            }
            b->view->receiveData(wrap({ body }));
            // The gid table holds the item from its add on.
            if (step.at(0).toInt() == pb::GraphicActionAdd)
                QVERIFY(b->scene->itemByGid(QStringLiteral("p")));
        }
        QTRY_COMPARE(b->scene->imageCodec()->pending(), 0);
        const QPointF centre = steps.last().at(2).toRectF().center();
        const QImage frame = b->frame();
        if (!shown.isValid()) {
            QCOMPARE(b->scene->itemCount(GraphicScene::ItemLayer), 0);
            QCOMPARE(frame.pixelColor(centre.toPoint()), QColor(Qt::white));
            return;
        }
        QCOMPARE(frame.pixelColor(centre.toPoint()), shown);
        // Nothing is left where the picture was before it moved.
        QCOMPARE(frame.pixelColor(QPoint(150, 150)), steps.last().at(2).toRectF().contains(150, 150) ? shown : QColor(Qt::white));
    }

    void hoverSendsPointerExceptOnHandle()
    {
        a->scene->setFocusItem(addRect(a->scene, QRectF(100, 100, 200, 100)));
        QTest::mouseMove(a->window.get(), QPoint(300, 200)); // a handle of the focus item
        QVERIFY(hostA->sent.empty());

        // The window may repeat a hover at the same place; each one is sent.
        QTest::mouseMove(a->window.get(), QPoint(400, 250));
        QVERIFY(!hostA->sent.empty());
        for (const std::unique_ptr<pb::TransferData>& data : hostA->sent) {
            const pb::UserAction action = envelopesOf(data.get()).first().body.useractiondata();
            QCOMPARE(action.actiontype(), pb::UserAction::UserActionMouseInfo);
            QCOMPARE(action.userid(), qint64(1));
            QCOMPARE(action.mouseinfo().text(), std::string("Alice"));
            QCOMPARE(QPointF(action.mouseinfo().mouseposition().x(), action.mouseinfo().mouseposition().y()), QPointF(400, 250));
        }

        // The mark on the other board follows.
        QTest::mouseMove(a->window.get(), QPoint(500, 300));
        QCOMPARE(b->scene->markItems().size(), 1);
        QCOMPARE(b->scene->markItems().first()->boundary().topLeft(), QPointF(500, 300));
    }

    // A pointer shows whole from its first frame, where the user is, moves
    // without leaving pieces behind, and goes with the user's leave or
    // when the view's connection goes offline.
    void marksFollowPresence()
    {
        b->scene->setBackgroundColor(Qt::white);
        const QColor colour = GraphicMarkItem::colorForUser(5);
        // Inside the label: its left end, and its right end.
        const auto labelShows = [&](const QImage& frame, const QSharedPointer<GraphicItem>& mark, QPointF tip) {
            const double width = static_cast<GraphicMarkItem*>(mark.data())->extent().width();
            return near(frame.pixelColor((tip + QPointF(17, 27)).toPoint()), colour)
                && near(frame.pixelColor((tip + QPointF(width - 4, 27)).toPoint()), colour);
        };
        const auto blank = [&](const QImage& frame, QPointF tip) {
            for (int x = 0; x < 60; x += 3) {
                for (int y = 0; y < 36; y += 3) {
                    if (frame.pixelColor((tip + QPointF(x, y)).toPoint()) != QColor(Qt::white))
                        return false;
                }
            }
            return true;
        };
        QVERIFY(!b->frame().isNull());

        b->view->receiveData(wrap({ userBody(pb::UserAction::UserActionMouseInfo, 5, "Alice", QPointF(400, 250)) }));
        const QSharedPointer<GraphicItem> mark = b->scene->markItems().value(0);
        QVERIFY(mark);
        QCOMPARE(mark->userId(), qlonglong(5));
        QCOMPARE(mark->boundary().topLeft(), QPointF(400, 250));
        QCOMPARE(b->scene->items(GraphicScene::MarkLayer, 1), GraphicItemList { mark });
        QVERIFY(labelShows(b->frame(), mark, QPointF(400, 250)));

        b->view->receiveData(wrap({ userBody(pb::UserAction::UserActionMouseInfo, 5, "Alice B", QPointF(500, 300)) }));
        QCOMPARE(b->scene->markItems(), GraphicItemList { mark });
        QCOMPARE(mark->boundary().topLeft(), QPointF(500, 300));
        QCOMPARE(mark->property("text").toString(), QStringLiteral("Alice B"));
        QImage frame = b->frame();
        QVERIFY(labelShows(frame, mark, QPointF(500, 300)));
        QVERIFY(blank(frame, QPointF(400, 250)));
        // Filed under its new place, and never hit by the pointer.
        QCOMPARE(b->scene->layerIndex(GraphicScene::MarkLayer)->query(QRectF(495, 295, 10, 10)), GraphicItemList { mark });
        QVERIFY(!mark->collidesWithPoint(QPointF(501, 301), Qt::IntersectsItemShape));

        // A pointer that is not a number is refused; one far out is held at the margin.
        QTest::ignoreMessage(QtWarningMsg, "refused pointer of user 5: coordinates not finite");
        b->view->receiveData(wrap({ userBody(pb::UserAction::UserActionMouseInfo, 5, "Alice B", QPointF(kNaN, 1)) }));
        QCOMPARE(mark->boundary().topLeft(), QPointF(500, 300));
        QTest::ignoreMessage(QtWarningMsg, "clamped pointer of user 5: coordinates");
        b->view->receiveData(wrap({ userBody(pb::UserAction::UserActionMouseInfo, 5, "Alice B", QPointF(1e38, -3e38)) }));
        QCOMPARE(mark->boundary().topLeft(), QPointF(100000, -100000));
        QVERIFY(blank(b->frame(), QPointF(500, 300)));
        b->view->receiveData(wrap({ userBody(pb::UserAction::UserActionMouseInfo, 5, "Alice B", QPointF(500, 300)) }));

        // Presence about oneself is ignored.
        b->view->receiveData(wrap({ userBody(pb::UserAction::UserActionMouseInfo, 2, "me") }));
        QCOMPARE(b->scene->markItems().size(), 1);

        b->view->receiveData(wrap({ userBody(pb::UserAction::UserActionLeave, 5) }));
        QVERIFY(b->scene->markItems().isEmpty());
        QCOMPARE(b->scene->itemCount(GraphicScene::MarkLayer), 0);
        QVERIFY(blank(b->frame(), QPointF(500, 300)));

        // Offline, the host takes every pointer off.
        b->view->receiveData(wrap({ userBody(pb::UserAction::UserActionMouseInfo, 5, "Alice", QPointF(400, 250)),
                                    userBody(pb::UserAction::UserActionMouseInfo, 6, "Bob", QPointF(600, 250)) }));
        QCOMPARE(b->scene->markItems().size(), 2);
        QVERIFY(!blank(b->frame(), QPointF(600, 250)));
        b->view->dropRemotePointers();
        QCOMPARE(b->scene->itemCount(GraphicScene::MarkLayer), 0);
        frame = b->frame();
        QVERIFY(blank(frame, QPointF(400, 250)) && blank(frame, QPointF(600, 250)));
    }

    void markPaintsAtScreenSizeInItsUsersColour_data()
    {
        QTest::addColumn<qlonglong>("user");
        QTest::addColumn<QString>("name");
        QTest::addColumn<double>("scale");
        QTest::addColumn<QColor>("colour");
        QTest::addColumn<double>("maxWidth");
        // An empty name leaves a label 12 by 18 at (14, 18) from the arrow's tip.
        QTest::newRow("user 7") << qlonglong(7) << QString() << 1.0 << QColor("#7BCD59") << 26.0;
        QTest::newRow("user 8 shares it, zoomed in") << qlonglong(8) << QString() << 2.0 << QColor("#7BCD59") << 26.0;
        QTest::newRow("user 16, zoomed out") << qlonglong(16) << QString() << 0.5 << QColor("#ED4E4E") << 26.0;
        QTest::newRow("long name is elided") << qlonglong(3) << QString(60, QLatin1Char('W')) << 1.0 << QColor("#EEC74E")
                                             << 14.0 + 132.0;
    }

    void markPaintsAtScreenSizeInItsUsersColour()
    {
        QFETCH(qlonglong, user);
        QFETCH(QString, name);
        QFETCH(double, scale);
        QFETCH(QColor, colour);
        QFETCH(double, maxWidth);
        b->view->scaleSceneToCenter(scale);
        const QPointF at = b->scene->mapToScene(QPointF(300, 200));
        const pb::WhiteboardData presence = userBody(pb::UserAction::UserActionMouseInfo, user, name, at);
        b->view->receiveData(wrap({ presence, presence }));
        const QSharedPointer<GraphicItem> mark = b->scene->markItems().value(0);
        const QImage frame = b->frame();
        QVERIFY(mark && !frame.isNull());

        // The painted extent is the boundary: the same size on screen whatever the zoom.
        const QSizeF extent = mark->boundary().size() * scale;
        QCOMPARE(extent.height(), 36.0);
        if (name.isEmpty())
            QCOMPARE(extent.width(), maxWidth);
        else
            QVERIFY(extent.width() <= maxWidth && extent.width() > 100.0);

        const QPoint tip = b->scene->mapFromScene(mark->boundary().topLeft()).toPoint();
        QVERIFY2(near(frame.pixelColor(tip + QPoint(17, 27)), colour), qPrintable(frame.pixelColor(tip + QPoint(17, 27)).name()));
        QVERIFY(!near(frame.pixelColor(tip + QPoint(int(maxWidth) + 6, 27)), colour));
        // A zoom keeps the frame the painted extent.
        b->view->scaleSceneToCenter(scale * 2);
        QCOMPARE(mark->boundary().height() * scale * 2, 36.0);
    }
};

QTEST_MAIN(tst_Sync)
#include "tst_sync.moc"
