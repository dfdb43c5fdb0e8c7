#include "devices/mobile_device_api.h"

#include <algorithm>
#include <cmath>

namespace pulsebar {

namespace {

constexpr const char* batteryDomain = "com.apple.mobile.battery";
constexpr const char* diskDomain = "com.apple.disk_usage";

// Runs the closing call when it goes out of scope, so every exit path releases what was opened.
template <typename Close>
class Closer {
public:
    explicit Closer(Close close) : m_close(std::move(close)) {}
    ~Closer() { m_close(); }
    Closer(const Closer&) = delete;
    Closer& operator=(const Closer&) = delete;

private:
    Close m_close;
};

std::optional<int64_t> byteCount(const std::optional<QVariant>& value)
{
    const auto n = value ? PlistValue::number(*value) : std::nullopt;
    if (!n || *n < 0 || *n > 9.0e18)
        return std::nullopt;
    return int64_t(std::llround(*n));
}

void readLockdownValues(const MobileDeviceAPI& api, MobileDeviceAPI::Handle session, ConnectedDevice& d)
{
    const auto get = [&](const char* domain, const char* key) { return api.copyValue(session, domain, key); };
    const auto text = [&](const char* key) {
        const auto value = get(nullptr, key);
        return value ? PlistValue::text(*value) : std::nullopt;
    };
    d.deviceClass = text("DeviceClass");
    d.productType = text("ProductType");
    d.osVersion = text("ProductVersion");
    d.name = text("DeviceName");

    if (const auto level = get(batteryDomain, "BatteryCurrentCapacity"))
        if (const auto n = PlistValue::number(*level))
            d.batteryLevel = int(std::lround(std::clamp(*n, 0.0, 100.0)));
    if (const auto charging = get(batteryDomain, "BatteryIsCharging"))
        d.isCharging = PlistValue::flag(*charging);
    if (const auto full = get(batteryDomain, "FullyCharged"))
        d.fullyCharged = PlistValue::flag(*full);

    d.storageTotal = byteCount(get(diskDomain, "TotalDiskCapacity"));
    d.storageFree = byteCount(get(diskDomain, "TotalDataAvailable"));
    d.dataCapacity = byteCount(get(diskDomain, "TotalDataCapacity"));

    d.modelNumber = text("ModelNumber");
    d.regionInfo = text("RegionInfo");
    d.buildVersion = text("BuildVersion");
    d.serialNumber = text("SerialNumber");
}

// The power-source entry of the I/O registry: newer devices name it AppleSmartBattery, older ones
// AppleARMPMUCharger.
std::optional<DeviceBattery> readBatteryRegistry(const MobileDeviceAPI& api, MobileDeviceAPI::Handle device,
                                                 MobileDeviceAPI::Handle session)
{
    MobileDeviceAPI::Handle service = api.startService(device, session, "com.apple.mobile.diagnostics_relay");
    if (!service) // the relay's name before iOS 5
        service = api.startService(device, session, "com.apple.iosdiagnostics.relay");
    if (!service)
        return std::nullopt;
    Closer closeService([&] { api.invalidate(service); });
    for (const char* entry : {"AppleSmartBattery", "AppleARMPMUCharger"}) {
        const std::optional<QVariantMap> diagnostics = api.queryRegistry(service, QLatin1String(entry));
        if (!diagnostics)
            continue;
        const QVariantMap registry = diagnostics->value(QStringLiteral("IORegistry")).toMap();
        if (const auto battery = DeviceBattery::registry(registry))
            return battery;
    }
    return std::nullopt;
}

} // namespace

std::optional<ConnectedDevice> readDevice(const MobileDeviceAPI& api, const QString& id, Connection connection)
{
    const MobileDeviceAPI::Handle device = api.connect(id, connection);
    if (!device)
        return std::nullopt;
    Closer disconnect([&] { api.disconnect(device); });

    ConnectedDevice d;
    d.id = id;
    d.connection = connection;
    MobileDeviceAPI::Handle session = nullptr;
    switch (api.startSession(device, &session)) {
    case MobileDeviceAPI::Pairing::unreachable: return std::nullopt;
    case MobileDeviceAPI::Pairing::untrusted: return d;
    case MobileDeviceAPI::Pairing::trusted: break;
    }
    Closer stopSession([&] { api.stopSession(session); });
    d.trusted = true;
    readLockdownValues(api, session, d);
    if (api.canReadBatteryHealth())
        d.battery = readBatteryRegistry(api, device, session);
    return d;
}

} // namespace pulsebar
