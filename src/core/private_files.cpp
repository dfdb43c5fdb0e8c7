#include "core/private_files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace pulsebar::PrivateFiles {

std::optional<Owner> ownerOf(const QString& path)
{
    struct stat info{};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return std::nullopt;
    return Owner{info.st_uid, info.st_gid};
}

bool makeFolders(const QString& path, std::optional<Owner> owner)
{
    const QString folder = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    if (QFileInfo(folder).isDir())
        return true;
    if (!makeFolders(QFileInfo(folder).path(), owner))
        return false;
    const QByteArray name = QFile::encodeName(folder);
    if (::mkdir(name.constData(), folderMode) != 0)
        return QFileInfo(folder).isDir(); // made meanwhile by someone else
    // mkdir's mode passes through the umask; the folder is private whatever the umask says.
    ::chmod(name.constData(), folderMode);
    if (owner && ::geteuid() == 0 && ::chown(name.constData(), owner->user, owner->group) != 0)
        return false;
    return true;
}

bool createIfMissing(const QString& path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, fileMode);
    if (fd < 0)
        return errno == EEXIST;
    const bool ok = applyTo(fd, fileMode);
    ::close(fd);
    return ok;
}

bool applyTo(int descriptor, mode_t mode, std::optional<Owner> owner)
{
    if (owner && ::geteuid() == 0 && ::fchown(descriptor, owner->user, owner->group) != 0)
        return false;
    // After chown, which clears the set-id bits.
    return ::fchmod(descriptor, mode) == 0;
}

} // namespace pulsebar::PrivateFiles
