#pragma once

#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>
#include <QUrl>

namespace pulsebar::test {

// tests/fixtures/speedtest/responsiveness_server.mjs on a free loopback port: HTTP/2 over TLS with a certificate
// made for this server alone, or plain HTTP/1.1. It stops with the object.
class ResponsivenessServer {
public:
    struct Options {
        bool tls = true;
        int bytesPerSecond = 2000000;
        int delayMs = 0;
        QString mode = QStringLiteral("normal"); // "silent", "garbage"
    };
    explicit ResponsivenessServer(Options options);
    ~ResponsivenessServer();

    bool running() const { return m_port > 0; }
    QUrl configUrl() const;
    QString certificate() const { return m_dir.filePath("cert.pem"); } // to trust, with tls

private:
    Options m_options;
    QTemporaryDir m_dir;
    QProcess m_node;
    int m_port = 0;
};

} // namespace pulsebar::test
