#include "platform/linux/status_notifier_item.h"

#include "platform/linux/dbus_menu.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>

#include <atomic>

namespace pulsebar {

QDBusArgument& operator<<(QDBusArgument& argument, const SNIPixmap& pixmap)
{
    argument.beginStructure();
    argument << pixmap.width << pixmap.height << pixmap.data;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, SNIPixmap& pixmap)
{
    argument.beginStructure();
    argument >> pixmap.width >> pixmap.height >> pixmap.data;
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const SNIToolTip& toolTip)
{
    argument.beginStructure();
    argument << toolTip.iconName << toolTip.pixmaps << toolTip.title << toolTip.text;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, SNIToolTip& toolTip)
{
    argument.beginStructure();
    argument >> toolTip.iconName >> toolTip.pixmaps >> toolTip.title >> toolTip.text;
    argument.endStructure();
    return argument;
}

void StatusNotifierItem::registerTypes()
{
    static const bool registered = [] {
        qDBusRegisterMetaType<SNIPixmap>();
        qDBusRegisterMetaType<SNIPixmaps>();
        qDBusRegisterMetaType<SNIToolTip>();
        return true;
    }();
    (void)registered;
}

SNIPixmaps StatusNotifierItem::wirePixmaps(const std::vector<TrayPixmap>& pixmaps)
{
    SNIPixmaps out;
    for (const TrayPixmap& p : pixmaps)
        out << SNIPixmap{p.width, p.height, p.argb};
    return out;
}

StatusNotifierItem::StatusNotifierItem(const QString& busName, uint orderingIndex, const TrayItemContent& content,
                                       TrayItemHandlers handlers)
    : m_busName(busName), m_orderingIndex(orderingIndex), m_content(content),
      m_pixmaps(wirePixmaps(content.pixmaps)), m_handlers(std::move(handlers)),
      m_menu(std::make_unique<DBusMenuExporter>())
{
    registerTypes();
    static std::atomic<int> serial{0};
    m_connectionName = QStringLiteral("pulsebar-tray-item-%1").arg(++serial);
    QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, m_connectionName);
    if (!bus.isConnected())
        return;
    const auto flags = QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals |
                       QDBusConnection::ExportAllProperties;
    m_onBus = bus.registerObject(itemPath, this, flags) && bus.registerObject(menuPath, m_menu.get(), flags) &&
              bus.registerService(m_busName);
}

StatusNotifierItem::~StatusNotifierItem()
{
    // Dropping the connection releases the name; the watcher then forgets the item.
    {
        QDBusConnection bus(m_connectionName);
        bus.unregisterObject(itemPath);
        bus.unregisterObject(menuPath);
    }
    QDBusConnection::disconnectFromBus(m_connectionName);
}

void StatusNotifierItem::setContent(const TrayItemContent& content)
{
    if (content == m_content)
        return;
    const TrayItemContent old = std::exchange(m_content, content);
    if (content.title != old.title)
        Q_EMIT NewTitle();
    if (content.pixmaps != old.pixmaps) {
        m_pixmaps = wirePixmaps(content.pixmaps);
        Q_EMIT NewIcon();
    }
    if (content.toolTipTitle != old.toolTipTitle || content.toolTipText != old.toolTipText)
        Q_EMIT NewToolTip();
    if (content.label != old.label || content.labelGuide != old.labelGuide)
        Q_EMIT XAyatanaNewLabel(content.label, content.labelGuide);
}

QDBusPendingCall StatusNotifierItem::registerWithWatcher() const
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.kde.StatusNotifierWatcher"), QStringLiteral("/StatusNotifierWatcher"),
        QStringLiteral("org.kde.StatusNotifierWatcher"), QStringLiteral("RegisterStatusNotifierItem"));
    call << m_busName;
    return QDBusConnection(m_connectionName).asyncCall(call);
}

void StatusNotifierItem::Activate(int x, int y)
{
    if (m_handlers.activate)
        m_handlers.activate(QPoint(x, y));
}

void StatusNotifierItem::SecondaryActivate(int x, int y)
{
    if (m_handlers.secondaryActivate)
        m_handlers.secondaryActivate(QPoint(x, y));
}

void StatusNotifierItem::ContextMenu(int x, int y)
{
    if (m_handlers.contextMenu)
        m_handlers.contextMenu(QPoint(x, y));
}

void StatusNotifierItem::Scroll(int, const QString&) {}

void StatusNotifierItem::ProvideXdgActivationToken(const QString&) {}

} // namespace pulsebar
