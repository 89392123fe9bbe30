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
    m_bytes.tokens = double(byteBurst(options));
    m_joins.tokens = options.joinsPerMinute;
    m_refusals.tokens = options.refusalBurst;
    connect(m_socket, &QWebSocket::binaryMessageReceived, this, &Participant::onBinaryMessage);
    connect(m_socket, &QWebSocket::textMessageReceived, this,
            [this] { closeWith(QWebSocketProtocol::CloseCodeWrongDatatype, "malformed", QStringLiteral("text frame")); });
    connect(m_socket, &QWebSocket::disconnected, this, &Participant::onDisconnected);
    connect(m_socket, &QWebSocket::bytesWritten, this, [this](qint64 written) {
        m_backlog = std::max<qint64>(0, m_backlog - written);
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

void Participant::send(const QByteArray& frame)
{
    if (!isOpen())
        return;
    // A reader that does not keep up would hold the relay's memory without
    // bound: it goes, and its replay brings it up to date when it is back.
    m_backlog += frame.size();
    if (m_backlog > m_options.maxBacklogBytes) {
        closeWith(QWebSocketProtocol::CloseCode(1013), "backlog", QStringLiteral("too far behind"));
        return;
    }
    m_socket->sendBinaryMessage(frame);
}

void Participant::closeWith(QWebSocketProtocol::CloseCode code, const char* reason, const QString& detail)
{
    if (m_closing)
        return;
    m_closing = true;
    const QString token = QString::fromLatin1(reason);
    // A refusing close counts with the refusals, by its token.
    if (code != QWebSocketProtocol::CloseCodeGoingAway)
        RelayMetrics::instance().refused(reason);
    if (code == QWebSocketProtocol::CloseCodeGoingAway)
        qCInfo(lcRelay).noquote() << "closing" << description() << "with" << int(code) << token << detail;
    else
        qCWarning(lcRelay).noquote() << "closing" << description() << "with" << int(code) << token << detail;
    m_socket->close(code, token);
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

bool Participant::admitAction(int items)
{
    const qint64 now = m_clock.elapsed();
    // The burst refills first, so that one message may take all of it.
    if (!m_actions.take(m_options.actionRate, m_options.actionBurst, now))
        return false;
    m_actions.tokens -= std::max(0, items - 1);
    return m_actions.tokens >= 0;
}

bool Participant::admitJoin()
{
    return m_joins.take(m_options.joinsPerMinute / 60.0, m_options.joinsPerMinute, m_clock.elapsed());
}

bool Participant::admitRefusal()
{
    return m_refusals.take(RelayOptions::kRefusalRate, m_options.refusalBurst, m_clock.elapsed());
}

qint64 Participant::byteBurst(const RelayOptions& options)
{
    return std::max(options.byteRate, options.maxMessageBytes);
}

void Participant::onBinaryMessage(const QByteArray& frame)
{
    if (m_closing)
        return;
    const qint64 now = m_clock.elapsed();
    m_bytes.tokens = std::min(double(byteBurst(m_options)), m_bytes.tokens + double(now - m_bytes.last) * double(m_options.byteRate) / 1000.0);
    m_bytes.last = now;
    m_bytes.tokens -= double(frame.size());
    if (m_bytes.tokens < 0) {
        closeWith(QWebSocketProtocol::CloseCodePolicyViolated, "bytes", QStringLiteral("more than %1 bytes per second").arg(m_options.byteRate));
        return;
    }
    auto message = std::make_unique<im::whiteboard::TransferData>();
    if (!message->ParseFromArray(frame.constData(), int(frame.size()))) {
        closeWith(QWebSocketProtocol::CloseCodeWrongDatatype, "malformed", QStringLiteral("not a TransferData"));
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
