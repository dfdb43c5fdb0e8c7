#include "responsiveness_server.h"

#include "../support/test_support.h"

namespace pulsebar::test {

ResponsivenessServer::ResponsivenessServer(Options options) : m_options(std::move(options))
{
    QStringList arguments{fixture("speedtest/responsiveness_server.mjs"),
                          "--rate", QString::number(m_options.bytesPerSecond), "--delay",
                          QString::number(m_options.delayMs), "--mode", m_options.mode};
    if (m_options.tls) {
        QProcess openssl;
        openssl.setStandardOutputFile(QProcess::nullDevice());
        openssl.setStandardErrorFile(QProcess::nullDevice());
        openssl.start("openssl", {"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                                  "-keyout", m_dir.filePath("key.pem"), "-out", certificate(), "-days", "1", "-subj",
                                  "/CN=localhost", "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1"});
        if (!openssl.waitForFinished(20000) || openssl.exitCode() != 0)
            return;
        arguments << "--cert" << certificate() << "--key" << m_dir.filePath("key.pem");
    }
    m_node.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_node.start("node", arguments);
    // The server ends when its standard input closes, so it never outlives a crashed test.
    if (!m_node.waitForStarted(10000) || !m_node.waitForReadyRead(10000))
        return;
    const QByteArray line = m_node.readLine().trimmed();
    if (line.startsWith("PORT "))
        m_port = line.mid(5).toInt();
}

ResponsivenessServer::~ResponsivenessServer()
{
    m_node.closeWriteChannel();
    if (!m_node.waitForFinished(3000))
        m_node.kill();
    m_node.waitForFinished(3000);
}

QUrl ResponsivenessServer::configUrl() const
{
    return QUrl(QStringLiteral("%1://127.0.0.1:%2/config").arg(m_options.tls ? "https" : "http").arg(m_port));
}

} // namespace pulsebar::test
