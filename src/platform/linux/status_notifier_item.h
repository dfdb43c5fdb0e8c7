#pragma once

#include "core/tray_host.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <QObject>

#include <memory>

namespace pulsebar {

class DBusMenuExporter;

// The wire types of org.kde.StatusNotifierItem.
struct SNIPixmap { // (iiay)
    int width = 0;
    int height = 0;
    QByteArray data;
};
using SNIPixmaps = QList<SNIPixmap>;
struct SNIToolTip { // (sa(iiay)ss)
    QString iconName;
    SNIPixmaps pixmaps;
    QString title;
    QString text;
};

QDBusArgument& operator<<(QDBusArgument& argument, const SNIPixmap& pixmap);
const QDBusArgument& operator>>(const QDBusArgument& argument, SNIPixmap& pixmap);
QDBusArgument& operator<<(QDBusArgument& argument, const SNIToolTip& toolTip);
const QDBusArgument& operator>>(const QDBusArgument& argument, SNIToolTip& toolTip);

// One tray item as a StatusNotifierItem, on a bus connection of its own so that every item has its own
// name and its own /StatusNotifierItem and /MenuBar objects. Signals go out only for what changed.
class StatusNotifierItem : public QObject, public TrayItem {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
    Q_PROPERTY(QString Category READ category)
    Q_PROPERTY(QString Id READ id)
    Q_PROPERTY(QString Title READ title)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(int WindowId READ windowId)
    Q_PROPERTY(QString IconThemePath READ emptyString)
    Q_PROPERTY(QString IconName READ emptyString)
    Q_PROPERTY(SNIPixmaps IconPixmap READ iconPixmap)
    Q_PROPERTY(QString OverlayIconName READ emptyString)
    Q_PROPERTY(SNIPixmaps OverlayIconPixmap READ noPixmaps)
    Q_PROPERTY(QString AttentionIconName READ emptyString)
    Q_PROPERTY(SNIPixmaps AttentionIconPixmap READ noPixmaps)
    Q_PROPERTY(QString AttentionMovieName READ emptyString)
    Q_PROPERTY(QString IconAccessibleDesc READ title)
    Q_PROPERTY(QString AttentionAccessibleDesc READ emptyString)
    Q_PROPERTY(SNIToolTip ToolTip READ toolTip)
    Q_PROPERTY(bool ItemIsMenu READ itemIsMenu)
    Q_PROPERTY(QDBusObjectPath Menu READ menu)
    Q_PROPERTY(QString XAyatanaLabel READ label)
    Q_PROPERTY(QString XAyatanaLabelGuide READ labelGuide)
    Q_PROPERTY(uint XAyatanaOrderingIndex READ orderingIndex)
public:
    static inline const QString itemPath = QStringLiteral("/StatusNotifierItem");
    static inline const QString menuPath = QStringLiteral("/MenuBar");

    // `busName` is the well-known name the item takes on its own connection to the session bus.
    StatusNotifierItem(const QString& busName, uint orderingIndex, const TrayItemContent& content,
                       TrayItemHandlers handlers);
    ~StatusNotifierItem() override;

    static void registerTypes();
    static SNIPixmaps wirePixmaps(const std::vector<TrayPixmap>& pixmaps);

    const QString& busName() const { return m_busName; }
    bool isOnBus() const { return m_onBus; }
    DBusMenuExporter& menuExporter() { return *m_menu; }

    void setContent(const TrayItemContent& content) override;
    // Announces the item to the StatusNotifierWatcher, from the item's own connection.
    QDBusPendingCall registerWithWatcher() const;

    QString category() const { return QStringLiteral("Hardware"); }
    QString id() const { return m_content.id; }
    QString title() const { return m_content.title; }
    QString status() const { return QStringLiteral("Active"); }
    int windowId() const { return 0; }
    QString emptyString() const { return {}; }
    SNIPixmaps iconPixmap() const { return m_pixmaps; }
    SNIPixmaps noPixmaps() const { return {}; }
    SNIToolTip toolTip() const { return {QString(), {}, m_content.toolTipTitle, m_content.toolTipText}; }
    bool itemIsMenu() const { return false; }
    QDBusObjectPath menu() const { return QDBusObjectPath(menuPath); }
    QString label() const { return m_content.label; }
    QString labelGuide() const { return m_content.labelGuide; }
    uint orderingIndex() const { return m_orderingIndex; }

public Q_SLOTS:
    void Activate(int x, int y);
    void SecondaryActivate(int x, int y);
    void ContextMenu(int x, int y);
    void Scroll(int delta, const QString& orientation);
    void ProvideXdgActivationToken(const QString& token);

Q_SIGNALS:
    void NewTitle();
    void NewIcon();
    void NewAttentionIcon();
    void NewOverlayIcon();
    void NewToolTip();
    void NewStatus(const QString& status);
    void XAyatanaNewLabel(const QString& label, const QString& guide);

private:
    QString m_busName;
    QString m_connectionName;
    uint m_orderingIndex;
    TrayItemContent m_content;
    SNIPixmaps m_pixmaps;
    TrayItemHandlers m_handlers;
    std::unique_ptr<DBusMenuExporter> m_menu;
    bool m_onBus = false;
};

} // namespace pulsebar

Q_DECLARE_METATYPE(pulsebar::SNIPixmap)
Q_DECLARE_METATYPE(pulsebar::SNIToolTip)
