#pragma once

#include "relay/boardstore.h"
#include "relay/relaymetrics.h"
#include "relay/relayoptions.h"

#include <QElapsedTimer>
#include <QHash>
#include <QAbstractSocket>
#include <QHostAddress>
#include <QObject>
#include <QSet>
#include <QSslConfiguration>
#include <QString>

#include <memory>

class QTcpServer;
class QTimer;
class QWebSocketServer;

namespace relay {

class BoardSession;

// The relay: accepts WebSockets at /boards/<boardId>?user=<id>&name=<name>
// [&token=<hex>], checks them, and hands each to its board's session. One
// thread runs all of it. On a store shared with other nodes it watches the
// boards it serves and hands their sessions what the other nodes did.
class RelayServer : public QObject, private BoardStore::Observer
{
    Q_OBJECT

public:
    // The server uses the store, opened, and does not own it. A valid `ssl`
    // configuration serves wss://.
    RelayServer(BoardStore* store, const RelayOptions& options, const QSslConfiguration& ssl = QSslConfiguration(),
                QObject* parent = nullptr);
    ~RelayServer() override;

    bool listen(const QHostAddress& address, quint16 port);
    quint16 port() const;
    QString errorString() const;
    // "ws://127.0.0.1:8765", the base of the participants' URLs.
    QString url() const;

    // Closes every connection with "going away" and stops listening.
    void close();
    int connectionCount() const;

    // For the admin endpoint: whether the store answers now (a failure starts
    // the reconnection as any other would), and the gauges of /metrics.
    bool checkStore();
    RelayMetrics::Gauges gauges() const;

private:
    void onNewConnection();
    // Counts a connection against its peer address's limit until `socket` is
    // destroyed; refuses and drops it beyond the limit.
    bool admitAddress(QObject* socket, const QHostAddress& peer);
    static QString peerKey(const QHostAddress& address, quint16 port);
    void onAcceptError(QAbstractSocket::SocketError error);
    void resumeAccepting();
    BoardSession* sessionFor(const QString& boardId);
    void committedElsewhere(const QString& boardId, qint64 sequence) override;
    void presenceElsewhere(const QString& boardId, const QByteArray& frame) override;
    // A notification may be lost (the database restarted, or the payload
    // queue overflowed): now and then every board is read again.
    void poll();
    // The database stopped answering: connect again with a growing pause;
    // the boards' messages wait meanwhile, and are stored once it is back.
    void onStorageLost();
    void reconnectStore();
    // Unloads boards idle for longer than --board-idle-seconds, and closes
    // boards that an administrator deleted from the store meanwhile.
    void sweep();
    void unload(BoardSession* session);

    BoardStore* m_store;
    RelayOptions m_options;
    std::unique_ptr<QWebSocketServer> m_server;
    // Plain ws:// listens here, so that every socket can be told to send
    // small frames at once (no Nagle delay) before the handshake.
    std::unique_ptr<QTcpServer> m_tcp;
    QHash<QString, BoardSession*> m_sessions;
    QHash<qint64, int> m_perAccount;
    QHash<QString, int> m_perAddress;
    // Plain connections whose WebSocket handshake has not finished.
    QSet<QString> m_handshaking;
    QTimer* m_acceptPause = nullptr;
    QTimer* m_poll = nullptr;
    QTimer* m_reconnect = nullptr;
    int m_reconnectDelay = 0;
    int m_reconnectAttempts = 0;
    QTimer* m_sweep = nullptr;
    // Sessions without participants, since when.
    QHash<BoardSession*, QElapsedTimer> m_idleSince;
};

} // namespace relay
