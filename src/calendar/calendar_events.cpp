#include "calendar/calendar_events.h"

#include "calendar/calendar_files.h"
#include "calendar/ical_expansion.h"
#include "core/clock.h"
#include "core/preferences.h"
#include "core/serial_queue.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QThread>

#include <algorithm>

namespace pulsebar {

namespace {

QString subscriptionID(const QString& address)
{
    return QStringLiteral("subscription:") + address.trimmed();
}

// What the settings list shows as a subscription's origin, and its name until the calendar names itself.
QString subscriptionHost(const QString& address)
{
    const QString host = CalendarSubscriptions::downloadURL(address).host();
    return host.isEmpty() ? address : host;
}

void sortCalendars(std::vector<CalendarInfo>& calendars)
{
    std::stable_sort(calendars.begin(), calendars.end(), [](const CalendarInfo& a, const CalendarInfo& b) {
        const int bySource = QString::compare(a.source, b.source, Qt::CaseInsensitive);
        if (bySource != 0)
            return bySource < 0;
        return QString::compare(a.title, b.title, Qt::CaseInsensitive) < 0;
    });
}

void sortEvents(std::vector<CalendarEvent>& events)
{
    std::sort(events.begin(), events.end(), [](const CalendarEvent& a, const CalendarEvent& b) {
        if (a.start != b.start)
            return a.start < b.start;
        if (a.isAllDay != b.isAllDay)
            return a.isAllDay;
        if (a.title != b.title)
            return a.title < b.title;
        return a.id < b.id;
    });
}

} // namespace

CalendarState gatherCalendars(CalendarStore* store, const CalendarSources& sources,
                              const std::vector<CalendarSubscriptionCopy>& subscriptions, const CalendarRange& range,
                              const QSet<QString>& hidden)
{
    std::vector<CalendarFeed> feeds;
    QStringList ownAddresses = sources.ownAddresses;
    int unreadable = 0;
    if (store) {
        CalendarStore::Reading reading = store->read(range, hidden);
        feeds = std::move(reading.feeds);
        ownAddresses += reading.ownAddresses;
        unreadable = reading.unreadable;
    }
    auto add = [&](std::optional<CalendarFeed> feed) {
        if (feed)
            feeds.push_back(std::move(*feed));
        else
            ++unreadable;
    };
    for (const QString& folder : sources.folders)
        add(readVdirFolder(folder, QFileInfo(folder).absolutePath(), !hidden.contains(vdirCalendarID(folder))));
    for (const QString& file : sources.files) {
        const QString id = fileCalendarID(file);
        const QFileInfo info(file);
        add(readIcsFile(file, id, info.completeBaseName(), info.absolutePath(), !hidden.contains(id)));
    }
    for (const CalendarSubscriptionCopy& copy : subscriptions) {
        const QString id = subscriptionID(copy.address);
        const QString host = subscriptionHost(copy.address);
        auto feed = readIcsFile(copy.file, id, host, host, !hidden.contains(id));
        // A first download still under way is not a failure yet.
        if (feed || copy.failed)
            add(std::move(feed));
    }

    CalendarState state;
    QSet<QString> seen;
    for (const CalendarFeed& feed : feeds) {
        if (seen.contains(feed.info.id))
            continue;
        seen.insert(feed.info.id);
        state.calendars.push_back(feed.info);
        if (hidden.contains(feed.info.id))
            continue;
        CalendarExpansion expansion = expandFeed(feed, range, ownAddresses);
        std::move(expansion.events.begin(), expansion.events.end(), std::back_inserter(state.events));
    }
    if (!state.calendars.empty())
        state.access = CalendarAccess::granted;
    else
        state.access = unreadable > 0 ? CalendarAccess::denied : CalendarAccess::notDetermined;
    sortCalendars(state.calendars);
    sortEvents(state.events);
    return state;
}

CalendarEvents::CalendarEvents(Preferences& preferences, std::shared_ptr<CalendarStore> store,
                               const QString& cacheFolder, QObject* parent)
    : QObject(parent), now(systemClock()), m_preferences(preferences), m_store(std::move(store)),
      m_subscriptions(cacheFolder), m_state(std::make_shared<const CalendarState>())
{
    m_subscriptions.now = [this] { return now(); };
    // A new copy of a subscribed calendar shows at once, not at the next minute.
    connect(&m_subscriptions, &CalendarSubscriptions::updated, this, &CalendarEvents::fetch);
}

CalendarEvents::~CalendarEvents() = default;

void CalendarEvents::refreshIfNeeded(int days, const QStringList& hidden)
{
    if (m_fetched && days == m_days && hidden == m_hidden && now() - m_lastFetch < refreshInterval)
        return;
    m_days = days;
    m_hidden = hidden;
    fetch();
}

void CalendarEvents::reloadSources()
{
    fetch();
}

void CalendarEvents::fetch()
{
    m_fetched = true;
    m_lastFetch = now();
    const CalendarSources sources = CalendarSources::load(m_preferences);
    m_subscriptions.refreshIfNeeded(sources.subscriptions);
    if (m_fetching) {
        m_fetchAgain = true;
        return;
    }
    std::vector<CalendarSubscriptionCopy> copies;
    for (const QString& address : sources.subscriptions)
        copies.push_back({address, m_subscriptions.cacheFile(address), m_subscriptions.lastError(address).has_value()});
    const CalendarRange range =
        CalendarRange::startingToday(QDateTime::fromSecsSinceEpoch(qint64(now())), m_days);
    const QSet<QString> hidden(m_hidden.begin(), m_hidden.end());

    if (!m_queue)
        m_queue = std::make_unique<SerialQueue>("pulsebar-calendar");
    m_fetching = true;
    m_queue->async([this, store = m_store, sources, copies, range, hidden] {
        auto state = std::make_shared<const CalendarState>(gatherCalendars(store.get(), sources, copies, range, hidden));
        QMetaObject::invokeMethod(this, [this, state] { published(state); }, Qt::QueuedConnection);
    });
}

void CalendarEvents::published(std::shared_ptr<const CalendarState> state)
{
    m_fetching = false;
    // Most fetches find what the last one found: readers keep the state they have and redraw nothing.
    if (*state != *m_state) {
        m_state = std::move(state);
        Q_EMIT changed();
    }
    if (m_fetchAgain) {
        m_fetchAgain = false;
        fetch();
    }
}

void CalendarEvents::waitForFetch()
{
    while (m_fetching) {
        m_queue->sync([] {});
        QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
    }
}

} // namespace pulsebar
