#include "dump/sample_states.h"

#include <algorithm>
#include <cmath>

namespace pulsebar {

namespace {

constexpr double sampleTime = 1773481260; // 2026-03-14 09:41 UTC

// A trail of `count` values around `level`, wobbling so the graphs look like a live machine.
std::vector<double> trail(double level, double swing, int count = 120)
{
    std::vector<double> out;
    for (int i = 0; i < count; ++i)
        out.push_back(std::max(0.0, level + swing * std::sin(i * 0.9) * std::cos(i * 0.37)));
    return out;
}

// Two devices: a trusted iPhone charging over USB, and an iPad on Wi-Fi that does not trust this computer.
std::vector<ConnectedDevice> devices()
{
    ConnectedDevice phone;
    phone.id = QStringLiteral("00008120-001A2C3E0E91801E");
    phone.trusted = true;
    phone.name = QStringLiteral("Mira's iPhone");
    phone.productType = QStringLiteral("iPhone16,1");
    phone.deviceClass = QStringLiteral("iPhone");
    phone.osVersion = QStringLiteral("18.1");
    phone.batteryLevel = 76;
    phone.isCharging = true;
    phone.fullyCharged = false;
    phone.storageTotal = 256'000'000'000;
    phone.storageFree = 61'400'000'000;
    phone.battery = DeviceBattery{.cycleCount = 412, .designCapacity = 3274, .maxCapacity = 2914,
                                  .currentCharge = 2215, .temperature = 31.5, .voltage = 4.312};
    ConnectedDevice tablet;
    tablet.id = QStringLiteral("00008103-000D39A21E38001E");
    tablet.connection = Connection::wifi;
    return {tablet, phone}; // sorted by name, as the monitor publishes them
}

HubSnapshot idle()
{
    HubSnapshot r;
    r.time = sampleTime;
    r.cpuUser = 3;
    r.cpuSystem = 2;
    r.cpuHistory = trail(5, 3);
    r.gpuUtilization = 2;
    r.gpuHistory = trail(2, 2);
    r.memoryPressure = 22;
    r.memoryPressureLevel = MemoryPressureLevel::normal;
    r.memoryUsed = 38;
    r.startupVolume = LiveVolume{100, 59};
    r.internetReachable = true;
    r.upload = 1200;
    r.download = 5400;
    r.uploadHistory = trail(1200, 900);
    r.downloadHistory = trail(5400, 4000);
    r.menubarTemperature = 41;
    r.sensorsReady = true;
    r.batteryPresent = true;
    r.batteryPercent = 84;
    r.connectedDevices = devices();
    return r;
}

HubSnapshot busy()
{
    HubSnapshot r = idle();
    r.cpuUser = 71;
    r.cpuSystem = 17;
    r.cpuHistory = trail(80, 18);
    r.gpuUtilization = 64;
    r.gpuHistory = trail(60, 30);
    r.memoryPressure = 58;
    r.memoryPressureLevel = MemoryPressureLevel::warning;
    r.memoryUsed = 81;
    r.upload = 2.4e6;
    r.download = 38.5e6;
    r.uploadHistory = trail(2.4e6, 1.5e6);
    r.downloadHistory = trail(38.5e6, 20e6);
    r.menubarTemperature = 78;
    r.fastestFanRpm = 3400;
    r.batteryPercent = 62;
    return r;
}

HubSnapshot hot()
{
    HubSnapshot r = busy();
    r.cpuUser = 92;
    r.cpuSystem = 7;
    r.cpuHistory = trail(96, 4);
    r.memoryPressure = 91;
    r.memoryPressureLevel = MemoryPressureLevel::critical;
    r.menubarTemperature = 99;
    r.fastestFanRpm = 6800;
    return r;
}

constexpr double midsummer = 1782043200; // 2026-06-21 12:00 UTC

// A 14-day report for the place, fetched ten minutes before the state's time, with the place's real
// sunrise and sunset.
WeatherReport sampleReport(const WeatherLocation& place, int code, bool isDay, double celsius, double now)
{
    WeatherReport r;
    r.location = place;
    r.timeZone = sampleTimeZone();
    r.fetched = now - 600;
    r.current = {celsius, celsius - 1.6, 71, celsius - 5.1, 14.8, 225, 31.3, 1012.6, 18500, isDay ? 3.0 : 0.0,
                 code >= 51 ? 0.4 : 0.0, code <= 1 ? 10.0 : 85.0, code, isDay};
    const QDate first = QDateTime::fromMSecsSinceEpoch(qint64(now * 1000), r.timeZone).date();
    const int codes[] = {2, 61, 0, 3, 45, 80, 95, 71, 1, 3, 63, 0, 2, 51};
    for (int i = 0; i < 14; ++i) {
        WeatherDay d;
        d.date = first.addDays(i);
        d.code = i == 0 ? code : codes[i];
        d.high = celsius + 3 + 3 * std::sin(i * 0.8);
        d.low = celsius - 6 + 2 * std::cos(i * 0.6);
        if (i != 8) // the service has days without a chance of rain
            d.precipitationChance = (i * 37) % 100;
        d.precipitationSum = *d.code >= 51 ? 0.8 + i * 0.7 : 0;
        const double noon = double(QDateTime(d.date, QTime(12, 0), r.timeZone).toMSecsSinceEpoch()) / 1000;
        const SunCalc::SunTimes sun = SunCalc::sunTimes(noon, place.latitude, place.longitude);
        d.sunrise = sun.event(QStringLiteral("sunrise"));
        d.sunset = sun.event(QStringLiteral("sunset"));
        r.days.push_back(d);
    }
    return r;
}

// The tray's weather and sun items read what the panels read.
void trayReadings(SampleState& state)
{
    HubSnapshot& r = state.readings;
    r.weather.reset();
    if (const auto& report = state.weather.report)
        r.weather = HubSnapshot::Weather{report->current.symbol(), report->current.temperature,
                                          report->current.description()};
    r.nextSunEvent.reset();
    if (state.place)
        if (const auto next = AstronomyMonitor::compute(*state.place, r.time, sampleTimeZone()).nextSunEvent(r.time))
            r.nextSunEvent = HubSnapshot::SunEvent{next->isSunrise, next->time};
}

void withReport(SampleState& state, const WeatherLocation& place, int code, bool isDay, double celsius)
{
    state.place = place;
    state.weather = {sampleReport(place, code, isDay, celsius, state.readings.time), std::nullopt, false, true};
    trayReadings(state);
}

void withoutReport(SampleState& state, const std::optional<WeatherLocation>& place, bool loading,
                   const std::optional<QString>& error)
{
    state.place = place;
    state.weather = {std::nullopt, error, loading, place.has_value()};
    trayReadings(state);
}

CalendarInfo calendarInfo(const char* id, const char* title, const char* source, const char* color)
{
    return {QString::fromLatin1(id), QString::fromUtf8(title), QString::fromUtf8(source), QColor(QLatin1String(color))};
}

CalendarEvent calendarEvent(const CalendarInfo& calendar, const char* title, const QDateTime& start, int minutes,
                            const char* location = nullptr, const char* meeting = nullptr)
{
    CalendarEvent e;
    e.id = calendar.id + QLatin1Char('-') + QString::number(start.toSecsSinceEpoch());
    e.title = QString::fromUtf8(title);
    e.start = start;
    e.end = start.addSecs(minutes * 60);
    if (location)
        e.location = QString::fromUtf8(location);
    e.calendarID = calendar.id;
    e.calendarTitle = calendar.title;
    e.color = calendar.color;
    if (meeting)
        e.meetingURL = QUrl(QString::fromLatin1(meeting));
    e.openURL = QUrl(QStringLiteral("https://calendar.example.org/event/") + e.id);
    return e;
}

} // namespace

std::shared_ptr<const CalendarState> sampleCalendar(SampleDay day, double now)
{
    auto state = std::make_shared<CalendarState>();
    state->access = CalendarAccess::granted;
    const CalendarInfo work = calendarInfo("work", "Work", "Google (mira@example.com)", "#3b82f6");
    const CalendarInfo home = calendarInfo("home", "Home", "Nextcloud", "#22a06b");
    const CalendarInfo holidays = calendarInfo("holidays", "Holidays in Germany", "webcal://calendars.example.org/de.ics",
                                               "#e5484d");
    const CalendarInfo personal = calendarInfo("personal", "Personal", "On this computer", "#a855f7");
    state->calendars = {work, home, personal, holidays};
    if (day == SampleDay::empty)
        return state;

    const QDateTime local = QDateTime::fromMSecsSinceEpoch(qint64(now * 1000), QTimeZone::utc()).toTimeZone(sampleTimeZone());
    const QDate today = local.date();
    const auto at = [&](int dayOffset, int hour, int minute) {
        return QDateTime(today.addDays(dayOffset), QTime(hour, minute), sampleTimeZone());
    };
    // The quarter hour the state's time falls in: the meeting under way started there.
    const QDateTime quarter(today, QTime(local.time().hour(), local.time().minute() / 15 * 15), sampleTimeZone());
    std::vector<CalendarEvent>& events = state->events;
    if (day == SampleDay::over) {
        events.push_back(calendarEvent(work, "Stand-up", quarter.addSecs(-3 * 3600), 15, nullptr,
                                       "https://meet.google.com/abc-defg-hij"));
        events.push_back(calendarEvent(home, "Piano lesson", at(1, 17, 30), 45, "Musikschule Mitte"));
        return state;
    }
    CalendarEvent piDay = calendarEvent(holidays, "Pi Day", QDateTime(today, QTime(0, 0), QTimeZone::utc()), 24 * 60);
    piDay.isAllDay = true;
    events.push_back(piDay);
    events.push_back(calendarEvent(work, "Stand-up", quarter.addSecs(-2 * 3600), 15));
    events.push_back(calendarEvent(work, "Design review: tray panels", quarter, 45,
                                   "https://meet.google.com/abc-defg-hij", "https://meet.google.com/abc-defg-hij"));
    events.push_back(calendarEvent(home, "Coffee with Sam", quarter.addSecs(90 * 60), 45,
                                   "Café Einstein, Kurfürstenstraße 58"));
    events.push_back(calendarEvent(work, "1:1 with Priya", quarter.addSecs(3 * 3600 + 30 * 60), 30, nullptr,
                                   "https://us02web.zoom.us/j/81234567890"));
    CalendarEvent trip = calendarEvent(personal, "Lisbon", QDateTime(today.addDays(1), QTime(0, 0), QTimeZone::utc()),
                                       3 * 24 * 60, "Lisbon, Portugal");
    trip.isAllDay = true;
    events.push_back(trip);
    events.push_back(calendarEvent(personal, "Flight TP 535 to Lisbon", at(1, 7, 10), 175, "BER Terminal 1"));
    events.push_back(calendarEvent(work, "Quarterly planning", at(2, 10, 0), 90, "Room Spree, 4th floor",
                                   "https://teams.microsoft.com/l/meetup-join/19%3ameeting"));
    std::stable_sort(events.begin(), events.end(), [](const CalendarEvent& a, const CalendarEvent& b) {
        return a.start != b.start ? a.start < b.start : a.isAllDay && !b.isAllDay;
    });
    return state;
}

std::vector<SampleState> sampleStates()
{
    std::vector<SampleState> out;
    out.push_back({QStringLiteral("idle"), idle()});
    out.push_back({QStringLiteral("busy"), busy()});
    out.push_back({QStringLiteral("hot"), hot()});

    HubSnapshot charging = idle();
    charging.batteryPercent = 10;
    charging.batteryCharging = true;
    out.push_back({QStringLiteral("charging"), charging});

    HubSnapshot noBattery = busy();
    noBattery.batteryPresent = false;
    noBattery.batteryPercent = 0;
    noBattery.connectedDevices.clear(); // the devices panel with nothing attached
    out.push_back({QStringLiteral("no-battery"), noBattery});

    HubSnapshot offline = idle();
    offline.internetReachable = false;
    offline.upload = offline.download = 0;
    offline.uploadHistory = offline.downloadHistory = std::vector<double>(120, 0.0);
    out.push_back({QStringLiteral("offline"), offline});

    out.push_back({QStringLiteral("monochrome"), busy(), true, false});

    out.push_back({QStringLiteral("dark"), busy(), false, true});
    out.push_back({QStringLiteral("light"), busy(), false, false});

    // Weather, sun and moon: a report by day and by night, an unknown code, the states before a report,
    // and the midnight sun of a polar summer (the hot state is a June day in Tromsø).
    const WeatherLocation berlin{QStringLiteral("Berlin, Land Berlin, Germany"), 52.52437, 13.41053};
    const WeatherLocation tromso{QStringLiteral("Tromsø, Troms, Norway"), 69.6492, 18.9553};
    const auto state = [&out](const char* name) -> SampleState& {
        return *std::find_if(out.begin(), out.end(), [name](const SampleState& s) { return s.name == name; });
    };
    withReport(state("idle"), berlin, 2, true, 17);
    withReport(state("busy"), berlin, 61, true, 9);
    state("hot").readings.time = midsummer;
    withReport(state("hot"), tromso, 0, true, 27);
    withoutReport(state("charging"), berlin, true, std::nullopt);
    withReport(state("no-battery"), berlin, 4, true, 9);
    withoutReport(state("offline"), std::nullopt, false,
                  QStringLiteral("Cannot reach the location service: Host ipapi.co not found."));
    withoutReport(state("monochrome"), std::nullopt, false, std::nullopt);
    state("dark").readings.time = sampleTime + 11.5 * 3600;
    withReport(state("dark"), berlin, 0, false, 6);
    withReport(state("light"), berlin, 61, true, 9);
    // Calendars: a busy day on most states, a quiet one when idle, the day's events over while
    // charging; no calendar found offline, and none readable on the monochrome state.
    for (SampleState& one : out)
        one.calendar = sampleCalendar(SampleDay::busy, one.readings.time);
    state("idle").calendar = sampleCalendar(SampleDay::empty, state("idle").readings.time);
    state("charging").calendar = sampleCalendar(SampleDay::over, state("charging").readings.time);
    state("offline").calendar = std::make_shared<const CalendarState>();
    auto unreadable = std::make_shared<CalendarState>();
    unreadable->access = CalendarAccess::denied;
    state("monochrome").calendar = unreadable;
    return out;
}

QTimeZone sampleTimeZone()
{
    return QTimeZone("Europe/Berlin");
}

} // namespace pulsebar
