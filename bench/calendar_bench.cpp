#include "calendar/calendar_events.h"
#include "calendar/ical_expansion.h"
#include "core/preferences.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

using namespace pulsebar;

namespace {

// A daily meeting at 09:00 Berlin time that began a year before the range. With `vtimezone` the zone
// comes from the item's own VTIMEZONE (as Google and Outlook export it), else from the zone database.
QByteArray dailyMeeting(bool vtimezone)
{
    QByteArray text = "BEGIN:VCALENDAR\r\nVERSION:2.0\r\n";
    if (vtimezone)
        text += "BEGIN:VTIMEZONE\r\nTZID:Europe/Berlin\r\nBEGIN:DAYLIGHT\r\nTZOFFSETFROM:+0100\r\nTZOFFSETTO:+0200\r\n"
                "DTSTART:19700329T020000\r\nRRULE:FREQ=YEARLY;BYMONTH=3;BYDAY=-1SU\r\nEND:DAYLIGHT\r\n"
                "BEGIN:STANDARD\r\nTZOFFSETFROM:+0200\r\nTZOFFSETTO:+0100\r\nDTSTART:19701025T030000\r\n"
                "RRULE:FREQ=YEARLY;BYMONTH=10;BYDAY=-1SU\r\nEND:STANDARD\r\nEND:VTIMEZONE\r\n";
    text += "BEGIN:VEVENT\r\nUID:daily@example.org\r\nSUMMARY:Daily\r\n"
            "DTSTART;TZID=Europe/Berlin:20250101T090000\r\nDTEND;TZID=Europe/Berlin:20250101T091500\r\n"
            "RRULE:FREQ=DAILY\r\nEXDATE;TZID=Europe/Berlin:20260105T090000\r\nEND:VEVENT\r\nEND:VCALENDAR\r\n";
    return text;
}

} // namespace

// Every instance of a daily meeting over a year's range.
static void BM_CalendarExpandDailyMeetingYear(benchmark::State& state)
{
    CalendarFeed feed;
    feed.info.id = QStringLiteral("bench");
    feed.items = {dailyMeeting(state.range(0) != 0)};
    const CalendarRange range{QDateTime(QDate(2026, 1, 1), QTime(0, 0)), QDateTime(QDate(2027, 1, 1), QTime(0, 0))};
    size_t events = 0;
    for (auto _ : state) {
        CalendarExpansion expansion = expandFeed(feed, range, {});
        events = expansion.events.size();
        benchmark::DoNotOptimize(expansion);
    }
    state.counters["events"] = double(events);
}
BENCHMARK(BM_CalendarExpandDailyMeetingYear)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// One refresh as the tick starts it, over a vdir folder of 1,000 one-event files spread over the three
// days shown: read, parse, expand, sort and publish on the main thread.
static void BM_CalendarRefresh1000Events(benchmark::State& state)
{
    QTemporaryDir dir;
    const QString folder = dir.path() + QStringLiteral("/calendar");
    QDir().mkpath(folder);
    const QDateTime start(QDate::currentDate(), QTime(8, 0));
    for (int i = 0; i < 1000; ++i) {
        const QDateTime at = start.addSecs(qint64(i) * 3 * 24 * 3600 / 1000).toUTC();
        QFile file(folder + QStringLiteral("/%1.ics").arg(i));
        if (!file.open(QIODevice::WriteOnly)) {
            state.SkipWithError("cannot write the calendar folder");
            return;
        }
        file.write(QStringLiteral("BEGIN:VCALENDAR\r\nVERSION:2.0\r\nBEGIN:VEVENT\r\nUID:%1@bench\r\nSUMMARY:Event %1\r\n"
                                  "LOCATION:Room %1, https://zoom.us/j/%1\r\nDTSTART:%2\r\nDTEND:%3\r\n"
                                  "END:VEVENT\r\nEND:VCALENDAR\r\n")
                       .arg(i)
                       .arg(at.toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'")),
                            at.addSecs(1800).toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'")))
                       .toUtf8());
    }
    Preferences preferences(dir.path() + QStringLiteral("/preferences.json"));
    CalendarSources sources;
    sources.folders = {folder};
    sources.save(preferences);
    CalendarEvents events(preferences, nullptr, dir.path() + QStringLiteral("/cache"));
    double clock = QDateTime::currentSecsSinceEpoch();
    events.now = [&] { return clock; };
    for (auto _ : state) {
        clock += CalendarEvents::refreshInterval;
        events.refreshIfNeeded(3, {});
        events.waitForFetch();
    }
    state.counters["events"] = double(events.state()->events.size());
}
BENCHMARK(BM_CalendarRefresh1000Events)->Unit(benchmark::kMillisecond)->UseRealTime();
