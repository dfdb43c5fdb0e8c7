#include "core/fmt.h"

#include "core/config.h"

#include <QLocale>
#include <QRegularExpression>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>

namespace pulsebar::Fmt {

QString percent(double value)
{
    Q_ASSERT(std::isfinite(value));
    return QString::number(std::llround(value)) + QLatin1Char('%');
}

QString bytes(double value, double base)
{
    static constexpr std::array<const char*, 6> units{"B", "KB", "MB", "GB", "TB", "PB"};
    std::size_t unit = 0;
    double scaled = value;
    while (std::fabs(scaled) >= base && unit + 1 < units.size()) {
        scaled /= base;
        ++unit;
    }
    const int decimals = unit > 0 && scaled < 100 ? 1 : 0;
    return number(scaled, decimals) + QLatin1Char(' ') + QLatin1String(units[unit]);
}

QString rate(double bytesPerSecond, bool bits)
{
    static constexpr std::array<const char*, 4> bitUnits{"b/s", "Kb/s", "Mb/s", "Gb/s"};
    static constexpr std::array<const char*, 4> byteUnits{"B/s", "KB/s", "MB/s", "GB/s"};
    const auto& units = bits ? bitUnits : byteUnits;
    const double step = bits ? 1000.0 : 1024.0;
    double scaled = bits ? bytesPerSecond * 8.0 : bytesPerSecond;
    std::size_t unit = 0;
    // Compared on the signed value: a rate is never negative.
    while (scaled >= step && unit + 1 < units.size()) {
        scaled /= step;
        ++unit;
    }
    const int decimals = unit == 0 || scaled >= 100 ? 0 : 1;
    return number(scaled, decimals) + QLatin1Char(' ') + QLatin1String(units[unit]);
}

QString number(double value, int decimals)
{
    // to_chars rounds the exact binary value as printf does, but never reads the process locale.
    char buffer[400];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed,
                                      decimals < 0 ? 0 : std::min(decimals, 60));
    if (result.ec != std::errc())
        return QString::number(value, 'f', decimals);
    QString text = QString::fromLatin1(buffer, result.ptr - buffer);
    // A small negative value rounds to zero, and zero has no sign: -0.3° reads "0°", not "-0°".
    const bool zero = std::none_of(text.begin(), text.end(), [](QChar c) { return c >= '1' && c <= '9'; });
    if (zero && text.startsWith(QLatin1Char('-')))
        text.remove(0, 1);
    return text;
}

QString wholeOrTenths(double value)
{
    return number(value, value == std::round(value) ? 0 : 1);
}

QString duration(double seconds)
{
    // Callers pass finite durations; anything else (or beyond a few thousand centuries) reads as
    // none rather than being cast out of range.
    constexpr double longest = 1e14;
    const auto s = std::isfinite(seconds) ? static_cast<int64_t>(std::clamp(seconds, -longest, longest)) : 0;
    const int64_t d = s / 86400;
    const int64_t h = (s % 86400) / 3600;
    const int64_t m = (s % 3600) / 60;
    if (s < 86400 && h == 0)
        return QStringLiteral("%1m").arg(m);
    if (s < 86400)
        return QStringLiteral("%1h %2m").arg(h).arg(m);
    return QStringLiteral("%1d %2h %3m").arg(d).arg(h).arg(m);
}

QString minutes(double seconds)
{
    const auto m = static_cast<int64_t>(seconds / 60);
    if (m < 60)
        return QString::number(std::max<int64_t>(m, 1)) + " min";
    if (m < 120)
        return "1 h " + QString::number(m - 60) + " min";
    return QString::number(m / 60) + " h";
}

QString hoursMinutes(int minutes)
{
    return QString::asprintf("%d:%02d", minutes / 60, minutes % 60);
}

QString temperature(TempUnit unit, std::optional<double> celsius, int decimals)
{
    if (!celsius)
        return QStringLiteral("—");
    switch (unit) {
    case TempUnit::celsius: return number(*celsius, decimals) + QStringLiteral("°");
    case TempUnit::fahrenheit: return number(*celsius * 9.0 / 5.0 + 32.0, decimals) + QStringLiteral("°");
    case TempUnit::kelvin: return number(*celsius + 273.15, decimals) + QStringLiteral(" K");
    }
    return {};
}

QString wind(WindUnit unit, double kmh)
{
    double value = kmh;
    const char* suffix = "km/h";
    switch (unit) {
    case WindUnit::kmh: break;
    case WindUnit::mph: value = kmh / 1.609344; suffix = "mph"; break;
    case WindUnit::ms: value = kmh / 3.6; suffix = "m/s"; break;
    case WindUnit::knots: value = kmh / 1.852; suffix = "kn"; break;
    }
    return QString::number(std::llround(value)) + QLatin1Char(' ') + QLatin1String(suffix);
}

namespace {

QString shortTimeFormat()
{
    // Some locales (C among them) put seconds into their short format; a clock in a tray has none.
    static const QRegularExpression seconds(QStringLiteral("[:.]?s{1,2}"));
    QString format = QLocale().timeFormat(QLocale::ShortFormat);
    format.remove(seconds);
    return format;
}

} // namespace

QString time(const std::optional<QDateTime>& date, const QTimeZone& timeZone)
{
    if (!date || !date->isValid())
        return QStringLiteral("—");
    return QLocale().toString(date->toTimeZone(timeZone).time(), shortTimeFormat());
}

QString dateTime(const std::optional<QDateTime>& date, const QTimeZone& timeZone)
{
    if (!date || !date->isValid())
        return QStringLiteral("—");
    const QDateTime local = date->toTimeZone(timeZone);
    return QLocale().toString(local.date(), QLocale::ShortFormat) + QLatin1Char(' ') + time(local, timeZone);
}

QString day(const QDate& date)
{
    return QLocale().toString(date, QStringLiteral("dddd d MMMM"));
}

QString month(const QDate& date)
{
    return QLocale().standaloneMonthName(date.month(), QLocale::LongFormat) + QLatin1Char(' ') +
           QString::number(date.year());
}

QString compass(double degrees)
{
    static constexpr std::array<const char*, 16> points{"N", "NNE", "NE", "ENE", "E", "ESE", "SE", "SSE",
                                                        "S", "SSW", "SW", "WSW", "W", "WNW", "NW", "NNW"};
    const double wrapped = std::fmod(std::fmod(degrees, 360.0) + 360.0, 360.0);
    return QString::fromLatin1(points[size_t(std::lround(wrapped / 22.5)) % points.size()]);
}

} // namespace pulsebar::Fmt
