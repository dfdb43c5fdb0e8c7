#include "menubar/status_item_controller.h"

#include "core/platform_services.h"
#include "hub/hub.h"
#include "menubar/menu_bar_renderer.h"
#include "menubar/tray_icon_renderer.h"
#include "menubar/xembed_tray_host.h"
#include "panels/panel_host.h"

#include <QApplication>
#include <QGuiApplication>
#include <QMenu>
#include <QScreen>

namespace pulsebar {

std::vector<std::unique_ptr<TrayHost>> StatusItemController::desktopHosts()
{
    std::vector<std::unique_ptr<TrayHost>> hosts = platformServices().trayHosts();
    hosts.push_back(std::make_unique<XEmbedTrayHost>());
    return hosts;
}

StatusItemController::StatusItemController(Hub& hub, AppSettings& settings, QObject* parent)
    : StatusItemController(hub, settings, desktopHosts(), parent)
{
}

StatusItemController::StatusItemController(Hub& hub, AppSettings& settings,
                                           std::vector<std::unique_ptr<TrayHost>> hosts, QObject* parent)
    : QObject(parent), m_hub(hub), m_settings(settings),
      m_hosts(std::move(hosts)), m_panels(std::make_unique<PanelHost>(hub, settings))
{
    QPointer<StatusItemController> self(this);
    for (auto& host : m_hosts) {
        host->onMenuActivated = [self](int id) {
            if (self)
                self->menuActivated(id);
        };
        // A tray that comes or goes may change which one the items belong in.
        host->onAvailabilityChanged = [self] {
            if (self && self->availableHost() != self->m_host)
                self->rebuild();
        };
    }
    m_trayPreferences = TrayPreferences::load(m_settings.preferences());
}

StatusItemController::~StatusItemController() = default;

QString StatusItemController::itemId(ModuleKind kind)
{
    return QStringLiteral("pulsebar-") + enumName(kind);
}

QString StatusItemController::itemTitle(ModuleKind kind)
{
    return kind == ModuleKind::combined ? QStringLiteral("Pulsebar")
                                        : QStringLiteral("Pulsebar ") + MenuBarContent::title(kind);
}

QRect StatusItemController::panelAnchor(QPoint at, const QRect& screen, const QRect& available)
{
    if (screen.isEmpty())
        return QRect(at, QSize(1, 1));
    // The bar is the strip the desktop keeps windows out of; with none known, the point's own edge.
    if (at.y() < screen.center().y())
        return QRect(QPoint(at.x(), screen.top()), QPoint(at.x(), std::max(available.top() - 1, at.y())));
    return QRect(QPoint(at.x(), std::min(available.bottom() + 1, at.y())), QPoint(at.x(), screen.bottom()));
}

const HubSnapshot& StatusItemController::live()
{
    if (!readings)
        return m_hub.snapshot();
    m_replacedReadings = readings();
    return m_replacedReadings;
}

TrayHost* StatusItemController::availableHost() const
{
    for (const auto& host : m_hosts)
        if (host->isAvailable())
            return host.get();
    return nullptr;
}

bool StatusItemController::valueInIcon() const
{
    switch (m_trayPreferences.valueInIcon) {
    case TrayValueInIcon::on: return true;
    case TrayValueInIcon::off: return false;
    case TrayValueInIcon::automatic: break;
    }
    return !m_host || !m_host->showsLabels();
}

void StatusItemController::applyTrayPreferences()
{
    m_trayPreferences = TrayPreferences::load(m_settings.preferences());
    switch (m_trayPreferences.panel) {
    case TrayPanel::dark: m_darkPanel = true; break;
    case TrayPanel::light: m_darkPanel = false; break;
    case TrayPanel::automatic:
        m_darkPanel = platformServices().panelIsDark().value_or(MenuBarRenderer::Context::current().dark);
        break;
    }
    for (Entry& entry : m_entries)
        entry.drawn = false;
    refresh();
}

void StatusItemController::rebuild()
{
    closeDropdown();
    m_entries.clear(); // deleting an item removes it from the tray
    m_host = availableHost();
    const bool hasBattery = live().batteryPresent;
    for (const ModuleConfig& module : m_settings.config().modules) {
        if (!module.enabled || (module.kind == ModuleKind::battery && !hasBattery))
            continue;
        m_entries.push_back({module.kind, nullptr, {}, {}, false});
    }
    if (m_host)
        m_host->setMenu(contextMenu());
    else if (!m_entries.empty() && !m_toldNoTray) {
        m_toldNoTray = true;
        if (onNoTray)
            onNoTray();
    }
    applyTrayPreferences();
}

void StatusItemController::updateItem(Entry& entry, const ModuleConfig& module, const HubSnapshot& live,
                                       const Config& config)
{
    TrayFace face = TrayFaces::face(module, live, config, valueInIcon());
    const QString toolTip = MenuBarContent::toolTip(entry.kind, live, config);
    if (entry.drawn && face == entry.face && toolTip == entry.content.toolTipText)
        return;
    TrayItemContent content = entry.content;
    content.id = itemId(entry.kind);
    content.title = itemTitle(entry.kind);
    content.toolTipTitle = content.title;
    content.toolTipText = toolTip;
    content.label = face.label;
    content.labelGuide = face.labelGuide;
    if (!entry.drawn || face.icon != entry.face.icon || face.iconParts != entry.face.iconParts ||
        face.value != entry.face.value)
        content.pixmaps = TrayIconRenderer::pixmaps(face, m_darkPanel, config.monochrome);
    entry.face = std::move(face);
    entry.content = std::move(content);
    entry.drawn = true;
    if (entry.item) {
        entry.item->setContent(entry.content);
    } else {
        const ModuleKind kind = entry.kind;
        QPointer<StatusItemController> self(this);
        TrayItemHandlers handlers;
        handlers.activate = [self, kind](QPoint at) {
            if (self)
                self->activated(kind, at);
        };
        handlers.secondaryActivate = handlers.activate;
        handlers.contextMenu = [self](QPoint at) {
            if (self)
                self->showContextMenu(at);
        };
        entry.item = m_host->createItem(entry.content, std::move(handlers));
    }
}

void StatusItemController::refresh()
{
    if (!m_host) {
        // Waiting for a tray: XEmbed trays announce themselves only to those who look.
        if (!m_entries.empty() && availableHost())
            rebuild();
        return;
    }
    const Config& config = m_settings.config();
    const HubSnapshot& state = live();
    for (Entry& entry : m_entries) {
        const auto module = std::find_if(config.modules.begin(), config.modules.end(),
                                         [&](const ModuleConfig& m) { return m.kind == entry.kind; });
        if (module != config.modules.end())
            updateItem(entry, *module, state, config);
    }
    updateMenu();
    m_panels->refresh();
}

void StatusItemController::updateMenu()
{
    if (m_host && m_host->exportsMenu())
        m_host->setMenu(contextMenu());
}

std::optional<ModuleKind> StatusItemController::openDropdown() const
{
    return m_panels->openPanel();
}

void StatusItemController::closeDropdown()
{
    m_panels->close();
}

void StatusItemController::toggleDropdown(ModuleKind kind)
{
    for (const Entry& entry : m_entries)
        if (entry.kind == kind && entry.item && !entry.item->geometry().isEmpty())
            return toggleDropdown(kind, entry.item->geometry().center());
    toggleDropdown(kind, QCursor::pos());
}

void StatusItemController::toggleDropdown(ModuleKind kind, QPoint at)
{
    const QScreen* screen = QGuiApplication::screenAt(at);
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    QRect anchor = screen ? panelAnchor(at, screen->geometry(), screen->availableGeometry()) : QRect(at, QSize(1, 1));
    // Where the tray tells where the item is (XEmbed), the panel also keeps clear of the icon itself.
    for (const Entry& entry : m_entries)
        if (entry.kind == kind && entry.item && entry.item->geometry().contains(at))
            anchor = anchor.united(entry.item->geometry());
    // The one place a module's panel is opened or closed.
    m_panels->toggle(kind, anchor);
}

void StatusItemController::activated(ModuleKind kind, QPoint at)
{
    if (QGuiApplication::queryKeyboardModifiers() & Qt::ControlModifier)
        return showContextMenu(at);
    toggleDropdown(kind, at);
}

void StatusItemController::showContextMenu(QPoint at)
{
    closeDropdown();
    m_menu = std::make_unique<QMenu>();
    fillContextMenu(*m_menu);
    m_menu->popup(at + QPoint(0, 5));
}

TrayMenu StatusItemController::contextMenu() const
{
    using E = TrayMenuEntry;
    const KeepAwake& keepAwake = m_hub.keepAwake();
    E keepAwakeEntry = E::action(keepAwakeMenu, keepAwake.isActive ? QStringLiteral("Keep Awake: ") + keepAwake.statusText()
                                                                   : QStringLiteral("Keep Awake"));
    for (std::size_t i = 0; i < KeepAwake::allDurations.size(); ++i) {
        const KeepAwake::Duration duration = KeepAwake::allDurations[i];
        E choice = E::action(keepAwakeFirstDuration + int(i), KeepAwake::label(duration));
        choice.toggle = E::Toggle::radio;
        // An open end is "Until turned off" however it was started; a timed one is the choice made here.
        choice.checked = keepAwake.isActive && (duration == KeepAwake::Duration::indefinitely
                                                    ? !keepAwake.endDate
                                                    : keepAwake.endDate && m_chosenDuration == duration);
        keepAwakeEntry.children.push_back(choice);
    }
    keepAwakeEntry.children.push_back(E::separatorEntry(separator + 1));
    E turnOff = E::action(keepAwakeTurnOff, QStringLiteral("Turn Off"));
    turnOff.enabled = keepAwake.isActive;
    keepAwakeEntry.children.push_back(turnOff);

    TrayMenu menu{keepAwakeEntry, E::separatorEntry(separator + 2),
                  E::action(openSettings, QStringLiteral("Pulsebar Settings…"))};
    if (updaterConfigured)
        menu.push_back(E::action(checkForUpdates, QStringLiteral("Check for Updates…")));
    menu.push_back(E::separatorEntry(separator + 3));
    menu.push_back(E::action(quit, QStringLiteral("Quit Pulsebar")));
    return menu;
}

void StatusItemController::menuActivated(int id)
{
    if (id >= keepAwakeFirstDuration && id < keepAwakeFirstDuration + int(KeepAwake::allDurations.size())) {
        m_chosenDuration = KeepAwake::allDurations[std::size_t(id - keepAwakeFirstDuration)];
        m_hub.keepAwake().activate(m_settings.config().keepAwakeDisplay, *m_chosenDuration);
    } else if (id == keepAwakeTurnOff) {
        m_hub.keepAwake().stop(true);
    } else if (id == openSettings) {
        if (onOpenSettings)
            onOpenSettings();
    } else if (id == checkForUpdates) {
        if (onCheckForUpdates)
            onCheckForUpdates();
    } else if (id == quit) {
        QCoreApplication::quit();
    }
    updateMenu();
}

namespace {

void addEntries(QMenu& menu, const TrayMenu& entries, const std::function<void(int)>& activate)
{
    for (const TrayMenuEntry& entry : entries) {
        if (entry.separator) {
            menu.addSeparator();
        } else if (!entry.children.empty()) {
            addEntries(*menu.addMenu(entry.label), entry.children, activate);
        } else {
            QAction* action = menu.addAction(entry.label, &menu, [activate, id = entry.id] { activate(id); });
            action->setEnabled(entry.enabled);
            action->setCheckable(entry.toggle == TrayMenuEntry::Toggle::radio);
            action->setChecked(entry.checked);
        }
    }
}

} // namespace

void StatusItemController::fillContextMenu(QMenu& menu)
{
    QPointer<StatusItemController> self(this);
    addEntries(menu, contextMenu(), [self](int id) {
        if (self)
            self->menuActivated(id);
    });
    for (QAction* action : menu.actions()) {
        if (action->text() == QLatin1String("Pulsebar Settings…"))
            action->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
        else if (action->text() == QLatin1String("Quit Pulsebar"))
            action->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    }
}

} // namespace pulsebar
