// Load on a real whiteboard-relay process over loopback: many clients on a few
// boards, each sending item actions at a steady rate, every other client of
// the board receiving them. Prints messages per second, delivery latency,
// lost messages and whether every client of a board saw one order.
//
//   relay_load [--clients 50] [--boards 10] [--actions 1000] [--rate 50]
//              [--store postgresql://USER@HOST/DB [--nodes 2]]
//
// --rate is actions per second and client; 0 sends as fast as the socket
// takes them. The relay runs with its rate limits lifted, so the load is
// measured rather than refused. With --store the relays keep the boards in
// that PostgreSQL database (it should be empty), and with --nodes several relay
// nodes share it, the clients of every board spread over them.
#include "proto/whiteboard.pb.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTimer>
#include <QWebSocket>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <unistd.h>
#include <vector>

namespace pb = im::whiteboard;

namespace {

QElapsedTimer clock_;

qint64 nowUs()
{
    return clock_.nsecsElapsed() / 1000;
}

struct Client
{
    int index = 0;
    int board = 0;
    qint64 account = 0;
    std::unique_ptr<QWebSocket> socket;
    bool joined = false;
    int sent = 0;
    // (sender index << 32 | action number) of every action received, in order.
    std::vector<qint64> order;
};

QByteArray action(const Client& client, int number)
{
    const std::string gid = "c" + std::to_string(client.index) + "-" + std::to_string(number);
    pb::WhiteboardData body;
    body.set_datatype(pb::WhiteboardData::WhiteboardDataGraphicAction);
    pb::GraphicAction* graphic = body.mutable_graphicactiondata();
    graphic->set_gid(gid);
    graphic->set_graphicactiontype(pb::GraphicActionAdd);
    // The sending moment, on this process's clock, for the latency.
    graphic->set_timestamp(nowUs());
    pb::Rect* rect = graphic->mutable_rectdata()->add_data();
    rect->mutable_baseinfo()->set_gid(gid);
    rect->mutable_baseinfo()->set_userid(client.account);
    rect->mutable_baseinfo()->set_type(2);
    rect->mutable_leftpos()->set_x(float(number % 1000));
    rect->mutable_leftpos()->set_y(float(client.index * 10));
    rect->set_width(40);
    rect->set_heigth(30);
    rect->mutable_fillstyle()->set_color("#1f6feb");
    pb::TransferData data;
    data.set_whiteboardid("load-" + std::to_string(client.board));
    pb::SingleWhiteboardData* envelope = data.mutable_multi()->add_whiteboarddatalist();
    envelope->set_gid(gid);
    envelope->set_timestamp(graphic->timestamp());
    envelope->set_data(body.SerializeAsString());
    return QByteArray::fromStdString(data.SerializeAsString());
}

qint64 percentile(std::vector<qint64>& values, double p)
{
    if (values.empty())
        return 0;
    const size_t at = std::min(values.size() - 1, size_t(double(values.size()) * p));
    std::nth_element(values.begin(), values.begin() + qsizetype(at), values.end());
    return values[at];
}

qint64 peakRssKb(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    const QRegularExpression hwm(QStringLiteral("VmHWM:\\s+(\\d+)"));
    const QRegularExpressionMatch match = hwm.match(QString::fromLatin1(status.readAll()));
    return match.hasMatch() ? match.captured(1).toLongLong() : 0;
}

// User and system CPU time of a process so far, in seconds.
double cpuSeconds(qint64 pid)
{
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray line = stat.readAll();
    const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
    if (fields.size() < 13)
        return 0;
    return double(fields[11].toLongLong() + fields[12].toLongLong()) / double(sysconf(_SC_CLK_TCK));
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Load benchmark of whiteboard-relay over loopback."));
    parser.addHelpOption();
    const QCommandLineOption clientsOption(QStringLiteral("clients"), QStringLiteral("Clients (default 50)."), QStringLiteral("n"), QStringLiteral("50"));
    const QCommandLineOption boardsOption(QStringLiteral("boards"), QStringLiteral("Boards (default 10)."), QStringLiteral("n"), QStringLiteral("10"));
    const QCommandLineOption actionsOption(QStringLiteral("actions"), QStringLiteral("Item actions per client (default 1000)."), QStringLiteral("n"),
                                           QStringLiteral("1000"));
    const QCommandLineOption rateOption(QStringLiteral("rate"), QStringLiteral("Actions per second and client; 0: as fast as possible (default 50)."),
                                        QStringLiteral("n"), QStringLiteral("50"));
    const QCommandLineOption relayOption(QStringLiteral("relay"), QStringLiteral("The whiteboard-relay program."), QStringLiteral("path"),
                                         QStringLiteral(WHITEBOARD_RELAY_PROGRAM));
    const QCommandLineOption storeOption(QStringLiteral("store"), QStringLiteral("A PostgreSQL database for the relays (default: SQLite)."),
                                        QStringLiteral("url"));
    const QCommandLineOption nodesOption(QStringLiteral("nodes"), QStringLiteral("Relay nodes on --store (default 1)."), QStringLiteral("n"),
                                         QStringLiteral("1"));
    parser.addOptions({ clientsOption, boardsOption, actionsOption, rateOption, relayOption, storeOption, nodesOption });
    parser.process(app);
    const int clientCount = parser.value(clientsOption).toInt();
    const int boardCount = std::max(1, parser.value(boardsOption).toInt());
    const int actions = parser.value(actionsOption).toInt();
    const int rate = parser.value(rateOption).toInt();
    const int nodeCount = parser.isSet(storeOption) ? std::max(1, parser.value(nodesOption).toInt()) : 1;

    QTemporaryDir dir;
    const QStringList storage = parser.isSet(storeOption)
        ? QStringList { QStringLiteral("--store"), parser.value(storeOption) }
        : QStringList { QStringLiteral("--db"), dir.filePath(QStringLiteral("boards.sqlite")) };
    std::vector<std::unique_ptr<QProcess>> relays;
    QStringList urls;
    for (int node = 0; node < nodeCount; ++node) {
        auto& relay = relays.emplace_back(std::make_unique<QProcess>());
        relay->setProcessChannelMode(QProcess::SeparateChannels);
        relay->setStandardErrorFile(QProcess::nullDevice());
        relay->start(parser.value(relayOption),
                     QStringList { QStringLiteral("--listen"), QStringLiteral("127.0.0.1"), QStringLiteral("--port"), QStringLiteral("0"),
                                   QStringLiteral("--action-rate"), QStringLiteral("1000000"), QStringLiteral("--action-burst"), QStringLiteral("1000000") }
                         + storage);
        QString url;
        const QRegularExpression listening(QStringLiteral("listening on (ws://\\S+)"));
        QByteArray out;
        while (url.isEmpty() && relay->waitForReadyRead(10000)) {
            out += relay->readAllStandardOutput();
            const QRegularExpressionMatch match = listening.match(QString::fromUtf8(out));
            if (match.hasMatch())
                url = match.captured(1);
        }
        if (url.isEmpty()) {
            std::fprintf(stderr, "relay_load: the relay did not start\n");
            return 1;
        }
        urls << url;
    }

    clock_.start();
    std::vector<Client> clients(static_cast<size_t>(clientCount));
    std::vector<qint64> latencies;
    latencies.reserve(size_t(clientCount) * size_t(actions) * size_t(clientCount / boardCount));
    qint64 received = 0;
    qint64 firstSend = -1;
    qint64 lastReceive = 0;
    int joined = 0;
    std::vector<int> perBoard(size_t(boardCount), 0);
    for (int i = 0; i < clientCount; ++i)
        ++perBoard[size_t(i % boardCount)];
    qint64 expected = 0;
    for (int i = 0; i < clientCount; ++i)
        expected += qint64(perBoard[size_t(i % boardCount)] - 1) * actions;

    QEventLoop loop;
    for (int i = 0; i < clientCount; ++i) {
        Client& client = clients[size_t(i)];
        client.index = i;
        client.board = i % boardCount;
        client.account = 1 + i;
        client.order.reserve(size_t(actions) * size_t(perBoard[size_t(client.board)]));
        client.socket = std::make_unique<QWebSocket>();
        QObject::connect(client.socket.get(), &QWebSocket::connected, [&client] {
            pb::TransferData join;
            join.mutable_userjoin()->set_oldesttimestamp(1);
            client.socket->sendBinaryMessage(QByteArray::fromStdString(join.SerializeAsString()));
        });
        QObject::connect(client.socket.get(), &QWebSocket::binaryMessageReceived, [&, i](const QByteArray& frame) {
            Client& self = clients[size_t(i)];
            pb::TransferData data;
            data.ParseFromArray(frame.constData(), int(frame.size()));
            if (data.has_userjoin()) {
                self.joined = true;
                if (++joined == clientCount)
                    loop.quit();
                return;
            }
            const qint64 now = nowUs();
            for (const pb::SingleWhiteboardData& envelope : data.multi().whiteboarddatalist()) {
                pb::WhiteboardData body;
                body.ParseFromString(envelope.data());
                if (body.datatype() != pb::WhiteboardData::WhiteboardDataGraphicAction)
                    continue;
                const std::string& gid = body.graphicactiondata().gid();
                const size_t dash = gid.find('-');
                const qint64 sender = std::stoll(gid.substr(1, dash - 1));
                const qint64 number = std::stoll(gid.substr(dash + 1));
                self.order.push_back(sender << 32 | number);
                latencies.push_back(now - body.graphicactiondata().timestamp());
                ++received;
                lastReceive = now;
            }
            if (received == expected)
                loop.quit();
        });
        QObject::connect(client.socket.get(), &QWebSocket::disconnected, [&client] {
            std::fprintf(stderr, "relay_load: client %d lost its connection: %d\n", client.index, int(client.socket->closeCode()));
        });
        // The clients of each board take the nodes in turn.
        const QString& url = urls[(i / boardCount) % nodeCount];
        client.socket->open(QUrl(QStringLiteral("%1/boards/load-%2?user=%3&name=load%3").arg(url).arg(client.board).arg(client.account)));
    }
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, &loop, &QEventLoop::quit);
    guard.start(30000);
    loop.exec();
    if (joined != clientCount) {
        std::fprintf(stderr, "relay_load: only %d of %d clients joined\n", joined, clientCount);
        return 1;
    }

    // Sending: a tick every millisecond sends what each client owes by now.
    QTimer tick;
    tick.setTimerType(Qt::PreciseTimer);
    qint64 start = 0;
    QObject::connect(&tick, &QTimer::timeout, [&] {
        const qint64 now = nowUs();
        if (firstSend < 0) {
            firstSend = now;
            start = now;
        }
        bool more = false;
        for (Client& client : clients) {
            // Clients are spread over the period, not sending all at once.
            const qint64 offset = rate > 0 ? qint64(client.index) * 1000000 / rate / clientCount : 0;
            const int due = rate > 0 ? int(std::min<qint64>(actions, (now - start + offset) * rate / 1000000 + 1)) : std::min(actions, client.sent + 50);
            while (client.sent < due)
                client.socket->sendBinaryMessage(action(client, client.sent++));
            more = more || client.sent < actions;
        }
        if (!more)
            tick.stop();
    });
    tick.start(1);
    // The end: everything arrived, or no progress for a long while.
    qint64 lastCount = -1;
    QTimer watchdog;
    QObject::connect(&watchdog, &QTimer::timeout, [&] {
        if (received == lastCount && !tick.isActive())
            loop.quit();
        lastCount = received;
    });
    watchdog.start(10000);
    loop.exec();

    // One order per board: any two clients agree on the order of what both got.
    bool sameOrder = true;
    for (int a = 0; a < clientCount && sameOrder; ++a) {
        for (int b = a + 1; b < clientCount && sameOrder; ++b) {
            if (clients[size_t(a)].board != clients[size_t(b)].board)
                continue;
            auto common = [a, b](const std::vector<qint64>& order) {
                std::vector<qint64> result;
                for (qint64 entry : order) {
                    const qint64 sender = entry >> 32;
                    if (sender != a && sender != b)
                        result.push_back(entry);
                }
                return result;
            };
            sameOrder = common(clients[size_t(a)].order) == common(clients[size_t(b)].order);
        }
    }
    qint64 sent = 0;
    for (const Client& client : clients)
        sent += client.sent;
    const double seconds = double(lastReceive - firstSend) / 1e6;
    qint64 rss = 0;
    double relayCpu = 0;
    for (const auto& relay : relays) {
        rss = std::max(rss, peakRssKb(relay->processId()));
        relayCpu += cpuSeconds(relay->processId());
    }
    const qint64 p50 = percentile(latencies, 0.50);
    const qint64 p99 = percentile(latencies, 0.99);
    for (Client& client : clients)
        client.socket->disconnect();
    for (const auto& relay : relays) {
        relay->terminate();
        relay->waitForFinished();
    }

    std::printf("relay_load: %d clients on %d boards, %d item actions each, %s; %d relay node(s) on %s\n", clientCount, boardCount, actions,
                rate > 0 ? qPrintable(QStringLiteral("%1 per second and client").arg(rate)) : "as fast as possible", nodeCount,
                parser.isSet(storeOption) ? "PostgreSQL" : "SQLite");
    std::printf("%-34s %14s   %s\n", "figure", "measured", "required");
    std::printf("%-34s %14.0f   %s\n", "actions accepted per second", double(sent) / seconds, "-");
    std::printf("%-34s %14.0f   %s\n", "deliveries per second", double(received) / seconds, "-");
    std::printf("%-34s %14.2f   %s\n", "delivery latency p50 (ms)", double(p50) / 1000.0, "-");
    std::printf("%-34s %14.2f   %s\n", "delivery latency p99 (ms)", double(p99) / 1000.0, "-");
    std::printf("%-34s %14lld   %s\n", "lost messages", expected - received, "0");
    std::printf("%-34s %14s   %s\n", "same order for a board's clients", sameOrder ? "yes" : "no", "yes");
    std::printf("%-34s %14.1f   %s\n", "relay peak memory, per node (MiB)", double(rss) / 1024.0, "-");
    std::printf("%-34s %14.0f   %s\n", "relays' CPU per action (us)", relayCpu * 1e6 / double(std::max<qint64>(1, sent)), "-");
    std::printf("%-34s %14.1f   %s\n", "wall time (s)", seconds, "-");
    return expected == received && sameOrder ? 0 : 1;
}
