#pragma once

#include "core/tray_host.h"
#include "platform/linux/status_notifier_item.h"

#include <QDBusServiceWatcher>
#include <QObject>
#include <QPointer>

#include <deque>
#include <vector>

namespace pulsebar {

// The tray of desktops with a StatusNotifierWatcher on the session bus (GNOME with the AppIndicator
// extension, KDE Plasma, Xfce, MATE, Budgie, Cinnamon). Items register with the watcher one after
// another, each once the previous one has been answered, so hosts that keep registration order show
// them in the order they were created.
class StatusNotifierHost : public QObject, public TrayHost {
    Q_OBJECT
public:
    static inline const QString watcherService = QStringLiteral("org.kde.StatusNotifierWatcher");

    explicit StatusNotifierHost(QObject* parent = nullptr);

    bool isAvailable() const override { return m_available; }
    // The desktop is settled for the session: asked once, not at every item's update.
    bool showsLabels() const override { return m_showsLabels; }
    bool exportsMenu() const override { return true; }
    std::unique_ptr<TrayItem> createItem(const TrayItemContent& content, TrayItemHandlers handlers) override;
    void setMenu(const TrayMenu& menu) override;

    // Items still waiting for the watcher's answer.
    std::size_t pendingRegistrations() const { return m_queue.size(); }

private:
    void setAvailable(bool available);
    void registerBatch();
    void registerNext();

    QDBusServiceWatcher m_watcher;
    bool m_available = false;
    bool m_showsLabels = true;
    bool m_registering = false;
    bool m_batchScheduled = false;
    int m_serial = 0;
    TrayMenu m_menu;
    std::vector<QPointer<StatusNotifierItem>> m_items;
    std::deque<QPointer<StatusNotifierItem>> m_queue;
};

} // namespace pulsebar
