#include "relay/participant.h"

#include "relay/relaylog.h"
#include "relay/relaymetrics.h"

#include "proto/whiteboard.pb.h"

#include <QUuid>
#include <QWebSocket>

#include <algorithm>
#include <atomic>
#include <memory>

namespace relay {

Participant::Participant(QWebSocket* socket, const QString& boardId, qint64 accountId, const QString& userName,
                         const RelayOptions& options, QObject* parent)
    : QObject(parent)
    , m_socket(socket)
    , m_boardId(boardId)
    , m_accountId(accountId)
    , m_userName(userName)
    , m_options(options)
{
    m_socket->setParent(this);
    m_peer = QStringLiteral("%1:%2").arg(socket->peerAddress().toString()).arg(socket->peerPort());
    static const QString node = QUuid::createUuid().toString(QUuid::WithoutBraces);
    static std::atomic<qint64> serial { 0 };
    m_key = QStringLiteral("%1/%2").arg(node).arg(++serial);
    // The socket itself refuses a larger frame with 1009, before buffering it.
    m_socket->setMaxAllowedIncomingMessageSize(quint64(options.maxMessageBytes));
    m_socket->setMaxAllowedIncomingFrameSize(quint64(options.maxMessageBytes));
    m_clock.start();
    m_pointers.tokens = options.pointerRate;
    m_actions.tokens = options.actionBurst;
    connect(m_socket, &QWebSocket::binaryMessageReceived, this, &Participant::onBinaryMessage);
    connect(m_socket, &QWebSocket::textMessageReceived, this,
            [this] { closeWith(QWebSocketProtocol::CloseCodeWrongDatatype, QStringLiteral("text frame")); });
    connect(m_socket, &QWebSocket::disconnected, this, &Participant::onDisconnected);
    connect(m_socket, &QWebSocket::bytesWritten, this, [this](qint64 written) {
        // The replay went first, so it is written first.
        m_backlog = std::max<qint64>(0, m_backlog - written);
        m_replayBacklog = std::max<qint64>(0, m_replayBacklog - written);
    });
}

Participant::~Participant() = default;

QString Participant::description() const
{
    return QStringLiteral("user %1 (%2) on board %3 from %4").arg(m_accountId).arg(m_userName, m_boardId, m_peer);
}

bool Participant::isOpen() const
{
    return !m_closing && m_socket->state() == QAbstractSocket::ConnectedState;
}

void Participant::send(const QByteArray& frame, bool replay)
{
    if (!isOpen())
        return;
    // A reader that does not keep up would hold the relay's memory without
    // bound: it goes, and its replay brings it up to date when it is back.
    m_backlog += frame.size();
    if (replay)
        m_replayBacklog += frame.size();
    if (m_backlog - m_replayBacklog > RelayOptions::kMaxBacklogBytes) {
        closeWith(QWebSocketProtocol::CloseCode(1013), QStringLiteral("too far behind"));
        return;
    }
    m_socket->sendBinaryMessage(frame);
}

void Participant::closeWith(QWebSocketProtocol::CloseCode code, const QString& reason)
{
    if (m_closing)
        return;
    m_closing = true;
    if (code == QWebSocketProtocol::CloseCodeWrongDatatype)
        RelayMetrics::instance().refused("malformed");
    else if (int(code) == 1011)
        RelayMetrics::instance().refused("store_away");
    else if (int(code) == 1013)
        RelayMetrics::instance().refused("overloaded");
    if (code == QWebSocketProtocol::CloseCodeGoingAway)
        qCInfo(lcRelay).noquote() << "closing" << description() << "with" << int(code) << reason;
    else
        qCWarning(lcRelay).noquote() << "closing" << description() << "with" << int(code) << reason;
    m_socket->close(code, reason);
}

bool Participant::Bucket::take(double rate, double capacity, qint64 nowMs)
{
    tokens = std::min(capacity, tokens + double(nowMs - last) * rate / 1000.0);
    last = nowMs;
    if (tokens < 1.0)
        return false;
    tokens -= 1.0;
    return true;
}

bool Participant::admitPointer()
{
    return m_pointers.take(m_options.pointerRate, m_options.pointerRate, m_clock.elapsed());
}

bool Participant::admitAction()
{
    return m_actions.take(m_options.actionRate, m_options.actionBurst, m_clock.elapsed());
}

void Participant::onBinaryMessage(const QByteArray& frame)
{
    if (m_closing)
        return;
    auto message = std::make_unique<im::whiteboard::TransferData>();
    if (!message->ParseFromArray(frame.constData(), int(frame.size()))) {
        closeWith(QWebSocketProtocol::CloseCodeWrongDatatype, QStringLiteral("not a TransferData"));
        return;
    }
    emit messageArrived(this, message.release());
}

void Participant::onDisconnected()
{
    qCInfo(lcRelay).noquote() << "disconnected" << description() << "close code" << int(m_socket->closeCode())
                              << m_socket->closeReason();
    m_closing = true;
    emit disconnected(this);
}

} // namespace relay
