#include "calendar/calendar_events.h"
#include "calendar/calendar_files.h"
#include "core/clock.h"
#include "core/preferences.h"
#include "platform/linux/vdir_calendars.h"

#include "../support/test_support.h"
#include "london_time.h"
#include "../weather/loopback_server.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

using namespace pulsebar;

namespace {

double at(const QString& localTime)
{
    return test::londonTime(localTime).toSecsSinceEpoch();
}

QByteArray event(const QString& uid, const QString& title, const QDateTime& start, int minutes)
{
    const QString format = QStringLiteral("yyyyMMdd'T'HHmmss'Z'");
    return QStringLiteral("BEGIN:VCALENDAR\r\nVERSION:2.0\r\nBEGIN:VEVENT\r\nUID:%1\r\nSUMMARY:%2\r\n"
                          "DTSTART:%3\r\nDTEND:%4\r\nEND:VEVENT\r\nEND:VCALENDAR\r\n")
        .arg(uid, title, start.toUTC().toString(format), start.addSecs(minutes * 60).toUTC().toString(format))
        .toUtf8();
}

// A calendar store that answers from memory, records what it was asked, and can be held mid-read.
class FakeStore : public CalendarStore {
public:
    std::vector<CalendarFeed> feeds;
    QStringList ownAddresses;

    Reading read(const CalendarRange& range, const QSet<QString>& hidden) override
    {
        std::unique_lock lock(m_mutex);
        m_wake.wait(lock, [this] { return !m_held; });
        m_ranges.push_back(range);
        Reading reading{feeds, ownAddresses};
        for (CalendarFeed& feed : reading.feeds)
            if (hidden.contains(feed.info.id))
                feed.items.clear();
        return reading;
    }
    void hold(bool held)
    {
        std::lock_guard lock(m_mutex);
        m_held = held;
        m_wake.notify_all();
    }
    std::vector<CalendarRange> ranges()
    {
        std::lock_guard lock(m_mutex);
        return m_ranges;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_held = false;
    std::vector<CalendarRange> m_ranges;
};

CalendarFeed feed(const QString& id, const QString& title, const QString& source, std::vector<QByteArray> items)
{
    return {{id, title, source, QColor(Qt::red)}, std::move(items), {}};
}

QStringList titles(const CalendarState& state)
{
    QStringList list;
    for (const CalendarEvent& e : state.events)
        list << e.start.toString(QStringLiteral("dd HH:mm ")) + e.title;
    return list;
}

struct Engine {
    QTemporaryDir dir;
    Preferences preferences{dir.path() + "/preferences.json"};
    std::shared_ptr<FakeStore> store = std::make_shared<FakeStore>();
    double clock = at("2026-03-09 08:00");
    CalendarEvents events{preferences, store, dir.path() + "/cache"};
    Engine() { events.now = [this] { return clock; }; }
};

} // namespace

TEST(CalendarEvents, FetchesAgainAfterAMinuteOrWhenDaysOrHiddenCalendarsChange)
{
    Engine engine;
    const struct {
        double seconds; // since the first call
        int days;
        QStringList hidden;
        bool fetches;
    } steps[] = {
        {0, 3, {}, true},     {30, 3, {}, false},   {59.9, 3, {}, false}, {60, 3, {}, true},
        {61, 4, {}, true},    {62, 4, {"a"}, true}, {63, 4, {"a"}, false}, {64, 4, {}, true},
    };
    const double start = engine.clock;
    size_t fetches = 0;
    for (const auto& step : steps) {
        engine.clock = start + step.seconds;
        engine.events.refreshIfNeeded(step.days, step.hidden);
        engine.events.waitForFetch();
        fetches += step.fetches;
        EXPECT_EQ(engine.store->ranges().size(), fetches) << "at " << step.seconds << " s";
    }
    EXPECT_EQ(engine.store->ranges().back().to, QDateTime(QDate(2026, 3, 13), QTime(0, 0)));
}

TEST(CalendarEvents, GathersTheStoreAndTheUsersOwnSourcesSortedWithoutHiddenCalendars)
{
    Engine engine;
    const QDateTime nine = QDateTime::fromSecsSinceEpoch(qint64(at("2026-03-09 09:00")));
    const QByteArray holiday = "BEGIN:VCALENDAR\r\nBEGIN:VEVENT\r\nUID:h\r\nSUMMARY:Holiday\r\n"
                               "DTSTART;VALUE=DATE:20260309\r\nEND:VEVENT\r\nEND:VCALENDAR\r\n";
    engine.store->feeds = {feed("eds:personal", "Personal", "On This Computer",
                                {event("a", "Dentist", nine.addSecs(3600), 30), holiday,
                                 event("b", "Before the day", nine.addDays(-1), 30)}),
                           feed("eds:team", "Team", "Google", {event("c", "Hidden", nine, 60)})};
    engine.store->ownAddresses = {"me@example.org"};
    QTemporaryDir files;
    test::writeFile(files.path() + "/family.ics",
                    "BEGIN:VCALENDAR\r\nX-WR-CALNAME:Family\r\n" + event("f", "School run", nine.addSecs(-3600), 30)
                        .mid(QByteArray("BEGIN:VCALENDAR\r\n").size()));
    CalendarSources sources;
    sources.files = {files.path() + "/family.ics", files.path() + "/missing.ics"};
    sources.folders = {test::fixture("calendar/work")};
    ASSERT_TRUE(sources.save(engine.preferences));

    engine.events.refreshIfNeeded(1, {"eds:team"});
    engine.events.waitForFetch();
    const auto state = engine.events.state();
    EXPECT_EQ(state->access, CalendarAccess::granted);
    QStringList calendars;
    for (const CalendarInfo& info : state->calendars)
        calendars << info.source + " / " + info.title;
    // Added files and folders come from the folder that holds them.
    QStringList added{files.path() + " / Family", QFileInfo(test::fixture("calendar/work")).absolutePath() + " / Work"};
    if (QString::compare(added[0], added[1], Qt::CaseInsensitive) > 0)
        added.swapItemsAt(0, 1);
    EXPECT_EQ(calendars, added + QStringList({"Google / Team", "On This Computer / Personal"}));
    // The store's address declines Budget sync in the folder; Team is hidden, Before the day outside.
    EXPECT_EQ(titles(*state), QStringList({"09 00:00 Holiday", "09 08:00 School run", "09 10:00 Dentist",
                                           "09 11:00 Roadmap", "09 14:30 Standup (moved)", "09 15:00 Design review",
                                           "09 18:00 Retro (later)"}));
}

TEST(CalendarEvents, AccessIsGrantedByOneReadableCalendarAndUndeterminedWithoutAny)
{
    const QString work = test::fixture("calendar/work");
    const struct {
        QStringList files;
        QStringList folders;
        CalendarAccess expected;
    } cases[] = {
        {{}, {}, CalendarAccess::notDetermined},
        {{"/nowhere/x.ics"}, {}, CalendarAccess::denied}, // set up, but nothing can be read
        {{"/nowhere/x.ics"}, {work}, CalendarAccess::granted},
    };
    for (const auto& c : cases) {
        test::IsolatedSettings isolated;
        CalendarEvents events(isolated.preferences, nullptr, isolated.dir.path() + "/cache");
        CalendarSources sources;
        sources.files = c.files;
        sources.folders = c.folders;
        sources.save(isolated.preferences);
        events.refreshIfNeeded(3, {});
        events.waitForFetch();
        EXPECT_EQ(events.state()->access, c.expected) << c.files.size() << c.folders.size();
        EXPECT_EQ(events.state()->calendars.size(), c.folders.size());
    }
}

TEST(CalendarEvents, AFetchNeverHoldsTheCallerAndALaterRequestFollowsIt)
{
    Engine engine;
    engine.store->feeds = {feed("eds:p", "P", "S", {event("a", "Call", QDateTime::fromSecsSinceEpoch(qint64(at("2026-03-09 12:00"))), 30)})};
    engine.store->hold(true);
    engine.events.refreshIfNeeded(1, {});
    EXPECT_TRUE(engine.events.isFetching());
    engine.events.refreshIfNeeded(2, {}); // asked while the first one is held: runs after it
    EXPECT_TRUE(engine.events.state()->events.empty());
    engine.store->hold(false);
    engine.events.waitForFetch();
    ASSERT_EQ(engine.store->ranges().size(), 2u);
    EXPECT_EQ(engine.store->ranges()[1].from.daysTo(engine.store->ranges()[1].to), 2);
    EXPECT_EQ(titles(*engine.events.state()), QStringList({"09 12:00 Call"}));
}

TEST(CalendarEvents, SubscriptionsAreCachedAndAFailedDownloadKeepsTheCopy)
{
    LoopbackServer server;
    const QDateTime soon = QDateTime::currentDateTime().addSecs(3600);
    server.answers["/cal.ics"] = {200, event("s", "Match day", soon, 90).replace("VERSION:2.0", "X-WR-CALNAME:Football")};
    server.answers["/slow.ics"] = {200, {}, true};
    Engine engine;
    engine.clock = systemNow();
    engine.events.subscriptions().timeout = 300;
    CalendarSources sources;
    sources.subscriptions = {server.url() + "/cal.ics", server.url() + "/missing.ics", server.url() + "/slow.ics"};
    sources.save(engine.preferences);

    engine.events.refreshIfNeeded(2, {});
    CalendarSubscriptions& subscriptions = engine.events.subscriptions();
    ASSERT_TRUE(test::waitUntil([&] { return !subscriptions.isDownloading(); }));
    engine.events.waitForFetch();
    EXPECT_EQ(titles(*engine.events.state()), QStringList{soon.toString("dd HH:mm ") + "Match day"});
    ASSERT_EQ(engine.events.state()->calendars.size(), 1u);
    EXPECT_EQ(engine.events.state()->calendars[0].title, "Football");
    EXPECT_EQ(engine.events.state()->calendars[0].source, "127.0.0.1");
    EXPECT_EQ(subscriptions.lastError(sources.subscriptions[0]), std::nullopt);
    EXPECT_EQ(subscriptions.lastError(sources.subscriptions[1]), "The calendar server answered with HTTP status 404.");
    EXPECT_EQ(subscriptions.lastError(sources.subscriptions[2]), "The calendar server did not answer within 0.3 seconds.");

    // Within 15 minutes nothing is downloaded again; after them the server fails, and the copy stays.
    const int requests = server.targets.size();
    engine.clock += 600;
    engine.events.refreshIfNeeded(2, {});
    EXPECT_FALSE(subscriptions.isDownloading());
    EXPECT_EQ(server.targets.size(), requests);
    server.answers["/cal.ics"] = {500, "down"};
    engine.clock += 400;
    engine.events.refreshIfNeeded(2, {});
    ASSERT_TRUE(subscriptions.isDownloading());
    ASSERT_TRUE(test::waitUntil([&] { return !subscriptions.isDownloading(); }));
    engine.events.waitForFetch();
    EXPECT_EQ(server.targets.size(), requests + 3);
    EXPECT_EQ(subscriptions.lastError(sources.subscriptions[0]), "The calendar server answered with HTTP status 500.");
    EXPECT_EQ(titles(*engine.events.state()), QStringList{soon.toString("dd HH:mm ") + "Match day"});

    EXPECT_EQ(CalendarSubscriptions::downloadURL("webcal://example.org/a.ics"), QUrl("https://example.org/a.ics"));
}

TEST(CalendarEvents, VdirsyncerAndKhalFoldersAreFound)
{
    QTemporaryDir home;
    const QString h = home.path();
    test::writeFile(h + "/data/vdirsyncer/google/work/a.ics", "x");
    test::writeFile(h + "/data/vdirsyncer/google/empty/displayname", "Empty one");
    test::writeFile(h + "/data/vdirsyncer/status/google/work/x.ics", "x"); // vdirsyncer's own state
    test::writeFile(h + "/cals/home/b.ics", "x");
    test::writeFile(h + "/cals/club/color", "#00ff00");
    test::writeFile(h + "/single/c.ics", "x");
    test::writeFile(h + "/config/khal/config", "[default]\npath = ~/ignored\n[calendars]\n"
                                               "  [[all]]\n    path = ~/cals/*\n    type = discover\n"
                                               "  [[single]]\n    path = \"" + h.toUtf8() + "/single\"\n"
                                               "  # path = ~/commented\n");
    const QList<VdirLocation> found = findVdirCalendars(h + "/data", h + "/config", h);
    QStringList lines;
    for (const VdirLocation& location : found)
        lines << QDir(h).relativeFilePath(location.path) + " (" + location.source + ")";
    EXPECT_EQ(lines, QStringList({"data/vdirsyncer/google/empty (google)", "data/vdirsyncer/google/work (google)",
                                  "cals/club (khal)", "cals/home (khal)", "single (khal)"}));
}
