#include "relay/relayserver.h"

#include "relay/accesstoken.h"
#include "relay/boardsession.h"
#include "relay/boardstore.h"
#include "relay/participant.h"
#include "relay/relaylog.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QUrlQuery>
#include <QWebSocket>
#include <QWebSocketServer>

#include <algorithm>

namespace relay {

namespace {

const QLatin1String kBoardsPath("/boards/");
// How often a node on a shared store reads its boards' sequence numbers
// without being told.
constexpr int kPollMs = 1000;
// Pauses between attempts to reach a lost database: doubling up to the last.
constexpr int kFirstReconnectMs = 250;
constexpr int kLongestReconnectMs = 8000;
// How often idle boards and deleted boards are looked for.
constexpr int kSweepMs = 1000;
// Out of descriptors, accepting waits for a connection to close, or this long.
constexpr int kAcceptPauseMs = 1000;

} // namespace

RelayServer::RelayServer(BoardStore* store, const RelayOptions& options, const QSslConfiguration& ssl, QObject* parent)
    : QObject(parent)
    , m_store(store)
    , m_options(options)
{
    const bool secure = !ssl.localCertificate().isNull();
    m_server = std::make_unique<QWebSocketServer>(QStringLiteral("whiteboard-relay"),
                                                  secure ? QWebSocketServer::SecureMode : QWebSocketServer::NonSecureMode);
    if (secure) {
        m_server->setSslConfiguration(ssl);
    } else {
        m_tcp = std::make_unique<QTcpServer>();
        connect(m_tcp.get(), &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = m_tcp->nextPendingConnection()) {
                // Counted from the handshake on: a peer cannot hold more
                // half-open connections than open ones.
                if (!admitAddress(socket, socket->peerAddress()))
                    continue;
                socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
                // The server's own handshake deadline does not cover sockets
                // handed to it: a socket still pending at the deadline goes.
                const QString key = peerKey(socket->peerAddress(), socket->peerPort());
                m_handshaking.insert(key);
                connect(socket, &QObject::destroyed, this, [this, key] { m_handshaking.remove(key); });
                QTimer::singleShot(m_options.handshakeMs, socket, [this, socket, key] {
                    if (!m_handshaking.remove(key))
                        return;
                    RelayMetrics::instance().refused("handshake");
                    qCWarning(lcRelay).noquote() << "closing connection from" << key << ":" << "handshake";
                    socket->abort();
                });
                m_server->handleConnection(socket);
            }
        });
        connect(m_tcp.get(), &QTcpServer::acceptError, this, &RelayServer::onAcceptError);
    }
    // With a token or not, a handshake that does not finish in time goes.
    m_server->setHandshakeTimeout(options.handshakeMs);
    connect(m_server.get(), &QWebSocketServer::acceptError, this, &RelayServer::onAcceptError);
    m_acceptPause = new QTimer(this);
    m_acceptPause->setSingleShot(true);
    connect(m_acceptPause, &QTimer::timeout, this, &RelayServer::resumeAccepting);
    connect(m_server.get(), &QWebSocketServer::newConnection, this, &RelayServer::onNewConnection);
    if (m_store->isShared()) {
        m_store->setObserver(this);
        m_poll = new QTimer(this);
        connect(m_poll, &QTimer::timeout, this, &RelayServer::poll);
        m_poll->start(kPollMs);
    }
    m_reconnect = new QTimer(this);
    m_reconnect->setSingleShot(true);
    connect(m_reconnect, &QTimer::timeout, this, &RelayServer::reconnectStore);
    m_sweep = new QTimer(this);
    connect(m_sweep, &QTimer::timeout, this, &RelayServer::sweep);
    m_sweep->start(kSweepMs);
    connect(m_server.get(), &QWebSocketServer::sslErrors, this,
            [](const QList<QSslError>& errors) { qCWarning(lcRelay) << "tls errors:" << errors; });
}

RelayServer::~RelayServer()
{
    close();
    m_store->setObserver(nullptr);
    // Sockets the servers still hold count themselves out of m_perAddress as
    // they go: they go now, while the counts are still there.
    m_tcp.reset();
    m_server.reset();
}

bool RelayServer::listen(const QHostAddress& address, quint16 port)
{
    if (m_tcp ? !m_tcp->listen(address, port) : !m_server->listen(address, port))
        return false;
    qCInfo(lcRelay).noquote() << "listening on" << url();
    return true;
}

quint16 RelayServer::port() const
{
    return m_tcp ? m_tcp->serverPort() : m_server->serverPort();
}

QString RelayServer::errorString() const
{
    return m_tcp ? m_tcp->errorString() : m_server->errorString();
}

QString RelayServer::url() const
{
    QHostAddress address = m_tcp ? m_tcp->serverAddress() : m_server->serverAddress();
    if (address == QHostAddress::Any || address == QHostAddress::AnyIPv4 || address == QHostAddress::AnyIPv6)
        address = QHostAddress::LocalHost;
    const QString scheme = m_server->secureMode() == QWebSocketServer::SecureMode ? QStringLiteral("wss") : QStringLiteral("ws");
    const QString host = address.protocol() == QAbstractSocket::IPv6Protocol ? QStringLiteral("[%1]").arg(address.toString()) : address.toString();
    return QStringLiteral("%1://%2:%3").arg(scheme, host).arg(port());
}

void RelayServer::close()
{
    // What was accepted is stored before the connections go.
    for (BoardSession* session : std::as_const(m_sessions))
        session->storeWaiting();
    for (BoardSession* session : std::as_const(m_sessions))
        session->closeAll();
    if (m_tcp ? m_tcp->isListening() : m_server->isListening()) {
        if (m_tcp)
            m_tcp->close();
        m_server->close();
        qCInfo(lcRelay) << "stopped listening";
    }
}

int RelayServer::connectionCount() const
{
    int count = 0;
    for (const BoardSession* session : m_sessions)
        count += session->participantCount();
    return count;
}

void RelayServer::onNewConnection()
{
    while (QWebSocket* socket = m_server->nextPendingConnection()) {
        m_handshaking.remove(peerKey(socket->peerAddress(), socket->peerPort()));
        const QUrl url = socket->requestUrl();
        const QUrlQuery query(url);
        // The board id is the rest of the path, decoded: an id may hold an
        // encoded "/".
        const QString path = url.path(QUrl::FullyEncoded);
        const QString boardId = path.startsWith(kBoardsPath) ? QUrl::fromPercentEncoding(path.mid(kBoardsPath.size()).toUtf8()) : QString();
        bool userOk = false;
        const qint64 user = query.queryItemValue(QStringLiteral("user")).toLongLong(&userOk);
        const QString name = query.queryItemValue(QStringLiteral("name"), QUrl::FullyDecoded).left(RelayOptions::kMaxUserNameLength);
        const QByteArray token = query.queryItemValue(QStringLiteral("token")).toLatin1();

        const char* refusal = nullptr;
        if (boardId.isEmpty() || boardId.size() > RelayOptions::kMaxBoardIdLength)
            refusal = "bad-url";
        else if (!userOk || user <= 0)
            refusal = "bad-url";
        else if (!m_options.secret.isEmpty() && !AccessToken::matches(m_options.secret, boardId, user, token))
            refusal = "token";
        else if (m_perAccount.value(user) >= m_options.connectionsPerAccount)
            refusal = "connections";
        if (!m_tcp && !refusal && !admitAddress(socket, socket->peerAddress()))
            continue;
        if (refusal) {
            RelayMetrics::instance().refused(refusal);
            qCWarning(lcRelay).noquote() << "refused connection from" << socket->peerAddress().toString() << "to" << url.path()
                                         << "user" << query.queryItemValue(QStringLiteral("user")) << ":" << refusal;
            connect(socket, &QWebSocket::disconnected, socket, &QObject::deleteLater);
            socket->close(QWebSocketProtocol::CloseCodePolicyViolated, QString::fromLatin1(refusal));
            continue;
        }
        ++m_perAccount[user];
        auto* participant = new Participant(socket, boardId, user, name, m_options);
        connect(participant, &QObject::destroyed, this, [this, user] {
            if (--m_perAccount[user] <= 0)
                m_perAccount.remove(user);
        });
        sessionFor(boardId)->add(participant);
    }
}

QString RelayServer::peerKey(const QHostAddress& address, quint16 port)
{
    return QStringLiteral("%1:%2").arg(address.toString()).arg(port);
}

bool RelayServer::admitAddress(QObject* socket, const QHostAddress& peer)
{
    const QString address = peer.toString();
    if (m_perAddress.value(address) >= m_options.connectionsPerAddress) {
        RelayMetrics::instance().refused("connections");
        qCWarning(lcRelay).noquote() << "refused connection from" << address << ":" << "connections";
        if (auto* tcp = qobject_cast<QAbstractSocket*>(socket)) {
            tcp->abort();
            tcp->deleteLater();
        } else if (auto* web = qobject_cast<QWebSocket*>(socket)) {
            connect(web, &QWebSocket::disconnected, web, &QObject::deleteLater);
            web->close(QWebSocketProtocol::CloseCodePolicyViolated, QStringLiteral("connections"));
        }
        return false;
    }
    ++m_perAddress[address];
    connect(socket, &QObject::destroyed, this, [this, address] {
        if (--m_perAddress[address] <= 0)
            m_perAddress.remove(address);
        // A descriptor is free again.
        if (m_acceptPause->isActive())
            resumeAccepting();
    });
    return true;
}

void RelayServer::onAcceptError(QAbstractSocket::SocketError error)
{
    // Out of descriptors the listening socket stays readable: accepting again
    // at once would spin. It waits for a connection to close.
    if (m_acceptPause->isActive())
        return;
    qCWarning(lcRelay) << "cannot accept connections:" << error << "; pausing";
    if (m_tcp)
        m_tcp->pauseAccepting();
    else
        m_server->pauseAccepting();
    m_acceptPause->start(kAcceptPauseMs);
}

void RelayServer::resumeAccepting()
{
    m_acceptPause->stop();
    if (m_tcp)
        m_tcp->resumeAccepting();
    else
        m_server->resumeAccepting();
}

BoardSession* RelayServer::sessionFor(const QString& boardId)
{
    if (BoardSession* session = m_sessions.value(boardId))
        return session;
    // Listening before the load: nothing committed after it goes unnoticed.
    m_store->watch(boardId);
    auto* session = new BoardSession(boardId, m_store, m_options, this);
    session->load();
    m_sessions.insert(boardId, session);
    connect(session, &BoardSession::storageLost, this, &RelayServer::onStorageLost);
    connect(session, &BoardSession::idle, this, [this](BoardSession* idle) {
        // A deleted board's session is no longer in m_sessions: it goes as
        // soon as its participants have.
        if (m_options.boardIdleSeconds == 0 || m_sessions.value(idle->boardId()) != idle)
            unload(idle);
        else
            m_idleSince[idle].start();
    });
    return session;
}

void RelayServer::unload(BoardSession* session)
{
    m_idleSince.remove(session);
    if (m_sessions.value(session->boardId()) == session) {
        m_sessions.remove(session->boardId());
        m_store->unwatch(session->boardId());
    }
    session->deleteLater();
}

void RelayServer::sweep()
{
    const qint64 idleMs = qint64(m_options.boardIdleSeconds) * 1000;
    for (auto it = m_idleSince.begin(); it != m_idleSince.end();) {
        BoardSession* session = it.key();
        if (session->participantCount() > 0) {
            it = m_idleSince.erase(it);
        } else if (it.value().hasExpired(idleMs)) {
            it = m_idleSince.erase(it);
            unload(session);
        } else {
            ++it;
        }
    }
    if (m_store->lost())
        return;
    // Administration deletes boards in the store, from another process: a
    // read per loaded board tells which are gone.
    const QList<BoardSession*> sessions = m_sessions.values();
    for (BoardSession* session : sessions) {
        if (!session->exists() || m_store->board(session->boardId()).exists)
            continue;
        // Not found, or not read: only a store that answers says it is gone.
        if (!m_store->probe()) {
            onStorageLost();
            return;
        }
        qCWarning(lcRelay).noquote() << "board" << session->boardId() << "was deleted from the store; closing its" << session->participantCount()
                                     << "connections";
        m_sessions.remove(session->boardId());
        m_store->unwatch(session->boardId());
        if (session->participantCount() == 0)
            unload(session);
        else
            session->closeDeleted();
    }
}

bool RelayServer::checkStore()
{
    if (m_store->lost())
        return false;
    if (!m_store->probe()) {
        onStorageLost();
        return false;
    }
    return true;
}

RelayMetrics::Gauges RelayServer::gauges() const
{
    RelayMetrics::Gauges gauges;
    gauges.connections = connectionCount();
    gauges.boardsOpen = int(m_sessions.size());
    for (const BoardSession* session : m_sessions)
        gauges.queueDepth += session->waitingCount();
    return gauges;
}

void RelayServer::committedElsewhere(const QString& boardId, qint64 sequence)
{
    if (BoardSession* session = m_sessions.value(boardId))
        session->announce(sequence);
}

void RelayServer::presenceElsewhere(const QString& boardId, const QByteArray& frame)
{
    if (BoardSession* session = m_sessions.value(boardId))
        session->deliverPresence(frame);
}

void RelayServer::poll()
{
    if (m_store->lost())
        return;
    // An idle node learns here that its database went away.
    if (!m_store->probe()) {
        onStorageLost();
        return;
    }
    for (BoardSession* session : std::as_const(m_sessions))
        session->catchUp(m_store->board(session->boardId()).sequence);
}

void RelayServer::onStorageLost()
{
    if (m_reconnect->isActive() || m_reconnectAttempts > 0)
        return;
    qCWarning(lcRelay) << "lost the database connection; reconnecting";
    m_reconnectDelay = kFirstReconnectMs;
    m_reconnect->start(m_reconnectDelay);
}

void RelayServer::reconnectStore()
{
    ++m_reconnectAttempts;
    QString error;
    if (!m_store->reopen(&error)) {
        m_reconnectDelay = std::min(m_reconnectDelay * 2, kLongestReconnectMs);
        qCWarning(lcRelay).noquote() << "database still unreachable after" << m_reconnectAttempts << "attempts:" << error.trimmed()
                                     << "; next attempt in" << m_reconnectDelay << "ms";
        m_reconnect->start(m_reconnectDelay);
        return;
    }
    qCWarning(lcRelay) << "reconnected to the database after" << m_reconnectAttempts << "attempts";
    m_reconnectAttempts = 0;
    // Listening again before reading: nothing committed after the read goes
    // unnoticed (the store listened again as it reopened).
    for (BoardSession* session : std::as_const(m_sessions))
        session->resume();
}

} // namespace relay
