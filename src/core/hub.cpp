#include "core/hub.h"

#include <QDateTime>

namespace pulsebar {

Hub::Hub(AppSettings& settings, QObject* parent)
    : QObject(parent), m_settings(settings),
      now([] { return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0; })
{
    network.now = [this] { return now(); };
}

Hub::~Hub() = default;

void Hub::start()
{
    history = HistoryStore::openDefault(HistoryStore::Access::writable);
    m_isRecording = history != nullptr;
    startCommon();
}

void Hub::startHeadless()
{
    m_isHeadless = true;
    history = HistoryStore::openDefault(HistoryStore::Access::readOnly);
    startCommon();
}

void Hub::startCommon()
{
    tick();
    reschedule();
}

void Hub::reschedule()
{
    // Deleting the old timer also drops any timeout it has already queued.
    m_timer.reset();
    auto timer = std::make_unique<QTimer>();
    timer->setTimerType(Qt::CoarseTimer); // lets the system coalesce wake-ups
    timer->setInterval(std::max(1, int(m_settings.config().updateInterval * 1000.0)));
    connect(timer.get(), &QTimer::timeout, this, &Hub::tick);
    timer->start();
    m_timer = std::move(timer);
}

void Hub::tick()
{
    if (m_inTick)
        return;
    m_inTick = true;
    const Config config = m_settings.config();
    const double time = now();
    Q_UNUSED(config);

    // 1. cpu, memory, processes, gpu
    // 2. disk activity, and the volume list when older than 10 s or empty
    network.pingHost = config.pingHost;
    network.sample();
    // 4. sensors, battery
    // 5. devices (every 60 s), calendar, weather and sky when an item shows them
    // 6. rules (not headless), insights

    if (m_isRecording)
        recordHistory(time);

    ++m_tickCount;
    m_inTick = false;
    Q_EMIT changed();
    if (onTick)
        onTick();
}

void Hub::recordHistory(double time)
{
    if (history)
        history->record(historyValues(), time);
}

HistoryValues Hub::historyValues() const
{
    HistoryValues values;
    values[HistoryMetric::download] = network.download;
    values[HistoryMetric::upload] = network.upload;
    if (const std::optional<double> temperature = menubarTemperature())
        values[HistoryMetric::temperature] = *temperature;
    return values;
}

std::optional<double> Hub::menubarTemperature() const
{
    return std::nullopt;
}

void Hub::configChanged(const Config& oldConfig, const Config& newConfig)
{
    if (oldConfig.updateInterval != newConfig.updateInterval && m_timer)
        reschedule();
}

} // namespace pulsebar
