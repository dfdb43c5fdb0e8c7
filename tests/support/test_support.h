#pragma once

#include "calendar/calendar_store.h"
#include "core/app_settings.h"
#include "hub/system_readers.h"

#include <QByteArray>
#include <QJsonObject>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <atomic>
#include <functional>
#include <optional>

namespace pulsebar::test {

// Sets an environment variable for the lifetime of the object and restores the old value after.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const QString& value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    QByteArray m_name;
    std::optional<QByteArray> m_old;
};

QString fixture(const QString& relative);     // tests/fixtures/<relative>
QString binaryPath();                          // the built pulsebar
void writeFile(const QString& path, const QByteArray& contents); // creates parent folders
QByteArray readFile(const QString& path);

struct RunResult {
    int exitCode = -1;
    bool finished = false; // false when it timed out and was killed
    QByteArray out;
    QByteArray err;
};

// Runs the built pulsebar with the arguments, extra environment and standard input given.
// Without a home of its own, a run gets fresh XDG folders inside `home` so it never touches the user's.
RunResult runPulsebar(const QStringList& arguments, const QString& home, const QByteArray& input = {},
                      const QProcessEnvironment& extra = {}, int timeoutMs = 30000);

// Writes `config` as the stored configuration of a run in `home`; pingHost is loopback unless given,
// so no test pings a public address.
void writeConfig(const QString& home, QJsonObject config);

// Settings over a preferences file of their own in a temporary folder, pinging loopback, for tests
// that build a Hub in the test process.
struct IsolatedSettings {
    IsolatedSettings();
    QTemporaryDir dir;
    Preferences preferences;
    AppSettings settings;
};

// An environment whose HOME and XDG folders point into `home`.
QProcessEnvironment isolatedEnvironment(const QString& home);

// The platform's readers over the fixture tree at `root` (tests/fixtures/…), with a network reader
// that sees no interfaces and no system bus, so what a hub built on them samples comes from the tree.
SystemReaders fixtureReaders(const QString& root);

// Spins the event loop until the predicate holds or the time runs out; returns the predicate's last value.
bool waitUntil(const std::function<bool()>& predicate, int timeoutMs = 5000);

// A calendar store that counts its reads and always finds one calendar, "Personal", without events.
struct CountingCalendarStore : CalendarStore {
    std::atomic<int> reads{0};
    Reading read(const CalendarRange&, const QSet<QString>&) override
    {
        ++reads;
        return {{CalendarFeed{{"eds:p", "Personal", "On This Computer", QColor(Qt::blue)}, {}, {}}}, {}};
    }
};

} // namespace pulsebar::test
