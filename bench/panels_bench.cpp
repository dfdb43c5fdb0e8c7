// The panels: opening one, redrawing it after a tick, and drawing a 30-day graph of 720 points with our
// QPainter graph and with Qt Charts (the comparison behind choosing our own widget).
#include "dump/sample_panels.h"
#include "dump/sample_states.h"
#include "hub/hub.h"
#include "core/preferences.h"
#include "panels/history_graph.h"
#include "panels/panel_host.h"
#include "panels/panel_view.h"

#include <QApplication>
#ifdef PULSEBAR_HAVE_QT_CHARTS
#include <QAreaSeries>
#include <QChart>
#include <QChartView>
#include <QDateTimeAxis>
#include <QLineSeries>
#include <QValueAxis>
#endif
#include <QFile>
#include <QPainter>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

using namespace pulsebar;

namespace {

SampleState busyState()
{
    for (const SampleState& state : sampleStates())
        if (state.name == QLatin1String("busy"))
            return state;
    return sampleStates().front();
}

HistoryGraph::Loader sampleLoader(const SampleState& state)
{
    return [state](std::vector<HistoryMetric> metrics, HistoryRange range, QObject*,
                   std::function<void(HistorySeries)> done) { done(sampleHistory(state, metrics, range)); };
}

struct Fixture {
    QTemporaryDir dir;
    Preferences preferences{dir.path() + "/preferences.json"};
    AppSettings settings{preferences};
    Hub hub{settings, systemReaders()};
    PanelHost host{hub, settings};
    SampleState state = busyState();
    Fixture()
    {
        const PanelSnapshot snapshot = samplePanelSnapshot(state);
        host.snapshot = [snapshot] { return snapshot; };
        host.loader = sampleLoader(state);
    }
};

// Resident memory of this process, for the memory figures.
double residentMegabytes()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toDouble() / 1024.0;
    return 0;
}

void BM_PanelOpen(benchmark::State& state)
{
    Fixture f;
    f.host.toggle(ModuleKind::cpu, QRect(600, 0, 24, 24)); // the window is made once per process
    f.host.close();
    for (auto _ : state) {
        f.host.toggle(ModuleKind::cpu, QRect(600, 0, 24, 24));
        f.host.window()->repaint();
        f.host.close();
    }
}
BENCHMARK(BM_PanelOpen)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_PanelFirstOpen(benchmark::State& state)
{
    for (auto _ : state) {
        Fixture f;
        f.host.toggle(ModuleKind::cpu, QRect(600, 0, 24, 24));
        f.host.window()->repaint();
    }
}
BENCHMARK(BM_PanelFirstOpen)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_PanelRedrawPerTick(benchmark::State& state)
{
    Fixture f;
    const ModuleKind kind = ModuleKind(state.range(0));
    f.host.toggle(kind, QRect(600, 0, 24, 24));
    for (auto _ : state) {
        f.host.refresh();
        f.host.window()->repaint();
    }
    f.host.close();
}
BENCHMARK(BM_PanelRedrawPerTick)
    ->Arg(int(ModuleKind::combined))->Arg(int(ModuleKind::cpu))->Arg(int(ModuleKind::network))
    ->Arg(int(ModuleKind::weather))->Arg(int(ModuleKind::astronomy))
    ->Unit(benchmark::kMillisecond)->UseRealTime();

const HistoryChart monthChart{QStringLiteral("CPU"), {HistoryMetric::cpuUser, HistoryMetric::cpuSystem},
                              GraphUnit::percent, true};

void BM_GraphDraw720OwnPainter(benchmark::State& state)
{
    const SampleState sample = busyState();
    HistoryGraph graph(sampleLoader(sample), nullptr);
    graph.setRange(HistoryRange::month);
    graph.setCharts({monthChart}, sample.readings.time, Config{});
    graph.resize(graph.sizeHint());
    QImage image(graph.size() * 2, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(2);
    for (auto _ : state) {
        QPainter painter(&image);
        graph.render(&painter);
    }
    state.counters["points"] = double(graph.series().times.size());
}
BENCHMARK(BM_GraphDraw720OwnPainter)->Unit(benchmark::kMillisecond)->UseRealTime();

#ifdef PULSEBAR_HAVE_QT_CHARTS
// The same chart in Qt Charts: two stacked areas over a date axis and a value axis.
std::unique_ptr<QChartView> chartsView(const HistorySeries& series)
{
    auto* chart = new QChart;
    auto* lowerLine = new QLineSeries;
    auto* upperLine = new QLineSeries;
    const auto& user = series.values.at(HistoryMetric::cpuUser);
    const auto& system = series.values.at(HistoryMetric::cpuSystem);
    for (size_t i = 0; i < series.times.size(); ++i) {
        const double ms = series.times[i] * 1000.0;
        lowerLine->append(ms, user[i].value_or(0));
        upperLine->append(ms, user[i].value_or(0) + system[i].value_or(0));
    }
    auto* userArea = new QAreaSeries(lowerLine);
    auto* systemArea = new QAreaSeries(upperLine, lowerLine);
    chart->addSeries(userArea);
    chart->addSeries(systemArea);
    auto* time = new QDateTimeAxis;
    time->setFormat(QStringLiteral("d MMM"));
    auto* values = new QValueAxis;
    values->setRange(0, 100);
    chart->addAxis(time, Qt::AlignBottom);
    chart->addAxis(values, Qt::AlignLeft);
    for (QAreaSeries* area : {userArea, systemArea}) {
        area->attachAxis(time);
        area->attachAxis(values);
    }
    chart->legend()->hide();
    auto view = std::make_unique<QChartView>(chart);
    view->setRenderHint(QPainter::Antialiasing);
    view->resize(340, 120);
    return view;
}

void BM_GraphDraw720QtCharts(benchmark::State& state)
{
    const SampleState sample = busyState();
    const HistorySeries series = sampleHistory(sample, monthChart.metrics, HistoryRange::month);
    auto view = chartsView(series);
    QImage image(view->size() * 2, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(2);
    for (auto _ : state) {
        QPainter painter(&image);
        view->render(&painter);
    }
    state.counters["points"] = double(series.times.size());
}
BENCHMARK(BM_GraphDraw720QtCharts)->Unit(benchmark::kMillisecond)->UseRealTime();
#endif

// Memory: what an open panel adds to the process, with our widgets and with one Qt Charts view instead
// of each history chart.
void BM_MemoryPanelOpen(benchmark::State& state)
{
    for (auto _ : state) {
        const double before = residentMegabytes();
        Fixture f;
        f.host.toggle(ModuleKind::cpu, QRect(600, 0, 24, 24));
        f.host.window()->repaint();
        state.counters["added_MB"] = residentMegabytes() - before;
        state.counters["process_MB"] = residentMegabytes();
    }
}
BENCHMARK(BM_MemoryPanelOpen)->Iterations(1);

#ifdef PULSEBAR_HAVE_QT_CHARTS
void BM_MemoryQtChartsView(benchmark::State& state)
{
    for (auto _ : state) {
        const double before = residentMegabytes();
        const SampleState sample = busyState();
        auto view = chartsView(sampleHistory(sample, monthChart.metrics, HistoryRange::month));
        view->show();
        view->repaint();
        state.counters["added_MB"] = residentMegabytes() - before;
    }
}
BENCHMARK(BM_MemoryQtChartsView)->Iterations(1);
#endif

} // namespace
