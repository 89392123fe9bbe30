// Operating the relay: a real whiteboard-relay process on 127.0.0.1 with its
// admin endpoint, scraped over raw HTTP, and whiteboard-admin run against the
// store it uses, while it runs.
#include "messages.h"

#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <QWebSocket>

#include <memory>
#include <vector>

namespace {

// A relay process with --admin-port 0 and the ports it printed.
class Relay
{
public:
    explicit Relay(const QStringList& store, const QStringList& extra = {})
    {
        m_process.setProcessChannelMode(QProcess::SeparateChannels);
        QObject::connect(&m_process, &QProcess::readyReadStandardError, [this] { m_log += m_process.readAllStandardError(); });
        m_process.start(QStringLiteral(WHITEBOARD_RELAY_PROGRAM),
                        QStringList { QStringLiteral("--listen"), QStringLiteral("127.0.0.1"), QStringLiteral("--port"), QStringLiteral("0"),
                                      QStringLiteral("--admin-port"), QStringLiteral("0") }
                            + store + extra);
        QByteArray out;
        const QRegularExpression listening(QStringLiteral("admin on http://127.0.0.1:(\\d+)\\s+listening on (ws://127.0.0.1:\\d+)"));
        while (m_process.waitForReadyRead(10000)) {
            out += m_process.readAllStandardOutput();
            const QRegularExpressionMatch match = listening.match(QString::fromUtf8(out));
            if (match.hasMatch()) {
                adminPort = quint16(match.captured(1).toUInt());
                url = QUrl(match.captured(2));
                return;
            }
        }
        qWarning("relay did not start: %s", m_log.constData());
    }
    ~Relay()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.kill();
            m_process.waitForFinished();
        }
    }
    bool terminate()
    {
        m_process.terminate();
        return m_process.waitForFinished() && m_process.exitCode() == 0;
    }
    QByteArray log() const { return m_log; }

    quint16 adminPort = 0;
    QUrl url;

private:
    QProcess m_process;
    QByteArray m_log;
};

struct Response
{
    int status = 0;
    QByteArray body;
};

// One raw request to the admin endpoint; waits for the server to close.
Response request(quint16 port, const QByteArray& raw)
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    if (!socket.waitForConnected(5000))
        return {};
    socket.write(raw);
    QByteArray answer;
    while (socket.state() == QAbstractSocket::ConnectedState && socket.waitForReadyRead(10000))
        answer += socket.readAll();
    answer += socket.readAll();
    const qsizetype split = answer.indexOf("\r\n\r\n");
    const QList<QByteArray> statusLine = answer.left(answer.indexOf("\r\n")).split(' ');
    return { statusLine.size() > 1 ? statusLine.at(1).toInt() : 0, split < 0 ? QByteArray() : answer.mid(split + 4) };
}

Response get(quint16 port, const QByteArray& path)
{
    return request(port, "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
}

// The value of one sample of the metrics page; -1 when it is missing.
double metric(quint16 port, const QByteArray& sample)
{
    const QList<QByteArray> lines = get(port, "/metrics").body.split('\n');
    for (const QByteArray& line : lines) {
        if (line.startsWith(sample + ' '))
            return line.mid(sample.size() + 1).toDouble();
    }
    return -1;
}

struct Client
{
    Client(const QUrl& base, const QString& board, qint64 account)
        : account(account)
        , board(board.toStdString())
    {
        QObject::connect(&socket, &QWebSocket::binaryMessageReceived, [this](const QByteArray& frame) {
            received.emplace_back();
            received.back().ParseFromArray(frame.constData(), int(frame.size()));
        });
        QUrl url = base;
        url.setPath(QStringLiteral("/boards/") + board);
        url.setQuery(QStringLiteral("user=%1&name=u%1").arg(account));
        QSignalSpy connected(&socket, &QWebSocket::connected);
        socket.open(url);
        opened = connected.wait(10000);
    }
    void send(const pb::TransferData& data) { socket.sendBinaryMessage(QByteArray::fromStdString(data.SerializeAsString())); }
    bool join()
    {
        pb::TransferData data;
        data.set_whiteboardid(board);
        data.mutable_userjoin()->set_oldesttimestamp(1);
        send(data);
        return QTest::qWaitFor([this] { return !received.empty() && received.back().has_userjoin(); }, 10000);
    }
    void addRect(const std::string& gid, const QRectF& frame, qint64 author = 0)
    {
        pb::TransferData data = transferOf({ rectBody(pb::GraphicActionAdd, gid, frame, author ? author : account) }, gid, board);
        data.mutable_multi()->mutable_whiteboarddatalist(0)->set_graphicactiontype(pb::GraphicActionAdd);
        data.mutable_multi()->mutable_whiteboarddatalist(0)->set_timestamp(1700000000000);
        send(data);
    }
    QStringList gids() const
    {
        QStringList result;
        for (const pb::TransferData& data : received) {
            for (const pb::WhiteboardData& body : bodiesOf(data))
                result << QString::fromStdString(body.graphicactiondata().gid());
        }
        return result;
    }

    qint64 account;
    std::string board;
    QWebSocket socket;
    bool opened = false;
    std::vector<pb::TransferData> received;
};

// whiteboard-admin with `args`: whether it succeeded, and its standard
// output, or its error line when it failed.
struct AdminRun
{
    bool ok = false;
    QByteArray out;
};

AdminRun admin(const QStringList& args)
{
    QProcess process;
    process.start(QStringLiteral(WHITEBOARD_ADMIN_PROGRAM), args);
    const bool ok = process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    if (ok)
        return { true, process.readAllStandardOutput() };
    const QList<QByteArray> errors = process.readAllStandardError().trimmed().split('\n');
    return { false, errors.constLast() };
}

} // namespace

class tst_Operations : public QObject
{
    Q_OBJECT

private slots:
    void metricsFollowTheBoards();
    void adminRequests_data();
    void adminRequests();
    void healthFollowsTheStore();
    void administration();
    void cleanupTestCase() { m_relay.reset(); }

private:
    // One relay for the rows of a data-driven test.
    QTemporaryDir m_dir;
    std::unique_ptr<Relay> m_relay;
};

void tst_Operations::metricsFollowTheBoards()
{
    QTemporaryDir dir;
    Relay relay({ QStringLiteral("--db"), dir.filePath(QStringLiteral("boards.sqlite")) },
                { QStringLiteral("--board-idle-seconds"), QStringLiteral("1"), QStringLiteral("--log-format"), QStringLiteral("json") });
    QVERIFY(relay.adminPort);
    QCOMPARE(get(relay.adminPort, "/healthz").status, 200);
    QCOMPARE(metric(relay.adminPort, "whiteboard_relay_boards_open"), 0.0);

    {
        Client alice(relay.url, QStringLiteral("one"), 1001);
        Client bob(relay.url, QStringLiteral("one"), 1002);
        QVERIFY(alice.opened && bob.opened);
        QVERIFY(alice.join());
        alice.addRect("r1", QRectF(10, 10, 50, 50));
        bob.addRect("r2", QRectF(10, 10, 50, 50), 1001); // under another user's id: refused
        QTRY_COMPARE(metric(relay.adminPort, "whiteboard_relay_messages_total{kind=\"change\"}"), 2.0);
        QCOMPARE(metric(relay.adminPort, "whiteboard_relay_messages_total{kind=\"join\"}"), 1.0);
        QCOMPARE(metric(relay.adminPort, "whiteboard_relay_refusals_total{reason=\"forged-author\"}"), 1.0);
        QCOMPARE(metric(relay.adminPort, "whiteboard_relay_connections"), 2.0);
        QCOMPARE(metric(relay.adminPort, "whiteboard_relay_boards_open"), 1.0);
        QTRY_VERIFY(metric(relay.adminPort, "whiteboard_relay_store_batch_seconds_count") >= 1);
        QCOMPARE(metric(relay.adminPort, "whiteboard_relay_store_batch_seconds_bucket{le=\"+Inf\"}"),
                 metric(relay.adminPort, "whiteboard_relay_store_batch_seconds_count"));
        QCOMPARE(metric(relay.adminPort, "whiteboard_relay_store_queue_depth"), 0.0);
        QVERIFY(metric(relay.adminPort, "process_resident_memory_bytes") > 1e6);
    }
    // The board stays loaded for a while without participants, then goes.
    QTRY_COMPARE(metric(relay.adminPort, "whiteboard_relay_connections"), 0.0);
    QTRY_COMPARE_WITH_TIMEOUT(metric(relay.adminPort, "whiteboard_relay_boards_open"), 0.0, 10000);

    // JSON logs: one object per line.
    QVERIFY(relay.terminate());
    const QList<QByteArray> lines = relay.log().trimmed().split('\n');
    QVERIFY(lines.size() > 3);
    for (const QByteArray& line : lines)
        QVERIFY2(QJsonDocument::fromJson(line).object().value(QStringLiteral("message")).isString(), line.constData());
    QVERIFY(relay.log().contains("\"category\":\"whiteboard.relay\",\"level\":\"info\",\"message\":\"stopped\""));
}

void tst_Operations::adminRequests_data()
{
    QTest::addColumn<QByteArray>("raw");
    QTest::addColumn<int>("status");
    QTest::newRow("metrics with a query") << QByteArray("GET /metrics?x=1 HTTP/1.0\r\n\r\n") << 200;
    QTest::newRow("unknown path") << QByteArray("GET /boards HTTP/1.1\r\n\r\n") << 404;
    QTest::newRow("not GET") << QByteArray("POST /metrics HTTP/1.1\r\nContent-Length: 0\r\n\r\n") << 405;
    QTest::newRow("not HTTP") << QByteArray("hello there\r\n\r\n") << 400;
    QTest::newRow("head too large") << QByteArray("GET /metrics HTTP/1.1\r\nX: " + QByteArray(9000, 'a') + "\r\n\r\n") << 431;
    QTest::newRow("head never ends") << QByteArray("GET /metrics HTTP/1.1\r\n") << 408;
}

void tst_Operations::adminRequests()
{
    if (!m_relay)
        m_relay = std::make_unique<Relay>(QStringList { QStringLiteral("--db"), m_dir.filePath(QStringLiteral("boards.sqlite")) });
    QFETCH(QByteArray, raw);
    QFETCH(int, status);
    QVERIFY(m_relay->adminPort);
    QCOMPARE(request(m_relay->adminPort, raw).status, status);
}

void tst_Operations::healthFollowsTheStore()
{
    // A PostgreSQL server of this test's own, stopped under the relay.
    QTemporaryDir dir;
    const QString state = dir.filePath(QStringLiteral("postgres.url"));
    const QString script = QStringLiteral(WHITEBOARD_POSTGRES_SCRIPT);
    QCOMPARE(QProcess::execute(QStringLiteral("bash"), { script, QStringLiteral("start"), state }), 0);
    auto stopServer = qScopeGuard([&] { QProcess::execute(QStringLiteral("bash"), { script, QStringLiteral("stop"), state }); });
    QFile url(state);
    QVERIFY(url.open(QIODevice::ReadOnly));
    Relay relay({ QStringLiteral("--store"), QString::fromUtf8(url.readAll().trimmed()) });
    QVERIFY(relay.adminPort);
    QCOMPARE(get(relay.adminPort, "/healthz").status, 200);

    stopServer.dismiss();
    QCOMPARE(QProcess::execute(QStringLiteral("bash"), { script, QStringLiteral("stop"), state }), 0);
    QTRY_COMPARE(get(relay.adminPort, "/healthz").status, 503);
    // The page still answers without the store.
    QCOMPARE(get(relay.adminPort, "/metrics").status, 200);
}

void tst_Operations::administration()
{
    QTemporaryDir dir;
    const QString db = dir.filePath(QStringLiteral("boards.sqlite"));
    const QStringList store { QStringLiteral("--db"), db };
    auto relay = std::make_unique<Relay>(store);
    QVERIFY(relay->adminPort);

    Client alice(relay->url, QStringLiteral("kept board"), 1001);
    Client carol(relay->url, QStringLiteral("doomed"), 1003);
    QVERIFY(alice.opened && carol.opened);
    QVERIFY(alice.join() && carol.join());
    alice.addRect("a1", QRectF(100, 100, 200, 100));
    alice.addRect("a2", QRectF(600, 400, 50, 50));
    carol.addRect("c1", QRectF(0, 0, 10, 10));
    // Counted as they are queued; stored once the queue is empty again.
    QTRY_COMPARE(metric(relay->adminPort, "whiteboard_relay_messages_total{kind=\"change\"}"), 3.0);
    QTRY_COMPARE(metric(relay->adminPort, "whiteboard_relay_store_queue_depth"), 0.0);

    // Listed while the relay runs: id, owner, items, bytes, last activity.
    const QList<QByteArray> rows = admin(QStringList { QStringLiteral("list") } + store).out.trimmed().split('\n');
    QCOMPARE(rows.size(), 3);
    QCOMPARE(rows.at(0), QByteArray("board\towner\titems\tbytes\tlast activity"));
    const QList<QByteArray> doomed = rows.at(1).split('\t');
    const QList<QByteArray> kept = rows.at(2).split('\t');
    QCOMPARE(doomed.mid(0, 3), QList<QByteArray>({ "doomed", "1003", "1" }));
    QCOMPARE(kept.mid(0, 3), QList<QByteArray>({ "kept board", "1001", "2" }));
    QVERIFY(kept.at(3).toInt() > 2 * doomed.at(3).toInt() - 10);
    QCOMPARE(kept.at(4), QByteArray("2023-11-14T22:13:20Z"));

    // The export is the page the view paints: the rectangle filled blue on
    // the page's ground.
    const QString image = dir.filePath(QStringLiteral("kept.png"));
    QVERIFY(admin(QStringList { QStringLiteral("export"), QStringLiteral("kept board"), image } + store).ok);
    const QImage exported(image);
    QCOMPARE(exported.size(), QSize(1080, 720));
    QCOMPARE(exported.pixelColor(200, 150), QColor(Qt::blue));
    QCOMPARE(exported.pixelColor(625, 425), QColor(Qt::blue));
    QCOMPARE(exported.pixelColor(450, 300), exported.pixelColor(5, 700));
    QVERIFY(exported.pixelColor(450, 300) != QColor(Qt::blue));

    // Deleted under its participant: the relay closes it and says why.
    QSignalSpy closed(&carol.socket, &QWebSocket::disconnected);
    QVERIFY(admin(QStringList { QStringLiteral("delete"), QStringLiteral("doomed") } + store).ok);
    QVERIFY(closed.wait(10000));
    QCOMPARE(carol.socket.closeCode(), QWebSocketProtocol::CloseCodePolicyViolated);
    QCOMPARE(carol.socket.closeReason(), QStringLiteral("board-deleted"));
    QCOMPARE(alice.socket.state(), QAbstractSocket::ConnectedState);
    QCOMPARE(admin(QStringList { QStringLiteral("delete"), QStringLiteral("doomed") } + store).out, QByteArray("whiteboard-admin: no board doomed"));

    // Backed up while the relay runs, then restored: a fresh relay on the
    // copy serves the board.
    const QString backup = dir.filePath(QStringLiteral("backup.sqlite"));
    QVERIFY(admin(QStringList { QStringLiteral("backup"), backup, QStringLiteral("--db"), db }).ok);
    QVERIFY(admin(QStringList { QStringLiteral("backup"), backup, QStringLiteral("--db"), db }).out.endsWith("exists already")); // never overwritten
    // Without participants the kept board stays loaded for the idle time
    // (60 s by default); the deleted one is gone already.
    alice.socket.close();
    QTRY_COMPARE(metric(relay->adminPort, "whiteboard_relay_connections"), 0.0);
    QCOMPARE(metric(relay->adminPort, "whiteboard_relay_boards_open"), 1.0);
    QVERIFY(relay->terminate());
    relay.reset();
    const QString restored = dir.filePath(QStringLiteral("restored.sqlite"));
    QVERIFY(QFile::copy(backup, restored));
    Relay fresh({ QStringLiteral("--db"), restored });
    Client again(fresh.url, QStringLiteral("kept board"), 1002);
    QVERIFY(again.opened && again.join());
    QCOMPARE(again.gids(), QStringList({ QStringLiteral("a1"), QStringLiteral("a2") }));
    Client gone(fresh.url, QStringLiteral("doomed"), 1004);
    QVERIFY(gone.opened && gone.join());
    QCOMPARE(gone.gids(), QStringList());
}

QTEST_MAIN(tst_Operations)
#include "tst_operations.moc"
