#pragma once

#include "relay/relayoptions.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QWebSocketProtocol>

class QWebSocket;

namespace im::whiteboard {
class TransferData;
}

namespace relay {

// One participant's WebSocket: who it is, its rate limits, and the frames it
// sends and receives. Lives on the relay's thread, like every relay object.
class Participant : public QObject
{
    Q_OBJECT

public:
    // Takes the socket over.
    Participant(QWebSocket* socket, const QString& boardId, qint64 accountId, const QString& userName,
                const RelayOptions& options, QObject* parent = nullptr);
    ~Participant() override;

    QString boardId() const { return m_boardId; }
    qint64 accountId() const { return m_accountId; }
    QString userName() const { return m_userName; }
    // "user 1001 (Alice) on board b from 127.0.0.1:40000", for the log.
    QString description() const;

    // Names this connection among those of every node sharing the store.
    QString key() const { return m_key; }

    // Joined: its join was answered, so it receives the board's traffic
    // after the sequence number its replay reached.
    bool isJoined() const { return m_joined; }
    qint64 joinedAt() const { return m_joinedAt; }
    void setJoined(qint64 sequence)
    {
        m_joined = true;
        m_joinedAt = sequence;
    }
    bool isOpen() const;

    // Everything queued for the participant counts against its backlog
    // limit, replays and corrections as much as live traffic: a reader that
    // falls that far behind is closed with 1013 ("backlog").
    void send(const QByteArray& frame);
    // Every close of a connection comes through here and logs one line with
    // `reason`, a short stable token ("rate", "backlog", "joins", ...), which
    // is also the close frame's reason.
    void closeWith(QWebSocketProtocol::CloseCode code, const char* reason, const QString& detail = QString());

    // Rate limits: false when the pointer position or item message is over
    // the limit. A message of `items` item actions takes that many tokens.
    bool admitPointer();
    bool admitAction(int items);
    // A join, and a refusal of one of its actions: false beyond their limits
    // (the caller closes the connection).
    bool admitJoin();
    bool admitRefusal();

signals:
    // A frame that parsed as a TransferData; the receiver owns it.
    void messageArrived(relay::Participant* from, im::whiteboard::TransferData* message);
    void disconnected(relay::Participant* participant);

private:
    // Tokens refill at `rate` per second up to `capacity`.
    struct Bucket
    {
        double tokens = 0;
        qint64 last = 0;
        bool take(double rate, double capacity, qint64 nowMs);
    };

    // One largest message, or one second's worth, whichever is more.
    static qint64 byteBurst(const RelayOptions& options);
    void onBinaryMessage(const QByteArray& frame);
    void onDisconnected();

    QWebSocket* m_socket;
    QString m_boardId;
    qint64 m_accountId;
    QString m_userName;
    RelayOptions m_options;
    QString m_peer;
    QString m_key;
    qint64 m_joinedAt = 0;
    qint64 m_backlog = 0; // bytes handed to the socket and not yet written
    bool m_joined = false;
    bool m_closing = false;
    QElapsedTimer m_clock;
    Bucket m_pointers;
    Bucket m_actions;
    Bucket m_bytes;
    Bucket m_joins;
    Bucket m_refusals;
};

} // namespace relay
