#pragma once

#include "metrics/metrics_exposition.h"

#include <QByteArray>
#include <QDeadlineTimer>
#include <QHostAddress>
#include <QObject>
#include <QTcpServer>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QTcpSocket;

namespace pulsebar {

// Serves GET /metrics on the main thread, beside the hub's tick. Every step is bounded so that no
// client, however slow or hostile, holds the event loop: a request head is read into at most
// `maxHeadBytes`, a connection lives at most `requestTimeoutMs` from its accept (answered or not),
// and at most `maxConnections` are open: a new one pushes out the oldest. Each connection carries one
// request and is closed after its answer.
class MetricsServer : public QObject {
    Q_OBJECT
public:
    struct Limits {
        qsizetype maxHeadBytes = 8192;
        int requestTimeoutMs = 5000;
        int maxConnections = 64;
    };
    using Exposition = std::function<QByteArray(MetricsFormat)>;

    explicit MetricsServer(Exposition exposition, QObject* parent = nullptr);
    ~MetricsServer() override;

    // Closes any listening socket first. False, with errorString(), when the address cannot be bound.
    bool listen(const QHostAddress& address, quint16 port);
    void close();

    bool isListening() const { return m_server.isListening(); }
    quint16 port() const { return m_server.serverPort(); }
    QString errorString() const { return m_server.errorString(); }

    // The bearer token requests must carry; none: no token is asked for.
    void setRequiredToken(std::optional<QByteArray> token) { m_token = std::move(token); }

    int connectionCount() const { return int(m_connections.size()); }

    Limits limits;

private:
    struct Connection {
        QTcpSocket* socket = nullptr; // child of the server object; deleted later when dropped
        QByteArray head;
        QDeadlineTimer deadline;
        bool answered = false;
    };

    void acceptPending();
    void readRequest(Connection& connection);
    void respond(Connection& connection, const QByteArray& bytes);
    void drop(QTcpSocket* socket);
    void dropExpired();
    Connection* find(QTcpSocket* socket);

    Exposition m_exposition;
    std::optional<QByteArray> m_token;
    QTcpServer m_server;
    QTimer m_sweep;
    std::vector<std::unique_ptr<Connection>> m_connections; // oldest first
};

} // namespace pulsebar
