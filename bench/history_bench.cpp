// The history store under a month of use: flushing one 30 s batch, reading every range of a file that
// holds 30 days of 1 s samples, and the size of that file.
#include "history/history_store.h"

#include <QFileInfo>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <atomic>
#include <cmath>

using namespace pulsebar;

namespace {

constexpr std::int64_t thirtyDays = 30 * 86400;
constexpr std::int64_t startTime = 1'700'000'000;

// Plausible readings for every metric, so no column is NULL (the largest file).
HistoryValues sample(std::int64_t ts)
{
    const double wave = std::sin(double(ts) / 600.0);
    HistoryValues values;
    int i = 0;
    for (HistoryMetric metric : allCases<HistoryMetric>())
        values[metric] = 50.0 + 40.0 * wave + double((ts * 7919 + ++i * 104729) % 997) / 100.0;
    values[HistoryMetric::download] = 1e6 * (1.5 + wave);
    return values;
}

// One store, written the way the tray app writes it for 30 days (a flush per 5 minutes of samples
// instead of per 30 s, which makes the same rows and roll-ups in a tenth of the flushes), built once.
struct ThirtyDays {
    QTemporaryDir dir;
    std::atomic<double> now{double(startTime)};
    std::unique_ptr<HistoryStore> store;

    ThirtyDays()
    {
        store = HistoryStore::open(dir.path() + "/history.sqlite", HistoryStore::Access::writable,
                                   [this] { return now.load(); });
        for (std::int64_t ts = startTime; ts < startTime + thirtyDays; ++ts) {
            store->record(sample(ts), double(ts));
            if (ts % 300 == 299) {
                now = double(ts);
                store->flush();
            }
        }
        now = double(startTime + thirtyDays);
        store->flush();
    }

    static ThirtyDays& shared()
    {
        static ThirtyDays instance;
        return instance;
    }
};

} // namespace

static void BM_HistoryFlush30Rows(benchmark::State& state)
{
    QTemporaryDir dir;
    std::atomic<double> now{double(startTime)};
    auto store = HistoryStore::open(dir.path() + "/history.sqlite", HistoryStore::Access::writable,
                                    [&] { return now.load(); });
    std::int64_t ts = startTime;
    for (auto _ : state) {
        state.PauseTiming();
        for (int i = 0; i < 30; ++i, ++ts)
            store->record(sample(ts), double(ts));
        store->loadNow({}, HistoryRange::hour); // the rows are queued before the clock starts
        now = double(ts);
        state.ResumeTiming();
        store->flush();
    }
}
BENCHMARK(BM_HistoryFlush30Rows)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_HistoryLoadAllMetrics(benchmark::State& state)
{
    ThirtyDays& days = ThirtyDays::shared();
    const auto range = HistoryRange(state.range(0));
    const auto cases = allCases<HistoryMetric>();
    const std::vector<HistoryMetric> metrics(cases.begin(), cases.end());
    std::size_t points = 0;
    for (auto _ : state)
        points = days.store->loadNow(metrics, range).times.size();
    state.SetLabel(enumName(range).toStdString() + ", " + std::to_string(points) + " points");
}
BENCHMARK(BM_HistoryLoadAllMetrics)->DenseRange(0, 4)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_HistoryLoadOneMetric(benchmark::State& state)
{
    ThirtyDays& days = ThirtyDays::shared();
    const auto range = HistoryRange(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(days.store->loadNow({HistoryMetric::cpuUser}, range));
    state.SetLabel(enumName(range).toStdString());
}
BENCHMARK(BM_HistoryLoadOneMetric)->DenseRange(1, 4)->Unit(benchmark::kMillisecond)->UseRealTime();

// The tray app's open at start: schema, migration and the check of every page of a full file.
static void BM_HistoryOpenThirtyDayFile(benchmark::State& state)
{
    ThirtyDays& days = ThirtyDays::shared();
    const double now = days.now.load();
    for (auto _ : state)
        benchmark::DoNotOptimize(HistoryStore::open(days.store->path(), HistoryStore::Access::writable, [now] { return now; }));
}
BENCHMARK(BM_HistoryOpenThirtyDayFile)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_HistoryThirtyDayFileSize(benchmark::State& state)
{
    ThirtyDays& days = ThirtyDays::shared();
    for (auto _ : state)
        benchmark::DoNotOptimize(days.store->fileSize());
    state.counters["bytes"] = double(days.store->fileSize());
    state.counters["wal_bytes"] = double(QFileInfo(days.store->path() + "-wal").size());
}
BENCHMARK(BM_HistoryThirtyDayFileSize)->Iterations(1);
