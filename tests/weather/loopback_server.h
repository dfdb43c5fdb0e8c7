#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

// A small HTTP server on the loopback for the weather, geocoding and IP-location services. Each
// path answers as told (status, body, or silence); every request target is recorded in order.
class LoopbackServer {
public:
    struct Answer {
        int status = 200;
        QByteArray body;
        bool silent = false; // holds the connection open and never answers
    };
    QMap<QString, Answer> answers; // by path, e.g. "/v1/forecast"
    QStringList targets;           // "/v1/forecast?latitude=…", in arrival order

    LoopbackServer()
    {
        m_server.listen(QHostAddress::LocalHost, 0);
        QObject::connect(&m_server, &QTcpServer::newConnection, [this] {
            while (QTcpSocket* socket = m_server.nextPendingConnection()) {
                QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
                QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] { serve(socket); });
            }
        });
    }
    QString url() const { return QStringLiteral("http://127.0.0.1:%1").arg(m_server.serverPort()); }
    int count(const QString& path) const
    {
        int n = 0;
        for (const QString& target : targets)
            n += target.section(QLatin1Char('?'), 0, 0) == path;
        return n;
    }

private:
    void serve(QTcpSocket* socket)
    {
        m_pending[socket] += socket->readAll();
        const QByteArray& request = m_pending[socket];
        if (!request.contains("\r\n\r\n"))
            return;
        const QString target = QString::fromLatin1(request.split(' ').value(1));
        m_pending.remove(socket);
        targets << target;
        const Answer answer = answers.value(target.section(QLatin1Char('?'), 0, 0), {404, "{}"});
        if (answer.silent)
            return;
        socket->write("HTTP/1.1 " + QByteArray::number(answer.status) + " X\r\nContent-Type: application/json\r\n"
                      "Content-Length: " + QByteArray::number(answer.body.size()) + "\r\nConnection: close\r\n\r\n"
                      + answer.body);
        socket->disconnectFromHost();
    }
    QTcpServer m_server;
    QMap<QTcpSocket*, QByteArray> m_pending;
};
