#pragma once

#include "devices/mobile_device_api.h"

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <utility>

namespace pulsebar::test {

// A little world of devices behind the same table the real library fills. Handles are pointers into
// the world's own bookkeeping, so a test can see that everything opened was closed again.
class FakeDevices {
public:
    struct Device {
        MobileDeviceAPI::Pairing pairing = MobileDeviceAPI::Pairing::trusted;
        bool reachable = true;
        std::map<std::pair<QString, QString>, QVariant> values; // (domain or "", key)
        std::map<QString, QVariantMap> registry;                  // by entry name: the reply's Diagnostics
        bool relayFails = false;
    };

    std::map<QString, Device> devices;
    MobileDeviceAPI::EventHandler handler;
    int open = 0; // devices, sessions and services opened and not yet closed
    int reads = 0;

    std::shared_ptr<MobileDeviceAPI> api(bool withRelay = true)
    {
        auto api = std::make_shared<MobileDeviceAPI>();
        api->subscribe = [this](MobileDeviceAPI::EventHandler h) {
            handler = std::move(h);
            return 1;
        };
        api->unsubscribe = [this](int) { handler = nullptr; };
        api->connect = [this](const QString& id, Connection) -> MobileDeviceAPI::Handle {
            std::lock_guard lock(mutex);
            ++reads;
            const auto it = devices.find(id);
            if (it == devices.end() || !it->second.reachable)
                return nullptr;
            ++open;
            return &it->second;
        };
        api->disconnect = [this](MobileDeviceAPI::Handle) { close(); };
        api->startSession = [this](MobileDeviceAPI::Handle device, MobileDeviceAPI::Handle* session) {
            const auto pairing = static_cast<Device*>(device)->pairing;
            if (pairing == MobileDeviceAPI::Pairing::trusted) {
                std::lock_guard lock(mutex);
                ++open;
                *session = device;
            }
            return pairing;
        };
        api->stopSession = [this](MobileDeviceAPI::Handle) { close(); };
        api->copyValue = [](MobileDeviceAPI::Handle session, const char* domain, const char* key) -> std::optional<QVariant> {
            const auto& values = static_cast<Device*>(session)->values;
            const auto it = values.find({QString::fromLatin1(domain ? domain : ""), QString::fromLatin1(key)});
            return it == values.end() ? std::nullopt : std::optional<QVariant>(it->second);
        };
        if (!withRelay)
            return api;
        api->startService = [this](MobileDeviceAPI::Handle device, MobileDeviceAPI::Handle, const char*) -> MobileDeviceAPI::Handle {
            if (static_cast<Device*>(device)->relayFails)
                return nullptr;
            std::lock_guard lock(mutex);
            ++open;
            return device;
        };
        api->queryRegistry = [](MobileDeviceAPI::Handle service, const QString& entry) -> std::optional<QVariantMap> {
            const auto& registry = static_cast<Device*>(service)->registry;
            const auto it = registry.find(entry);
            return it == registry.end() ? std::nullopt : std::optional<QVariantMap>(it->second);
        };
        api->invalidate = [this](MobileDeviceAPI::Handle) { close(); };
        return api;
    }

    void send(MobileDeviceAPI::EventKind kind, const QString& id, Connection connection = Connection::usb)
    {
        if (handler)
            handler({kind, id, connection});
    }

    // A trusted phone answering every lockdown key read, with a battery registry entry.
    static Device phone(const QString& name, const QString& productType)
    {
        Device d;
        const QString battery = QStringLiteral("com.apple.mobile.battery");
        const QString disk = QStringLiteral("com.apple.disk_usage");
        d.values = {
            {{"", "DeviceName"}, name},
            {{"", "DeviceClass"}, QStringLiteral("iPhone")},
            {{"", "ProductType"}, productType},
            {{"", "ProductVersion"}, QStringLiteral("18.1")},
            {{battery, "BatteryCurrentCapacity"}, qint64(81)},
            {{battery, "BatteryIsCharging"}, true},
            {{disk, "TotalDiskCapacity"}, qint64(256'000'000'000)},
            {{disk, "TotalDataAvailable"}, qint64(100'000'000'000)},
        };
        d.registry[QStringLiteral("AppleSmartBattery")] = {
            {QStringLiteral("IORegistry"), QVariantMap{{QStringLiteral("CycleCount"), qint64(412)},
                                                       {QStringLiteral("DesignCapacity"), qint64(3200)},
                                                       {QStringLiteral("NominalChargeCapacity"), qint64(2880)}}}};
        return d;
    }

    // A trusted iPhone as the monitor publishes it after a read.
    static ConnectedDevice trustedPhone()
    {
        ConnectedDevice d;
        d.id = "p";
        d.trusted = true;
        d.name = "Mira's iPhone";
        d.productType = "iPhone16,1";
        d.deviceClass = "iPhone";
        d.osVersion = "18.1";
        d.batteryLevel = 76;
        d.isCharging = true;
        d.storageTotal = 256'000'000'000;
        d.storageFree = 64'000'000'000;
        d.battery = DeviceBattery{.cycleCount = 412, .designCapacity = 3274, .maxCapacity = 2914};
        return d;
    }

private:
    void close()
    {
        std::lock_guard lock(mutex);
        --open;
    }
    std::mutex mutex;
};

} // namespace pulsebar::test
