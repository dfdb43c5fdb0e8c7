#include "platform/linux/power_services.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>

namespace pulsebar {

namespace {

const QString profilesService = QStringLiteral("net.hadess.PowerProfiles");
const QString profilesPath = QStringLiteral("/net/hadess/PowerProfiles");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
const QString bluezService = QStringLiteral("org.bluez");

// Service calls that do not answer in time are dropped; the cache keeps its last answer.
constexpr int callTimeoutMs = 5000;

void registerTypes()
{
    static const bool done = [] {
        qDBusRegisterMetaType<DBusInterfaces>();
        qDBusRegisterMetaType<DBusManagedObjects>();
        return true;
    }();
    Q_UNUSED(done);
}

} // namespace

PowerServices::PowerServices(QDBusConnection bus, QObject* parent) : QObject(parent), m_bus(std::move(bus))
{
    registerTypes();
    if (!m_bus.isConnected())
        return;
    m_bus.connect(profilesService, profilesPath, propertiesInterface, QStringLiteral("PropertiesChanged"), this,
                  SLOT(profilePropertiesChanged(QString, QVariantMap, QStringList)));
    askActiveProfile();
}

void PowerServices::askActiveProfile()
{
    QDBusMessage get = QDBusMessage::createMethodCall(profilesService, profilesPath, propertiesInterface,
                                                      QStringLiteral("Get"));
    get << profilesService << QStringLiteral("ActiveProfile");
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(get, callTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* w) {
        const QDBusPendingReply<QDBusVariant> reply = *w;
        if (!reply.isError())
            setProfile(reply.value().variant());
        w->deleteLater();
    });
}

void PowerServices::setProfile(const QVariant& profile)
{
    if (profile.canConvert<QString>())
        m_powerSaver = profile.toString() == QLatin1String("power-saver");
}

void PowerServices::profilePropertiesChanged(const QString& interface, const QVariantMap& changed,
                                             const QStringList& invalidated)
{
    if (interface != profilesService)
        return;
    if (const auto it = changed.find(QStringLiteral("ActiveProfile")); it != changed.end())
        setProfile(*it);
    else if (invalidated.contains(QStringLiteral("ActiveProfile")))
        askActiveProfile();
}

void PowerServices::refreshBluetooth()
{
    if (!m_bus.isConnected() || m_bluetoothPending)
        return;
    m_bluetoothPending = true;
    const QDBusMessage call = QDBusMessage::createMethodCall(
        bluezService, QStringLiteral("/"), QStringLiteral("org.freedesktop.DBus.ObjectManager"),
        QStringLiteral("GetManagedObjects"));
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call, callTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* w) {
        m_bluetoothPending = false;
        const QDBusPendingReply<DBusManagedObjects> reply = *w;
        // Without BlueZ (no service, no adapter) there are no Bluetooth batteries.
        m_bluetooth = reply.isError() ? std::vector<BluetoothBattery>{} : bluezBatteries(reply.value());
        w->deleteLater();
    });
}

std::vector<BluetoothBattery> PowerServices::bluezBatteries(const DBusManagedObjects& objects)
{
    std::vector<BluetoothBattery> out;
    for (auto it = objects.begin(); it != objects.end(); ++it) {
        const DBusInterfaces& interfaces = it.value();
        const auto battery = interfaces.find(QStringLiteral("org.bluez.Battery1"));
        const auto device = interfaces.find(QStringLiteral("org.bluez.Device1"));
        if (battery == interfaces.end() || device == interfaces.end())
            continue;
        const QVariant percentage = battery->value(QStringLiteral("Percentage"));
        QString name = device->value(QStringLiteral("Alias")).toString();
        if (name.isEmpty())
            name = device->value(QStringLiteral("Name")).toString();
        bool ok = false;
        const int percent = percentage.toInt(&ok);
        if (ok && !name.isEmpty())
            out.push_back({name, percent});
    }
    return out;
}

} // namespace pulsebar
