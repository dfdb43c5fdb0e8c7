#pragma once

#include "devices/connected_device.h"
#include "monitors/machine_facts.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace pulsebar {

class Hub;

// The eight read-only tools an agent can call. Each reads the hub's live state (or the history file)
// and answers one JSON object with snake_case keys; a value whose source is unknown is left out, never
// sent as null. Bad arguments throw ToolError with the sentence the agent reads.
class MCPTools {
public:
    explicit MCPTools(Hub& hub);
    ~MCPTools();

    // The tools/list catalogue, in its fixed order.
    static QJsonArray catalogue();

    // Runs the named tool. Throws ToolError for bad arguments and for a name no tool has.
    QJsonObject call(const QString& name, const QJsonObject& arguments);

    QJsonObject getOverview();
    QJsonObject getTopProcesses(const QJsonObject& arguments);
    QJsonObject getHistory(const QJsonObject& arguments);
    QJsonObject getSensors(const QJsonObject& arguments);
    QJsonObject getBattery();
    QJsonObject getNetwork();
    QJsonObject getDisks();
    QJsonObject getConnectedDevices();

    // One recorded sample of a metric: bucket start (seconds since 1970) and its mean.
    struct Sample {
        double time = 0;
        double value = 0;
    };
    // The summary and the evenly bucketed points of a metric's samples; `points` below 1 leaves the
    // points out. `samples` must not be empty.
    static QJsonObject historySummary(const std::vector<Sample>& samples, double pointSeconds);
    static QJsonArray historyPoints(const std::vector<Sample>& samples, int points);

    // One device as get_connected_devices and the overview list it.
    static QJsonObject deviceObject(const ConnectedDevice& device);

    // The saved speed-test results as agents read them, newest first; the "None yet" text without any.
    static QJsonValue speedTests(const QJsonValue& saved);

private:
    void awaitSensorDiscovery();
    QJsonArray connectedDevices();

    Hub& m_hub;
    std::optional<QString> m_model;     // read once: they cannot change while the process runs
    std::optional<QString> m_osVersion;
    bool m_factsRead = false;
};

} // namespace pulsebar
