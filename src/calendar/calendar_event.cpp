#include "calendar/calendar_event.h"

#include "core/preferences.h"

#include <QJsonArray>
#include <QJsonObject>

namespace pulsebar {

namespace {
constexpr qint64 stillNextForSeconds = 15 * 60;
const QString sourcesKey = QStringLiteral("calendar.sources");

QStringList strings(const QJsonValue& value)
{
    QStringList list;
    for (const QJsonValue& item : value.toArray())
        if (item.isString() && !item.toString().isEmpty())
            list.append(item.toString());
    return list;
}
} // namespace

CalendarSources CalendarSources::load(const Preferences& preferences)
{
    const QJsonObject object = preferences.value(sourcesKey).toObject();
    return {strings(object["files"]), strings(object["subscriptions"]), strings(object["folders"]),
            strings(object["ownAddresses"])};
}

bool CalendarSources::save(Preferences& preferences) const
{
    const QJsonObject object{{"files", QJsonArray::fromStringList(files)},
                             {"subscriptions", QJsonArray::fromStringList(subscriptions)},
                             {"folders", QJsonArray::fromStringList(folders)},
                             {"ownAddresses", QJsonArray::fromStringList(ownAddresses)}};
    return preferences.setValue(sourcesKey, object);
}

const CalendarEvent* CalendarState::next(const QDateTime& now) const
{
    const CalendarEvent* current = nullptr;
    for (const CalendarEvent& event : events) {
        if (!event.isAllDay && event.end > now) {
            current = &event;
            break;
        }
    }
    if (!current || current->start.secsTo(now) <= stillNextForSeconds)
        return current;
    for (const CalendarEvent& event : events)
        if (!event.isAllDay && event.start > now)
            return &event;
    return nullptr;
}

} // namespace pulsebar
