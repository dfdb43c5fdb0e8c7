#include "core/keep_awake.h"

#include "core/clock.h"
#include "core/fmt.h"

#include <QDateTime>
#include <QTimeZone>

#include <algorithm>
#include <cmath>
#include <limits>

namespace pulsebar {

QString KeepAwake::label(Duration duration)
{
    switch (duration) {
    case Duration::minutes30: return QStringLiteral("30 minutes");
    case Duration::hour1: return QStringLiteral("1 hour");
    case Duration::hours2: return QStringLiteral("2 hours");
    case Duration::indefinitely: return QStringLiteral("Until turned off");
    }
    return {};
}

std::optional<double> KeepAwake::seconds(Duration duration)
{
    switch (duration) {
    case Duration::minutes30: return 1800;
    case Duration::hour1: return 3600;
    case Duration::hours2: return 7200;
    case Duration::indefinitely: return std::nullopt;
    }
    return std::nullopt;
}

KeepAwake::KeepAwake(std::unique_ptr<PowerAssertions> assertions)
    : now(systemClock()), m_assertions(std::move(assertions))
{
}

KeepAwake::~KeepAwake()
{
    stop(false);
}

void KeepAwake::activate(bool keepDisplayOn, Duration duration)
{
    const std::optional<double> length = seconds(duration);
    activate(keepDisplayOn, length ? std::optional<double>(now() + *length) : std::nullopt);
}

void KeepAwake::activate(bool keepDisplayOn, std::optional<double> until)
{
    stop(false);
    const std::optional<int> created = m_assertions->create(keepDisplayOn, assertionName);
    if (!created)
        return;
    assertion = created;
    isActive = true;
    keepsDisplayOn = keepDisplayOn;
    endDate = until;
    if (until) {
        m_timer = std::make_unique<QTimer>();
        m_timer->setSingleShot(true);
        m_timer->setTimerType(Qt::PreciseTimer);
        // QTimer counts in int milliseconds (24 days); the menu's longest choice is two hours.
        const double ms = std::clamp((*until - now()) * 1000.0, 0.0, double(std::numeric_limits<int>::max()));
        m_timer->setInterval(int(std::ceil(ms)));
        m_timer->callOnTimeout([this] { stop(true); });
        m_timer->start();
    }
    if (onChange)
        onChange();
}

void KeepAwake::stop(bool notify)
{
    m_timer.reset();
    if (isActive && assertion)
        m_assertions->release(*assertion);
    assertion.reset();
    isActive = false;
    endDate.reset();
    if (notify && onChange)
        onChange();
}

QString KeepAwake::statusText() const
{
    if (!isActive)
        return QStringLiteral("Off");
    if (!endDate)
        return QStringLiteral("Until turned off");
    return QStringLiteral("Until ") +
           Fmt::time(QDateTime::fromMSecsSinceEpoch(qint64(*endDate * 1000.0), Qt::UTC), QTimeZone::systemTimeZone());
}

} // namespace pulsebar
