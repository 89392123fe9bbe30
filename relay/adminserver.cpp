#include "relay/adminserver.h"

#include "relay/relaylog.h"
#include "relay/relaymetrics.h"
#include "relay/relayoptions.h"
#include "relay/relayserver.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

namespace relay {

namespace {

QByteArray statusText(int status)
{
    switch (status) {
    case 200:
        return "OK";
    case 400:
        return "Bad Request";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    case 408:
        return "Request Timeout";
    case 431:
        return "Request Header Fields Too Large";
    case 503:
        return "Service Unavailable";
    default:
        return "Error";
    }
}

} // namespace

AdminServer::AdminServer(RelayServer* relay, QObject* parent)
    : QObject(parent)
    , m_relay(relay)
    , m_server(std::make_unique<QTcpServer>())
{
    // Connections beyond the bound wait in the kernel's backlog, unaccepted.
    m_server->setMaxPendingConnections(RelayOptions::kMaxAdminConnections);
    connect(m_server.get(), &QTcpServer::newConnection, this, &AdminServer::onNewConnection);
}

AdminServer::~AdminServer() = default;

bool AdminServer::listen(const QHostAddress& address, quint16 port)
{
    if (!m_server->listen(address, port))
        return false;
    qCInfo(lcRelay).noquote() << "admin endpoint on" << QStringLiteral("http://%1:%2").arg(m_server->serverAddress().toString()).arg(m_server->serverPort());
    return true;
}

quint16 AdminServer::port() const
{
    return m_server->serverPort();
}

QString AdminServer::errorString() const
{
    return m_server->errorString();
}

void AdminServer::onNewConnection()
{
    while (m_connections < RelayOptions::kMaxAdminConnections && m_server->hasPendingConnections()) {
        QTcpSocket* socket = m_server->nextPendingConnection();
        ++m_connections;
        socket->setReadBufferSize(RelayOptions::kMaxAdminRequestBytes + 1);
        // A client that does not finish its request headers in time is cut
        // off: a slow sender must not hold one of the few places.
        auto* deadline = new QTimer(socket);
        deadline->setSingleShot(true);
        connect(deadline, &QTimer::timeout, socket, [this, socket] { answer(socket, 408, "text/plain", "request timeout\n"); });
        deadline->start(RelayOptions::kAdminHeaderDeadlineMs);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onReadyRead(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            --m_connections;
            socket->deleteLater();
            // Room again: take what waited.
            QMetaObject::invokeMethod(this, &AdminServer::onNewConnection, Qt::QueuedConnection);
        });
    }
    if (m_server->hasPendingConnections())
        m_server->pauseAccepting();
    else
        m_server->resumeAccepting();
}

void AdminServer::onReadyRead(QTcpSocket* socket)
{
    if (socket->property("answered").toBool()) {
        socket->readAll();
        return;
    }
    // The request is its headers: the endpoint takes no body.
    const QByteArray head = socket->peek(RelayOptions::kMaxAdminRequestBytes + 1);
    const qsizetype end = head.indexOf("\r\n\r\n");
    if (end < 0) {
        if (head.size() > RelayOptions::kMaxAdminRequestBytes)
            answer(socket, 431, "text/plain", "request too large\n");
        return;
    }
    socket->readAll();
    const QList<QByteArray> requestLine = head.left(head.indexOf("\r\n")).split(' ');
    if (requestLine.size() != 3 || !requestLine.at(2).startsWith("HTTP/1.")) {
        answer(socket, 400, "text/plain", "bad request\n");
        return;
    }
    const QByteArray path = requestLine.at(1).split('?').constFirst();
    if (path != "/healthz" && path != "/metrics") {
        answer(socket, 404, "text/plain", "not found\n");
        return;
    }
    if (requestLine.at(0) != "GET") {
        answer(socket, 405, "text/plain", "only GET\n");
        return;
    }
    if (path == "/healthz") {
        const bool ok = m_relay->checkStore();
        answer(socket, ok ? 200 : 503, "text/plain", ok ? "ok\n" : "store unavailable\n");
    } else {
        answer(socket, 200, "text/plain; version=0.0.4; charset=utf-8", RelayMetrics::instance().exposition(m_relay->gauges()));
    }
}

void AdminServer::answer(QTcpSocket* socket, int status, const QByteArray& contentType, const QByteArray& body)
{
    if (socket->property("answered").toBool())
        return;
    socket->setProperty("answered", true);
    QByteArray response = "HTTP/1.1 " + QByteArray::number(status) + ' ' + statusText(status) + "\r\n";
    response += "Content-Type: " + contentType + "\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n";
    response += body;
    socket->write(response);
    socket->disconnectFromHost();
}

} // namespace relay
