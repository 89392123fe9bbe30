#include "relay/client/relayconnection.h"

#include "relay/wireaction.h"

#include "proto/whiteboard.pb.h"

#include <QDateTime>
#include <QLoggingCategory>
#include <QMetaMethod>
#include <QMetaObject>
#include <QUrlQuery>

#include <algorithm>

namespace pb = im::whiteboard;

namespace relay::client {

namespace {

// Its debug lines (connects, disconnects) are off unless asked for.
Q_LOGGING_CATEGORY(lcConnection, "whiteboard.relay.connection", QtInfoMsg)

// Pauses between attempts: from the first to the longest, doubling.
constexpr int kFirstRetryMs = 250;
constexpr int kLongestRetryMs = 8000;
// A server that takes the connection but never answers the WebSocket
// handshake (not a relay) would otherwise leave it connecting forever.
constexpr int kConnectTimeoutMs = 10000;

// Empty if `url` can name a relay, else why not.
QString urlProblem(const QUrl& url)
{
    if (!url.isValid() || (url.scheme() != QLatin1String("ws") && url.scheme() != QLatin1String("wss"))
        || url.host().isEmpty())
        return QStringLiteral("not a ws:// or wss:// URL: %1").arg(url.isValid() ? url.toString() : url.errorString());
    return QString();
}

// True if the message holds anything but pointer positions.
bool hasChanges(const pb::TransferData& data)
{
    for (const pb::SingleWhiteboardData& envelope : data.multi().whiteboarddatalist()) {
        pb::WhiteboardData body;
        if (!body.ParseFromString(envelope.data()) || body.datatype() != pb::WhiteboardData::WhiteboardDataUserAction)
            return true;
    }
    return false;
}

} // namespace

RelayConnection::RelayConnection(QObject* parent)
    : QObject(parent)
{
    m_retry.setSingleShot(true);
    connect(&m_retry, &QTimer::timeout, this, &RelayConnection::open);
    m_connectTimeout.setSingleShot(true);
    connect(&m_connectTimeout, &QTimer::timeout, this, &RelayConnection::onConnectTimeout);
    // Named error() before Qt 6.5.
    connect(&m_socket, QOverload<QAbstractSocket::SocketError>::of(&QWebSocket::error), this, &RelayConnection::onSocketError);
    connect(&m_socket, &QWebSocket::connected, this, &RelayConnection::onConnected);
    connect(&m_socket, &QWebSocket::disconnected, this, &RelayConnection::onDisconnected);
    connect(&m_socket, &QWebSocket::binaryMessageReceived, this, &RelayConnection::onBinaryMessage);
}

RelayConnection::~RelayConnection()
{
    m_socket.disconnect(this);
    m_socket.abort();
}

void RelayConnection::setUrl(const QUrl& url)
{
    if (m_url == url)
        return;
    m_url = url;
    emit urlChanged();
    if (m_urls.isEmpty())
        emit currentUrlChanged();
    restart();
}

void RelayConnection::setUrls(const QList<QUrl>& urls)
{
    if (m_urls == urls)
        return;
    const QUrl before = currentUrl();
    m_urls = urls;
    m_urlIndex = 0;
    emit urlsChanged();
    if (currentUrl() != before)
        emit currentUrlChanged();
    restart();
}

QUrl RelayConnection::currentUrl() const
{
    return m_urls.isEmpty() ? m_url : m_urls.value(m_urlIndex);
}

void RelayConnection::setBoardId(const QString& boardId)
{
    if (m_boardId == boardId)
        return;
    m_boardId = boardId;
    emit boardIdChanged();
    restart();
}

void RelayConnection::setAccountId(qlonglong accountId)
{
    if (m_accountId == accountId)
        return;
    m_accountId = accountId;
    emit accountIdChanged();
    restart();
}

void RelayConnection::setUserName(const QString& userName)
{
    if (m_userName == userName)
        return;
    m_userName = userName;
    emit userNameChanged();
    restart();
}

void RelayConnection::setToken(const QString& token)
{
    if (m_token == token)
        return;
    m_token = token;
    emit tokenChanged();
    restart();
}

void RelayConnection::setActive(bool active)
{
    if (m_active == active)
        return;
    m_active = active;
    emit activeChanged();
    restart();
}

void RelayConnection::setStatus(Status status)
{
    if (m_status == status)
        return;
    m_status = status;
    emit statusChanged();
}

QUrl RelayConnection::boardUrl() const
{
    QUrl url = currentUrl();
    QString path = url.path();
    if (!path.endsWith(QLatin1Char('/')))
        path += QLatin1Char('/');
    url.setPath(path + QStringLiteral("boards/") + QString::fromLatin1(QUrl::toPercentEncoding(m_boardId)), QUrl::TolerantMode);
    QUrlQuery query;
    query.addQueryItem(QStringLiteral("user"), QString::number(m_accountId));
    query.addQueryItem(QStringLiteral("name"), QString::fromLatin1(QUrl::toPercentEncoding(m_userName)));
    if (!m_token.isEmpty())
        query.addQueryItem(QStringLiteral("token"), m_token);
    url.setQuery(query);
    return url;
}

bool RelayConnection::attach(QObject* board)
{
    if (!board)
        return false;
    if (!connect(board, SIGNAL(sendData(im::whiteboard::TransferData*)), this, SLOT(send(im::whiteboard::TransferData*))))
        return false;
    if (!connect(this, SIGNAL(received(im::whiteboard::TransferData*)), board, SLOT(receiveData(im::whiteboard::TransferData*)))) {
        disconnect(board, nullptr, this, nullptr);
        return false;
    }
    m_board = board;
    // The new board holds nothing yet; if the connection is up already, it
    // starts again so that the board joins and gets the replay.
    m_items.clear();
    if (m_status == Loading || m_status == Online)
        restart();
    return true;
}

qlonglong RelayConnection::serverTime() const
{
    return QDateTime::currentMSecsSinceEpoch();
}

void RelayConnection::restart()
{
    m_retry.stop();
    m_retryDelay = 0;
    if (m_socket.state() != QAbstractSocket::UnconnectedState) {
        // onDisconnected opens again when active, with the same relay.
        m_restarting = true;
        m_socket.abort();
        return;
    }
    if (m_active)
        open();
    else
        setStatus(Offline);
}

void RelayConnection::reconnect()
{
    restart();
}

void RelayConnection::open()
{
    if (!m_active || currentUrl().isEmpty() || m_boardId.isEmpty() || m_socket.state() != QAbstractSocket::UnconnectedState)
        return;
    // A wrong URL does not get better by waiting: no attempt, no retry.
    const QString problem = urlProblem(currentUrl());
    if (!problem.isEmpty()) {
        setErrorString(problem);
        setStatus(Offline);
        return;
    }
    setStatus(Connecting);
    m_connectTimeout.start(kConnectTimeoutMs);
    m_socket.open(boardUrl());
}

void RelayConnection::setOwnerId(qlonglong ownerId)
{
    if (m_ownerId == ownerId)
        return;
    m_ownerId = ownerId;
    emit ownerIdChanged();
}

void RelayConnection::setErrorString(const QString& errorString)
{
    if (m_errorString == errorString)
        return;
    m_errorString = errorString;
    emit errorStringChanged();
}

void RelayConnection::onSocketError()
{
    setErrorString(QStringLiteral("%1: %2").arg(currentUrl().toString(), m_socket.errorString()));
}

void RelayConnection::onConnectTimeout()
{
    setErrorString(QStringLiteral("%1: no WebSocket answer within %2 s").arg(currentUrl().toString()).arg(kConnectTimeoutMs / 1000));
    // onDisconnected retries.
    m_socket.abort();
}

void RelayConnection::onConnected()
{
    m_connectTimeout.stop();
    qCDebug(lcConnection) << "connected to" << currentUrl() << "board" << m_boardId;
    setStatus(Loading);
    m_joinSent = false;
    m_heldBefore = QSet<QString>(m_items.keyBegin(), m_items.keyEnd());
    m_replayed.clear();
    if (m_board) {
        // The board's join also fixes its clock; it arrives in send().
        QMetaObject::invokeMethod(m_board, "sendUserJoinData", Q_ARG(qlonglong, serverTime()), Q_ARG(QString, m_boardId));
    }
    if (!m_joinSent) {
        pb::TransferData join;
        join.set_whiteboardid(m_boardId.toStdString());
        join.mutable_userjoin()->set_oldesttimestamp(1);
        write(QByteArray::fromStdString(join.SerializeAsString()));
        m_joinSent = true;
    }
}

void RelayConnection::onDisconnected()
{
    const int code = m_socket.closeCode();
    const bool restarting = std::exchange(m_restarting, false);
    qCDebug(lcConnection) << "disconnected from" << currentUrl() << "board" << m_boardId << "code" << code << m_socket.closeReason();
    m_connectTimeout.stop();
    m_joinSent = false;
    if (!restarting && code != QWebSocketProtocol::CloseCodeNormal && !m_socket.closeReason().isEmpty())
        setErrorString(QStringLiteral("%1 closed the connection (%2): %3").arg(currentUrl().toString()).arg(code).arg(m_socket.closeReason()));
    // Cut off, the board learns nobody's position or departure: it shows
    // no pointers of others until they move again.
    if (m_board && m_board->metaObject()->indexOfMethod("dropRemotePointers()") >= 0)
        QMetaObject::invokeMethod(m_board, "dropRemotePointers");
    if (code == QWebSocketProtocol::CloseCodePolicyViolated) {
        qCWarning(lcConnection) << "relay refused user" << m_accountId << "on board" << m_boardId << ":" << m_socket.closeReason();
        setStatus(Refused);
        return;
    }
    setStatus(Offline);
    if (!m_active)
        return;
    // The next relay may be up where this one went away.
    if (!restarting && m_urls.size() > 1) {
        m_urlIndex = (m_urlIndex + 1) % int(m_urls.size());
        emit currentUrlChanged();
    }
    m_retryDelay = m_retryDelay == 0 ? kFirstRetryMs : std::min(m_retryDelay * 2, kLongestRetryMs);
    m_retry.start(m_retryDelay);
}

void RelayConnection::send(pb::TransferData* data)
{
    if (!data)
        return;
    const std::unique_ptr<pb::TransferData> owned(data);
    if (data->has_userjoin()) {
        // The connection joins once per connect; a join at another moment
        // would bring a second replay.
        if (m_status == Loading && !m_joinSent) {
            write(QByteArray::fromStdString(data->SerializeAsString()));
            m_joinSent = true;
        }
        return;
    }
    if (m_status != Online && !hasChanges(*data))
        return; // a pointer position is stale by the time it could go
    const QByteArray frame = QByteArray::fromStdString(data->SerializeAsString());
    if (m_status != Online) {
        m_pending.append(frame);
        emit pendingCountChanged();
        return;
    }
    write(frame);
    track(*data);
}

void RelayConnection::write(const QByteArray& frame)
{
    m_socket.sendBinaryMessage(frame);
}

void RelayConnection::onBinaryMessage(const QByteArray& frame)
{
    auto* data = new pb::TransferData;
    if (!data->ParseFromArray(frame.constData(), int(frame.size()))) {
        qCWarning(lcConnection) << "relay sent a frame that is not a TransferData";
        delete data;
        return;
    }
    if (m_status == Loading) {
        if (data->has_multi())
            adoptReplay(*data);
        if (data->has_userjoin()) {
            if (data->userjoin().has_ownerid())
                setOwnerId(data->userjoin().ownerid());
            finishLoad();
            deliver(data);
            setStatus(Online);
            setErrorString(QString());
            m_retryDelay = 0;
            // What waited goes out now, after the board has the relay's state.
            const QList<QByteArray> pending = std::exchange(m_pending, {});
            if (!pending.isEmpty())
                emit pendingCountChanged();
            for (const QByteArray& waiting : pending) {
                pb::TransferData sent;
                sent.ParseFromArray(waiting.constData(), int(waiting.size()));
                write(waiting);
                track(sent);
            }
            return;
        }
    }
    track(*data);
    deliver(data);
}

void RelayConnection::deliver(pb::TransferData* data)
{
    if (isSignalConnected(QMetaMethod::fromSignal(&RelayConnection::received)))
        emit received(data);
    else
        delete data;
}

void RelayConnection::adoptReplay(pb::TransferData& data)
{
    for (pb::SingleWhiteboardData& envelope : *data.mutable_multi()->mutable_whiteboarddatalist()) {
        pb::WhiteboardData body;
        if (!body.ParseFromString(envelope.data()) || body.datatype() != pb::WhiteboardData::WhiteboardDataGraphicAction)
            continue;
        pb::GraphicAction* action = body.mutable_graphicactiondata();
        const QString gid = QString::fromStdString(action->gid());
        m_replayed.insert(gid);
        if (action->graphicactiontype() != pb::GraphicActionAdd || !m_heldBefore.contains(gid))
            continue;
        action->set_graphicactiontype(pb::GraphicActionUpdate);
        envelope.set_graphicactiontype(pb::GraphicActionUpdate);
        envelope.set_data(body.SerializeAsString());
    }
}

void RelayConnection::finishLoad()
{
    pb::TransferData removals;
    removals.set_whiteboardid(m_boardId.toStdString());
    for (const QString& gid : std::as_const(m_heldBefore)) {
        if (m_replayed.contains(gid))
            continue;
        pb::WhiteboardData body;
        body.set_datatype(pb::WhiteboardData::WhiteboardDataGraphicAction);
        pb::GraphicAction* action = body.mutable_graphicactiondata();
        action->set_gid(gid.toStdString());
        action->set_graphicactiontype(pb::GraphicActionRemove);
        pb::SingleWhiteboardData* envelope = removals.mutable_multi()->add_whiteboarddatalist();
        envelope->set_gid(action->gid());
        envelope->set_graphicactiontype(pb::GraphicActionRemove);
        envelope->set_data(body.SerializeAsString());
    }
    m_heldBefore.clear();
    m_replayed.clear();
    if (removals.has_multi()) {
        track(removals);
        deliver(new pb::TransferData(removals));
    }
}

void RelayConnection::track(const pb::TransferData& data)
{
    if (!data.has_multi())
        return;
    for (const pb::SingleWhiteboardData& envelope : data.multi().whiteboarddatalist()) {
        pb::WhiteboardData body;
        if (!body.ParseFromString(envelope.data()))
            continue;
        if (body.datatype() == pb::WhiteboardData::WhiteboardDataGraphicAction) {
            const pb::GraphicAction& action = body.graphicactiondata();
            const QString gid = QString::fromStdString(action.gid());
            if (action.graphicactiontype() == pb::GraphicActionRemove) {
                m_items.remove(gid);
            } else if (action.graphicactiontype() <= pb::GraphicActionModify) {
                const qint64 author = WireAction::author(action);
                if (author != 0 || !m_items.contains(gid))
                    m_items.insert(gid, author);
            }
        } else if (body.datatype() == pb::WhiteboardData::WhiteboardDataUserOperation) {
            const pb::UserOperation& operation = body.useroperationdata();
            if (operation.operationtype() == pb::UserOperation::UserOperationClearAll)
                m_items.clear();
            else if (operation.operationtype() == pb::UserOperation::UserOperationClearByUid)
                m_items.removeIf([&](const QHash<QString, qint64>::iterator& it) { return it.value() == operation.userid(); });
        }
    }
}

} // namespace relay::client

#include "moc_relayconnection.cpp"
