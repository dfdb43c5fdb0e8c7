#pragma once

#include "core/preferences.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QObject>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <memory>
#include <optional>
#include <vector>

namespace pulsebar {

// One finished speed test. Rates in bytes per second, times in milliseconds.
struct SpeedTestResult {
    QDateTime date; // when the report was read: the end of the test
    double download = 0;
    double upload = 0;
    std::optional<double> responsiveness; // round trips per minute
    std::optional<double> baseRTT;
    std::optional<QString> interface;
    std::optional<double> dataUsed; // bytes, download and upload together

    QString id() const { return date.toString(Qt::ISODateWithMs); }

    QJsonObject toJson() const;
    // A record without its date or either rate is not a finished test: nullopt.
    static std::optional<SpeedTestResult> fromJson(const QJsonValue& value);
};

// Runs the network-quality measurement as a child process on request, and keeps the last ten results
// under "PulsebarSpeedTests.v1" in the preferences.
class SpeedTest : public QObject {
    Q_OBJECT
public:
    struct State {
        enum class Kind { idle, running, failed };
        Kind kind = Kind::idle;
        QDateTime started; // running
        QString message;   // failed
    };

    // The measurement to run; by default this executable's --network-quality mode.
    struct Command {
        QString program;
        QStringList arguments;
    };
    static Command ownMeasurement();

    static inline const QString preferencesKey = QStringLiteral("PulsebarSpeedTests.v1");
    static constexpr int maximumResults = 10;

    explicit SpeedTest(Preferences& preferences, Command command = ownMeasurement(), QObject* parent = nullptr);
    ~SpeedTest() override;

    const State& state() const { return m_state; }
    const std::vector<SpeedTestResult>& results() const { return m_results; }

    // Begins a test unless one is running or the measurement program is not there.
    void start();
    // Stops a running test; it ends without a result, back to idle.
    void cancel();

    // The report of one test, or nullopt without "dl_throughput" and "ul_throughput" as numbers.
    static std::optional<SpeedTestResult> parse(const QByteArray& data, const QDateTime& now);
    // The saved list, newest first; a missing or undecodable value is an empty list.
    static std::vector<SpeedTestResult> decode(const QJsonValue& saved);

Q_SIGNALS:
    // The state or the list changed, or half a second passed while running (for the elapsed time).
    void changed();

private:
    void finish(const QByteArray& data, int status, QProcess::ExitStatus reason);
    void setState(State state);
    void save();

    Preferences& m_preferences;
    Command m_command;
    State m_state;
    std::vector<SpeedTestResult> m_results;
    std::unique_ptr<QProcess> m_process;
    QTimer m_progress;
};

} // namespace pulsebar
