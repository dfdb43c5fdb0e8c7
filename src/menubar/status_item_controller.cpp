#include "menubar/status_item_controller.h"

#include "hub/hub.h"
#include "menubar/dropdown_panel.h"
#include "menubar/menu_bar_renderer.h"

#include <QApplication>
#include <QGuiApplication>
#include <QMenu>
#include <QPalette>
#include <QPixmap>
#include <QSystemTrayIcon>

namespace pulsebar {

StatusItemController::StatusItemController(Hub& hub, AppSettings& settings, QObject* parent)
    : QObject(parent), readings([&hub] { return MenuBarReadings::from(hub); }), m_hub(hub), m_settings(settings)
{
}

StatusItemController::~StatusItemController() = default;

QString StatusItemController::autosaveName(ModuleKind kind)
{
    return QStringLiteral("Pulsebar.") + enumName(kind);
}

void StatusItemController::rebuild()
{
    closeDropdown();
    m_entries.clear(); // deleting a QSystemTrayIcon removes it from the tray
    const bool hasBattery = readings().hasBattery;
    for (const ModuleConfig& module : m_settings.config().modules) {
        if (!module.enabled || (module.kind == ModuleKind::battery && !hasBattery))
            continue;
        auto item = std::make_unique<QSystemTrayIcon>();
        item->setObjectName(autosaveName(module.kind));
        const ModuleKind kind = module.kind;
        connect(item.get(), &QSystemTrayIcon::activated, this,
                [this, kind](QSystemTrayIcon::ActivationReason reason) { clicked(kind, int(reason)); });
        m_entries.push_back({kind, std::move(item)});
    }
    refresh();
    for (Entry& entry : m_entries)
        entry.item->show();
}

void StatusItemController::refresh()
{
    const Config& config = m_settings.config();
    const MenuBarReadings live = readings();
    const MenuBarRenderer::Context context = MenuBarRenderer::Context::current();
    for (Entry& entry : m_entries) {
        if (!entry.item)
            continue;
        const auto module = std::find_if(config.modules.begin(), config.modules.end(),
                                         [&](const ModuleConfig& m) { return m.kind == entry.kind; });
        if (module == config.modules.end())
            continue;
        QImage image = MenuBarRenderer::image(MenuBarContent::parts(*module, live, config), config.monochrome, context);
        // Tray hosts do not tint template images; the controller does it for the panel's appearance.
        if (config.monochrome && context.dark)
            image = MenuBarRenderer::tinted(image, QGuiApplication::palette().color(QPalette::WindowText));
        QIcon icon(QPixmap::fromImage(image));
        icon.setIsMask(config.monochrome);
        entry.item->setIcon(icon);
        entry.item->setToolTip(MenuBarContent::summary(entry.kind, live, config));
    }
    if (m_dropdown && m_dropdown->isVisible())
        m_dropdown->setLines(MenuBarContent::title(m_dropdown->kind()),
                             MenuBarContent::lines(m_dropdown->kind(), live, config));
}

QSystemTrayIcon* StatusItemController::itemFor(ModuleKind kind) const
{
    for (const Entry& entry : m_entries)
        if (entry.kind == kind)
            return entry.item.get();
    return nullptr;
}

std::optional<ModuleKind> StatusItemController::openDropdown() const
{
    if (m_dropdown && m_dropdown->isVisible())
        return m_dropdown->kind();
    return std::nullopt;
}

void StatusItemController::closeDropdown()
{
    if (m_dropdown)
        m_dropdown->hide();
}

void StatusItemController::toggleDropdown(ModuleKind kind)
{
    if (openDropdown() == kind) {
        closeDropdown();
        return;
    }
    if (!m_dropdown)
        m_dropdown = std::make_unique<DropdownPanel>();
    const QSystemTrayIcon* item = itemFor(kind);
    const QRect anchor = item ? item->geometry() : QRect();
    m_dropdown->open(kind, anchor, MenuBarContent::title(kind),
                     MenuBarContent::lines(kind, readings(), m_settings.config()));
}

void StatusItemController::clicked(ModuleKind kind, int reason)
{
    const auto why = QSystemTrayIcon::ActivationReason(reason);
    const bool control = QGuiApplication::keyboardModifiers() & Qt::ControlModifier;
    if (why == QSystemTrayIcon::Context || (why == QSystemTrayIcon::Trigger && control)) {
        showContextMenu(itemFor(kind));
        return;
    }
    if (why == QSystemTrayIcon::Trigger)
        toggleDropdown(kind);
}

void StatusItemController::showContextMenu(QSystemTrayIcon* item)
{
    closeDropdown();
    m_menu = std::make_unique<QMenu>();
    fillContextMenu(*m_menu);
    const QRect anchor = item ? item->geometry() : QRect();
    m_menu->popup(anchor.isEmpty() ? QCursor::pos() : anchor.bottomLeft() + QPoint(0, 5));
}

void StatusItemController::fillContextMenu(QMenu& menu)
{
    KeepAwake& keepAwake = m_hub.keepAwake();
    const QString keepAwakeTitle = keepAwake.isActive
                                       ? QStringLiteral("Keep Awake: ") + keepAwake.statusText()
                                       : QStringLiteral("Keep Awake");
    QMenu* submenu = menu.addMenu(keepAwakeTitle);
    for (KeepAwake::Duration duration : KeepAwake::allDurations) {
        submenu->addAction(KeepAwake::label(duration), this, [this, duration] {
            m_hub.keepAwake().activate(m_settings.config().keepAwakeDisplay, duration);
        });
    }
    submenu->addSeparator();
    submenu->addAction(QStringLiteral("Turn Off"), this, [this] { m_hub.keepAwake().stop(true); });
    menu.addSeparator();
    QAction* settings = menu.addAction(QStringLiteral("Pulsebar Settings…"), this, [this] {
        if (onOpenSettings)
            onOpenSettings();
    });
    settings->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    if (updaterConfigured)
        menu.addAction(QStringLiteral("Check for Updates…"), this, [this] {
            if (onCheckForUpdates)
                onCheckForUpdates();
        });
    menu.addSeparator();
    QAction* quit = menu.addAction(QStringLiteral("Quit Pulsebar"), qApp, &QCoreApplication::quit);
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
}

} // namespace pulsebar
