#pragma once

#include "calendar/calendar_event.h"
#include "calendar/calendar_store.h"
#include "calendar/calendar_subscriptions.h"

#include <QObject>
#include <QSet>
#include <QStringList>

#include <functional>
#include <memory>

namespace pulsebar {

class Preferences;
class SerialQueue;

// The user's upcoming events, gathered from every calendar Pulsebar can read: the platform's calendar
// store, and the folders, files and subscriptions added in Settings (CalendarSources). The hub calls
// refreshIfNeeded() on its tick; a fetch reads and expands the calendars on a worker thread and
// publishes a new CalendarState on the main thread, so a tick never waits for it.
class CalendarEvents : public QObject {
    Q_OBJECT
public:
    static constexpr double refreshInterval = 60; // seconds between fetches with unchanged settings

    // `store` may be null (no calendar store on this system); subscriptions are cached in `cacheFolder`.
    CalendarEvents(Preferences& preferences, std::shared_ptr<CalendarStore> store, const QString& cacheFolder,
                   QObject* parent = nullptr);
    ~CalendarEvents() override;

    // Seconds since 1970; tests replace it (and the subscriptions' clock with it).
    std::function<double()> now;

    // The calendars and events of the last fetch; never null.
    std::shared_ptr<const CalendarState> state() const { return m_state; }

    // Fetches when `days` or `hidden` differ from the last fetch's, or the last fetch is a minute old.
    void refreshIfNeeded(int days, const QStringList& hidden);
    // Reads CalendarSources from the preferences again and fetches at once (with the last days and hidden).
    void reloadSources();

    CalendarSubscriptions& subscriptions() { return m_subscriptions; }
    bool isFetching() const { return m_fetching; }
    // Runs the event loop until no fetch is under way or queued (tests and benchmarks).
    void waitForFetch();

Q_SIGNALS:
    // A fetch found calendars or events different from the last one's.
    void changed();

private:
    void fetch();
    void published(std::shared_ptr<const CalendarState> state);

    Preferences& m_preferences;
    std::shared_ptr<CalendarStore> m_store;
    CalendarSubscriptions m_subscriptions;
    std::shared_ptr<const CalendarState> m_state;
    int m_days = 3;
    QStringList m_hidden;
    double m_lastFetch = 0;
    bool m_fetched = false;
    bool m_fetching = false;
    bool m_fetchAgain = false; // asked for while one was under way
    std::unique_ptr<SerialQueue> m_queue; // last: stopped first, so no job outlives the fields above
};

// One fetch, as the worker runs it: every calendar of the store and of the user's own sources (the
// first reader of a calendar identifier wins), the events of those not hidden expanded over the range,
// sorted by start with all-day events first on equal starts. Access is granted when at least one
// calendar could be read, denied when calendars were configured or found and none could be read, and
// not determined when there were none.
struct CalendarSubscriptionCopy {
    QString address;
    QString file;        // the cached download
    bool failed = false; // the last download failed
};
CalendarState gatherCalendars(CalendarStore* store, const CalendarSources& sources,
                              const std::vector<CalendarSubscriptionCopy>& subscriptions, const CalendarRange& range,
                              const QSet<QString>& hidden);

} // namespace pulsebar
