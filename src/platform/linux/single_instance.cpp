#include "platform/linux/single_instance.h"

#include "core/app_id.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

namespace pulsebar {

QString SingleInstance::objectPath()
{
    return QLatin1Char('/') + QString(applicationId).replace(QLatin1Char('.'), QLatin1Char('/'));
}

SingleInstance::SingleInstance(QObject* parent) : QObject(parent) {}

SingleInstance::~SingleInstance()
{
    if (!m_registered)
        return;
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.unregisterService(applicationId);
    bus.unregisterObject(objectPath());
}

bool SingleInstance::claim()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface())
        return true;
    // The object first, so whoever sees the name can already call it.
    if (!bus.registerObject(objectPath(), this, QDBusConnection::ExportAllSlots))
        return true;
    const auto reply = bus.interface()->registerService(applicationId, QDBusConnectionInterface::DontQueueService,
                                                        QDBusConnectionInterface::DontAllowReplacement);
    if (reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered) {
        m_registered = true;
        return true;
    }
    bus.unregisterObject(objectPath());
    // Only a name held by another process means another instance; a failed call does not.
    return bus.interface()->isServiceRegistered(applicationId).value() == false;
}

bool SingleInstance::activateRunning()
{
    QDBusMessage call = QDBusMessage::createMethodCall(applicationId, objectPath(),
                                                       QStringLiteral("org.freedesktop.Application"),
                                                       QStringLiteral("Activate"));
    call << QVariantMap();
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 5000);
    return reply.type() == QDBusMessage::ReplyMessage;
}

void SingleInstance::Activate(const QVariantMap&)
{
    if (onActivate)
        onActivate();
}

void SingleInstance::Open(const QStringList&, const QVariantMap&)
{
    Activate({});
}

void SingleInstance::ActivateAction(const QString&, const QVariantList&, const QVariantMap&)
{
    Activate({});
}

} // namespace pulsebar
