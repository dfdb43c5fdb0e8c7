#pragma once

#include "mcp/mcp_tools.h"

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>

#include <functional>

namespace pulsebar {

class Hub;

// The Model Context Protocol server: JSON-RPC 2.0, one message per line on standard input, one compact
// response per line on standard output. It answers initialize, ping, tools/list and tools/call; every
// tool reads the live state of a headless hub. There is no per-connection state: initialize may come
// any number of times or never.
class MCPServer {
public:
    // Receives each response, newline included; the standard-output writer sends it in one write.
    using Output = std::function<void(const QByteArray&)>;

    MCPServer(Hub& hub, Output out);

    // Processes one line of input. Blank lines and notifications are answered by silence; everything
    // else gets exactly one response. Never throws.
    void handle(QByteArray line);

    MCPTools& tools() { return m_tools; }

    // `pulsebar --mcp`: serves standard input until its end, then returns 0.
    static int run(int argc, char** argv);

    static inline const QString defaultProtocolVersion = QStringLiteral("2025-06-18");
    static QString appVersion();
    static QJsonObject initializeResult(const QJsonObject& params);
    // The result of tools/call: the tool's object as pretty text, or its failure with isError.
    QJsonObject toolCallResult(const QJsonObject& params);

private:
    void reply(const QJsonValue& id, const QJsonObject& result);
    void replyError(const QJsonValue& id, int code, const QString& message);
    void send(const QJsonObject& message);

    Hub& m_hub;
    MCPTools m_tools;
    Output m_out;
};

} // namespace pulsebar
