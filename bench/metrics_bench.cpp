// What one Prometheus scrape costs the tray application: the exposition of this machine's last tick
// (every process of the machine is sampled; the exposition lists their count), and a whole scrape over
// loopback, measured on the thread that serves it (the main thread, beside the tick).

#include "core/app_settings.h"
#include "hub/hub.h"
#include "metrics/metrics_exporter.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

using namespace pulsebar;

namespace {

struct LiveHub {
    // The public-address request goes to a closed loopback port, never to the internet.
    bool noPublicAddress = qputenv("PULSEBAR_IPIFY_URL", "http://127.0.0.1:9/");
    QTemporaryDir dir;
    Preferences preferences{dir.path() + "/preferences.json"};
    AppSettings settings{preferences};
    Hub hub{settings, systemReaders()};

    LiveHub()
    {
        Config config = settings.config();
        config.pingHost = "127.0.0.1";
        settings.setConfig(config);
        // No ping child: its exit, a little after a tick, would land in the scrape measured next.
        hub.network.pingInFlight = true;
        hub.tick(); // the second tick has rates
        hub.tick();
    }
};

// One blocking GET /metrics; the number of bytes of the answer.
qsizetype scrapeOnce(quint16 port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    qsizetype received = 0;
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
        const char request[] = "GET /metrics HTTP/1.1\r\nHost: 127.0.0.1\r\nAccept: application/openmetrics-text;version=1.0.0\r\n\r\n";
        ::send(fd, request, sizeof request - 1, MSG_NOSIGNAL);
        char buffer[65536];
        ssize_t n;
        while ((n = ::recv(fd, buffer, sizeof buffer, 0)) > 0)
            received += n;
    }
    ::close(fd);
    return received;
}

} // namespace

static void BM_MetricsRender(benchmark::State& state)
{
    LiveHub live;
    const auto format = MetricsFormat(state.range(0));
    qsizetype bytes = 0;
    for (auto _ : state) {
        const QByteArray text = MetricsExposition::render(live.hub, format);
        bytes = text.size();
        benchmark::DoNotOptimize(text.data());
    }
    state.counters["bytes"] = double(bytes);
    state.counters["processes"] = double(live.hub.snapshot().processes.size());
}
BENCHMARK(BM_MetricsRender)->Arg(int(MetricsFormat::prometheusText))->Arg(int(MetricsFormat::openMetrics))
    ->Unit(benchmark::kMicrosecond);

// Each iteration: with argument 1 a tick first (not timed), then one scrape from another thread while
// this thread serves it. The CPU column is this thread's: accepting, reading the request, rendering the
// new tick (with 0: the copy of the same tick), writing the answer.
static void BM_MetricsScrape(benchmark::State& state)
{
    LiveHub live;
    MetricsExporter exporter(live.hub, live.preferences);
    if (!exporter.server().listen(QHostAddress::LocalHost, 0)) {
        state.SkipWithError("cannot listen");
        return;
    }
    const quint16 port = exporter.server().port();
    QEventLoop loop;
    std::mutex mutex;
    std::condition_variable wake;
    bool requested = false;
    bool stop = false;
    std::atomic<qsizetype> lastSize = 0;
    std::thread client([&] {
        std::unique_lock lock(mutex);
        while (true) {
            wake.wait(lock, [&] { return requested || stop; });
            if (stop)
                return;
            requested = false;
            lock.unlock();
            lastSize = scrapeOnce(port);
            QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
            lock.lock();
        }
    });
    const bool tickFirst = state.range(0) != 0;
    for (auto _ : state) {
        if (tickFirst) {
            state.PauseTiming();
            live.hub.tick();
            QCoreApplication::processEvents(); // what the tick left queued is not the scrape's
            state.ResumeTiming();
        }
        {
            std::lock_guard lock(mutex);
            requested = true;
        }
        wake.notify_one();
        loop.exec();
    }
    {
        std::lock_guard lock(mutex);
        stop = true;
    }
    wake.notify_one();
    client.join();
    state.counters["bytes"] = double(lastSize.load());
    state.counters["processes"] = double(live.hub.snapshot().processes.size());
}
BENCHMARK(BM_MetricsScrape)->Arg(1)->Arg(0)->Unit(benchmark::kMicrosecond)->Iterations(300);
