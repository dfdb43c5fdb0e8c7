#include "metrics/metrics_server.h"

#include "metrics/metrics_http.h"

#include <QTcpSocket>

#include <algorithm>

namespace pulsebar {

MetricsServer::MetricsServer(Exposition exposition, QObject* parent)
    : QObject(parent), m_exposition(std::move(exposition))
{
    connect(&m_server, &QTcpServer::newConnection, this, &MetricsServer::acceptPending);
    m_sweep.setTimerType(Qt::CoarseTimer);
    connect(&m_sweep, &QTimer::timeout, this, &MetricsServer::dropExpired);
}

MetricsServer::~MetricsServer()
{
    close();
}

bool MetricsServer::listen(const QHostAddress& address, quint16 port)
{
    close();
    return m_server.listen(address, port);
}

void MetricsServer::close()
{
    m_server.close();
    while (!m_connections.empty())
        drop(m_connections.front()->socket);
}

MetricsServer::Connection* MetricsServer::find(QTcpSocket* socket)
{
    const auto found = std::find_if(m_connections.begin(), m_connections.end(),
                                    [socket](const auto& c) { return c->socket == socket; });
    return found == m_connections.end() ? nullptr : found->get();
}

void MetricsServer::acceptPending()
{
    while (QTcpSocket* socket = m_server.nextPendingConnection()) {
        socket->setParent(this);
        if (int(m_connections.size()) >= std::max(limits.maxConnections, 1))
            drop(m_connections.front()->socket);
        // Qt stops reading from the kernel once this much waits unread, so a client that sends
        // without end fills its own socket buffers, not our memory.
        socket->setReadBufferSize(limits.maxHeadBytes + 1);
        auto connection = std::make_unique<Connection>();
        connection->socket = socket;
        connection->deadline = QDeadlineTimer(limits.requestTimeoutMs);
        m_connections.push_back(std::move(connection));
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] {
            if (Connection* c = find(socket))
                readRequest(*c);
        });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] { drop(socket); });
        readRequest(*m_connections.back());
    }
    if (!m_sweep.isActive() && !m_connections.empty())
        m_sweep.start(std::clamp(limits.requestTimeoutMs / 4, 10, 1000));
}

void MetricsServer::readRequest(Connection& connection)
{
    QTcpSocket* socket = connection.socket;
    if (connection.answered) {
        socket->skip(socket->bytesAvailable()); // whatever follows the one request is not read
        return;
    }
    connection.head += socket->read(limits.maxHeadBytes + 1 - connection.head.size());
    qsizetype end = connection.head.indexOf("\r\n\r\n");
    if (end < 0)
        end = connection.head.indexOf("\n\n");
    if (end >= 0) {
        const std::optional<MetricsHttp::RequestHead> request = MetricsHttp::parseHead(connection.head);
        respond(connection, request ? MetricsHttp::answer(*request, m_token, m_exposition)
                                    : MetricsHttp::response(400, "text/plain; charset=utf-8", "Bad request.\n"));
        return;
    }
    if (connection.head.size() > limits.maxHeadBytes) {
        const bool requestLineEnded = connection.head.contains('\n');
        respond(connection, requestLineEnded
                                ? MetricsHttp::response(431, "text/plain; charset=utf-8", "Request head too large.\n")
                                : MetricsHttp::response(414, "text/plain; charset=utf-8", "Request target too long.\n"));
    }
}

void MetricsServer::respond(Connection& connection, const QByteArray& bytes)
{
    connection.answered = true;
    connection.head = QByteArray();
    connection.socket->write(bytes);
    connection.socket->disconnectFromHost(); // after the answer is written; the deadline still holds
}

void MetricsServer::drop(QTcpSocket* socket)
{
    const auto found = std::find_if(m_connections.begin(), m_connections.end(),
                                    [socket](const auto& c) { return c->socket == socket; });
    if (found == m_connections.end())
        return;
    m_connections.erase(found);
    socket->disconnect(this);
    socket->abort();
    socket->deleteLater();
    if (m_connections.empty())
        m_sweep.stop();
}

void MetricsServer::dropExpired()
{
    std::vector<QTcpSocket*> expired;
    for (const auto& connection : m_connections)
        if (connection->deadline.hasExpired())
            expired.push_back(connection->socket);
    for (QTcpSocket* socket : expired)
        drop(socket);
}

} // namespace pulsebar
