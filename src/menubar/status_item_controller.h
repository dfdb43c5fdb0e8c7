#pragma once

#include "core/app_settings.h"
#include "core/keep_awake.h"
#include "core/tray_host.h"
#include "menubar/menu_bar_content.h"
#include "menubar/tray_face.h"
#include "menubar/tray_preferences.h"

#include <QObject>
#include <QPointer>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QMenu;

namespace pulsebar {

class PanelHost;
class Hub;

// The row of tray items, one per enabled module, and what happens when they are clicked.
// It redraws only when told to (after each tick and each configuration change); it has no timer.
// Items live in the first tray host that is available (StatusNotifierItem before XEmbed); without one
// they wait, and appear when a tray does.
class StatusItemController : public QObject {
    Q_OBJECT
public:
    // Menu entry ids.
    enum MenuId {
        keepAwakeMenu = 1,
        keepAwakeFirstDuration = 10, // one id per KeepAwake::Duration, in order
        keepAwakeTurnOff = 20,
        openSettings = 30,
        checkForUpdates = 31,
        quit = 40,
        separator = 100, // separators count up from here
    };

    // The desktop's trays, best first.
    static std::vector<std::unique_ptr<TrayHost>> desktopHosts();

    StatusItemController(Hub& hub, AppSettings& settings, QObject* parent = nullptr);
    StatusItemController(Hub& hub, AppSettings& settings, std::vector<std::unique_ptr<TrayHost>> hosts,
                         QObject* parent = nullptr);
    ~StatusItemController() override;

    struct Entry {
        ModuleKind kind;
        std::unique_ptr<TrayItem> item; // absent while no tray is there
        TrayFace face;
        TrayItemContent content;
        bool drawn = false;
    };

    // Recreates the items from the configuration: the enabled modules in their order, without the
    // battery on a computer that has none.
    void rebuild();
    // Redraws every item from the live state already sampled; only what changed reaches the tray.
    void refresh();
    // Opens the module's panel under its item, or closes it when it is open.
    void toggleDropdown(ModuleKind kind);
    // The same, anchored at a point the tray gave (the panel opens beside the bar, never over it).
    void toggleDropdown(ModuleKind kind, QPoint at);
    void closeDropdown();

    const std::vector<Entry>& entries() const { return m_entries; }
    std::optional<ModuleKind> openDropdown() const;
    PanelHost& panels() { return *m_panels; }
    // The tray the items are in; null while there is none.
    TrayHost* host() const { return m_host; }

    // The context menu of every item, built from the current state.
    TrayMenu contextMenu() const;
    void menuActivated(int id);
    // The same menu as a QMenu, for trays that do not draw it themselves.
    void fillContextMenu(QMenu& menu);

    // Rereads "tray.panel" and "tray.valueInIcon" and redraws.
    void applyTrayPreferences();
    const TrayPreferences& trayPreferences() const { return m_trayPreferences; }
    bool valueInIcon() const;
    bool darkPanel() const { return m_darkPanel; }

    // Called by "Pulsebar Settings…"; set by the application.
    std::function<void()> onOpenSettings;
    // Called once when items are wanted but no tray is there to show them.
    std::function<void()> onNoTray;
    // True when an update feed is configured; adds "Check for Updates…".
    bool updaterConfigured = false;
    std::function<void()> onCheckForUpdates;

    // Where the live values come from when set (tests and the diagnostics dump); otherwise the
    // hub's snapshot of its last tick, read in place.
    std::function<HubSnapshot()> readings;

    // The names the items carry, so the desktop can tell them apart: "pulsebar-cpu", "Pulsebar CPU".
    static QString itemId(ModuleKind kind);
    static QString itemTitle(ModuleKind kind);
    // Where a panel opened from a point in the tray is anchored: the band from the screen's edge to the
    // end of the bar holding the point, so the panel opens beside the bar and not over it.
    static QRect panelAnchor(QPoint at, const QRect& screen, const QRect& available);

private:
    const HubSnapshot& live();
    TrayHost* availableHost() const;
    void activated(ModuleKind kind, QPoint at);
    void showContextMenu(QPoint at);
    void updateMenu();
    void updateItem(Entry& entry, const ModuleConfig& module, const HubSnapshot& live, const Config& config);

    Hub& m_hub;
    AppSettings& m_settings;
    std::vector<std::unique_ptr<TrayHost>> m_hosts;
    TrayHost* m_host = nullptr;
    TrayPreferences m_trayPreferences;
    bool m_darkPanel = true;
    bool m_toldNoTray = false;
    std::optional<KeepAwake::Duration> m_chosenDuration; // the last keep-awake choice made in the menu
    std::vector<Entry> m_entries;
    HubSnapshot m_replacedReadings; // the last of `readings`, while live() hands it out
    std::unique_ptr<QMenu> m_menu;
    std::unique_ptr<PanelHost> m_panels;
};

} // namespace pulsebar
