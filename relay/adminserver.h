#pragma once

#include <QHostAddress>
#include <QObject>

#include <memory>

class QTcpServer;
class QTcpSocket;

namespace relay {

class RelayServer;

// The operators' plain HTTP endpoint: GET /healthz (200 while the store
// answers, 503 otherwise) and GET /metrics (Prometheus' text format). One
// request per connection, answered and closed; requests, header time and
// connections are bounded (RelayOptions::kMaxAdmin*), like every other input.
class AdminServer : public QObject
{
    Q_OBJECT

public:
    explicit AdminServer(RelayServer* relay, QObject* parent = nullptr);
    ~AdminServer() override;

    bool listen(const QHostAddress& address, quint16 port);
    quint16 port() const;
    QString errorString() const;

private:
    void onNewConnection();
    void onReadyRead(QTcpSocket* socket);
    void answer(QTcpSocket* socket, int status, const QByteArray& contentType, const QByteArray& body);

    RelayServer* m_relay;
    std::unique_ptr<QTcpServer> m_server;
    int m_connections = 0;
};

} // namespace relay
