// The relay end to end: a real whiteboard-relay process on 127.0.0.1, real
// boards joined through RelayConnection, and raw WebSockets where a test needs
// to see or send the frames themselves. With WHITEBOARD_TEST_POSTGRES naming
// the file that holds a PostgreSQL server's URL, every relay keeps its boards
// in a fresh database there, and the tests that can spread their clients over
// two relay nodes of one database.
#include "messages.h"
#include "testsupport.h"

#include "relay/accesstoken.h"
#include "relay/client/relayconnection.h"
#include "scene/itemcodec.h"


#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QUrlQuery>
#include <QTest>
#include <QWebSocket>

#include <limits>
#include <memory>
#include <vector>

using relay::client::RelayConnection;

Q_DECLARE_METATYPE(im::whiteboard::TransferData)
using whiteboard::GraphicItemList;
using whiteboard::GraphicScene;

namespace {

// Spaces, a slash and a non-ASCII letter: the id travels encoded in the URL.
const QString kBoard = QStringLiteral("team sketch/ü");

// The PostgreSQL server's URL when the tests run on one; empty otherwise.
QUrl postgresServer()
{
    const QString file = qEnvironmentVariable("WHITEBOARD_TEST_POSTGRES");
    if (file.isEmpty())
        return QUrl();
    QFile in(file);
    if (!in.open(QIODevice::ReadOnly))
        qFatal("WHITEBOARD_TEST_POSTGRES names %s, which holds no server URL: the PostgreSQL server did not start", qPrintable(file));
    return QUrl(QString::fromUtf8(in.readAll().trimmed()));
}

// Runs `statement` on the PostgreSQL server's own database; the first column
// of its one row.
QVariant onServer(const QString& statement, const QVariant& value = QVariant())
{
    const QUrl server = postgresServer();
    QVariant result;
    {
        QSqlDatabase admin = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), QStringLiteral("admin"));
        admin.setHostName(QUrlQuery(server).queryItemValue(QStringLiteral("host")));
        admin.setUserName(server.userName());
        admin.setDatabaseName(server.path().mid(1));
        QSqlQuery query(admin);
        bool ok = admin.open();
        if (ok && value.isValid()) {
            ok = query.prepare(statement);
            query.addBindValue(value);
            ok = ok && query.exec();
        } else if (ok) {
            ok = query.exec(statement);
        }
        if (!ok)
            qFatal("cannot run %s on %s: %s", qPrintable(statement), qPrintable(server.toString()), qPrintable(query.lastError().text()));
        if (query.next())
            result = query.value(0);
    }
    QSqlDatabase::removeDatabase(QStringLiteral("admin"));
    return result;
}

// A new empty database on the PostgreSQL server, as a --store URL.
QString freshDatabase()
{
    static int count = 0;
    const QString name = QStringLiteral("relay_%1_%2").arg(QCoreApplication::applicationPid()).arg(++count);
    onServer(QStringLiteral("CREATE DATABASE ") + name);
    QUrl url = postgresServer();
    url.setPath(QLatin1Char('/') + name);
    return url.toString();
}

// One whiteboard-relay process with its database in a private folder, or in
// a fresh PostgreSQL database. A restart keeps the port and the database;
// another node on the same database takes `store` from the first.
class RelayProcess
{
public:
    explicit RelayProcess(const QStringList& extra = {}, const QString& sameStore = QString())
        : store(sameStore)
        , m_extra(extra)
    {
        if (store.isEmpty() && !postgresServer().isEmpty())
            store = freshDatabase();
    }
    ~RelayProcess() { kill(); }

    bool start()
    {
        m_process = std::make_unique<QProcess>();
        QObject::connect(m_process.get(), &QProcess::readyReadStandardError, [this] { m_log += m_process->readAllStandardError(); });
        m_process->start(QStringLiteral(WHITEBOARD_RELAY_PROGRAM),
                         QStringList { QStringLiteral("--listen"), QStringLiteral("127.0.0.1"), QStringLiteral("--port"), QString::number(m_port),
                                       store.isEmpty() ? QStringLiteral("--db") : QStringLiteral("--store"),
                                       store.isEmpty() ? m_dir.filePath(QStringLiteral("boards.sqlite")) : store }
                             + m_extra);
        QByteArray out;
        const QRegularExpression listening(QStringLiteral("listening on (ws://127.0.0.1:(\\d+))"));
        while (m_process->waitForReadyRead(10000)) {
            out += m_process->readAllStandardOutput();
            const QRegularExpressionMatch match = listening.match(QString::fromUtf8(out));
            if (match.hasMatch()) {
                url = QUrl(match.captured(1));
                m_port = quint16(match.captured(2).toUInt());
                return true;
            }
        }
        qWarning("relay did not start: %s", m_log.constData());
        return false;
    }

    void kill()
    {
        if (!m_process || m_process->state() == QProcess::NotRunning)
            return;
        m_process->kill();
        m_process->waitForFinished();
    }
    // SIGTERM; true if the relay closed down cleanly.
    bool terminate()
    {
        m_process->terminate();
        return m_process->waitForFinished() && m_process->exitStatus() == QProcess::NormalExit && m_process->exitCode() == 0;
    }

    bool running() const { return m_process && m_process->state() == QProcess::Running; }
    QString log() const { return QString::fromUtf8(m_log); }
    QString dir() const { return m_dir.path(); }
    QStringList options() const { return m_extra; }

    QString store; // PostgreSQL's URL; empty: SQLite in the folder
    QUrl url;

private:
    QTemporaryDir m_dir;
    QStringList m_extra;
    quint16 m_port = 0;
    std::unique_ptr<QProcess> m_process;
    QByteArray m_log;
};

// On PostgreSQL a second node of the relay's database, started; none on
// SQLite, where the relay is the only node.
std::unique_ptr<RelayProcess> nodeBeside(const RelayProcess& relay)
{
    if (relay.store.isEmpty())
        return nullptr;
    auto node = std::make_unique<RelayProcess>(relay.options(), relay.store);
    return node->start() ? std::move(node) : nullptr;
}

// A real board for one user, connected through a RelayConnection.
struct Peer
{
    Peer(const QUrl& url, qlonglong account, const QString& name, const QString& token = QString())
        : fixture(QSize(1080, 720), account)
    {
        fixture.view->setUserName(name);
        fixture.view->setId(kBoard);
        connection.setUrl(url);
        connection.setBoardId(kBoard);
        connection.setAccountId(account);
        connection.setUserName(name);
        connection.setToken(token);
        connection.attach(fixture.view);
        connection.setActive(true);
    }
    int items() const { return fixture.scene->itemCount(GraphicScene::ItemLayer); }
    GraphicItemList list() const { return fixture.scene->items(GraphicScene::ItemLayer, 1); }
    void drawRect(QPoint from, QPoint to)
    {
        fixture.view->setToolType(GraphicDefine::Rectangle);
        fixture.drag(from, to, 4);
    }

    ViewFixture fixture;
    RelayConnection connection;
};

// The gids of a board's items, sorted: items drawn in one millisecond may
// stack either way.
QStringList sortedGids(const Peer& peer)
{
    QStringList gids;
    for (const auto& item : peer.list())
        gids << item->gid();
    gids.sort();
    return gids;
}

// A relay with Alice, the board's owner as she comes first, and Bob online.
struct TwoBoards
{
    explicit TwoBoards(const QStringList& options = {})
        : relay(options)
    {
        if (!relay.start())
            return;
        alice = std::make_unique<Peer>(relay.url, 1001, QStringLiteral("Alice"));
        if (!QTest::qWaitFor([this] { return alice->connection.status() == RelayConnection::Online; }, 10000))
            return;
        bob = std::make_unique<Peer>(relay.url, 1002, QStringLiteral("Bob"));
        online = QTest::qWaitFor([this] { return bob->connection.status() == RelayConnection::Online; }, 10000);
    }

    // Alice draws a rectangle and Bob's board shows it.
    bool drawnByAlice()
    {
        alice->drawRect(QPoint(100, 100), QPoint(300, 200));
        return QTest::qWaitFor([this] { return bob->items() == 1; }, 5000);
    }

    RelayProcess relay;
    std::unique_ptr<Peer> alice;
    std::unique_ptr<Peer> bob;
    bool online = false;
};

// A participant that sees the frames: every message it got, decoded.
struct RawClient
{
    RawClient(const QUrl& base, qlonglong account, const QByteArray& token = QByteArray())
    {
        QObject::connect(&socket, &QWebSocket::binaryMessageReceived, [this](const QByteArray& frame) {
            received.emplace_back();
            received.back().ParseFromArray(frame.constData(), int(frame.size()));
        });
        QUrl url = base;
        url.setPath(QStringLiteral("/boards/") + kBoard);
        url.setQuery(QStringLiteral("user=%1&name=raw%1%2").arg(account).arg(token.isEmpty() ? QString() : QStringLiteral("&token=") + QString::fromLatin1(token)));
        QSignalSpy connected(&socket, &QWebSocket::connected);
        socket.open(url);
        opened = connected.wait(10000);
    }
    void send(const pb::TransferData& data) { socket.sendBinaryMessage(QByteArray::fromStdString(data.SerializeAsString())); }
    void join()
    {
        pb::TransferData data;
        data.set_whiteboardid(kBoard.toStdString());
        data.mutable_userjoin()->set_oldesttimestamp(1);
        send(data);
    }
    // Its join was answered (pointers may follow the answer).
    bool joined() const
    {
        return std::any_of(received.cbegin(), received.cend(), [](const pb::TransferData& data) { return data.has_userjoin(); });
    }
    // The gid of every item action received, in order.
    QStringList gids() const
    {
        QStringList result;
        for (const pb::TransferData& data : received) {
            for (const pb::WhiteboardData& body : bodiesOf(data)) {
                if (body.datatype() == pb::WhiteboardData::WhiteboardDataGraphicAction)
                    result << QString::fromStdString(body.graphicactiondata().gid());
            }
        }
        return result;
    }

    QWebSocket socket;
    bool opened = false;
    std::vector<pb::TransferData> received;
};

// An action on a rectangle by `author`, as a board sends it; its width tells
// states apart. A negative version leaves the version fields out, a device of
// 0 the device.
pb::TransferData rectAction(pb::GraphicActionType type, const std::string& gid, qint64 author, float width = 10, qint64 version = -1,
                            qint64 versionUser = 0, qint64 versionDevice = 0)
{
    pb::WhiteboardData body = rectBody(type, gid, QRectF(0, 0, width, 0), author, version, versionUser);
    if (versionDevice)
        body.mutable_graphicactiondata()->set_versiondevice(versionDevice);
    return transferOf({ body }, gid, kBoard.toStdString());
}

pb::TransferData rectAdd(const std::string& gid, qint64 author, float width = 10)
{
    return rectAction(pb::GraphicActionAdd, gid, author, width);
}

// "update a1 10 v6" (with a device: "v6 d9") per item action received from
// `first` on.
QStringList actionsOf(const RawClient& client, size_t first)
{
    const char* names[] = { "add", "update", "modify", "remove" };
    QStringList result;
    for (size_t i = first; i < client.received.size(); ++i) {
        for (const pb::WhiteboardData& body : bodiesOf(client.received[i])) {
            const pb::GraphicAction& action = body.graphicactiondata();
            if (body.datatype() != pb::WhiteboardData::WhiteboardDataGraphicAction)
                continue;
            QString text = QStringLiteral("%1 %2").arg(QLatin1String(names[action.graphicactiontype() & 3]), QString::fromStdString(action.gid()));
            if (action.rectdata().data_size() > 0)
                text += QStringLiteral(" %1").arg(action.rectdata().data(0).width());
            if (action.has_version())
                text += QStringLiteral(" v%1").arg(action.version());
            if (action.has_versiondevice())
                text += QStringLiteral(" d%1").arg(action.versiondevice());
            result << text;
        }
    }
    return result;
}

// The largest version there is: a forged clock's end.
constexpr qint64 kEnd = std::numeric_limits<qint64>::max();

pb::TransferData clearOwnBody(qint64 userId, qint64 version)
{
    pb::WhiteboardData body = clearAllBody(userId);
    body.mutable_useroperationdata()->set_operationtype(pb::UserOperation::UserOperationClearByUid);
    body.mutable_useroperationdata()->set_version(version);
    body.mutable_useroperationdata()->set_versionuser(userId);
    return transferOf({ body }, {}, kBoard.toStdString());
}

QByteArray frameOf(const pb::TransferData& data)
{
    return QByteArray::fromStdString(data.SerializeAsString());
}

pb::TransferData joinMessage()
{
    pb::TransferData data;
    data.set_whiteboardid(kBoard.toStdString());
    data.mutable_userjoin()->set_oldesttimestamp(1);
    return data;
}

// Runs `use` on the relay's database, SQLite or PostgreSQL.
template<typename Use>
bool onStore(const RelayProcess& relay, Use&& use)
{
    bool ok = false;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(relay.store.isEmpty() ? QStringLiteral("QSQLITE") : QStringLiteral("QPSQL"), QStringLiteral("edit"));
        if (relay.store.isEmpty()) {
            db.setDatabaseName(relay.dir() + QStringLiteral("/boards.sqlite"));
        } else {
            const QUrl url(relay.store);
            db.setHostName(QUrlQuery(url).queryItemValue(QStringLiteral("host")));
            db.setUserName(url.userName());
            db.setDatabaseName(url.path().mid(1));
        }
        ok = db.open() && use(db);
    }
    QSqlDatabase::removeDatabase(QStringLiteral("edit"));
    return ok;
}

// Sets every stored item's version, in its column and its stored message,
// with the relay stopped.
bool setStoredVersions(const RelayProcess& relay, qint64 version)
{
    return onStore(relay, [version](QSqlDatabase& db) {
        QSqlQuery read(db);
        bool ok = read.exec(QStringLiteral("SELECT gid, envelope FROM items"));
        while (ok && read.next()) {
            const QByteArray stored = read.value(1).toByteArray();
            pb::SingleWhiteboardData envelope;
            pb::WhiteboardData body;
            ok = envelope.ParseFromArray(stored.constData(), int(stored.size())) && body.ParseFromString(envelope.data());
            body.mutable_graphicactiondata()->set_version(version);
            envelope.set_data(body.SerializeAsString());
            QSqlQuery write(db);
            ok = ok && write.prepare(QStringLiteral("UPDATE items SET version = ?, envelope = ? WHERE gid = ?"));
            write.addBindValue(version);
            write.addBindValue(QByteArray::fromStdString(envelope.SerializeAsString()));
            write.addBindValue(read.value(0));
            ok = ok && write.exec() && write.numRowsAffected() == 1;
        }
        return ok;
    });
}

// The gids of what a participant joining now is given.
QStringList replayedGids(const QUrl& url)
{
    RawClient late(url, 1004);
    late.join();
    if (!QTest::qWaitFor([&late] { return late.joined(); }, 10000))
        return { QStringLiteral("(no join answer)") };
    return late.gids();
}

} // namespace

class tst_Relay : public QObject
{
    Q_OBJECT

private slots:
    void boardsShareTheirDrawingAndLateJoinersCatchUp();
    void nothingReceivedIsLostWhenTheRelayStops_data();
    void nothingReceivedIsLostWhenTheRelayStops();
    void nonOwnerUpdateIsRefusedAndCorrected();
    void ownerAndAuthorDraggingOneItemEndAlike();
    void refusalsCorrectTheSender_data();
    void refusalsCorrectTheSender();
    void forgedVersionsLeaveTheBoardToItsOwner_data();
    void forgedVersionsLeaveTheBoardToItsOwner();
    void clockAtItsBoundStaysUsable();
    void keptHistoryIsBoundedInBytes();
    void movedPictureReachesLateJoinersWithItsPixels();
    void oneAccountOnTwoDevicesKeepsTheNewerChange();
    void boardsStoredBeforeDevicesAreMigrated();
    void pointerPositionsAreRelayedWithinTheirRate();
    void connectionTellsWhyItIsOffline_data();
    void connectionTellsWhyItIsOffline();
    void badInputClosesOnlyThatConnection_data();
    void badInputClosesOnlyThatConnection();
    void connectionsAreBounded_data();
    void connectionsAreBounded();
    void oneBoardOnTwoNodes_data();
    void oneBoardOnTwoNodes();
    void nodesOutliveTheirDatabaseConnection_data();
    void nodesOutliveTheirDatabaseConnection();
};

void tst_Relay::boardsShareTheirDrawingAndLateJoinersCatchUp()
{
    TwoBoards boards({ QStringLiteral("--replay-batch"), QStringLiteral("2") });
    QVERIFY(boards.online);
    RelayProcess& relay = boards.relay;
    std::unique_ptr<Peer>& alice = boards.alice;
    Peer& bob = *boards.bob;

    alice->drawRect(QPoint(100, 100), QPoint(300, 200));
    bob.drawRect(QPoint(400, 300), QPoint(500, 400));
    alice->drawRect(QPoint(600, 100), QPoint(700, 150));
    QTRY_COMPARE(bob.items(), 3);
    QTRY_COMPARE(alice->items(), 3);
    QStringList drawn;
    const GraphicItemList arrived = bob.list();
    for (const auto& item : alice->list()) {
        const auto same = std::find_if(arrived.cbegin(), arrived.cend(), [&](const auto& other) { return other->gid() == item->gid(); });
        QVERIFY(same != arrived.cend());
        QCOMPARE((*same)->boundary(), item->boundary());
        drawn << item->gid();
    }
    // Alice's pointer shows on Bob's board, and goes when she leaves.
    auto aliceMarks = [&bob] {
        const GraphicItemList marks = bob.fixture.scene->markItems();
        return std::count_if(marks.cbegin(), marks.cend(), [](const auto& mark) { return mark->userId() == 1001; });
    };
    alice->fixture.move(QPoint(50, 60));
    QTRY_COMPARE(aliceMarks(), 1);

    // A late joiner: the stored items in batches of at most two, then the
    // userjoin; a sender busy during the join loses and doubles nothing.
    RawClient sender(relay.url, 1003);
    RawClient late(relay.url, 1004);
    QVERIFY(sender.opened && late.opened);
    for (int i = 0; i < 40; ++i) {
        sender.send(rectAdd("s" + std::to_string(i), 1003));
        if (i == 20)
            late.join();
    }
    QTRY_COMPARE(late.gids().size(), 43);
    const QStringList seen = late.gids();
    QCOMPARE(QSet<QString>(seen.cbegin(), seen.cend()).size(), 43);
    int replayed = 0;
    for (const pb::TransferData& data : late.received) {
        if (data.has_userjoin())
            break;
        QVERIFY(data.multi().whiteboarddatalist_size() <= 2);
        replayed += data.multi().whiteboarddatalist_size();
    }
    QVERIFY(replayed >= 3);
    const QStringList replayedFirst = seen.mid(0, 3);
    QCOMPARE(QSet<QString>(replayedFirst.cbegin(), replayedFirst.cend()), QSet<QString>(drawn.cbegin(), drawn.cend()));

    // A real late board loads the same, through the second of its relays
    // when nothing answers at the first.
    const QUrl nobody(QStringLiteral("ws://127.0.0.1:1"));
    Peer carol(nobody, 1005, QStringLiteral("Carol"));
    carol.connection.setUrls({ nobody, relay.url });
    QTRY_COMPARE(carol.connection.status(), RelayConnection::Online);
    QCOMPARE(carol.connection.currentUrl(), relay.url);
    QCOMPARE(carol.items(), 43);

    alice.reset();
    QTRY_COMPARE(aliceMarks(), 0);
}

void tst_Relay::nothingReceivedIsLostWhenTheRelayStops_data()
{
    QTest::addColumn<bool>("killed");
    QTest::newRow("SIGKILL") << true;
    QTest::newRow("SIGTERM") << false;
}

void tst_Relay::nothingReceivedIsLostWhenTheRelayStops()
{
    QFETCH(bool, killed);
    TwoBoards boards;
    QVERIFY(boards.online);
    RelayProcess& relay = boards.relay;
    Peer& alice = *boards.alice;
    Peer& bob = *boards.bob;
    alice.drawRect(QPoint(100, 100), QPoint(200, 200));
    bob.drawRect(QPoint(300, 100), QPoint(400, 200));
    alice.drawRect(QPoint(500, 100), QPoint(600, 200));
    QTRY_COMPARE(bob.items(), 3);
    QTRY_COMPARE(alice.items(), 3);

    if (killed)
        relay.kill();
    else
        QVERIFY(relay.terminate());
    QTRY_COMPARE(alice.connection.status(), RelayConnection::Offline);
    QTRY_VERIFY(bob.connection.status() != RelayConnection::Online);
    // Drawn offline: it waits for the connection.
    alice.drawRect(QPoint(100, 400), QPoint(200, 500));
    QCOMPARE(alice.connection.pendingCount(), 1);

    QVERIFY(relay.start());
    QTRY_COMPARE_WITH_TIMEOUT(alice.connection.status(), RelayConnection::Online, 20000);
    QTRY_COMPARE_WITH_TIMEOUT(bob.connection.status(), RelayConnection::Online, 20000);
    QTRY_COMPARE(bob.items(), 4);
    QCOMPARE(alice.items(), 4);
    QCOMPARE(alice.connection.pendingCount(), 0);
    // The replay after the reconnect doubled nothing, and the relay has all four.
    RawClient late(relay.url, 1003);
    late.join();
    QTRY_VERIFY(late.joined());
    QCOMPARE(late.gids().size(), 4);
    QTRY_COMPARE(alice.items(), 4);
    QCOMPARE(bob.items(), 4);

    // Bob away while Alice takes one back and draws another: his board comes
    // back as the relay has it.
    bob.connection.setActive(false);
    QTRY_COMPARE(bob.connection.status(), RelayConnection::Offline);
    alice.fixture.scene->undo();
    alice.drawRect(QPoint(700, 400), QPoint(800, 500));
    bob.connection.setActive(true);
    QTRY_COMPARE(bob.connection.status(), RelayConnection::Online);
    // Sorted: items drawn in one millisecond may stack either way.
    QTRY_COMPARE(sortedGids(bob), sortedGids(alice));
    QCOMPARE(bob.items(), 4);
}

void tst_Relay::nonOwnerUpdateIsRefusedAndCorrected()
{
    TwoBoards boards;
    QVERIFY(boards.online && boards.drawnByAlice());
    Peer& alice = *boards.alice;
    Peer& bob = *boards.bob;
    const QRectF original = alice.list()[0]->boundary();
    const QString gid = alice.list()[0]->gid();

    // Bob's board believes him the owner; the relay knows Alice is.
    bob.fixture.view->setIsOwner(true);
    bob.fixture.view->setToolType(GraphicDefine::Selector);
    // A rectangle without fill is hit on its outline.
    const QPointF edge(original.left(), original.center().y());
    const QPoint centre = bob.fixture.scene->mapFromScene(edge).toPoint();
    bob.fixture.drag(centre, centre + QPoint(200, 250), 6);
    QVERIFY(bob.list()[0]->boundary() != original);
    QTRY_VERIFY(boards.relay.log().contains(QStringLiteral("refused update of gid %1 on board %2 by user 1002").arg(gid, kBoard)));
    QTRY_COMPARE(bob.list()[0]->boundary(), original);
    QCOMPARE(alice.list()[0]->boundary(), original);

    // The owner may change it, and everybody follows.
    alice.fixture.view->setToolType(GraphicDefine::Selector);
    const QPoint aliceCentre = alice.fixture.scene->mapFromScene(edge).toPoint();
    alice.fixture.drag(aliceCentre, aliceCentre + QPoint(50, 100), 4);
    QVERIFY(alice.list()[0]->boundary() != original);
    QTRY_COMPARE(bob.list()[0]->boundary(), alice.list()[0]->boundary());

    // Bob's clear empties his board at once; the relay refuses it, and its
    // answer wins over his board's own clear.
    const QByteArray state = whiteboard::ItemCodec::encode(*alice.list()[0]);
    bob.fixture.scene->clearAll();
    QCOMPARE(bob.items(), 0);
    QTRY_VERIFY(boards.relay.log().contains(QStringLiteral("refused clear all on board %1 by user 1002").arg(kBoard)));
    QTRY_COMPARE(bob.items(), 1);
    QCOMPARE(whiteboard::ItemCodec::encode(*bob.list()[0]), state);
    QCOMPARE(alice.items(), 1);
    QCOMPARE(whiteboard::ItemCodec::encode(*alice.list()[0]), state);
}

// The author and the owner drag one item at once, the second perhaps before
// hearing of the first: both boards end holding one state, as the demo's do.
void tst_Relay::ownerAndAuthorDraggingOneItemEndAlike()
{
    TwoBoards boards;
    QVERIFY(boards.online);
    Peer& alice = *boards.alice;
    Peer& bob = *boards.bob;
    // Filled and styled as nothing: each board must still hold what the other does.
    bob.fixture.scene->setFillShape(true);
    bob.drawRect(QPoint(100, 100), QPoint(300, 250));
    QTRY_COMPARE(alice.items(), 1);
    // An item without fill is hit on its outline; the press there takes it
    // wherever the other's drag left it.
    const QRectF frame = bob.list()[0]->boundary();
    const QPoint grip = QPointF(frame.left(), frame.center().y()).toPoint();
    alice.fixture.view->setIsOwner(true);
    alice.fixture.view->setToolType(GraphicDefine::Selector);
    bob.fixture.view->setToolType(GraphicDefine::Selector);
    alice.fixture.drag(grip, grip + QPoint(0, 30), 3);
    bob.fixture.drag(grip, grip + QPoint(40, 0), 3);

    const auto state = [](Peer& peer) {
        return peer.list().value(0) ? whiteboard::ItemCodec::encode(*peer.list()[0]) : QByteArray();
    };
    QTRY_VERIFY(!state(alice).isEmpty() && state(alice) == state(bob));
    QVERIFY(alice.list()[0]->boundary() != frame);
}

void tst_Relay::refusalsCorrectTheSender_data()
{
    QTest::addColumn<qint64>("addVersion"); // of Alice's a1; -1: none
    QTest::addColumn<qint64>("sender");
    QTest::addColumn<pb::TransferData>("message");
    QTest::addColumn<QStringList>("toSender");
    QTest::addColumn<QStringList>("toOthers");
    QTest::addColumn<QStringList>("options");

    const QStringList none;
    QTest::newRow("update by a non-owner") << qint64(-1) << qint64(1002) << rectAction(pb::GraphicActionUpdate, "a1", 1001, 99)
                                           << QStringList { "update a1 10" } << none << QStringList();
    QTest::newRow("versioned update by a non-owner") << qint64(1) << qint64(1002) << rectAction(pb::GraphicActionUpdate, "a1", 1001, 99, 5, 1002)
                                                     << QStringList { "update a1 10 v6" } << QStringList { "update a1 10 v6" } << QStringList();
    QTest::newRow("removal by a non-owner") << qint64(-1) << qint64(1002) << rectAction(pb::GraphicActionRemove, "a1", 1001)
                                            << QStringList { "add a1 10" } << none << QStringList();
    QTest::newRow("add as another user") << qint64(-1) << qint64(1002) << rectAdd("b1", 1001) << QStringList { "remove b1" } << none << QStringList();
    QTest::newRow("update of an unknown item") << qint64(-1) << qint64(1002) << rectAction(pb::GraphicActionUpdate, "b2", 1002)
                                               << QStringList { "remove b2" } << none << QStringList();
    QTest::newRow("clear all by a non-owner") << qint64(-1) << qint64(1002) << transferOf({ clearAllBody(1002) }, {}, kBoard.toStdString()) << QStringList { "add a1 10" } << none << QStringList();
    QTest::newRow("stale update by the owner") << qint64(5) << qint64(1001) << rectAction(pb::GraphicActionUpdate, "a1", 1001, 99, 3, 1001)
                                               << none << none << QStringList();
    // A version beyond the clock's reach: the correction stays within it
    // (2^32 + 1), and the others' clocks do not move.
    QTest::newRow("non-owner update just below the end") << qint64(1) << qint64(1002)
                                                         << rectAction(pb::GraphicActionUpdate, "a1", 1001, 99, kEnd - 1, 1002)
                                                         << QStringList { "update a1 10 v4294967297" } << none << QStringList();
    QTest::newRow("clear of own items at the clock's end") << qint64(-1) << qint64(1002) << clearOwnBody(1002, kEnd) << none << none
                                                           << QStringList();
    // Every entry is checked, not the first alone.
    pb::TransferData twoAuthors = rectAdd("b1", 1002);
    pb::WhiteboardData second = rectBody(pb::GraphicActionAdd, "b1", QRectF(0, 0, 99, 0), 1001);
    {
        pb::WhiteboardData body;
        body.ParseFromString(twoAuthors.multi().whiteboarddatalist(0).data());
        *body.mutable_graphicactiondata()->mutable_rectdata()->add_data() = second.graphicactiondata().rectdata().data(0);
        twoAuthors.mutable_multi()->mutable_whiteboarddatalist(0)->set_data(body.SerializeAsString());
    }
    QTest::newRow("second entry under the owner") << qint64(-1) << qint64(1002) << twoAuthors << QStringList { "remove b1" } << none << QStringList();
    pb::WhiteboardData otherGid = rectBody(pb::GraphicActionAdd, "a1", QRectF(0, 0, 99, 0), 1002);
    otherGid.mutable_graphicactiondata()->set_gid("fresh");
    QTest::newRow("entry naming another item") << qint64(-1) << qint64(1002) << transferOf({ otherGid }, "fresh", kBoard.toStdString())
                                               << QStringList { "remove fresh" } << none << QStringList();
    // Room for a1 and c1, not for a gid of 400 letters.
    const std::string large(400, 'b');
    QTest::newRow("add beyond the board's bytes") << qint64(-1) << qint64(1002) << rectAdd(large, 1002)
                                                  << QStringList { QStringLiteral("remove ") + QString::fromStdString(large) } << none
                                                  << QStringList { QStringLiteral("--max-board-bytes"), QStringLiteral("700") };
}

void tst_Relay::refusalsCorrectTheSender()
{
    QFETCH(qint64, addVersion);
    QFETCH(qint64, sender);
    QFETCH(pb::TransferData, message);
    QFETCH(QStringList, toSender);
    QFETCH(QStringList, toOthers);
    QFETCH(QStringList, options);

    RelayProcess relay(options);
    QVERIFY(relay.start());
    // On PostgreSQL Bob and Carol come through a second node: what it checks
    // against is what the first one committed.
    const std::unique_ptr<RelayProcess> second = nodeBeside(relay);
    QCOMPARE(bool(second), !relay.store.isEmpty());
    const QUrl elsewhere = second ? second->url : relay.url;
    RawClient alice(relay.url, 1001);
    alice.join();
    QTRY_VERIFY(alice.joined()); // the first one: the owner
    RawClient bob(elsewhere, 1002);
    RawClient carol(elsewhere, 1003);
    bob.join();
    carol.join();
    QTRY_VERIFY(bob.joined() && carol.joined());
    alice.send(rectAction(pb::GraphicActionAdd, "a1", 1001, 10, addVersion, 1001));
    QTRY_COMPARE(carol.gids(), QStringList { QStringLiteral("a1") });

    RawClient& from = sender == 1001 ? alice : bob;
    RawClient& other = sender == 1001 ? bob : alice;
    const size_t fromMark = from.received.size(), otherMark = other.received.size(), carolMark = carol.received.size();
    from.send(message);
    // A change after it marks the end of what it caused, for everybody.
    carol.send(rectAdd("c1", 1003));
    QTRY_VERIFY(actionsOf(from, fromMark).endsWith(QStringLiteral("add c1 10")));
    QTRY_VERIFY(actionsOf(other, otherMark).endsWith(QStringLiteral("add c1 10")));
    QCOMPARE(actionsOf(from, fromMark), toSender + QStringList { "add c1 10" });
    QCOMPARE(actionsOf(other, otherMark), toOthers + QStringList { "add c1 10" });
    QCOMPARE(actionsOf(carol, carolMark), toOthers);

    // The relay keeps the truth.
    RawClient late(relay.url, 1004);
    late.join();
    QTRY_VERIFY(late.joined());
    QCOMPARE(actionsOf(late, 0).first().section(QLatin1Char(' '), 0, 2), QStringLiteral("add a1 10"));
}

// A participant that sends versions at a forged clock's end cannot put the
// owner's changes behind them: the owner's clear still empties every board and
// what a late joiner is given.
void tst_Relay::forgedVersionsLeaveTheBoardToItsOwner_data()
{
    QTest::addColumn<int>("kind"); // 0 own add, 1 own update, 2 update of the owner's item, 3 clear of own items
    QTest::addColumn<qint64>("version");
    QTest::newRow("own add at the end") << 0 << kEnd;
    QTest::newRow("own update at the end") << 1 << kEnd;
    QTest::newRow("owner's item just below the end") << 2 << kEnd - 1;
    QTest::newRow("owner's item at the end") << 2 << kEnd;
    QTest::newRow("clear of own items at the end") << 3 << kEnd;
}

void tst_Relay::forgedVersionsLeaveTheBoardToItsOwner()
{
    QFETCH(int, kind);
    QFETCH(qint64, version);

    TwoBoards boards;
    QVERIFY(boards.online && boards.drawnByAlice());
    Peer& alice = *boards.alice;
    Peer& bob = *boards.bob;
    const std::string owners = alice.list()[0]->gid().toStdString();
    RawClient mallory(boards.relay.url, 1003);
    mallory.join();
    QTRY_VERIFY(mallory.joined());

    mallory.send(rectAction(pb::GraphicActionAdd, "m1", 1003, 10, kind == 0 ? version : 1, 1003));
    if (kind == 1)
        mallory.send(rectAction(pb::GraphicActionUpdate, "m1", 1003, 20, version, 1003));
    else if (kind == 2)
        mallory.send(rectAction(pb::GraphicActionUpdate, owners, 1001, 20, version, 1003));
    else if (kind == 3)
        mallory.send(clearOwnBody(1003, version));
    QTRY_VERIFY(boards.relay.log().contains(QStringLiteral("version-ahead")));

    // The owner goes on: a change reaches Bob, and her clear empties it all.
    alice.drawRect(QPoint(400, 300), QPoint(500, 400));
    QTRY_COMPARE(bob.items(), kind == 0 ? 2 : 3);
    alice.fixture.scene->clearAll(true);
    QTRY_COMPARE(bob.items(), 0);
    QCOMPARE(alice.items(), 0);
    QCOMPARE(replayedGids(boards.relay.url), QStringList());
}

// A clock near its bound (as far as forged versions could walk it) still
// takes every honest change: boards stamp past it and the relay admits that.
void tst_Relay::clockAtItsBoundStaysUsable()
{
    TwoBoards boards;
    QVERIFY(boards.online && boards.drawnByAlice());
    Peer& alice = *boards.alice;
    Peer& bob = *boards.bob;
    QVERIFY(boards.relay.terminate());
    QVERIFY(setStoredVersions(boards.relay, qint64(1) << 62));
    QVERIFY(boards.relay.start());
    // Back online, both boards hold the item at the bound: their clocks too.
    QTRY_COMPARE(alice.connection.status(), RelayConnection::Online);
    QTRY_COMPARE(bob.connection.status(), RelayConnection::Online);
    QTRY_COMPARE(bob.items(), 1);

    alice.drawRect(QPoint(400, 300), QPoint(500, 400));
    QTRY_COMPARE(bob.items(), 2);
    bob.drawRect(QPoint(600, 100), QPoint(700, 150));
    QTRY_COMPARE(alice.items(), 3);
    alice.fixture.scene->clearAll(true);
    QTRY_COMPARE(bob.items(), 0);
    QCOMPARE(replayedGids(boards.relay.url), QStringList());
    QVERIFY(!boards.relay.log().contains(QStringLiteral("version-ahead")));
}

// Pictures added and removed again leave no more than the bytes kept of a
// board's history behind.
void tst_Relay::keptHistoryIsBoundedInBytes()
{
    RelayProcess relay({ QStringLiteral("--byte-rate"), QStringLiteral("100000000") });
    QVERIFY(relay.start());
    RawClient alice(relay.url, 1001);
    RawClient bob(relay.url, 1002);
    alice.join();
    QTRY_VERIFY(alice.joined());
    bob.join();
    QTRY_VERIFY(bob.joined());
    const std::string pixels(7 * 1024 * 1024, 'p');
    for (int i = 0; i < 7; ++i) {
        const std::string gid = "p" + std::to_string(i);
        pb::WhiteboardData body = itemBody(pb::GraphicActionAdd, gid);
        pb::Image* image = body.mutable_graphicactiondata()->mutable_imagedata()->add_data();
        image->mutable_baseinfo()->set_gid(gid);
        image->mutable_baseinfo()->set_userid(1001);
        image->set_data(pixels);
        alice.send(transferOf({ body }, gid, kBoard.toStdString()));
        alice.send(rectAction(pb::GraphicActionRemove, gid, 1001));
    }
    alice.send(rectAdd("last", 1001));
    // Delivered once stored, as everything before it.
    QTRY_VERIFY_WITH_TIMEOUT(bob.gids().endsWith(QStringLiteral("last")), 20000);
    qint64 kept = -1;
    QVERIFY(onStore(relay, [&kept](QSqlDatabase& db) {
        QSqlQuery query(db);
        const bool ok = query.exec(QStringLiteral("SELECT SUM(length(frame)) FROM entries")) && query.next();
        kept = query.value(0).toLongLong();
        return ok;
    }));
    QVERIFY2(kept > 0 && kept <= 32 * 1024 * 1024 + 8 * 1024 * 1024, qPrintable(QString::number(kept)));
}

// Boards send a picture's pixels with its add only; the relay's stored state
// after a move must still hold them.
void tst_Relay::movedPictureReachesLateJoinersWithItsPixels()
{
    RelayProcess relay;
    QVERIFY(relay.start());
    RawClient alice(relay.url, 1001);
    RawClient bob(relay.url, 1002);
    alice.join();
    QTRY_VERIFY(alice.joined());
    bob.join();
    QTRY_VERIFY(bob.joined());
    auto imageAction = [](pb::GraphicActionType type, float x, const std::string& pixels) {
        pb::WhiteboardData body = itemBody(type, "i1");
        pb::Image* image = body.mutable_graphicactiondata()->mutable_imagedata()->add_data();
        image->mutable_baseinfo()->set_gid("i1");
        image->mutable_baseinfo()->set_userid(1001);
        image->mutable_leftpos()->set_x(x);
        image->set_width(20);
        image->set_heigth(20);
        if (!pixels.empty())
            image->set_data(pixels);
        return transferOf({ body }, "i1", kBoard.toStdString());
    };
    // Sent at once, so that they are likely stored in one batch: what a later
    // message reads of the store must be what the earlier ones left, and the
    // rows one batch puts and removes end as the last change left them.
    alice.send(imageAction(pb::GraphicActionAdd, 0, "picture bytes"));
    alice.send(imageAction(pb::GraphicActionUpdate, 300, std::string()));
    alice.send(rectAdd("r1", 1001));
    alice.send(rectAction(pb::GraphicActionUpdate, "r1", 1001, 20));
    alice.send(rectAction(pb::GraphicActionRemove, "r1", 1001));
    alice.send(rectAdd("r2", 1001, 30));
    alice.send(rectAction(pb::GraphicActionRemove, "r2", 1001));
    alice.send(rectAdd("r2", 1001, 40));
    QTRY_COMPARE(bob.gids().size(), 8);

    RawClient late(relay.url, 1003);
    late.join();
    QTRY_VERIFY(late.joined());
    QCOMPARE(actionsOf(late, 0).mid(1), QStringList { QStringLiteral("add r2 40") });
    const pb::Image image = bodiesOf(late.received.front()).first().graphicactiondata().imagedata().data(0);
    QCOMPARE(image.leftpos().x(), 300.0f);
    QCOMPARE(QByteArray::fromStdString(image.data()), QByteArray("picture bytes"));

    // A refused change of the picture: its sender gets the pixels back, the
    // others the correction's version only, and nothing is stored again.
    const size_t aliceMark = alice.received.size(), bobMark = bob.received.size();
    pb::TransferData refused = imageAction(pb::GraphicActionUpdate, 500, std::string());
    {
        pb::WhiteboardData body;
        body.ParseFromString(refused.multi().whiteboarddatalist(0).data());
        body.mutable_graphicactiondata()->set_version(7);
        body.mutable_graphicactiondata()->set_versionuser(1003);
        refused.mutable_multi()->mutable_whiteboarddatalist(0)->set_data(body.SerializeAsString());
    }
    late.send(refused);
    auto pixelsIn = [](const RawClient& client, size_t first) {
        QByteArray pixels;
        for (size_t i = first; i < client.received.size(); ++i) {
            for (const pb::WhiteboardData& body : bodiesOf(client.received[i])) {
                if (body.graphicactiondata().has_imagedata())
                    pixels += QByteArray::fromStdString(body.graphicactiondata().imagedata().data(0).data()) + '|';
            }
        }
        return pixels;
    };
    QTRY_COMPARE(pixelsIn(late, 2), QByteArray("picture bytes|"));
    QTRY_COMPARE(pixelsIn(bob, bobMark), QByteArray("|"));
    QTRY_COMPARE(alice.received.size(), aliceMark + 1);
    RawClient later(relay.url, 1004);
    later.join();
    QTRY_VERIFY(later.joined());
    const pb::GraphicAction replayed = bodiesOf(later.received.front()).first().graphicactiondata();
    QCOMPARE(replayed.version(), qint64(0));
}

// Two devices of one account make changes of one clock value: the device
// decides, also for what the relay stores and reads back after a restart.
void tst_Relay::oneAccountOnTwoDevicesKeepsTheNewerChange()
{
    RelayProcess relay;
    QVERIFY(relay.start());
    // Alice on her desktop (the owner, as she comes first) and on her phone.
    auto desktop = std::make_unique<RawClient>(relay.url, 1001);
    desktop->join();
    QTRY_VERIFY(desktop->joined());
    auto phone = std::make_unique<RawClient>(relay.url, 1001);
    auto bob = std::make_unique<RawClient>(relay.url, 1002);
    phone->join();
    bob->join();
    QTRY_VERIFY(phone->joined() && bob->joined());
    desktop->send(rectAction(pb::GraphicActionAdd, "a1", 1001, 10, 5, 1001, 8));
    QTRY_COMPARE(bob->gids().size(), 1);

    // Bob sees what the relay took, up to the marker c1.
    const auto takes = [&bob](RawClient& from, const QList<pb::TransferData>& messages, const std::string& marker) {
        const size_t mark = bob->received.size();
        for (const pb::TransferData& message : messages)
            from.send(message);
        from.send(rectAdd(marker, 1001));
        const QString end = QStringLiteral("add %1 10").arg(QString::fromStdString(marker));
        if (!QTest::qWaitFor([&] { return actionsOf(*bob, mark).endsWith(end); }, 10000))
            return QStringList { QStringLiteral("no marker") };
        return actionsOf(*bob, mark).mid(0, actionsOf(*bob, mark).size() - 1);
    };
    QCOMPARE(takes(*phone, { rectAction(pb::GraphicActionUpdate, "a1", 1001, 20, 6, 1001, 9) }, "m1"),
             QStringList { "update a1 20 v6 d9" });
    // The desktop had not heard of it: one of its changes of clock 6 is
    // older than the phone's, one newer.
    QCOMPARE(takes(*desktop, { rectAction(pb::GraphicActionUpdate, "a1", 1001, 30, 6, 1001, 8),
                               rectAction(pb::GraphicActionUpdate, "a1", 1001, 40, 6, 1001, 11) }, "m2"),
             QStringList { "update a1 40 v6 d11" });

    // Read back from the store after a restart, the device still decides.
    desktop.reset();
    phone.reset();
    bob.reset();
    QVERIFY(relay.terminate());
    QVERIFY(relay.start());
    phone = std::make_unique<RawClient>(relay.url, 1001);
    bob = std::make_unique<RawClient>(relay.url, 1002);
    phone->join();
    bob->join();
    QTRY_VERIFY(phone->joined() && bob->joined());
    QVERIFY(actionsOf(*bob, 0).contains(QStringLiteral("add a1 40 v6 d11")));
    QCOMPARE(takes(*phone, { rectAction(pb::GraphicActionUpdate, "a1", 1001, 50, 6, 1001, 10) }, "m3"), QStringList());
    QCOMPARE(takes(*phone, { rectAction(pb::GraphicActionUpdate, "a1", 1001, 60, 6, 1001, 12) }, "m4"),
             QStringList { "update a1 60 v6 d12" });
}

// A file of the schema before devices, with an item in it: the relay adds
// the column on start, and the item's device reads as 0, so that any device's
// change of the same clock and user is newer.
void tst_Relay::boardsStoredBeforeDevicesAreMigrated()
{
    if (!postgresServer().isEmpty())
        QSKIP("the schema of a file; this is the run on PostgreSQL");
    RelayProcess relay;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("old"));
        db.setDatabaseName(QDir(relay.dir()).filePath(QStringLiteral("boards.sqlite")));
        QVERIFY(db.open());
        QSqlQuery query(db);
        const QStringList schema = {
            "CREATE TABLE boards (id TEXT PRIMARY KEY, owner INTEGER NOT NULL, sequence INTEGER NOT NULL DEFAULT 0)",
            "CREATE TABLE items (board TEXT NOT NULL, gid TEXT NOT NULL, author INTEGER NOT NULL, version INTEGER, versionuser INTEGER,"
            " sequence INTEGER NOT NULL, envelope BLOB NOT NULL, step INTEGER NOT NULL DEFAULT 0, PRIMARY KEY (board, gid))",
            "CREATE TABLE entries (board TEXT NOT NULL, sequence INTEGER NOT NULL, origin TEXT NOT NULL, frame BLOB NOT NULL,"
            " PRIMARY KEY (board, sequence)) WITHOUT ROWID",
            "PRAGMA user_version = 2",
        };
        for (const QString& statement : schema)
            QVERIFY2(query.exec(statement), qPrintable(query.lastError().text()));
        QVERIFY(query.prepare(QStringLiteral("INSERT INTO boards VALUES (?, 1001, 1)")));
        query.addBindValue(kBoard);
        QVERIFY(query.exec());
        QVERIFY(query.prepare(QStringLiteral("INSERT INTO items VALUES (?, 'a1', 1001, 5, 1001, 1, ?, 0)")));
        query.addBindValue(kBoard);
        const pb::TransferData add = rectAction(pb::GraphicActionAdd, "a1", 1001, 10, 5, 1001);
        query.addBindValue(QByteArray::fromStdString(add.multi().whiteboarddatalist(0).SerializeAsString()));
        QVERIFY(query.exec());
    }
    QSqlDatabase::removeDatabase(QStringLiteral("old"));
    QVERIFY(relay.start());
    QTRY_VERIFY(relay.log().contains(QStringLiteral("storage schema migrated to version 3")));

    RawClient alice(relay.url, 1001);
    RawClient bob(relay.url, 1002);
    alice.join();
    bob.join();
    QTRY_VERIFY(alice.joined() && bob.joined());
    QCOMPARE(actionsOf(bob, 0), QStringList { "add a1 10 v5" });
    alice.send(rectAction(pb::GraphicActionUpdate, "a1", 1001, 20, 5, 1001, 3));
    QTRY_COMPARE(actionsOf(bob, 0), (QStringList { "add a1 10 v5", "update a1 20 v5 d3" }));
}

void tst_Relay::pointerPositionsAreRelayedWithinTheirRate()
{
    RelayProcess relay({ QStringLiteral("--pointer-rate"), QStringLiteral("10") });
    QVERIFY(relay.start());
    RawClient alice(relay.url, 1001);
    RawClient bob(relay.url, 1002);
    alice.join();
    bob.join();
    QTRY_VERIFY(alice.joined() && bob.joined());
    const size_t mark = bob.received.size();
    for (int i = 0; i < 100; ++i)
        alice.send(transferOf({ userBody(pb::UserAction::UserActionMouseInfo, 1001, QString(), QPointF(i, 0)) }, {}, kBoard.toStdString()));
    alice.send(rectAdd("after", 1001));
    QTRY_VERIFY(bob.gids().endsWith(QStringLiteral("after")));
    int pointers = 0;
    for (size_t i = mark; i < bob.received.size(); ++i) {
        for (const pb::WhiteboardData& body : bodiesOf(bob.received[i]))
            pointers += body.datatype() == pb::WhiteboardData::WhiteboardDataUserAction ? 1 : 0;
    }
    // The burst of one second's worth gets through, the rest is dropped; none
    // of it is stored.
    QVERIFY2(pointers >= 10 && pointers < 50, qPrintable(QString::number(pointers)));
    RawClient late(relay.url, 1003);
    late.join();
    QTRY_VERIFY(late.joined());
    QCOMPARE(late.received.size(), size_t(2));
}

void tst_Relay::connectionTellsWhyItIsOffline_data()
{
    QTest::addColumn<QString>("url"); // empty: a relay that goes away
    QTest::addColumn<QString>("reason");
    QTest::newRow("not a URL") << QStringLiteral("not a url") << QStringLiteral("not a ws:// or wss:// URL");
    QTest::newRow("no scheme") << QStringLiteral("127.0.0.1:8765") << QStringLiteral("not a ws:// or wss:// URL");
    QTest::newRow("http") << QStringLiteral("http://127.0.0.1:1") << QStringLiteral("not a ws:// or wss:// URL");
    QTest::newRow("nobody listens") << QStringLiteral("ws://127.0.0.1:1") << QStringLiteral("ws://127.0.0.1:1: ");
    QTest::newRow("the relay goes away") << QString() << QStringLiteral("ws://127.0.0.1:");
}

// People see why a board is not online, the owner as the relay names it,
// and no pointers of others while cut off.
void tst_Relay::connectionTellsWhyItIsOffline()
{
    QFETCH(QString, url);
    QFETCH(QString, reason);
    if (!url.isEmpty()) {
        Peer alone(QUrl(url), 1001, QStringLiteral("Alice"));
        QTRY_VERIFY(alone.connection.errorString().startsWith(reason));
        QVERIFY(alone.connection.status() != RelayConnection::Online);
        return;
    }
    TwoBoards boards;
    QVERIFY(boards.online);
    QCOMPARE(boards.alice->connection.ownerId(), qlonglong(1001));
    QCOMPARE(boards.bob->connection.ownerId(), qlonglong(1001));
    QVERIFY(boards.alice->connection.errorString().isEmpty());
    QTest::mouseMove(boards.bob->fixture.window.get(), QPoint(300, 200));
    QTest::mouseMove(boards.bob->fixture.window.get(), QPoint(310, 210));
    QTRY_COMPARE(boards.alice->fixture.scene->markItems().size(), 1);
    boards.relay.kill();
    QTRY_VERIFY(boards.alice->connection.errorString().startsWith(reason));
    QVERIFY(boards.alice->fixture.scene->markItems().isEmpty());
    QCOMPARE(boards.alice->fixture.scene->itemCount(GraphicScene::MarkLayer), 0);
}

void tst_Relay::badInputClosesOnlyThatConnection_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QByteArray>("token");
    QTest::addColumn<QList<QByteArray>>("frames");
    QTest::addColumn<int>("closeCode");
    QTest::addColumn<QList<QByteArray>>("board"); // sent by the first participant before

    const QByteArray add = QByteArray::fromStdString(rectAdd("x", 1009).SerializeAsString());
    pb::TransferData badEnvelope = rectAdd("y", 1009);
    badEnvelope.mutable_multi()->mutable_whiteboarddatalist(0)->set_data("\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff");
    QTest::newRow("garbage") << QStringList() << QByteArray() << QList<QByteArray> { QByteArray(12, '\xff') } << 1007 << QList<QByteArray>();
    QTest::newRow("envelope not a WhiteboardData") << QStringList() << QByteArray()
                                                   << QList<QByteArray> { QByteArray::fromStdString(badEnvelope.SerializeAsString()) } << 1007 << QList<QByteArray>();
    QTest::newRow("oversized") << QStringList { QStringLiteral("--max-message-bytes"), QStringLiteral("4096") } << QByteArray()
                               << QList<QByteArray> { QByteArray::fromStdString(rectAdd(std::string(5000, 'g'), 1009).SerializeAsString()) } << 1009 << QList<QByteArray>();
    QTest::newRow("burst") << QStringList { QStringLiteral("--action-rate"), QStringLiteral("1"), QStringLiteral("--action-burst"), QStringLiteral("3") }
                           << QByteArray() << QList<QByteArray>(5, add) << 1008 << QList<QByteArray>();
    QTest::newRow("wrong token") << QStringList { QStringLiteral("--secret") } << QByteArray("00ff") << QList<QByteArray>() << 1008 << QList<QByteArray>();
    // Items count against the rate, not frames.
    QList<pb::WhiteboardData> tenAdds;
    for (int i = 0; i < 10; ++i)
        tenAdds << rectBody(pb::GraphicActionAdd, "many" + std::to_string(i), QRectF(0, 0, 10, 10), 1009);
    QTest::newRow("one frame of many items") << QStringList { QStringLiteral("--action-rate"), QStringLiteral("1"), QStringLiteral("--action-burst"), QStringLiteral("5") }
                                             << QByteArray() << QList<QByteArray> { frameOf(transferOf(tenAdds, {}, kBoard.toStdString())) } << 1008 << QList<QByteArray>();
    QTest::newRow("bytes per second") << QStringList { QStringLiteral("--byte-rate"), QStringLiteral("2000"), QStringLiteral("--max-message-bytes"), QStringLiteral("2000") }
                                      << QByteArray() << QList<QByteArray>(3, frameOf(rectAdd(std::string(500, 'b'), 1009))) << 1008 << QList<QByteArray>();
    QTest::newRow("joins per minute") << QStringList { QStringLiteral("--joins-per-minute"), QStringLiteral("2") } << QByteArray()
                                      << QList<QByteArray>(3, frameOf(joinMessage())) << 1008 << QList<QByteArray>();
    QTest::newRow("refused again and again") << QStringList { QStringLiteral("--refusal-burst"), QStringLiteral("3") } << QByteArray()
                                             << QList<QByteArray>(5, frameOf(rectAction(pb::GraphicActionUpdate, "nothing", 1009))) << 1008 << QList<QByteArray>();
    // Join answers count against the backlog: a board of 6 KiB joined again
    // and again at once outgrows 16 KiB.
    QList<QByteArray> board;
    for (int i = 0; i < 3; ++i)
        board << frameOf(rectAdd("big" + std::to_string(i) + std::string(600, 'g'), 1001));
    QTest::newRow("joins beyond the backlog") << QStringList { QStringLiteral("--max-backlog-bytes"), QStringLiteral("16384") } << QByteArray()
                                              << QList<QByteArray>(20, frameOf(joinMessage())) << 1013 << board;
}

void tst_Relay::badInputClosesOnlyThatConnection()
{
    QFETCH(QStringList, options);
    QFETCH(QByteArray, token);
    QFETCH(QList<QByteArray>, frames);
    QFETCH(int, closeCode);
    QFETCH(QList<QByteArray>, board);

    QTemporaryDir dir;
    QByteArray secret;
    if (options.endsWith(QStringLiteral("--secret"))) {
        secret = "correct horse battery staple";
        QFile file(dir.filePath(QStringLiteral("secret")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(secret + '\n');
        file.close();
        options << file.fileName();
    }
    RelayProcess relay(options);
    QVERIFY(relay.start());
    auto tokenFor = [&](qint64 user) { return secret.isEmpty() ? QByteArray() : relay::AccessToken::make(secret, kBoard, user); };
    RawClient first(relay.url, 1001, tokenFor(1001));
    RawClient second(relay.url, 1002, tokenFor(1002));
    QVERIFY(first.opened && second.opened);
    first.join();
    QTRY_VERIFY(first.joined()); // the owner
    for (const QByteArray& frame : std::as_const(board))
        first.socket.sendBinaryMessage(frame);
    second.join();
    QTRY_VERIFY(second.joined());
    QTRY_COMPARE(second.gids().size(), board.size());

    RawClient offender(relay.url, 1009, token);
    for (const QByteArray& frame : std::as_const(frames))
        offender.socket.sendBinaryMessage(frame);
    QTRY_COMPARE(offender.socket.state(), QAbstractSocket::UnconnectedState);
    // A close amid a large answer may reach the client garbled (1002): the
    // relay's own line tells what it did.
    QVERIFY2(int(offender.socket.closeCode()) == closeCode || relay.log().contains(QStringLiteral(" with %1 ").arg(closeCode)),
             qPrintable(QString::number(offender.socket.closeCode())));

    // The others go on.
    first.send(rectAdd("after", 1001));
    QTRY_VERIFY(second.gids().endsWith(QStringLiteral("after")));
    RawClient late(relay.url, 1003, tokenFor(1003));
    late.join();
    QTRY_VERIFY(late.joined());
    QVERIFY(late.gids().contains(QStringLiteral("after")));
    QVERIFY(relay.running());
}

// Connections that cost the relay without ever joining, or too many at once,
// go; the others stay.
void tst_Relay::connectionsAreBounded_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("kind"); // 0 silent TCP, 1 trickled handshake, 2 one account, 3 one address
    const QStringList deadline { QStringLiteral("--handshake-ms"), QStringLiteral("300") };
    QTest::newRow("handshake never sent") << deadline << 0;
    QTest::newRow("handshake never finished") << deadline << 1;
    QTest::newRow("connections of one account") << QStringList { QStringLiteral("--connections-per-account"), QStringLiteral("2") } << 2;
    QTest::newRow("connections from one address") << QStringList { QStringLiteral("--connections-per-address"), QStringLiteral("4") } << 3;
}

void tst_Relay::connectionsAreBounded()
{
    QFETCH(QStringList, options);
    QFETCH(int, kind);

    RelayProcess relay(options);
    QVERIFY(relay.start());
    RawClient first(relay.url, 1001);
    RawClient second(relay.url, 1002);
    first.join();
    second.join();
    QTRY_VERIFY(first.joined() && second.joined());

    if (kind < 2) {
        QTcpSocket tcp;
        tcp.connectToHost(QHostAddress::LocalHost, quint16(relay.url.port()));
        QVERIFY(tcp.waitForConnected(10000));
        if (kind == 1)
            tcp.write("GET /boards/x?user=1009 HTTP/1.1\r\nHost: 127.0.0.1\r\n");
        QTRY_COMPARE_WITH_TIMEOUT(tcp.state(), QAbstractSocket::UnconnectedState, 10000);
    } else {
        // Two more of one account, or from this address: the last one goes.
        std::vector<std::unique_ptr<RawClient>> more;
        for (int i = 0; i < 3; ++i)
            more.push_back(std::make_unique<RawClient>(relay.url, kind == 2 ? 1009 : 1009 + i));
        QTRY_COMPARE(more.back()->socket.state(), QAbstractSocket::UnconnectedState);
        if (kind == 2)
            QCOMPARE(int(more.back()->socket.closeCode()), 1008);
        QCOMPARE(more[0]->socket.state(), QAbstractSocket::ConnectedState);
        QCOMPARE(more[1]->socket.state(), QAbstractSocket::ConnectedState);
    }
    QTRY_VERIFY(relay.log().contains(QStringLiteral(": connections")) || kind < 2);

    first.send(rectAdd("after", 1001));
    QTRY_VERIFY(second.gids().endsWith(QStringLiteral("after")));
    QVERIFY(relay.running());
}

void tst_Relay::oneBoardOnTwoNodes_data()
{
    QTest::addColumn<int>("killed");
    QTest::newRow("first node killed") << 0;
    QTest::newRow("second node killed") << 1;
}

void tst_Relay::oneBoardOnTwoNodes()
{
    if (postgresServer().isEmpty())
        QSKIP("nodes share boards through PostgreSQL only; this is the run on SQLite");
    QFETCH(int, killed);
    RelayProcess first;
    QVERIFY(first.start());
    const std::unique_ptr<RelayProcess> second = nodeBeside(first);
    QVERIFY(second);
    RelayProcess* nodes[] = { &first, second.get() };

    // Each board knows both nodes, its own first.
    Peer alice(first.url, 1001, QStringLiteral("Alice"));
    alice.connection.setUrls({ first.url, second->url });
    QTRY_COMPARE(alice.connection.status(), RelayConnection::Online);
    Peer bob(second->url, 1002, QStringLiteral("Bob"));
    bob.connection.setUrls({ second->url, first.url });
    QTRY_COMPARE(bob.connection.status(), RelayConnection::Online);
    RawClient watchers[] = { { first.url, 1003 }, { second->url, 1004 } };
    for (RawClient& watcher : watchers)
        watcher.join();
    // Alice's pointer may come right after a join answer.
    auto answered = [](const RawClient& client) {
        return std::any_of(client.received.cbegin(), client.received.cend(), [](const pb::TransferData& data) { return data.has_userjoin(); });
    };
    QTRY_VERIFY(answered(watchers[0]) && answered(watchers[1]));

    // Both nodes take actions at once, from raw senders and from the boards.
    RawClient senders[] = { { first.url, 1005 }, { second->url, 1006 } };
    for (int i = 0; i < 30; ++i) {
        senders[0].send(rectAdd("a" + std::to_string(i), 1005));
        senders[1].send(rectAdd("b" + std::to_string(i), 1006));
    }
    alice.drawRect(QPoint(100, 100), QPoint(300, 200));
    bob.drawRect(QPoint(400, 300), QPoint(500, 400));
    auto distinct = [](const QStringList& gids) { return int(QSet<QString>(gids.cbegin(), gids.cend()).size()); };
    QTRY_COMPARE(distinct(watchers[0].gids()), 62);
    QTRY_COMPARE(distinct(watchers[1].gids()), 62);
    QTRY_COMPARE(watchers[1].gids().size(), watchers[0].gids().size());
    QCOMPARE(watchers[1].gids(), watchers[0].gids());
    QTRY_COMPARE(alice.items(), 62);
    QTRY_COMPARE(bob.items(), 62);
    QCOMPARE(sortedGids(bob), sortedGids(alice));
    // Pointers cross the nodes too.
    alice.fixture.move(QPoint(50, 60));
    QTRY_VERIFY(std::any_of(bob.fixture.scene->markItems().cbegin(), bob.fixture.scene->markItems().cend(),
                            [](const auto& mark) { return mark->userId() == 1001; }));

    // A node killed: its board goes on through the other, which its
    // connection tries next, with what it drew offline, and nobody gets
    // anything twice.
    RelayProcess& alive = *nodes[1 - killed];
    Peer& stranded = killed == 0 ? alice : bob;
    Peer& staying = killed == 0 ? bob : alice;
    RawClient& watcher = watchers[1 - killed];
    QSignalSpy wentOffline(&stranded.connection, &RelayConnection::statusChanged);
    nodes[killed]->kill();
    QTRY_VERIFY(wentOffline.count() > 0 && stranded.connection.currentUrl() == alive.url);
    stranded.drawRect(QPoint(100, 400), QPoint(200, 500));
    staying.drawRect(QPoint(700, 400), QPoint(800, 500));
    QTRY_COMPARE_WITH_TIMEOUT(stranded.connection.status(), RelayConnection::Online, 20000);
    QCOMPARE(stranded.connection.currentUrl(), alive.url);
    QTRY_COMPARE(stranded.items(), 64);
    QTRY_COMPARE(staying.items(), 64);
    QCOMPARE(sortedGids(stranded), sortedGids(staying));
    QCOMPARE(distinct(sortedGids(stranded)), 64);
    QTRY_COMPARE(distinct(watcher.gids()), 64);

    // A late joiner's replay has the board's one order (of the raw senders'
    // items, which were never changed after their add).
    RawClient late(alive.url, 1007);
    late.join();
    QTRY_VERIFY(answered(late));
    QCOMPARE(late.gids().size(), 64);
    const QRegularExpression raw(QStringLiteral("^[ab]\\d+$"));
    QCOMPARE(late.gids().filter(raw), watcher.gids().filter(raw));
}

void tst_Relay::nodesOutliveTheirDatabaseConnection_data()
{
    QTest::addColumn<bool>("restart");
    QTest::newRow("connections terminated") << false;
    QTest::newRow("server restarted") << true;
}

// The database goes away under two busy nodes and comes back: each connects
// again, listens again and stores what waited; every participant gets every
// action once, in one order.
void tst_Relay::nodesOutliveTheirDatabaseConnection()
{
    if (postgresServer().isEmpty())
        QSKIP("only PostgreSQL is reached over a connection; this is the run on SQLite");
    QFETCH(bool, restart);
    RelayProcess first;
    QVERIFY(first.start());
    const std::unique_ptr<RelayProcess> second = nodeBeside(first);
    QVERIFY(second);
    RawClient senders[] = { { first.url, 1001 }, { second->url, 1002 } };
    RawClient watchers[] = { { first.url, 1003 }, { second->url, 1004 } };
    for (RawClient* client : { &senders[0], &senders[1], &watchers[0], &watchers[1] })
        client->join();
    QTRY_VERIFY(senders[0].joined() && senders[1].joined() && watchers[0].joined() && watchers[1].joined());
    auto sendRound = [&senders](const std::string& round) {
        for (int i = 0; i < 10; ++i) {
            senders[0].send(rectAdd(round + "a" + std::to_string(i), 1001));
            senders[1].send(rectAdd(round + "b" + std::to_string(i), 1002));
        }
    };
    sendRound("before");
    QTRY_COMPARE(watchers[0].gids().size(), 20);
    QTRY_COMPARE(watchers[1].gids().size(), 20);

    // The second round goes out while the server is away, or into
    // connections that are gone.
    QProcess script;
    if (restart) {
        script.start(QStringLiteral("bash"), { QStringLiteral(WHITEBOARD_POSTGRES_SCRIPT), QStringLiteral("restart"),
                                               qEnvironmentVariable("WHITEBOARD_TEST_POSTGRES") });
    } else {
        const QString database = QUrl(first.store).path().mid(1);
        QVERIFY(onServer(QStringLiteral("SELECT count(pg_terminate_backend(pid)) FROM pg_stat_activity WHERE datname = ?"), database).toInt() >= 2);
    }
    sendRound("after");
    if (restart) {
        QVERIFY(script.waitForFinished(60000));
        QCOMPARE(script.exitCode(), 0);
    }
    QTRY_VERIFY_WITH_TIMEOUT(first.log().contains(QStringLiteral("reconnected to the database")), 20000);
    QTRY_VERIFY_WITH_TIMEOUT(second->log().contains(QStringLiteral("reconnected to the database")), 20000);
    QTRY_COMPARE_WITH_TIMEOUT(watchers[0].gids().size(), 40, 20000);
    QTRY_COMPARE_WITH_TIMEOUT(watchers[1].gids().size(), 40, 20000);
    QCOMPARE(watchers[1].gids(), watchers[0].gids());
    const QStringList seen = watchers[0].gids();
    QCOMPARE(QSet<QString>(seen.cbegin(), seen.cend()).size(), 40);
    QVERIFY(senders[0].socket.state() == QAbstractSocket::ConnectedState && senders[1].socket.state() == QAbstractSocket::ConnectedState);

    RawClient late(second->url, 1005);
    late.join();
    QTRY_VERIFY(late.joined());
    QCOMPARE(late.gids().size(), 40);
}

QTEST_MAIN(tst_Relay)
#include "tst_relay.moc"
