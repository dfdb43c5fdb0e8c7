#include "platform/linux/autostart.h"

#include "core/app_id.h"
#include "core/paths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace pulsebar::Autostart {

namespace {

// Exec quoting of the desktop entry format: an argument with reserved characters is double-quoted,
// and inside the quotes ", `, $ and \ are escaped with a backslash.
QString quotedExec(const QString& path)
{
    static const QString reserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");
    if (std::none_of(path.begin(), path.end(), [](QChar c) { return reserved.contains(c); }))
        return path;
    QString out = QStringLiteral("\"");
    for (QChar c : path) {
        if (c == '"' || c == '`' || c == '$' || c == '\\')
            out += '\\';
        out += c;
    }
    return out + '"';
}

bool switchedOff(const QString& text)
{
    for (const QString& raw : text.split('\n')) {
        const QString line = raw.trimmed();
        if (line.compare(QLatin1String("Hidden=true"), Qt::CaseInsensitive) == 0 ||
            line.compare(QLatin1String("X-GNOME-Autostart-enabled=false"), Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}

} // namespace

QString entryPath()
{
    return Paths::env("XDG_CONFIG_HOME", Paths::env("HOME", QDir::homePath()) + QStringLiteral("/.config")) +
           QStringLiteral("/autostart/") + applicationId + QStringLiteral(".desktop");
}

QString entryText(const QString& executable)
{
    // Exec's field codes begin with %, so a literal one is doubled.
    QString exec = quotedExec(executable);
    exec.replace('%', QStringLiteral("%%"));
    return QStringLiteral("[Desktop Entry]\n"
                          "Type=Application\n"
                          "Name=Pulsebar\n"
                          "Comment=Live CPU, memory, disk, network, temperature and battery figures in the system tray\n"
                          "Exec=%1\n"
                          "Icon=%2\n"
                          "Terminal=false\n"
                          "X-GNOME-Autostart-enabled=true\n")
        .arg(exec, applicationId);
}

bool isEnabled()
{
    QFile file(entryPath());
    if (!file.open(QIODevice::ReadOnly))
        return false;
    return !switchedOff(QString::fromUtf8(file.readAll()));
}

QString setEnabled(bool enabled, const QString& executable)
{
    const QString path = entryPath();
    if (!enabled) {
        if (QFileInfo::exists(path) && !QFile::remove(path))
            return QStringLiteral("Pulsebar couldn't remove %1.").arg(path);
        return {};
    }
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(entryText(executable).toUtf8()) < 0 || !file.commit())
        return QStringLiteral("Pulsebar couldn't write %1.").arg(path);
    return {};
}

} // namespace pulsebar::Autostart
