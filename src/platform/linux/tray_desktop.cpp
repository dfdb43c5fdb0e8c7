#include "platform/linux/tray_desktop.h"

#include <QFile>
#include <QStandardPaths>
#include <QStringList>

namespace pulsebar::TrayDesktop {

namespace {

QStringList desktopNames(const QString& desktop)
{
    return desktop.toLower().split(QLatin1Char(':'), Qt::SkipEmptyParts);
}

// The value of `key` in the [group] of an INI text; empty when absent.
QString iniValue(const QString& text, const QString& group, const QString& key)
{
    QString current;
    for (const QString& raw : text.split(QLatin1Char('\n'))) {
        const QString line = raw.trimmed();
        if (line.startsWith(QLatin1Char('[')) && line.endsWith(QLatin1Char(']')))
            current = line.mid(1, line.size() - 2);
        else if (current == group && line.section(QLatin1Char('='), 0, 0).trimmed() == key)
            return line.section(QLatin1Char('='), 1).trimmed();
    }
    return {};
}

QString readConfigFile(const QString& name)
{
    QFile file(QStandardPaths::locate(QStandardPaths::GenericConfigLocation, name));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.read(256 * 1024));
}

} // namespace

QString currentDesktop()
{
    return qEnvironmentVariable("XDG_CURRENT_DESKTOP");
}

bool showsLabels(const QString& desktop)
{
    return !desktopNames(desktop).contains(QStringLiteral("kde"));
}

bool addsItemsFirst(const QString& desktop)
{
    const QStringList names = desktopNames(desktop);
    return names.contains(QStringLiteral("gnome")) || names.contains(QStringLiteral("unity"));
}

std::optional<bool> panelIsDark(const QString& desktop, const QString& plasmarc, const QString& kdeglobals)
{
    const QStringList names = desktopNames(desktop);
    if (names.contains(QStringLiteral("gnome")) || names.contains(QStringLiteral("unity")))
        return true;
    if (!names.contains(QStringLiteral("kde")))
        return std::nullopt;
    // Plasma's default theme follows the colour scheme; a named dark or light theme decides on its own.
    const QString theme = iniValue(plasmarc, QStringLiteral("Theme"), QStringLiteral("name")).toLower();
    if (theme.contains(QStringLiteral("dark")))
        return true;
    if (theme.contains(QStringLiteral("light")))
        return false;
    const QString scheme = iniValue(kdeglobals, QStringLiteral("General"), QStringLiteral("ColorScheme")).toLower();
    if (!scheme.isEmpty())
        return scheme.contains(QStringLiteral("dark"));
    const QString window = iniValue(kdeglobals, QStringLiteral("Colors:Window"), QStringLiteral("BackgroundNormal"));
    const QStringList rgb = window.split(QLatin1Char(','));
    if (rgb.size() >= 3) {
        const double luma = 0.299 * rgb[0].toDouble() + 0.587 * rgb[1].toDouble() + 0.114 * rgb[2].toDouble();
        return luma < 128;
    }
    return std::nullopt;
}

std::optional<bool> panelIsDark()
{
    const QString desktop = currentDesktop();
    if (!desktopNames(desktop).contains(QStringLiteral("kde")))
        return panelIsDark(desktop, {}, {});
    return panelIsDark(desktop, readConfigFile(QStringLiteral("plasmarc")), readConfigFile(QStringLiteral("kdeglobals")));
}

bool sessionHasDisplay()
{
    const QString platform = qEnvironmentVariable("QT_QPA_PLATFORM");
    if (!platform.isEmpty() && !platform.startsWith(QLatin1String("xcb")) && !platform.startsWith(QLatin1String("wayland")))
        return true;
    return !qEnvironmentVariable("DISPLAY").isEmpty() || !qEnvironmentVariable("WAYLAND_DISPLAY").isEmpty();
}

QString noDisplayMessage()
{
    return QStringLiteral("pulsebar: the tray application needs a desktop session (neither DISPLAY nor "
                          "WAYLAND_DISPLAY is set); pulsebar --mcp and pulsebar --help work without one.");
}

std::pair<QString, QString> noTrayAdvice(const QString& desktop)
{
    const QString title = QStringLiteral("Pulsebar has no tray to show its items in");
    if (desktopNames(desktop).contains(QStringLiteral("gnome")))
        return {title, QStringLiteral("Turn on the AppIndicator extension in Extensions (Debian and Ubuntu package "
                                      "gnome-shell-extension-appindicator). Pulsebar keeps recording, and its items "
                                      "appear as soon as the tray does.")};
    return {title, QStringLiteral("Add a system tray (status notifier) to your panel. Pulsebar keeps recording, and "
                                  "its items appear as soon as the tray does.")};
}

} // namespace pulsebar::TrayDesktop
