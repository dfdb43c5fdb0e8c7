#include "sky/fuzzy_clock.h"

#include <array>
#include <cmath>

namespace pulsebar::FuzzyClock {

QString string(const QDateTime& date)
{
    static constexpr std::array<const char*, 12> hourWords{"twelve", "one", "two", "three", "four", "five",
                                                           "six", "seven", "eight", "nine", "ten", "eleven"};
    // Indexed by the rounded minute ÷ 5; 0 and 12 are the full hour.
    static constexpr std::array<const char*, 13> prefixes{
        "", "five past ", "ten past ", "quarter past ", "twenty past ", "twenty five past ", "half past ",
        "twenty five to ", "twenty to ", "quarter to ", "ten to ", "five to ", ""};

    const QTime time = date.time();
    int hour = time.hour();
    const int rounded = int(std::round(time.minute() / 5.0)) * 5; // std::round takes halves away from zero
    if (rounded >= 31)
        ++hour;
    const bool fullHour = rounded == 0 || rounded == 60;
    if (hour % 24 == 0 && fullHour)
        return QStringLiteral("midnight");
    const QString word = QString::fromLatin1(hourWords[std::size_t(hour % 12)]);
    if (fullHour)
        return word + QStringLiteral(" o'clock");
    return QString::fromLatin1(prefixes[std::size_t(rounded / 5)]) + word;
}

} // namespace pulsebar::FuzzyClock
