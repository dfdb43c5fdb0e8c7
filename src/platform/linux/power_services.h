#pragma once

#include "monitors/battery_monitor.h"

#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QMap>
#include <QObject>
#include <QVariantMap>

#include <optional>
#include <vector>

namespace pulsebar {

using DBusInterfaces = QMap<QString, QVariantMap>;
using DBusManagedObjects = QMap<QDBusObjectPath, DBusInterfaces>;

// The desktop's power services on the system bus, asked asynchronously so that a tick never waits:
// power-profiles-daemon's active profile (kept fresh by its change signal) and BlueZ's device batteries
// (re-read on request). Each answer lands in a cache that the battery reader returns at once.
class PowerServices : public QObject {
    Q_OBJECT
public:
    explicit PowerServices(QDBusConnection bus, QObject* parent = nullptr);

    // true when the daemon's profile is "power-saver"; nullopt until it has answered, or without it.
    std::optional<bool> powerSaver() const { return m_powerSaver; }
    // The batteries BlueZ reported last.
    const std::vector<BluetoothBattery>& bluetoothBatteries() const { return m_bluetooth; }
    // Asks BlueZ again unless a question is already on its way.
    void refreshBluetooth();

    // Accessory batteries in a BlueZ object tree: org.bluez.Battery1 "Percentage" with the device's
    // "Alias" (else "Name").
    static std::vector<BluetoothBattery> bluezBatteries(const DBusManagedObjects& objects);

private Q_SLOTS:
    void profilePropertiesChanged(const QString& interface, const QVariantMap& changed, const QStringList& invalidated);

private:
    void askActiveProfile();
    void setProfile(const QVariant& profile);

    QDBusConnection m_bus;
    std::optional<bool> m_powerSaver;
    std::vector<BluetoothBattery> m_bluetooth;
    bool m_bluetoothPending = false;
};

} // namespace pulsebar
