#pragma once

#include "core/tray_host.h"

#include <QObject>
#include <QPointer>

#include <vector>

namespace pulsebar {

class XEmbedTrayItem;

// The older system tray (XEmbed, through QSystemTrayIcon), for desktops without a StatusNotifierWatcher:
// an icon per item and no label, so the icons carry the values. The menu is drawn here, as a QMenu.
class XEmbedTrayHost : public QObject, public TrayHost {
    Q_OBJECT
public:
    bool isAvailable() const override;
    bool showsLabels() const override { return false; }
    bool exportsMenu() const override { return false; }
    std::unique_ptr<TrayItem> createItem(const TrayItemContent& content, TrayItemHandlers handlers) override;
    void setMenu(const TrayMenu&) override {}

private:
    void showWaiting();

    std::vector<QPointer<XEmbedTrayItem>> m_waiting;
};

} // namespace pulsebar
