// The demo's relay keeps the server's contract: one order, no echo, a copy
// per receiver, and joins answered with the stored item actions.
#include "relay.h"
#include "testsupport.h"

#include "proto/whiteboard.pb.h"
#include "whiteboardview.h"

#include <QRegularExpression>
#include <QTest>

#include <functional>
#include <memory>
#include <vector>

namespace pb = im::whiteboard;
using whiteboard::GraphicItemList;
using whiteboard::GraphicScene;

// Stands in for a WhiteboardView: the same signal and slot, and it owns what
// it receives.
class FakeBoard : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString userName MEMBER m_userName CONSTANT)

public:
    explicit FakeBoard(const QString& name)
        : m_userName(name)
    {
    }

    void send(pb::TransferData* data) { emit sendData(data); }

    std::vector<std::unique_ptr<pb::TransferData>> received;
    std::function<void(FakeBoard*, const pb::TransferData&)> onReceive;

signals:
    void sendData(im::whiteboard::TransferData* data);

public slots:
    void receiveData(im::whiteboard::TransferData* data)
    {
        received.emplace_back(data);
        if (onReceive)
            onReceive(this, *data);
    }

private:
    QString m_userName;
};

namespace {

const char* const kBoardId = "board-7";

pb::TransferData* wrap(const pb::WhiteboardData& body, const std::string& gid = std::string(), int type = 0)
{
    auto* transfer = new pb::TransferData;
    transfer->set_whiteboardid(kBoardId);
    pb::SingleWhiteboardData* envelope = transfer->mutable_multi()->add_whiteboarddatalist();
    envelope->set_gid(gid);
    envelope->set_graphicactiontype(pb::GraphicActionType(type));
    envelope->set_timestamp(1000);
    envelope->set_data(body.SerializeAsString());
    return transfer;
}

// An action on a rectangle; its width tells versions of the item apart.
pb::TransferData* rectAction(pb::GraphicActionType type, const std::string& gid, qint64 author, float width = 10)
{
    pb::WhiteboardData body;
    body.set_datatype(pb::WhiteboardData::WhiteboardDataGraphicAction);
    pb::GraphicAction* action = body.mutable_graphicactiondata();
    action->set_gid(gid);
    action->set_graphicactiontype(type);
    action->set_timestamp(1000);
    pb::Rect* rect = action->mutable_rectdata()->add_data();
    rect->mutable_baseinfo()->set_gid(gid);
    rect->mutable_baseinfo()->set_userid(author);
    rect->mutable_baseinfo()->set_type(2);
    rect->set_width(width);
    rect->set_heigth(20);
    return wrap(body, gid, type);
}

pb::TransferData* pointerMove(qint64 user)
{
    pb::WhiteboardData body;
    body.set_datatype(pb::WhiteboardData::WhiteboardDataUserAction);
    pb::UserAction* action = body.mutable_useractiondata();
    action->set_actiontype(pb::UserAction::UserActionMouseInfo);
    action->set_userid(user);
    action->mutable_mouseinfo()->set_text("someone");
    action->mutable_mouseinfo()->mutable_mouseposition()->set_x(3);
    return wrap(body);
}

pb::TransferData* operation(pb::UserOperation::Type type, qint64 user)
{
    pb::WhiteboardData body;
    body.set_datatype(pb::WhiteboardData::WhiteboardDataUserOperation);
    body.mutable_useroperationdata()->set_operationtype(type);
    body.mutable_useroperationdata()->set_userid(user);
    return wrap(body);
}

pb::TransferData* join()
{
    auto* transfer = new pb::TransferData;
    transfer->set_whiteboardid(kBoardId);
    transfer->mutable_userjoin()->set_oldesttimestamp(1);
    return transfer;
}

// "add g1 10" for each item action of a message, in order.
QStringList actionsOf(const pb::TransferData& transfer)
{
    QStringList result;
    for (const pb::SingleWhiteboardData& envelope : transfer.multi().whiteboarddatalist()) {
        pb::WhiteboardData body;
        if (!body.ParseFromString(envelope.data())) {
            result << QStringLiteral("unparsable");
            continue;
        }
        if (body.datatype() != pb::WhiteboardData::WhiteboardDataGraphicAction) {
            result << QStringLiteral("other");
            continue;
        }
        const pb::GraphicAction& action = body.graphicactiondata();
        const char* names[] = { "add", "update", "modify", "remove" };
        result << QStringLiteral("%1 %2 %3")
                      .arg(QLatin1String(names[action.graphicactiontype() & 3]), QString::fromStdString(action.gid()))
                      .arg(action.rectdata().data(0).width());
    }
    return result;
}

// Every item action of a join answer, with a check of its shape: item batches
// first, then exactly one userjoin, last.
QStringList replayOf(const FakeBoard& board, int* batches = nullptr)
{
    QStringList result;
    int multis = 0;
    for (size_t i = 0; i < board.received.size(); ++i) {
        const pb::TransferData& transfer = *board.received[i];
        if (transfer.whiteboardid() != kBoardId)
            return { QStringLiteral("wrong whiteboard id") };
        const bool last = i + 1 == board.received.size();
        if (last != transfer.has_userjoin())
            return { QStringLiteral("userjoin missing or not last") };
        if (!last) {
            if (!transfer.has_multi() || transfer.multi().whiteboarddatalist_size() == 0)
                return { QStringLiteral("empty batch") };
            ++multis;
            result << actionsOf(transfer);
        }
    }
    if (batches)
        *batches = multis;
    return result;
}

} // namespace

class tst_DemoRelay : public QObject
{
    Q_OBJECT

private slots:
    void init() { QTest::failOnWarning(QRegularExpression(QStringLiteral("relay"))); }

    void everyOtherBoardGetsItsOwnCopy();
    void oneOrderWhenAReceiverSends();
    void joinIsAnsweredWithTheStoredActions();
    void clearOperationsShortenTheHistory();
    void realBoardsShareTheirDrawing();
};

void tst_DemoRelay::everyOtherBoardGetsItsOwnCopy()
{
    Relay relay;
    FakeBoard alice(QStringLiteral("Alice")), bob(QStringLiteral("Bob")), carol(QStringLiteral("Carol"));
    QVERIFY(relay.addBoard(&alice));
    QVERIFY(relay.addBoard(&bob));
    QVERIFY(relay.addBoard(&carol));
    QCOMPARE(relay.boardCount(), 3);

    pb::TransferData* sent = rectAction(pb::GraphicActionAdd, "g1", 1001);
    const std::string bytes = sent->SerializeAsString();
    alice.send(sent);

    QCOMPARE(alice.received.size(), size_t(0));
    QCOMPARE(bob.received.size(), size_t(1));
    QCOMPARE(carol.received.size(), size_t(1));
    QCOMPARE(bob.received[0]->SerializeAsString(), bytes);
    QCOMPARE(carol.received[0]->SerializeAsString(), bytes);
    // Each receiver owns a copy of its own.
    QVERIFY(bob.received[0].get() != carol.received[0].get());
    QCOMPARE(relay.storedActionCount(), 1);
    QCOMPARE(relay.lastMessage(), QStringLiteral("Alice: add"));

    // Pointer moves are relayed too, but are not stored for late boards.
    bob.send(pointerMove(1002));
    QCOMPARE(bob.received.size(), size_t(1));
    QCOMPARE(actionsOf(*alice.received[0]), QStringList { QStringLiteral("other") });
    QCOMPARE(relay.storedActionCount(), 1);
}

void tst_DemoRelay::oneOrderWhenAReceiverSends()
{
    Relay relay;
    FakeBoard alice(QStringLiteral("Alice")), bob(QStringLiteral("Bob")), carol(QStringLiteral("Carol"));
    relay.addBoard(&alice);
    relay.addBoard(&bob);
    relay.addBoard(&carol);

    // Bob answers the first message at once, while the relay is still busy
    // delivering it; Carol comes after Bob in the relay's list.
    bob.onReceive = [](FakeBoard* self, const pb::TransferData& data) {
        if (actionsOf(data).value(0) == QLatin1String("add a 10"))
            self->send(rectAction(pb::GraphicActionAdd, "b", 1002));
    };
    alice.send(rectAction(pb::GraphicActionAdd, "a", 1001));

    QCOMPARE(carol.received.size(), size_t(2));
    QCOMPARE(actionsOf(*carol.received[0]), QStringList { QStringLiteral("add a 10") });
    QCOMPARE(actionsOf(*carol.received[1]), QStringList { QStringLiteral("add b 10") });
    QCOMPARE(alice.received.size(), size_t(1));
    QCOMPARE(actionsOf(*alice.received[0]), QStringList { QStringLiteral("add b 10") });
    QCOMPARE(bob.received.size(), size_t(1));
}

void tst_DemoRelay::joinIsAnsweredWithTheStoredActions()
{
    Relay relay;
    FakeBoard alice(QStringLiteral("Alice")), bob(QStringLiteral("Bob"));
    relay.addBoard(&alice);
    relay.addBoard(&bob);

    alice.send(rectAction(pb::GraphicActionAdd, "g1", 1001, 1));
    alice.send(rectAction(pb::GraphicActionAdd, "g2", 1001, 1));
    bob.send(rectAction(pb::GraphicActionUpdate, "g1", 1001, 2));
    alice.send(rectAction(pb::GraphicActionModify, "g1", 1001, 3));
    bob.send(rectAction(pb::GraphicActionRemove, "g2", 1001, 1));
    bob.send(rectAction(pb::GraphicActionAdd, "g3", 1002, 1));
    alice.send(pointerMove(1001));

    FakeBoard late(QStringLiteral("Late"));
    relay.addBoard(&late);
    alice.received.clear();
    bob.received.clear();

    late.send(join());
    QCOMPARE(replayOf(late), (QStringList { QStringLiteral("add g1 1"), QStringLiteral("modify g1 3"), QStringLiteral("add g3 1") }));
    // The join is the late board's business alone.
    QCOMPARE(alice.received.size(), size_t(0));
    QCOMPARE(bob.received.size(), size_t(0));

    // A board with nothing to catch up on gets the userjoin alone.
    Relay empty;
    FakeBoard first(QStringLiteral("First"));
    empty.addBoard(&first);
    first.send(join());
    QCOMPARE(first.received.size(), size_t(1));
    QVERIFY(first.received[0]->has_userjoin());
}

void tst_DemoRelay::clearOperationsShortenTheHistory()
{
    Relay relay;
    FakeBoard alice(QStringLiteral("Alice")), bob(QStringLiteral("Bob"));
    relay.addBoard(&alice);
    relay.addBoard(&bob);

    alice.send(rectAction(pb::GraphicActionAdd, "a1", 1001));
    bob.send(rectAction(pb::GraphicActionAdd, "b1", 1002));
    alice.send(rectAction(pb::GraphicActionAdd, "a2", 1001));
    bob.send(rectAction(pb::GraphicActionUpdate, "b1", 1002, 11));
    alice.send(operation(pb::UserOperation::UserOperationClearByUid, 1002));
    // The operation itself is relayed like any message.
    QCOMPARE(actionsOf(*bob.received.back()), QStringList { QStringLiteral("other") });

    FakeBoard late(QStringLiteral("Late"));
    relay.addBoard(&late);
    late.send(join());
    QCOMPARE(replayOf(late), (QStringList { QStringLiteral("add a1 10"), QStringLiteral("add a2 10") }));

    alice.send(operation(pb::UserOperation::UserOperationClearAll, 1001));
    QCOMPARE(relay.storedActionCount(), 0);
    late.received.clear();
    late.send(join());
    QCOMPARE(late.received.size(), size_t(1));
    QVERIFY(late.received[0]->has_userjoin());
}

void tst_DemoRelay::realBoardsShareTheirDrawing()
{
    Relay relay;
    ViewFixture alice(QSize(1080, 720), 1001);
    ViewFixture bob(QSize(1080, 720), 1002);
    QVERIFY(relay.addBoard(alice.view));
    QVERIFY(relay.addBoard(bob.view));

    alice.view->setToolType(GraphicDefine::Rectangle);
    alice.drag(QPoint(100, 100), QPoint(300, 200), 6);
    const GraphicItemList drawn = alice.scene->items(GraphicScene::ItemLayer, 1);
    const GraphicItemList arrived = bob.scene->items(GraphicScene::ItemLayer, 1);
    QCOMPARE(drawn.size(), 1);
    QCOMPARE(arrived.size(), 1);
    QCOMPARE(arrived[0]->gid(), drawn[0]->gid());
    QCOMPARE(arrived[0]->userId(), 1001);
    QCOMPARE(arrived[0]->boundary(), drawn[0]->boundary());

    // A board that joins later is brought up to date, then told the load is over.
    ViewFixture carol(QSize(1080, 720), 1003);
    relay.addBoard(carol.view);
    QTest::ignoreMessage(QtDebugMsg, "server data loaded.");
    carol.view->sendUserJoinData(relay.serverTime(), QStringLiteral("ignored"));
    QCOMPARE(carol.scene->itemCount(GraphicScene::ItemLayer), 1);

    // An undo is an ordinary change for the others.
    alice.scene->undo();
    QCOMPARE(bob.scene->itemCount(GraphicScene::ItemLayer), 0);
    QCOMPARE(carol.scene->itemCount(GraphicScene::ItemLayer), 0);
}

QTEST_MAIN(tst_DemoRelay)
#include "tst_demorelay.moc"
