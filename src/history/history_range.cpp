#include "history/history_range.h"

namespace pulsebar {

HistoryRangeShape historyRangeShape(HistoryRange range)
{
    // A few hundred points at most for any range: 360 for the hour, 288 for the day, 336 for the
    // week, 720 for the month.
    switch (range) {
    case HistoryRange::live:
    case HistoryRange::hour:
        return {3600, "raw", 10};
    case HistoryRange::day:
        return {86400, "m1", 300};
    case HistoryRange::week:
        return {604800, "m15", 1800};
    case HistoryRange::month:
        return {2592000, "m15", 3600};
    }
    return {3600, "raw", 10};
}

} // namespace pulsebar
