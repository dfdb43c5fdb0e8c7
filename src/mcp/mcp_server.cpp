#include "mcp/mcp_server.h"

#include "core/app_settings.h"
#include "hub/hub.h"
#include "core/unix_signals.h"
#include "mcp/tool_error.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTimer>

#include <optional>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <unistd.h>

namespace pulsebar {

namespace {

const QString instructions = QStringLiteral(
    "Live and historical stats for this computer from Pulsebar. Start with get_overview; use get_history to "
    "answer questions about the past (up to 30 days), and get_top_processes to find what is using CPU, memory "
    "or disk. Process CPU percentages follow top: 100% is one full core. Temperatures are in °C.");

// A line longer than this cannot be a request worth holding in memory; it is answered as unparsable.
constexpr std::size_t maxLineBytes = std::size_t(64) << 20;

bool isBlank(char c)
{
    return c == ' ' || c == '\t';
}

QByteArray trimBlanks(const QByteArray& line)
{
    qsizetype begin = 0;
    qsizetype end = line.size();
    while (begin < end && isBlank(line[begin]))
        ++begin;
    while (end > begin && isBlank(line[end - 1]))
        --end;
    return line.mid(begin, end - begin);
}

// Writes the whole buffer; a closed pipe (the agent went away) drops the rest silently.
void writeToStandardOutput(const QByteArray& data)
{
    const char* p = data.constData();
    std::size_t left = std::size_t(data.size());
    while (left > 0) {
        const ssize_t n = ::write(STDOUT_FILENO, p, left);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return;
        p += n;
        left -= std::size_t(n);
    }
}

void discardMessage(QtMsgType, const QMessageLogContext&, const QString&)
{
}

// Reads standard input on its own thread and hands every line, in order, to the main thread; at the
// end of input it hands over a last task that ends the event loop. The main queue is first in, first
// out, so every line read before the end is answered before the exit.
class StdinReader {
public:
    explicit StdinReader(std::function<void(QByteArray)> onLine) : m_onLine(std::move(onLine))
    {
        m_thread = std::thread([this] { readLoop(); });
    }

    ~StdinReader() { m_thread.join(); }

    bool finished() const { return m_finished; }

private:
    void readLoop()
    {
        QByteArray pending;
        bool overlong = false;
        char buffer[65536];
        for (;;) {
            const ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                break;
            const char* begin = buffer;
            const char* const end = buffer + n;
            while (begin < end) {
                const char* newline = static_cast<const char*>(std::memchr(begin, '\n', std::size_t(end - begin)));
                const char* stop = newline ? newline : end;
                if (!overlong) {
                    pending.append(begin, stop - begin);
                    if (std::size_t(pending.size()) > maxLineBytes) {
                        overlong = true;
                        pending.clear();
                    }
                }
                if (!newline)
                    break;
                deliver(pending, overlong);
                pending.clear();
                overlong = false;
                begin = newline + 1;
            }
        }
        if (!pending.isEmpty() || overlong)
            deliver(pending, overlong);
        m_finished = true;
        QMetaObject::invokeMethod(QCoreApplication::instance(), [] { QCoreApplication::exit(0); },
                                  Qt::QueuedConnection);
    }

    void deliver(QByteArray line, bool overlong)
    {
        if (overlong)
            line = QByteArrayLiteral("\x01"); // unparsable on purpose: answered as a parse error
        else if (line.endsWith('\r'))
            line.chop(1);
        QMetaObject::invokeMethod(QCoreApplication::instance(), [this, line] { m_onLine(line); },
                                  Qt::QueuedConnection);
    }

    std::function<void(QByteArray)> m_onLine;
    std::atomic<bool> m_finished{false};
    std::thread m_thread;
};

} // namespace

MCPServer::MCPServer(Hub& hub, Output out) : m_hub(hub), m_tools(hub), m_out(std::move(out))
{
}

QString MCPServer::appVersion()
{
    const QString version = QStringLiteral(PULSEBAR_VERSION);
    return version.isEmpty() ? QStringLiteral("dev") : version;
}

QJsonObject MCPServer::initializeResult(const QJsonObject& params)
{
    const QJsonValue requested = params.value(QLatin1String("protocolVersion"));
    return QJsonObject{
        {"protocolVersion", requested.isString() ? requested.toString() : defaultProtocolVersion},
        {"capabilities", QJsonObject{{"tools", QJsonObject{{"listChanged", false}}}}},
        {"serverInfo", QJsonObject{{"name", "pulsebar"}, {"title", "Pulsebar"}, {"version", appVersion()}}},
        {"instructions", instructions},
    };
}

void MCPServer::handle(QByteArray line)
{
    std::optional<QJsonValue> id; // known once the line has been read as a request
    try {
        if (line.endsWith('\n'))
            line.chop(1);
        const QByteArray trimmed = trimBlanks(line);
        if (trimmed.isEmpty())
            return;
        // Bytes that are not UTF-8 are read as replacement characters, as any text reader would.
        const QByteArray text = QString::fromUtf8(trimmed).toUtf8();
        QJsonParseError error{};
        const QJsonDocument document = QJsonDocument::fromJson(text, &error);
        if (error.error != QJsonParseError::NoError || !document.isObject()) {
            replyError(QJsonValue::Null, -32700, QStringLiteral("Parse error"));
            return;
        }
        const QJsonObject message = document.object();
        const QJsonValue methodValue = message.value(QLatin1String("method"));
        const QString method = methodValue.isString() ? methodValue.toString() : QString();
        const QJsonValue paramsValue = message.value(QLatin1String("params"));
        const QJsonObject params = paramsValue.isObject() ? paramsValue.toObject() : QJsonObject();
        if (!message.contains(QLatin1String("id")))
            return; // a notification: never answered, whatever its method
        id = message.value(QLatin1String("id"));

        if (method == QLatin1String("initialize"))
            reply(*id, initializeResult(params));
        else if (method == QLatin1String("ping"))
            reply(*id, QJsonObject());
        else if (method == QLatin1String("tools/list"))
            reply(*id, QJsonObject{{"tools", MCPTools::catalogue()}});
        else if (method == QLatin1String("tools/call"))
            reply(*id, toolCallResult(params));
        else
            replyError(*id, -32601, QStringLiteral("Method not found: ") + method);
    } catch (...) {
        // A request whose response could not be built or sent still gets its one answer, so the
        // client is never left waiting; the server goes on with the next line either way.
        if (id) {
            try {
                replyError(*id, -32603, QStringLiteral("Internal error"));
            } catch (...) {
            }
        }
    }
}

QJsonObject MCPServer::toolCallResult(const QJsonObject& params)
{
    const QJsonValue nameValue = params.value(QLatin1String("name"));
    const QString name = nameValue.isString() ? nameValue.toString() : QString();
    const QJsonValue argumentsValue = params.value(QLatin1String("arguments"));
    const QJsonObject arguments = argumentsValue.isObject() ? argumentsValue.toObject() : QJsonObject();

    QString text;
    bool isError = true;
    try {
        QByteArray json = QJsonDocument(m_tools.call(name, arguments)).toJson(QJsonDocument::Indented);
        if (json.endsWith('\n'))
            json.chop(1);
        text = QString::fromUtf8(json);
        isError = false;
    } catch (const ToolError& error) {
        text = error.message();
    } catch (const std::exception& error) {
        text = QString::fromLocal8Bit(error.what());
    }
    return QJsonObject{
        {"content", QJsonArray{QJsonObject{{"type", "text"}, {"text", text}}}},
        {"isError", isError},
    };
}

void MCPServer::reply(const QJsonValue& id, const QJsonObject& result)
{
    send(QJsonObject{{"jsonrpc", "2.0"}, {"id", id}, {"result", result}});
}

void MCPServer::replyError(const QJsonValue& id, int code, const QString& message)
{
    send(QJsonObject{{"jsonrpc", "2.0"}, {"id", id}, {"error", QJsonObject{{"code", code}, {"message", message}}}});
}

void MCPServer::send(const QJsonObject& message)
{
    QByteArray line = QJsonDocument(message).toJson(QJsonDocument::Compact);
    if (line.isEmpty())
        return;
    line.append('\n');
    m_out(line);
}

int MCPServer::run(int argc, char** argv)
{
    // Standard error belongs to the agent's logs: the server writes nothing there, not even Qt's warnings.
    qInstallMessageHandler(discardMessage);
    // An agent that closes our output must not kill the process in the middle of a write.
    std::signal(SIGPIPE, SIG_IGN);

    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Pulsebar"));
    QCoreApplication::setApplicationVersion(appVersion());
    quitOnTerminationSignals();

    AppSettings& settings = AppSettings::shared();
    Hub hub(settings, systemReaders());
    MCPServer server(hub, writeToStandardOutput);
    hub.startHeadless();
    // A second sample soon after the first, so CPU, disk and network rates exist for the first call.
    QTimer::singleShot(1000, &hub, &Hub::tick);

    StdinReader reader([&server](QByteArray line) { server.handle(std::move(line)); });
    const int status = app.exec();
    // Ended by a signal while the reader still waits for input: a blocked read cannot be woken, and
    // nothing here needs saving (the server never writes history), so the process ends at once.
    if (!reader.finished())
        std::_Exit(status);
    return status;
}

} // namespace pulsebar
