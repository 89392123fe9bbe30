#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QTimer>
#include <QUrl>
#include <QWebSocket>
#include <QtQml/qqmlregistration.h>

namespace im::whiteboard {
class TransferData;
}

namespace relay::client {

// A host's connection to a whiteboard-relay for one board and one user. Its
// send() and received() fit a WhiteboardView's sendData and receiveData;
// attach() wires a view both ways and lets the connection announce the join.
//
// It reconnects by itself with a growing pause; given several relays (nodes
// of one database) in `urls`, each attempt after a failure goes to the next.
// Each connection starts with a join; what the host sends while there is no
// connection, or while the board's replay is still coming, waits and goes
// out once the replay is in.
// A replay after a reconnect brings items the board already holds: those
// arrive as updates, and items that went away meanwhile as removals, so the
// board ends up as the relay has it, without doubles.
class RelayConnection : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    // Base of the relay, e.g. ws://127.0.0.1:8765.
    Q_PROPERTY(QUrl url READ url WRITE setUrl NOTIFY urlChanged)
    // Several bases, tried in turn; when not empty, `url` is not used.
    Q_PROPERTY(QList<QUrl> urls READ urls WRITE setUrls NOTIFY urlsChanged)
    // The base of the current or last attempt.
    Q_PROPERTY(QUrl currentUrl READ currentUrl NOTIFY currentUrlChanged)
    Q_PROPERTY(QString boardId READ boardId WRITE setBoardId NOTIFY boardIdChanged)
    Q_PROPERTY(qlonglong accountId READ accountId WRITE setAccountId NOTIFY accountIdChanged)
    Q_PROPERTY(QString userName READ userName WRITE setUserName NOTIFY userNameChanged)
    // Hex HMAC-SHA256 from whoever hands out access; empty: none.
    Q_PROPERTY(QString token READ token WRITE setToken NOTIFY tokenChanged)
    // Connects while true.
    Q_PROPERTY(bool active READ active WRITE setActive NOTIFY activeChanged)
    Q_PROPERTY(Status status READ status NOTIFY statusChanged)
    // Why the connection is not up, for people: a URL that is no ws:// or
    // wss:// URL, the socket's error, no WebSocket answer in time, or the
    // relay's close reason. Empty once online.
    Q_PROPERTY(QString errorString READ errorString NOTIFY errorStringChanged)
    // The board's owner as the relay named it in its answer to the join; 0
    // until then, or from a relay that does not name it.
    Q_PROPERTY(qlonglong ownerId READ ownerId NOTIFY ownerIdChanged)
    // Messages waiting for the connection.
    Q_PROPERTY(int pendingCount READ pendingCount NOTIFY pendingCountChanged)

public:
    enum Status {
        Offline, // not connected; a retry is due unless inactive
        Connecting,
        Loading, // joined, the board's replay is coming
        Online,
        Refused // the relay refused this user or token (1008): no retry
    };
    Q_ENUM(Status)

    explicit RelayConnection(QObject* parent = nullptr);
    ~RelayConnection() override;

    QUrl url() const { return m_url; }
    void setUrl(const QUrl& url);
    QList<QUrl> urls() const { return m_urls; }
    void setUrls(const QList<QUrl>& urls);
    QUrl currentUrl() const;
    QString boardId() const { return m_boardId; }
    void setBoardId(const QString& boardId);
    qlonglong accountId() const { return m_accountId; }
    void setAccountId(qlonglong accountId);
    QString userName() const { return m_userName; }
    void setUserName(const QString& userName);
    QString token() const { return m_token; }
    void setToken(const QString& token);
    bool active() const { return m_active; }
    void setActive(bool active);
    Status status() const { return m_status; }
    QString errorString() const { return m_errorString; }
    qlonglong ownerId() const { return m_ownerId; }
    int pendingCount() const { return int(m_pending.size()); }

    // The URL this connection opens: <currentUrl>/boards/<boardId>?user=..&name=..[&token=..].
    QUrl boardUrl() const;

    // Wires a board (anything with sendData(im::whiteboard::TransferData*)
    // and receiveData(im::whiteboard::TransferData*), a WhiteboardView) to
    // this connection, and calls its sendUserJoinData on each connect.
    Q_INVOKABLE bool attach(QObject* board);
    // The clock a board's join is given.
    Q_INVOKABLE qlonglong serverTime() const;

public slots:
    // Takes ownership of `data`.
    void send(im::whiteboard::TransferData* data);
    // Drops the connection, if any, and connects again at once.
    void reconnect();

signals:
    // The receiver owns `data`.
    void received(im::whiteboard::TransferData* data);
    void urlChanged();
    void urlsChanged();
    void currentUrlChanged();
    void boardIdChanged();
    void accountIdChanged();
    void userNameChanged();
    void tokenChanged();
    void activeChanged();
    void statusChanged();
    void errorStringChanged();
    void ownerIdChanged();
    void pendingCountChanged();

private:
    void setStatus(Status status);
    void setErrorString(const QString& errorString);
    void setOwnerId(qlonglong ownerId);
    void onSocketError();
    void onConnectTimeout();
    void open();
    void restart();
    void onConnected();
    void onDisconnected();
    void onBinaryMessage(const QByteArray& frame);
    void finishLoad();
    void write(const QByteArray& frame);
    void deliver(im::whiteboard::TransferData* data);
    // Keeps `m_items` in step with a message that reached or left the board.
    void track(const im::whiteboard::TransferData& data);
    // Turns replayed adds of items the board holds into updates.
    void adoptReplay(im::whiteboard::TransferData& data);

    QUrl m_url;
    QList<QUrl> m_urls;
    // Of m_urls: the one tried now.
    int m_urlIndex = 0;
    QString m_boardId;
    qlonglong m_accountId = 0;
    QString m_userName;
    QString m_token;
    bool m_active = false;
    Status m_status = Offline;
    QString m_errorString;
    qlonglong m_ownerId = 0;

    QWebSocket m_socket;
    QTimer m_retry;
    // From an open to the WebSocket handshake's end.
    QTimer m_connectTimeout;
    int m_retryDelay = 0;
    bool m_joinSent = false;
    // The connection drops because restart() asked it to.
    bool m_restarting = false;
    QPointer<QObject> m_board;
    QList<QByteArray> m_pending;
    // The live items the board holds, as far as the traffic tells: gid ->
    // author.
    QHash<QString, qint64> m_items;
    // During a replay: what the board held when it began, and what came.
    QSet<QString> m_heldBefore;
    QSet<QString> m_replayed;
};

} // namespace relay::client
