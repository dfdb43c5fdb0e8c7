#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace pulsebar {

// A calendar folder found on this computer, with the place it was found in for the settings list.
struct VdirLocation {
    QString path;
    QString source;
    bool operator==(const VdirLocation&) const = default;
};

// The calendar folders that vdirsyncer and khal keep: every folder below $XDG_DATA_HOME/vdirsyncer/
// that holds .ics items (or a displayname or color file), and the `path =` entries of khal's
// configuration ($XDG_CONFIG_HOME/khal/config), whose "*" and "?" are expanded.
QList<VdirLocation> findVdirCalendars(const QString& dataHome, const QString& configHome, const QString& home);

// The `path =` values of the [calendars] section of a khal configuration, "~" expanded, in file order.
QStringList khalCalendarPaths(const QByteArray& config, const QString& home);

// The folders a path with "*" and "?" in its components names, sorted; the path itself when it has none
// and is a folder.
QStringList expandFolderPattern(const QString& pattern);

} // namespace pulsebar
