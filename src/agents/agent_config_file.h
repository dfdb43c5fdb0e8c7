#pragma once

#include "agents/config_error.h"

#include <QByteArray>
#include <QString>

#include <optional>

namespace pulsebar {

// An agent application's config file on disk. Reading refuses anything but a regular file of sane
// size; writing is atomic, keeps the file's owner, group and mode (a new file is the agent home
// owner's, 0600), and copies the user's own version aside once before the first change.
class AgentConfigFile {
public:
    AgentConfigFile(QString path, QString clientName);

    const QString& path() const { return m_path; }

    std::optional<QByteArray> read() const; // nothing when there is no file; throws ConfigError
    void write(const QByteArray& contents) const; // throws ConfigError

    // The copy of the user's version: the path with ".pulsebar-backup" appended.
    QString backupPath() const { return m_path + ".pulsebar-backup"; }

private:
    void checkRootMayWrite(const QString& target) const;

    QString m_path;
    QString m_clientName;
};

} // namespace pulsebar
