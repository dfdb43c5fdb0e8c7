#include "agents/agent_config_file.h"

#include "core/paths.h"
#include "core/private_files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <sys/stat.h>
#include <unistd.h>

namespace pulsebar {

namespace {

// Agents' config files are a few kilobytes; anything past this is not one.
constexpr qint64 maxConfigBytes = 16 * 1024 * 1024;

// Follows a chain of symbolic links to the file it ends at (which need not exist yet), so that a
// config file kept elsewhere and linked into place is edited where it lives instead of being replaced.
QString followLinks(const QString& path)
{
    QFileInfo info(path);
    for (int depth = 0; depth < 40 && info.isSymLink(); ++depth)
        info.setFile(info.symLinkTarget());
    return info.absoluteFilePath();
}

// Where a path really lies, with every link in its existing part resolved; the part that does not
// exist yet is appended as written.
QString realLocation(const QString& path)
{
    QString existing = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    QString missing;
    while (!QFileInfo::exists(existing) && existing != "/") {
        missing = '/' + QFileInfo(existing).fileName() + missing;
        existing = QFileInfo(existing).path();
    }
    return QDir::cleanPath(QFileInfo(existing).canonicalFilePath() + missing);
}

struct FileState {
    mode_t mode;
    std::optional<PrivateFiles::Owner> owner;
};

void save(const QString& path, const QByteArray& contents, const FileState& state)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || !PrivateFiles::applyTo(file.handle(), state.mode, state.owner) ||
        file.write(contents) != contents.size() || !file.commit())
        throw ConfigError{"Couldn't write " + path + ": " + file.errorString() + ".", {}};
}

} // namespace

AgentConfigFile::AgentConfigFile(QString path, QString clientName)
    : m_path(std::move(path)), m_clientName(std::move(clientName))
{
}

std::optional<QByteArray> AgentConfigFile::read() const
{
    const QFileInfo info(m_path);
    if (!info.exists())
        return std::nullopt;
    const ConfigError unreadable{"Couldn't read " + m_clientName + "'s config file, so Pulsebar left it alone.", {}};
    // Only a regular file is read: a folder cannot be, and a pipe in its place would block forever.
    if (!info.isFile() || info.size() > maxConfigBytes)
        throw unreadable;
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly))
        throw unreadable;
    QByteArray contents = file.read(maxConfigBytes + 1);
    if (file.error() != QFileDevice::NoError || contents.size() > maxConfigBytes)
        throw unreadable;
    return contents;
}

// Root edits a user's files on their behalf: it must not be led by a link, or by a folder that is
// one, into writing outside that user's home or into a file someone else owns.
void AgentConfigFile::checkRootMayWrite(const QString& target) const
{
    if (::geteuid() != 0)
        return;
    const QString home = realLocation(Paths::agentHome());
    const QString real = realLocation(target);
    const auto homeOwner = PrivateFiles::ownerOf(home);
    const auto fileOwner = PrivateFiles::ownerOf(real);
    const bool inside = real.startsWith(home.endsWith('/') ? home : home + '/');
    if (inside && homeOwner && (!fileOwner || fileOwner->user == homeOwner->user))
        return;
    throw ConfigError{m_clientName + "'s config file " + m_path + " leads outside " + home +
                          " or to a file the home's owner doesn't own, so Pulsebar left it alone.",
                      {}};
}

void AgentConfigFile::write(const QByteArray& contents) const
{
    const QString target = followLinks(m_path);
    checkRootMayWrite(target);
    const std::optional<PrivateFiles::Owner> homeOwner = PrivateFiles::ownerOf(Paths::agentHome());
    const QString folder = QFileInfo(target).absolutePath();
    if (!PrivateFiles::makeFolders(folder, homeOwner))
        throw ConfigError{"Couldn't create the folder " + folder + ".", {}};

    struct stat existing{};
    const bool exists = ::stat(QFile::encodeName(target).constData(), &existing) == 0;
    const FileState state = exists ? FileState{mode_t(existing.st_mode & 07777),
                                               PrivateFiles::Owner{existing.st_uid, existing.st_gid}}
                                   : FileState{PrivateFiles::fileMode, homeOwner};

    // The first edit keeps the user's own version; later edits never overwrite that copy.
    const QFileInfo backup(backupPath());
    if (exists && !backup.exists() && !backup.isSymLink()) {
        QFile original(target);
        if (!original.open(QIODevice::ReadOnly))
            throw ConfigError{"Couldn't back up " + m_path + " to " + backupPath() + ": " + original.errorString() + ".",
                              {}};
        save(backupPath(), original.read(maxConfigBytes), state);
    }
    save(target, contents, state);
}

} // namespace pulsebar
