#include "core/app_settings.h"
#include "core/fmt.h"

#include <benchmark/benchmark.h>

using namespace pulsebar;

static void BM_ConfigRoundTrip(benchmark::State& state)
{
    const QJsonObject json = Config{}.toJson();
    for (auto _ : state)
        benchmark::DoNotOptimize(Config::fromJson(json));
}
BENCHMARK(BM_ConfigRoundTrip);

static void BM_FmtRateAndBytes(benchmark::State& state)
{
    double value = 1.0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Fmt::rate(value, true));
        benchmark::DoNotOptimize(Fmt::bytes(value, 1024));
        value = value * 1.7 + 3;
        if (value > 1e15)
            value = 1;
    }
}
BENCHMARK(BM_FmtRateAndBytes);
