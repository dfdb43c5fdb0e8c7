#pragma once

#include "core/app_settings.h"
#include "menubar/menu_bar_content.h"

#include <QObject>
#include <QPointer>

#include <functional>
#include <memory>
#include <vector>

class QMenu;
class QSystemTrayIcon;

namespace pulsebar {

class Hub;
class PanelHost;

// The row of tray items, one per enabled module, and what happens when they are clicked.
// It redraws only when told to (after each tick and each configuration change); it has no timer.
class StatusItemController : public QObject {
    Q_OBJECT
public:
    StatusItemController(Hub& hub, AppSettings& settings, QObject* parent = nullptr);
    ~StatusItemController() override;

    struct Entry {
        ModuleKind kind;
        std::unique_ptr<QSystemTrayIcon> item;
    };

    // Recreates the items from the configuration: the enabled modules in their order, without the
    // battery on a computer that has none.
    void rebuild();
    // Redraws every item from the live state already sampled.
    void refresh();
    // Opens the module's panel under its item, or closes it when it is open.
    void toggleDropdown(ModuleKind kind);
    PanelHost& panels() { return *m_panels; }
    void closeDropdown();

    const std::vector<Entry>& entries() const { return m_entries; }
    std::optional<ModuleKind> openDropdown() const;

    // The context menu of every item, built afresh so the keep-awake entry shows the current state.
    void fillContextMenu(QMenu& menu);

    // Called by "Pulsebar Settings…"; set by the application.
    std::function<void()> onOpenSettings;
    // True when an update feed is configured; adds "Check for Updates…".
    bool updaterConfigured = false;
    std::function<void()> onCheckForUpdates;

    // Where the live values come from; tests and the diagnostics dump replace it.
    std::function<MenuBarReadings()> readings;

    // The names the items carry, so the desktop can tell them apart: "Pulsebar.cpu".
    static QString autosaveName(ModuleKind kind);

private:
    void clicked(ModuleKind kind, int reason);
    void showContextMenu(QSystemTrayIcon* item);
    QSystemTrayIcon* itemFor(ModuleKind kind) const;

    Hub& m_hub;
    AppSettings& m_settings;
    std::vector<Entry> m_entries;
    std::unique_ptr<QMenu> m_menu;
    std::unique_ptr<PanelHost> m_panels;
};

} // namespace pulsebar
