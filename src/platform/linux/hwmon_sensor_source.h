#pragma once

#include "monitors/sensor_monitor.h"
#include "platform/linux/rooted_file_reader.h"

#include <map>
#include <string>
#include <vector>

namespace pulsebar {

// The kernel's hardware monitors (sys/class/hwmon) mapped into the sensor catalogue: keys "CHIP/tempK",
// names from the labels, groups from the chip. The applesmc chip labels its temperatures with SMC keys,
// which become the keys and are named by the SMC naming rule. When no chip reports a temperature, the
// thermal zones (sys/class/thermal) stand in.
class HwmonSensorSource : public SensorSource {
public:
    explicit HwmonSensorSource(RootedFileReader sysfs);

    std::vector<Sensor> discover() override;
    int fanCount() override;
    std::optional<double> read(const QString& key) override;
    std::optional<Fan> readFan(int index) override;

    static SensorGroup chipGroup(const QString& chip);

private:
    // A file and the divisor that turns its integer into the catalogue's unit (m°C -> °C, µW -> W).
    struct Channel {
        std::string file;
        double divisor = 1;
    };
    struct FanFiles {
        std::string input, minimum, maximum;
    };

    std::optional<double> readChannel(const Channel& channel) const;
    void discoverChip(const std::string& dir, const QString& chip, const QString& keyPrefix,
                      std::vector<Sensor>& found);
    void discoverThermalZones(std::vector<Sensor>& found);
    void addCandidate(std::vector<Sensor>& found, Sensor candidate, Channel channel);

    RootedFileReader m_sysfs;
    std::map<QString, Channel> m_channels;
    std::vector<FanFiles> m_fans;
};

} // namespace pulsebar
