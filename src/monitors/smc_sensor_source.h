#pragma once

#include "monitors/sensor_monitor.h"
#include "monitors/smc.h"

namespace pulsebar {

// The sensor catalogue of the SMC: every temperature key ("T…") and a fixed set of power, voltage and
// current keys, found by walking the controller's key index once.
class SMCSensorSource : public SensorSource {
public:
    explicit SMCSensorSource(SMC& smc);

    std::vector<Sensor> discover() override;
    int fanCount() override;
    std::optional<double> read(const QString& key) override;
    std::optional<Fan> readFan(int index) override;

private:
    std::optional<double> value(const std::string& key);

    SMC& m_smc;
    int m_fanCount = 0;
};

} // namespace pulsebar
