#include "calendar/ical_expansion.h"

#include "calendar/meeting_link.h"

#include <libical/ical.h>

#include <QHash>
#include <QTimeZone>
#include <QUuid>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>

namespace pulsebar {

namespace {

// A rule that would need more steps than this to reach the range (every minute since years ago) stops
// here: the event then shows no occurrences rather than stalling the worker.
constexpr int maxIterations = 200000;
constexpr qint64 secondsPerDay = 86400;

struct FreeComponent {
    void operator()(icalcomponent* component) const { icalcomponent_free(component); }
};
using Component = std::unique_ptr<icalcomponent, FreeComponent>;

// How the wall-clock values of one time property become instants.
struct Zone {
    enum class Kind { local, utc, defined, named };
    Kind kind = Kind::local;
    icaltimezone* defined = nullptr; // a VTIMEZONE of the feed
    QTimeZone named;                 // a zone of the system's database
};

Zone utcZone()
{
    Zone zone;
    zone.kind = Zone::Kind::utc;
    return zone;
}

QDate dateOf(const icaltimetype& t)
{
    return QDate(t.year, t.month, t.day);
}

QDateTime instantOf(icaltimetype t, const Zone& zone)
{
    const QDate date = dateOf(t);
    if (t.is_date)
        return QDateTime(date, QTime(0, 0));
    const QTime time(t.hour, t.minute, std::min(t.second, 59));
    switch (zone.kind) {
    case Zone::Kind::utc: return QDateTime(date, time, QTimeZone::utc()).toLocalTime();
    case Zone::Kind::defined:
        t.zone = nullptr;
        return QDateTime::fromSecsSinceEpoch(icaltime_as_timet_with_zone(t, zone.defined));
    case Zone::Kind::named: return QDateTime(date, time, zone.named).toLocalTime();
    case Zone::Kind::local: break;
    }
    return QDateTime(date, time);
}

// The wall-clock time of an instant in the zone, as a floating value.
icaltimetype wallTimeOf(const QDateTime& instant, const Zone& zone)
{
    if (zone.kind == Zone::Kind::defined) {
        icaltimetype t = icaltime_from_timet_with_zone(instant.toSecsSinceEpoch(), 0, zone.defined);
        t.zone = nullptr;
        return t;
    }
    QDateTime wall = instant;
    if (zone.kind == Zone::Kind::utc)
        wall = instant.toUTC();
    else if (zone.kind == Zone::Kind::named)
        wall = instant.toTimeZone(zone.named);
    else
        wall = instant.toLocalTime();
    icaltimetype t = icaltime_null_time();
    t.year = wall.date().year();
    t.month = wall.date().month();
    t.day = wall.date().day();
    t.hour = wall.time().hour();
    t.minute = wall.time().minute();
    t.second = wall.time().second();
    return t;
}

// Identifies one instance of a recurring event: the instant of a timed one, the day of an all-day one
// (negative, so the two never meet).
qint64 instanceKey(const QDateTime& start, bool allDay)
{
    return allDay ? -start.date().toJulianDay() : start.toSecsSinceEpoch();
}

// Every TZID of a feed, resolved once: the feed's own VTIMEZONE definitions first, then the system's
// zone database under that name (or the IANA name at its end, as in "/mozilla.org/…/Europe/Berlin", or
// the IANA zone of a Windows zone name), else local time.
class ZoneTable {
public:
    explicit ZoneTable(const std::vector<icalcomponent*>& calendars) : m_calendars(calendars) {}

    Zone resolve(const char* tzid)
    {
        const QByteArray key(tzid);
        const auto known = m_zones.constFind(key);
        if (known != m_zones.constEnd())
            return *known;
        Zone zone = lookUp(key);
        m_zones.insert(key, zone);
        return zone;
    }

private:
    Zone lookUp(const QByteArray& tzid) const
    {
        Zone zone;
        for (icalcomponent* calendar : m_calendars) {
            if (icaltimezone* defined = icalcomponent_get_timezone(calendar, tzid.constData())) {
                zone.kind = Zone::Kind::defined;
                zone.defined = defined;
                return zone;
            }
        }
        QByteArrayList candidates{tzid, QTimeZone::windowsIdToDefaultIanaId(tzid)};
        for (qsizetype slash = tzid.indexOf('/'); slash >= 0; slash = tzid.indexOf('/', slash + 1))
            candidates.append(tzid.mid(slash + 1));
        for (const QByteArray& candidate : candidates) {
            if (!candidate.isEmpty() && QTimeZone::isTimeZoneIdAvailable(candidate)) {
                zone.kind = Zone::Kind::named;
                zone.named = QTimeZone(candidate);
                return zone;
            }
        }
        return zone; // unknown: local time
    }

    const std::vector<icalcomponent*>& m_calendars;
    QHash<QByteArray, Zone> m_zones;
};

// A time property's value with the zone it is written in. A floating value inside a zoned event (an
// EXDATE or RECURRENCE-ID written without TZID) takes the event's zone.
struct TimeValue {
    icaltimetype wall = icaltime_null_time();
    Zone zone;
    bool valid() const { return !icaltime_is_null_time(wall); }
    QDateTime instant() const { return instantOf(wall, zone); }
};

TimeValue timeValue(icalproperty* property, icaltimetype wall, ZoneTable& zones, const Zone* inherited)
{
    TimeValue value;
    if (icaltime_is_null_time(wall) || !icaltime_is_valid_time(wall))
        return value;
    value.wall = wall;
    if (wall.is_date)
        return value;
    if (icaltime_is_utc(wall))
        value.zone.kind = Zone::Kind::utc;
    else if (icalparameter* tzid = icalproperty_get_first_parameter(property, ICAL_TZID_PARAMETER))
        value.zone = zones.resolve(icalparameter_get_tzid(tzid));
    else if (inherited)
        value.zone = *inherited;
    return value;
}

// A text property with its escapes undone, trimmed; empty when absent.
QString textOf(icalcomponent* component, icalproperty_kind kind)
{
    icalproperty* property = icalcomponent_get_first_property(component, kind);
    if (!property)
        return {};
    const icalvalue* value = icalproperty_get_value(property);
    const char* text = icalvalue_isa(value) == ICAL_TEXT_VALUE ? icalvalue_get_text(value)
                                                                : icalproperty_get_value_as_string(property);
    return QString::fromUtf8(text ? text : "").trimmed();
}

// One VEVENT as read: its start, length and identity, the component kept for its texts.
struct EventRecord {
    icalcomponent* component = nullptr;
    QString uid;
    TimeValue start;
    bool allDay = false;
    qint64 lengthSeconds = 0; // timed events
    int lengthDays = 1;       // all-day events
    std::optional<qint64> recurrenceKey;
    QDateTime recurrenceInstant;
    bool thisAndFuture = false;
};

void readLength(EventRecord& event, ZoneTable& zones)
{
    icalcomponent* c = event.component;
    const QDateTime start = event.start.instant();
    if (icalproperty* endProperty = icalcomponent_get_first_property(c, ICAL_DTEND_PROPERTY)) {
        const TimeValue end = timeValue(endProperty, icalproperty_get_dtend(endProperty), zones, &event.start.zone);
        if (end.valid()) {
            if (event.allDay)
                event.lengthDays = std::max<qint64>(1, dateOf(event.start.wall).daysTo(dateOf(end.wall)));
            else
                event.lengthSeconds = std::max<qint64>(0, start.secsTo(end.instant()));
            return;
        }
    }
    if (icalproperty* durationProperty = icalcomponent_get_first_property(c, ICAL_DURATION_PROPERTY)) {
        const int seconds = icaldurationtype_as_int(icalproperty_get_duration(durationProperty));
        if (event.allDay)
            event.lengthDays = std::max(1, seconds / int(secondsPerDay));
        else
            event.lengthSeconds = std::max(0, seconds);
    }
}

std::optional<EventRecord> readEvent(icalcomponent* component, ZoneTable& zones)
{
    EventRecord event;
    event.component = component;
    icalproperty* startProperty = icalcomponent_get_first_property(component, ICAL_DTSTART_PROPERTY);
    if (!startProperty)
        return std::nullopt;
    event.start = timeValue(startProperty, icalproperty_get_dtstart(startProperty), zones, nullptr);
    if (!event.start.valid())
        return std::nullopt;
    event.allDay = event.start.wall.is_date;
    event.uid = QString::fromUtf8(icalcomponent_get_uid(component)).trimmed();
    readLength(event, zones);
    if (icalproperty* rid = icalcomponent_get_first_property(component, ICAL_RECURRENCEID_PROPERTY)) {
        const TimeValue value = timeValue(rid, icalproperty_get_recurrenceid(rid), zones, &event.start.zone);
        if (value.valid()) {
            event.recurrenceInstant = value.instant();
            event.recurrenceKey = instanceKey(event.recurrenceInstant, value.wall.is_date);
            icalparameter* range = icalproperty_get_first_parameter(rid, ICAL_RANGE_PARAMETER);
            event.thisAndFuture = range && icalparameter_get_range(range) == ICAL_RANGE_THISANDFUTURE;
        }
    }
    return event;
}

bool isRecurring(icalcomponent* component)
{
    return icalcomponent_get_first_property(component, ICAL_RRULE_PROPERTY)
           || icalcomponent_get_first_property(component, ICAL_RDATE_PROPERTY);
}

// The starts of a master event's instances that can overlap [from, to): DTSTART itself, every RRULE
// and RDATE instance, minus the EXDATEs. Rules are stepped in the event's own wall-clock time, so a
// weekly 9:00 meeting stays at 9:00 across a change to or from summer time.
std::vector<QDateTime> instanceStarts(const EventRecord& master, const QDateTime& from, const QDateTime& to,
                                      ZoneTable& zones)
{
    icalcomponent* c = master.component;
    std::map<qint64, QDateTime> starts;
    auto add = [&](const QDateTime& start) { starts.emplace(instanceKey(start, master.allDay), start); };
    add(master.start.instant());

    for (icalproperty* p = icalcomponent_get_first_property(c, ICAL_RRULE_PROPERTY); p;
         p = icalcomponent_get_next_property(c, ICAL_RRULE_PROPERTY)) {
        icalrecurrencetype rule = icalproperty_get_rrule(p);
        if (rule.freq == ICAL_NO_RECURRENCE)
            continue;
        // UNTIL is written in UTC for a zoned start: compare it in the event's wall-clock time.
        if (!icaltime_is_null_time(rule.until)) {
            if (master.allDay)
                rule.until.is_date = 1;
            else if (icaltime_is_utc(rule.until))
                rule.until = wallTimeOf(instantOf(rule.until, utcZone()), master.start.zone);
            rule.until.zone = nullptr;
        }
        icaltimetype first = master.start.wall;
        first.zone = nullptr;
        icalrecur_iterator* iterator = icalrecur_iterator_new(rule, first);
        if (!iterator)
            continue;
        // Instances are compared in wall-clock time, which is cheap, and only those near the range are
        // turned into instants; a day each side covers any zone offset.
        const icaltimetype fromWall = wallTimeOf(from.addDays(-1), master.start.zone);
        const icaltimetype toWall = wallTimeOf(to.addDays(1), master.start.zone);
        for (int step = 0; step < maxIterations; ++step) {
            const icaltimetype next = icalrecur_iterator_next(iterator);
            if (icaltime_is_null_time(next) || icaltime_compare(next, toWall) >= 0)
                break;
            if (icaltime_compare(next, fromWall) < 0)
                continue;
            const QDateTime start = instantOf(next, master.start.zone);
            if (start >= to)
                break;
            if (start >= from)
                add(start);
        }
        icalrecur_iterator_free(iterator);
    }

    for (icalproperty* p = icalcomponent_get_first_property(c, ICAL_RDATE_PROPERTY); p;
         p = icalcomponent_get_next_property(c, ICAL_RDATE_PROPERTY)) {
        const icaldatetimeperiodtype rdate = icalproperty_get_rdate(p);
        const icaltimetype wall = icaltime_is_null_time(rdate.time) ? rdate.period.start : rdate.time;
        const TimeValue value = timeValue(p, wall, zones, &master.start.zone);
        if (value.valid())
            add(value.instant());
    }

    for (icalproperty* p = icalcomponent_get_first_property(c, ICAL_EXDATE_PROPERTY); p;
         p = icalcomponent_get_next_property(c, ICAL_EXDATE_PROPERTY)) {
        const TimeValue value = timeValue(p, icalproperty_get_exdate(p), zones, &master.start.zone);
        if (value.valid())
            starts.erase(instanceKey(value.instant(), master.allDay));
    }

    std::vector<QDateTime> list;
    list.reserve(starts.size());
    for (const auto& [key, start] : starts)
        if (start >= from && start < to)
            list.push_back(start);
    return list;
}

// The user's answer to an invitation, when one of their addresses is among the attendees.
bool declinedBy(icalcomponent* component, const QSet<QString>& ownAddresses)
{
    if (ownAddresses.isEmpty())
        return false;
    for (icalproperty* p = icalcomponent_get_first_property(component, ICAL_ATTENDEE_PROPERTY); p;
         p = icalcomponent_get_next_property(component, ICAL_ATTENDEE_PROPERTY)) {
        QString address = QString::fromUtf8(icalproperty_get_attendee(p)).trimmed();
        if (address.startsWith(QStringLiteral("mailto:"), Qt::CaseInsensitive))
            address = address.mid(7);
        if (!ownAddresses.contains(address.toLower()))
            continue;
        icalparameter* partstat = icalproperty_get_first_parameter(p, ICAL_PARTSTAT_PARAMETER);
        if (partstat && icalparameter_get_partstat(partstat) == ICAL_PARTSTAT_DECLINED)
            return true;
    }
    return false;
}

class FeedExpander {
public:
    FeedExpander(const CalendarFeed& feed, const CalendarRange& range, const QStringList& ownAddresses)
        : m_feed(feed), m_range(range)
    {
        for (const QString& address : ownAddresses)
            m_ownAddresses.insert(address.trimmed().toLower());
    }

    CalendarExpansion run()
    {
        parseItems();
        ZoneTable zones(m_calendars);
        std::map<QString, std::vector<EventRecord>> overrides; // by UID
        std::vector<EventRecord> masters;
        for (icalcomponent* component : m_events) {
            std::optional<EventRecord> event = readEvent(component, zones);
            if (!event)
                continue;
            if (event->uid.isEmpty())
                event->uid = QUuid::createUuid().toString(QUuid::WithoutBraces);
            if (event->recurrenceKey)
                overrides[event->uid].push_back(std::move(*event));
            else
                masters.push_back(std::move(*event));
        }
        for (const EventRecord& master : masters)
            expandMaster(master, overrides[master.uid], zones);
        // Overrides stand on their own: a moved instance shows where it was moved to, also when its
        // master is outside the range or was never handed out.
        for (const auto& [uid, list] : overrides)
            for (const EventRecord& instance : list)
                addOccurrence(instance, instance.start.instant(), instance.uid, *instance.recurrenceKey);
        return std::move(m_result);
    }

private:
    void parseItems()
    {
        for (const QByteArray& item : m_feed.items) {
            Component root(icalparser_parse_string(item.constData()));
            if (!root || !collect(root.get())) {
                ++m_result.skippedItems;
                continue;
            }
            m_roots.push_back(std::move(root));
        }
    }

    // Gathers the item's calendars and events; false when it holds no event or a damaged one.
    bool collect(icalcomponent* root)
    {
        std::vector<icalcomponent*> calendars;
        std::vector<icalcomponent*> events;
        switch (icalcomponent_isa(root)) {
        case ICAL_VCALENDAR_COMPONENT: calendars.push_back(root); break;
        case ICAL_VEVENT_COMPONENT: events.push_back(root); break;
        case ICAL_XROOT_COMPONENT:
            for (icalcomponent* c = icalcomponent_get_first_component(root, ICAL_ANY_COMPONENT); c;
                 c = icalcomponent_get_next_component(root, ICAL_ANY_COMPONENT)) {
                if (icalcomponent_isa(c) == ICAL_VCALENDAR_COMPONENT)
                    calendars.push_back(c);
                else if (icalcomponent_isa(c) == ICAL_VEVENT_COMPONENT)
                    events.push_back(c);
            }
            break;
        default: return false;
        }
        for (icalcomponent* calendar : calendars)
            for (icalcomponent* c = icalcomponent_get_first_component(calendar, ICAL_VEVENT_COMPONENT); c;
                 c = icalcomponent_get_next_component(calendar, ICAL_VEVENT_COMPONENT))
                events.push_back(c);
        // An event whose start could not be read means the item is damaged: none of it is trusted.
        for (icalcomponent* event : events) {
            icalproperty* start = icalcomponent_get_first_property(event, ICAL_DTSTART_PROPERTY);
            if (!start || icaltime_is_null_time(icalproperty_get_dtstart(start)))
                return false;
        }
        if (calendars.empty() && events.empty())
            return false;
        m_calendars.insert(m_calendars.end(), calendars.begin(), calendars.end());
        m_events.insert(m_events.end(), events.begin(), events.end());
        return true;
    }

    void expandMaster(const EventRecord& master, const std::vector<EventRecord>& overrides, ZoneTable& zones)
    {
        if (!isRecurring(master.component)) {
            addOccurrence(master, master.start.instant(), master.uid, std::nullopt);
            return;
        }
        QSet<qint64> replaced;
        std::vector<const EventRecord*> future;
        for (const EventRecord& instance : overrides) {
            replaced.insert(*instance.recurrenceKey);
            if (instance.thisAndFuture)
                future.push_back(&instance);
        }
        std::sort(future.begin(), future.end(), [](const EventRecord* a, const EventRecord* b) {
            return a->recurrenceInstant < b->recurrenceInstant;
        });
        // Instances that start before the range can still reach into it; a day of margin covers any
        // shift a THISANDFUTURE override makes within a day.
        const qint64 reach = master.allDay ? master.lengthDays * secondsPerDay : master.lengthSeconds;
        const QDateTime from = m_range.from.addSecs(-reach - secondsPerDay);
        const QDateTime to = m_range.to.addSecs(secondsPerDay);
        for (const QDateTime& start : instanceStarts(master, from, to, zones)) {
            if (replaced.contains(instanceKey(start, master.allDay)))
                continue;
            const EventRecord* source = &master;
            QDateTime shifted = start;
            for (const EventRecord* change : future) {
                if (change->recurrenceInstant > start)
                    break;
                source = change;
            }
            if (source != &master)
                shifted = start.addSecs(source->recurrenceInstant.secsTo(source->start.instant()));
            addOccurrence(*source, shifted, master.uid, instanceKey(start, master.allDay));
        }
    }

    // One occurrence starting at `start`, with the length and texts of `source` (the master or the
    // override that governs it); `instance` tells the instances of a recurring event apart.
    void addOccurrence(const EventRecord& source, const QDateTime& start, const QString& uid,
                       std::optional<qint64> instance)
    {
        QDateTime end;
        if (source.allDay)
            end = QDateTime(start.date().addDays(source.lengthDays), QTime(0, 0));
        else
            end = start.addSecs(source.lengthSeconds);
        const bool overlaps = source.lengthSeconds == 0 && !source.allDay
                                  ? start >= m_range.from && start < m_range.to
                                  : start < m_range.to && end > m_range.from;
        if (!overlaps)
            return;
        icalcomponent* c = source.component;
        if (icalcomponent_get_status(c) == ICAL_STATUS_CANCELLED || declinedBy(c, m_ownAddresses))
            return;

        CalendarEvent event;
        event.id = m_feed.info.id + QLatin1Char('/') + uid;
        if (instance)
            event.id += QLatin1Char('/') + QString::number(*instance);
        event.title = textOf(c, ICAL_SUMMARY_PROPERTY);
        if (event.title.isEmpty())
            event.title = QStringLiteral("Untitled");
        event.start = start;
        event.end = end;
        event.isAllDay = source.allDay;
        const QString location = textOf(c, ICAL_LOCATION_PROPERTY);
        if (!location.isEmpty())
            event.location = location;
        event.calendarID = m_feed.info.id;
        event.calendarTitle = m_feed.info.title;
        event.color = m_feed.info.color;
        std::optional<QUrl> url;
        const QUrl own(textOf(c, ICAL_URL_PROPERTY));
        if (own.isValid() && !own.isEmpty())
            url = own;
        event.meetingURL = meetingURL(url, location, textOf(c, ICAL_DESCRIPTION_PROPERTY));
        event.openURL = url.value_or(m_feed.openURL);
        m_result.events.push_back(std::move(event));
    }

    const CalendarFeed& m_feed;
    CalendarRange m_range;
    QSet<QString> m_ownAddresses;
    std::vector<Component> m_roots;
    std::vector<icalcomponent*> m_calendars;
    std::vector<icalcomponent*> m_events;
    CalendarExpansion m_result;
};

} // namespace

CalendarExpansion expandFeed(const CalendarFeed& feed, const CalendarRange& range, const QStringList& ownAddresses)
{
    return FeedExpander(feed, range, ownAddresses).run();
}

CalendarHeader calendarHeader(const QByteArray& text)
{
    // Only the calendar's own lines matter: parse what comes before the first component.
    qsizetype end = text.indexOf("\nBEGIN:V", text.indexOf("BEGIN:VCALENDAR") + 1);
    QByteArray head = end < 0 ? text : text.left(end + 1) + "END:VCALENDAR\r\n";
    Component root(icalparser_parse_string(head.constData()));
    CalendarHeader header;
    if (!root || icalcomponent_isa(root.get()) != ICAL_VCALENDAR_COMPONENT)
        return header;
    for (icalproperty* p = icalcomponent_get_first_property(root.get(), ICAL_ANY_PROPERTY); p;
         p = icalcomponent_get_next_property(root.get(), ICAL_ANY_PROPERTY)) {
        const QString value = QString::fromUtf8(icalproperty_get_value_as_string(p)).trimmed();
        const QByteArray name = icalproperty_isa(p) == ICAL_X_PROPERTY ? QByteArray(icalproperty_get_x_name(p))
                                                                        : QByteArray(icalproperty_get_property_name(p));
        if (name == "X-WR-CALNAME" && header.name.isEmpty())
            header.name = value;
        else if ((name == "COLOR" || name == "X-APPLE-CALENDAR-COLOR") && header.color.isEmpty())
            header.color = value;
    }
    return header;
}

CalendarRange CalendarRange::startingToday(const QDateTime& now, int days)
{
    const QDateTime start(now.toLocalTime().date(), QTime(0, 0));
    return {start, QDateTime(start.date().addDays(std::max(days, 1)), QTime(0, 0))};
}

} // namespace pulsebar
