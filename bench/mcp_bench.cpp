// How fast `pulsebar --mcp` answers: from process start to the initialize answer (the whole program,
// as an agent starts it), and each tool once the hub has sampled twice (in process, through handle()).

#include "core/app_settings.h"
#include "hub/hub.h"
#include "history/history_store.h"
#include "mcp/mcp_server.h"

#include <QDateTime>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <memory>

using namespace pulsebar;

static void BM_McpStartToInitializeAnswer(benchmark::State& state)
{
    QTemporaryDir home;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("HOME", home.path());
    env.insert("XDG_CONFIG_HOME", home.path() + "/config");
    env.insert("XDG_DATA_HOME", home.path() + "/data");
    const QByteArray request = "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"initialize\",\"params\":{}}\n";
    for (auto _ : state) {
        QProcess process;
        process.setProcessEnvironment(env);
        const auto start = std::chrono::steady_clock::now();
        process.start(QStringLiteral(PULSEBAR_BINARY), {"--mcp"});
        process.write(request);
        while (!process.canReadLine())
            if (!process.waitForReadyRead(5000)) {
                state.SkipWithError("no answer");
                break;
            }
        const auto end = std::chrono::steady_clock::now();
        state.SetIterationTime(std::chrono::duration<double>(end - start).count());
        process.closeWriteChannel();
        process.waitForFinished(5000);
    }
}
BENCHMARK(BM_McpStartToInitializeAnswer)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);

namespace {

// Every tier filled to its retention with every metric: an hour of seconds, a day of minutes and a
// month of quarter hours (rolled up by the store itself from one row per tier bucket).
bool fillHistory(const QString& dataHome)
{
    qputenv("XDG_DATA_HOME", dataHome.toUtf8());
    auto store = HistoryStore::openDefault(HistoryStore::Access::writable);
    if (!store)
        return false;
    const double now = double(QDateTime::currentSecsSinceEpoch());
    auto row = [](double t) {
        HistoryValues values;
        for (const HistoryMetric metric : allCases<HistoryMetric>())
            values[metric] = 50 + 40 * std::sin(t / 3600.0 + double(int(metric)));
        return values;
    };
    for (double t = now - 31 * 86400; t < now - 25 * 3600; t += 900)
        store->record(row(t), t);
    for (double t = now - 25 * 3600; t < now - 3900; t += 60)
        store->record(row(t), t);
    for (double t = now - 3900; t < now; t += 1)
        store->record(row(t), t);
    store->flush();
    return true;
}

// A server over a hub that has sampled twice, one second apart, like the server a second after start.
struct WarmServer {
    static inline const bool offline = qputenv("PULSEBAR_IPIFY_URL", "http://127.0.0.1:9/");
    QTemporaryDir home;
    // A full history file, as a month of the tray app leaves it, where the server looks for it.
    const bool history = fillHistory(home.path() + "/data");
    Preferences preferences{home.path() + "/preferences.json"};
    AppSettings settings{preferences};
    Hub hub{settings, systemReaders()};
    std::size_t written = 0;
    MCPServer server{hub, [this](const QByteArray& line) { written += std::size_t(line.size()); }};

    WarmServer()
    {
        Config config = settings.config();
        config.pingHost = QStringLiteral("127.0.0.1"); // measured without depending on the internet
        settings.setConfig(config);
        hub.history = HistoryStore::openDefault(HistoryStore::Access::readOnly); // as startHeadless does
        hub.tick();
        QThread::msleep(1000);
        hub.tick();
    }
};

WarmServer& warmServer()
{
    static WarmServer warm;
    return warm;
}

} // namespace

static void BM_McpToolWarm(benchmark::State& state, const char* tool, const char* arguments)
{
    WarmServer& warm = warmServer();
    const QByteArray line = QByteArray("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"tools/call\",\"params\":{\"name\":\"")
                            + tool + "\",\"arguments\":" + arguments + "}}";
    for (auto _ : state)
        warm.server.handle(line);
    benchmark::DoNotOptimize(warm.written);
}
BENCHMARK_CAPTURE(BM_McpToolWarm, get_overview, "get_overview", "{}")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_McpToolWarm, get_top_processes, "get_top_processes", "{\"limit\":30}")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_McpToolWarm, get_history_1h, "get_history", "{\"metric\":\"cpu_user\",\"range\":\"1h\"}")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_McpToolWarm, get_history_24h, "get_history", "{\"metric\":\"net_down\"}")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_McpToolWarm, get_history_30d, "get_history", "{\"metric\":\"temperature\",\"range\":\"30d\",\"points\":200}")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_McpToolWarm, get_sensors, "get_sensors", "{\"all_sensors\":true}")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_McpToolWarm, get_battery, "get_battery", "{}")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_McpToolWarm, get_network, "get_network", "{}")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_McpToolWarm, get_disks, "get_disks", "{}")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_McpToolWarm, get_connected_devices, "get_connected_devices", "{}")->Unit(benchmark::kMicrosecond);

static void BM_McpToolsList(benchmark::State& state)
{
    WarmServer& warm = warmServer();
    for (auto _ : state)
        warm.server.handle("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"tools/list\"}");
    benchmark::DoNotOptimize(warm.written);
}
BENCHMARK(BM_McpToolsList)->Unit(benchmark::kMicrosecond);
