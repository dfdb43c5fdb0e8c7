#include "core/regular_file.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace pulsebar::RegularFile {

int open(const char* path)
{
    const int fd = ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0)
        return -1;
    struct stat st;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return -1;
    }
    return fd;
}

std::optional<QByteArray> read(const QString& path, int64_t maxBytes)
{
    const int fd = open(QFile::encodeName(path).constData());
    if (fd < 0)
        return std::nullopt;
    QByteArray out;
    char chunk[16384];
    for (;;) {
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 || out.size() + n > maxBytes) {
            ::close(fd);
            return std::nullopt;
        }
        if (n == 0)
            break;
        out.append(chunk, n);
    }
    ::close(fd);
    return out;
}

} // namespace pulsebar::RegularFile
