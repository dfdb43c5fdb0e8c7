#include "platform/linux/vdir_calendars.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

namespace pulsebar {

namespace {

// vdirsyncer keeps its sync state beside the calendars in a folder of this name.
const QString vdirsyncerStatus = QStringLiteral("status");
constexpr int maxVdirsyncerDepth = 3;

bool looksLikeVdir(const QDir& folder)
{
    return !folder.entryList({QStringLiteral("*.ics")}, QDir::Files).isEmpty()
           || folder.exists(QStringLiteral("displayname")) || folder.exists(QStringLiteral("color"));
}

void collectVdirs(const QDir& folder, const QString& source, int depth, QList<VdirLocation>& found)
{
    if (looksLikeVdir(folder)) {
        found.append({folder.absolutePath(), source});
        return;
    }
    if (depth >= maxVdirsyncerDepth)
        return;
    for (const QString& name : folder.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Readable, QDir::Name))
        if (depth > 0 || name != vdirsyncerStatus)
            collectVdirs(QDir(folder.filePath(name)), depth == 0 ? name : source, depth + 1, found);
}

} // namespace

QStringList khalCalendarPaths(const QByteArray& config, const QString& home)
{
    static const QRegularExpression section(QStringLiteral(R"(^\s*\[([^\[\]]+)\]\s*$)"));
    static const QRegularExpression path(QStringLiteral(R"(^\s*path\s*=\s*(.+?)\s*$)"));
    QStringList paths;
    bool inCalendars = false;
    for (const QString& line : QString::fromUtf8(config).split(QLatin1Char('\n'))) {
        const QString trimmed = line.trimmed();
        if (trimmed.startsWith(QLatin1Char('#')))
            continue;
        if (const auto top = section.match(line); top.hasMatch()) {
            inCalendars = top.captured(1).trimmed() == QStringLiteral("calendars");
            continue;
        }
        const auto entry = path.match(line);
        if (!inCalendars || !entry.hasMatch())
            continue;
        QString value = entry.captured(1);
        if (value.size() >= 2 && (value.front() == QLatin1Char('"') || value.front() == QLatin1Char('\''))
            && value.back() == value.front())
            value = value.mid(1, value.size() - 2);
        if (value == QStringLiteral("~") || value.startsWith(QStringLiteral("~/")))
            value = home + value.mid(1);
        paths.append(value);
    }
    return paths;
}

QStringList expandFolderPattern(const QString& pattern)
{
    const QString clean = QDir::cleanPath(pattern);
    if (!clean.contains(QLatin1Char('*')) && !clean.contains(QLatin1Char('?')))
        return QDir(clean).exists() ? QStringList{clean} : QStringList{};
    const QStringList parts = clean.split(QLatin1Char('/'));
    QStringList current{clean.startsWith(QLatin1Char('/')) ? QStringLiteral("/") : QDir::currentPath()};
    for (const QString& part : parts) {
        if (part.isEmpty())
            continue;
        QStringList next;
        for (const QString& base : current) {
            const QDir dir(base);
            if (part.contains(QLatin1Char('*')) || part.contains(QLatin1Char('?'))) {
                for (const QString& name : dir.entryList({part}, QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name))
                    next.append(dir.filePath(name));
            } else if (dir.exists(part)) {
                next.append(dir.filePath(part));
            }
        }
        current = next;
    }
    current.sort();
    return current;
}

QList<VdirLocation> findVdirCalendars(const QString& dataHome, const QString& configHome, const QString& home)
{
    QList<VdirLocation> found;
    const QDir vdirsyncer(dataHome + QStringLiteral("/vdirsyncer"));
    if (vdirsyncer.exists())
        collectVdirs(vdirsyncer, QStringLiteral("vdirsyncer"), 0, found);
    QFile khal(configHome + QStringLiteral("/khal/config"));
    if (khal.open(QIODevice::ReadOnly)) {
        for (const QString& pattern : khalCalendarPaths(khal.readAll(), home))
            for (const QString& folder : expandFolderPattern(pattern))
                found.append({QDir(folder).absolutePath(), QStringLiteral("khal")});
    }
    return found;
}

} // namespace pulsebar
