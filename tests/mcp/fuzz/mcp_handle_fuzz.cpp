// libFuzzer target for MCPServer::handle: any byte string, as one line of input, must give either
// silence or exactly one compact JSON-RPC response line, and must never crash or end the process.

#include "core/app_settings.h"
#include "hub/hub.h"
#include "mcp/mcp_server.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

using namespace pulsebar;

namespace {

struct Harness {
    QTemporaryDir home;
    std::unique_ptr<Preferences> preferences;
    std::unique_ptr<AppSettings> settings;
    std::unique_ptr<Hub> hub;
    std::unique_ptr<MCPServer> server;
    int responses = 0;
};

Harness* harness = nullptr;

[[noreturn]] void fail(const char* why, const QByteArray& line)
{
    std::fprintf(stderr, "mcp fuzz: %s: %.200s\n", why, line.constData());
    std::abort();
}

void check(const QByteArray& line)
{
    ++harness->responses;
    if (!line.endsWith('\n') || line.indexOf('\n') != line.size() - 1)
        fail("a response is not exactly one line", line);
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(line, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        fail("a response is not a JSON object", line);
    const QJsonObject response = document.object();
    if (response.value("jsonrpc").toString() != "2.0" || !response.contains("id"))
        fail("a response lacks jsonrpc or id", line);
    if (response.contains("result") == response.contains("error"))
        fail("a response must hold a result or an error", line);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    static QCoreApplication app(*argc, *argv);
    harness = new Harness;
    qputenv("XDG_DATA_HOME", (harness->home.path() + "/data").toUtf8());
    qputenv("XDG_CONFIG_HOME", (harness->home.path() + "/config").toUtf8());
    harness->preferences = std::make_unique<Preferences>(harness->home.path() + "/preferences.json");
    harness->settings = std::make_unique<AppSettings>(*harness->preferences);
    Config config = harness->settings->config();
    config.pingHost = QStringLiteral("127.0.0.1"); // the fuzzer never reaches beyond this machine
    harness->settings->setConfig(config);
    harness->hub = std::make_unique<Hub>(*harness->settings, systemReaders());
    harness->hub->tick();
    harness->server = std::make_unique<MCPServer>(*harness->hub, check);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const int before = harness->responses;
    harness->server->handle(QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)));
    if (harness->responses - before > 1)
        fail("one line gave several responses", QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)));
    return 0;
}
