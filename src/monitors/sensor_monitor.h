#pragma once

#include "core/enum_names.h"
#include "history/history.h"

#include <QObject>
#include <QString>

#include <map>
#include <memory>
#include <optional>
#include <future>
#include <thread>
#include <vector>

namespace pulsebar {

// Units: temperature °C, voltage V, current A, power W.
enum class SensorKind { temperature, voltage, current, power };
// The panel lists groups in this order.
enum class SensorGroup { cpu, gpu, memory, storage, battery, power, system, other };

template <> struct EnumNames<SensorKind> {
    static constexpr std::array<std::string_view, 4> names{"temperature", "voltage", "current", "power"};
};
template <> struct EnumNames<SensorGroup> {
    static constexpr std::array<std::string_view, 8> names{"cpu", "gpu", "memory", "storage",
                                                           "battery", "power", "system", "other"};
};

// One sensor of the catalogue, identified by key: an SMC key ("TC0P") or a hwmon entry
// ("coretemp/temp2").
struct Sensor {
    QString key;
    QString name;
    SensorGroup group = SensorGroup::other;
    SensorKind kind = SensorKind::temperature;
    double value = 0;
    double peak = 0; // the highest value seen since discovery
    bool operator==(const Sensor&) const = default;
};

// One fan, identified by index (from 0); speeds in rpm.
struct Fan {
    static constexpr double maxRpm = 100000; // beyond any real fan: a higher reading is a broken one

    int index = 0;
    double rpm = 0;
    double minimum = 0;
    double maximum = 0;
    bool operator==(const Fan&) const = default;
};

struct TemperatureSummary {
    double average = 0;
    double maximum = 0;
};

// Where sensor readings come from: the SMC, or the kernel's hwmon and thermal interfaces.
// discover() runs once on a background thread and returns every candidate with its first value,
// before filtering, sorting and numbering; the other calls come from the main thread after it.
class SensorSource {
public:
    virtual ~SensorSource() = default;
    virtual std::vector<Sensor> discover() = 0;
    // Known after discover().
    virtual int fanCount() = 0;
    // The current value of a discovered sensor; nullopt when the read fails.
    virtual std::optional<double> read(const QString& key) = 0;
    virtual std::optional<Fan> readFan(int index) = 0;
};

// Names a temperature key of the SMC by its two-letter prefix.
struct SensorDescription {
    QString name;
    SensorGroup group = SensorGroup::other;
};
SensorDescription describeTemperature(const QString& key);

// Temperatures are kept strictly between 5 and 125 °C, which drops absent and bogus probes; power,
// voltage and current readings from 0 up to (not including) 1000.
bool isPlausible(SensorKind kind, double value);

// The sensor catalogue: discovered once, then refreshed on every hub tick.
class SensorMonitor : public QObject {
    Q_OBJECT
public:
    explicit SensorMonitor(std::shared_ptr<SensorSource> source, QObject* parent = nullptr);
    ~SensorMonitor() override;

    std::vector<Sensor> sensors;
    // The speed of the fastest fan, absent on a machine without fans.
    std::optional<double> fastestFanRpm() const;

    std::vector<Fan> fans;
    History fanHistory;
    bool isReady = false;
    int fanCount = 0;
    std::map<QString, History> histories;

    // Runs discovery once on a background thread and publishes it on the main thread.
    void start();
    // The same, on the calling thread; for tools that need the catalogue at once.
    void discoverNow();
    // Publishes the catalogue now: from the background discovery when it finishes within the time
    // limit, else (never started) by discovering here. Whether the catalogue is ready.
    bool awaitDiscovery(int timeoutMs);
    // Refreshes values, peaks, trails and fans; does nothing until discovery has published.
    void sample();

    // Average and maximum of the group's temperature sensors; nullopt when it has none.
    std::optional<TemperatureSummary> summary(SensorGroup group) const;
    std::vector<Sensor> temperatures(SensorGroup group) const;
    // The hottest CPU sensor; without any, the hottest sensor of all; nullopt without temperatures.
    std::optional<double> cpuTemperature() const;
    std::optional<Sensor> sensor(const QString& key) const;

    // Filters, sorts by key and numbers repeated names: the catalogue a discovery walk yields.
    static std::vector<Sensor> catalogue(std::vector<Sensor> candidates);

Q_SIGNALS:
    // Emitted on the main thread once the catalogue has been published.
    void ready();

private:
    struct Discovered {
        std::vector<Sensor> sensors;
        int fans = 0;
    };
    void publish(std::vector<Sensor> found, int fans);
    void publishDiscovered(); // the background result, once

    std::shared_ptr<SensorSource> m_source;
    std::thread m_discovery;
    std::future<Discovered> m_discovered; // the background thread's result until published
    bool m_started = false;
};

} // namespace pulsebar
