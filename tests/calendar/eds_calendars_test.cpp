// Evolution Data Server for real: a private session bus, its registry and calendar factory over a
// temporary home, events added through libecal by a helper, read back through CalendarEvents.
#include "calendar/calendar_events.h"
#include "core/preferences.h"
#include "platform/linux/eds_calendars.h"
#include "platform/linux/linux_calendar_store.h"

#include "../support/test_support.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <memory>

using namespace pulsebar;

// GLib keeps allocations for the life of the process (type data, the bus connection) that LeakSanitizer
// reports at exit; they are not this program's. This binary names them itself, so it passes run on its own
// too, without the suite's suppressions file that ctest hands it.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:libglib-2.0\nleak:libgobject-2.0\nleak:libgio-2.0\nleak:libedataserver-1.2\nleak:libecal-2.0\n";
}

namespace {

const QString registryBinary = QStringLiteral("/usr/libexec/evolution-source-registry");
const QString factoryBinary = QStringLiteral("/usr/libexec/evolution-calendar-factory");

// The reason the machine cannot run EDS here; empty when it can.
QString missingPiece()
{
#ifndef EDS_CALENDAR_WRITER
    return QStringLiteral("libecal's development files were not found at build time");
#else
    for (const QString& binary : {registryBinary, factoryBinary})
        if (!QFileInfo(binary).isExecutable())
            return binary + QStringLiteral(" is not installed");
    if (QStandardPaths::findExecutable(QStringLiteral("dbus-daemon")).isEmpty())
        return QStringLiteral("dbus-daemon is not installed");
    if (!EdsCalendars::load())
        return QStringLiteral("libecal-2.0.so.2 cannot be opened");
    return {};
#endif
}

// Ends what it started, last first.
struct Processes {
    std::vector<std::unique_ptr<QProcess>> list;
    QProcess& start(const QString& program, const QStringList& arguments, const QProcessEnvironment& environment,
                    bool keepOutput = false)
    {
        list.push_back(std::make_unique<QProcess>());
        QProcess& process = *list.back();
        process.setProcessEnvironment(environment);
        // Unread pipes would fill and stop the services: their output goes to a file beside the home.
        const QString log = environment.value(QStringLiteral("HOME")) + "/" + QFileInfo(program).fileName() + ".log";
        if (!keepOutput)
            process.setStandardOutputFile(log, QIODevice::Append);
        process.setStandardErrorFile(log, QIODevice::Append);
        process.start(program, arguments);
        return process;
    }
    ~Processes()
    {
        // GLib ends a process whose session bus goes away with SIGTERM, and libecal's connection is
        // GLib's: the bus ends here, the test does not.
        std::signal(SIGTERM, SIG_IGN);
        for (auto it = list.rbegin(); it != list.rend(); ++it) {
            (*it)->terminate();
            if (!(*it)->waitForFinished(3000))
                (*it)->kill();
            (*it)->waitForFinished(1000);
        }
    }
};

QString utc(const QDateTime& time)
{
    return time.toUTC().toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'"));
}

} // namespace

TEST(EdsCalendars, EventsAddedThroughLibecalShowInTheCalendarState)
{
    if (const QString reason = missingPiece(); !reason.isEmpty())
        GTEST_SKIP() << reason.toStdString();
#ifdef EDS_CALENDAR_WRITER
    QTemporaryDir home;
    const QString h = home.path();
    QProcessEnvironment environment = test::isolatedEnvironment(h);
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), h + "/run");
    environment.insert(QStringLiteral("XDG_CACHE_HOME"), h + "/.cache");
    QDir().mkpath(h + "/run");
    // The EDS services would otherwise try to reach the user's keyring and GNOME Online Accounts.
    environment.insert(QStringLiteral("GIO_USE_VFS"), QStringLiteral("local"));
    environment.insert(QStringLiteral("GSETTINGS_BACKEND"), QStringLiteral("memory"));

    Processes processes;
    QProcess& bus = processes.start(QStringLiteral("dbus-daemon"),
                                    {"--session", "--nofork", "--print-address=1"}, environment, true);
    ASSERT_TRUE(bus.waitForReadyRead(5000)) << "dbus-daemon did not start";
    const QString address = QString::fromUtf8(bus.readLine()).trimmed();
    ASSERT_FALSE(address.isEmpty());
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), address);
    // Each service in turn, owning its name before the next needs it (else the bus would start a second).
    QDBusConnection connection = QDBusConnection::connectToBus(address, QStringLiteral("eds-test"));
    for (const auto& service : {std::pair{registryBinary, "org.gnome.evolution.dataserver.Sources5"},
                                std::pair{factoryBinary, "org.gnome.evolution.dataserver.Calendar8"}}) {
        processes.start(service.first, {}, environment);
        const QString name = QString::fromLatin1(service.second);
        ASSERT_TRUE(test::waitUntil([&] { return connection.interface()->isServiceRegistered(name).value(); }, 20000))
            << service.first.toStdString() << " did not take its name on the bus";
    }

    const QDateTime today(QDate::currentDate(), QTime(0, 0));
    const QDateTime noon = today.addSecs(12 * 3600);
    QString ics = "BEGIN:VCALENDAR\r\nVERSION:2.0\r\n";
    auto add = [&](const QString& lines) { ics += "BEGIN:VEVENT\r\n" + lines + "END:VEVENT\r\n"; };
    add("UID:lunch\r\nSUMMARY:Lunch with Sam\r\nLOCATION:https://meet.google.com/abc-defg-hij\r\nDTSTART:" + utc(noon)
        + "\r\nDTEND:" + utc(noon.addSecs(3600)) + "\r\n");
    add("UID:standup\r\nSUMMARY:Standup\r\nDTSTART:" + utc(today.addDays(-3).addSecs(9 * 3600)) + "\r\nDTEND:"
        + utc(today.addDays(-3).addSecs(9 * 3600 + 900)) + "\r\nRRULE:FREQ=DAILY\r\nEXDATE:"
        + utc(today.addDays(1).addSecs(9 * 3600)) + "\r\n");
    add("UID:trip\r\nSUMMARY:Trip\r\nDTSTART;VALUE=DATE:" + today.date().toString("yyyyMMdd") + "\r\n");
    add("UID:called-off\r\nSUMMARY:Called off\r\nSTATUS:CANCELLED\r\nDTSTART:" + utc(noon.addSecs(3600)) + "\r\n");
    ics += "END:VCALENDAR\r\n";
    test::writeFile(h + "/events.ics", ics.toUtf8());

    QProcess writer;
    QProcessEnvironment writerEnvironment = environment;
    writerEnvironment.insert(QStringLiteral("ASAN_OPTIONS"), QStringLiteral("detect_leaks=0")); // GLib's own
    writer.setProcessEnvironment(writerEnvironment);
    writer.start(QStringLiteral(EDS_CALENDAR_WRITER), {h + "/events.ics"});
    ASSERT_TRUE(writer.waitForFinished(60000));
    ASSERT_EQ(writer.exitCode(), 0) << writer.readAllStandardError().toStdString();

    // This process joins the private bus too; GLib reads the address on its first connection.
    test::ScopedEnv busAddress("DBUS_SESSION_BUS_ADDRESS", address);
    test::ScopedEnv runtime("XDG_RUNTIME_DIR", h + "/run");
    Preferences preferences(h + "/preferences.json");
    auto store = std::make_shared<LinuxCalendarStore>(&EdsCalendars::load,
                                                      LinuxCalendarStore::Folders{h + "/data", h + "/config", h});
    CalendarEvents events(preferences, store, h + "/cache");
    events.refreshIfNeeded(2, {});
    events.waitForFetch();

    const auto state = events.state();
    EXPECT_EQ(state->access, CalendarAccess::granted);
    const auto personal = std::find_if(state->calendars.begin(), state->calendars.end(),
                                       [](const CalendarInfo& c) { return c.id == "eds:system-calendar"; });
    ASSERT_NE(personal, state->calendars.end());
    EXPECT_EQ(personal->title, "Personal");
    EXPECT_EQ(personal->source, "On This Computer");
    QStringList lines;
    for (const CalendarEvent& event : state->events)
        lines << QString::number(today.daysTo(event.start)) + " " + event.start.time().toString("HH:mm") + " "
                     + event.title + (event.meetingURL ? " (Join)" : "");
    // Today and tomorrow: tomorrow's standup is excluded, the cancelled event is dropped.
    EXPECT_EQ(lines, QStringList({"0 00:00 Trip", "0 09:00 Standup", "0 12:00 Lunch with Sam (Join)"}));
    EXPECT_EQ(state->events.front().calendarTitle, "Personal");

    // Hiding the calendar leaves it listed and its events out.
    events.refreshIfNeeded(2, {"eds:system-calendar"});
    events.waitForFetch();
    EXPECT_TRUE(events.state()->events.empty());
    EXPECT_EQ(events.state()->calendars.size(), state->calendars.size());
#endif
}
