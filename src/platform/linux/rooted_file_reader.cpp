#include "platform/linux/rooted_file_reader.h"

#include "core/paths.h"
#include "core/regular_file.h"

#include <algorithm>
#include <charconv>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace pulsebar {

namespace SysText {

std::string_view trim(std::string_view text)
{
    const auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\0'; };
    while (!text.empty() && isSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

namespace {
// The whole trimmed text must be one number of type T; from_chars never reads the locale.
template <typename T>
std::optional<T> parseWhole(std::string_view text)
{
    text = trim(text);
    T value{};
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || ec != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}
} // namespace

std::optional<int64_t> toInt(std::string_view text)
{
    return parseWhole<int64_t>(text);
}

std::optional<uint64_t> toUnsigned(std::string_view text)
{
    return parseWhole<uint64_t>(text);
}

std::optional<double> toDouble(std::string_view text)
{
    const auto value = parseWhole<double>(text);
    return value && std::isfinite(*value) ? value : std::nullopt;
}

std::optional<std::string_view> field(std::string_view text, std::string_view key)
{
    std::size_t pos = 0;
    while (pos < text.size()) {
        std::size_t end = text.find('\n', pos);
        if (end == std::string_view::npos)
            end = text.size();
        std::string_view line = text.substr(pos, end - pos);
        if (line.size() > key.size() && line.substr(0, key.size()) == key) {
            std::string_view rest = line.substr(key.size());
            // The key must end here: "MemFree" must not match "MemFreeX".
            const char next = rest.front();
            if (next == ':' || next == ' ' || next == '\t') {
                rest = trim(rest);
                if (!rest.empty() && rest.front() == ':')
                    rest = trim(rest.substr(1));
                return rest;
            }
        }
        pos = end + 1;
    }
    return std::nullopt;
}

QString name(std::string_view text)
{
    // Decoding a little more than the limit keeps the cut on whole characters.
    text = text.substr(0, std::size_t(maxNameLength) * 4);
    QString decoded = QString::fromUtf8(text.data(), qsizetype(text.size())).simplified();
    if (decoded.size() > maxNameLength)
        decoded = decoded.left(maxNameLength).trimmed();
    return decoded;
}

} // namespace SysText

RootedFileReader::RootedFileReader(std::string root) : m_root(std::move(root))
{
    if (m_root.empty() || m_root.back() != '/')
        m_root += '/';
}

RootedFileReader RootedFileReader::fromEnvironment()
{
    return RootedFileReader(Paths::sysroot().toStdString());
}

std::string RootedFileReader::path(std::string_view relative) const
{
    while (!relative.empty() && relative.front() == '/')
        relative.remove_prefix(1);
    std::string out = m_root;
    out.append(relative);
    return out;
}

int RootedFileReader::openRelative(std::string_view relative) const
{
    // The per-process files are read every tick for every process: building their paths on the stack
    // keeps those reads free of heap allocations.
    while (!relative.empty() && relative.front() == '/')
        relative.remove_prefix(1);
    char buffer[512];
    if (m_root.size() + relative.size() < sizeof buffer) {
        std::memcpy(buffer, m_root.data(), m_root.size());
        std::memcpy(buffer + m_root.size(), relative.data(), relative.size());
        buffer[m_root.size() + relative.size()] = '\0';
        return RegularFile::open(buffer);
    }
    return RegularFile::open(path(relative).c_str());
}

long RootedFileReader::readInto(std::string_view relative, char* buffer, std::size_t capacity) const
{
    return open(relative).read(buffer, capacity);
}

std::optional<std::string> RootedFileReader::readText(std::string_view relative, std::size_t maxBytes) const
{
    std::string out;
    if (!readText(relative, out, maxBytes))
        return std::nullopt;
    return out;
}

bool RootedFileReader::readText(std::string_view relative, std::string& out, std::size_t maxBytes) const
{
    return open(relative).readText(out, maxBytes);
}

std::optional<std::string> RootedFileReader::readLine(std::string_view relative) const
{
    char buffer[4096];
    const long n = readInto(relative, buffer, sizeof buffer);
    if (n < 0)
        return std::nullopt;
    std::string_view text(buffer, std::size_t(n));
    text = text.substr(0, text.find('\n'));
    return std::string(SysText::trim(text));
}

std::optional<int64_t> RootedFileReader::readInt(std::string_view relative) const
{
    char buffer[64];
    const long n = readInto(relative, buffer, sizeof buffer);
    return n < 0 ? std::nullopt : SysText::toInt({buffer, std::size_t(n)});
}

std::optional<uint64_t> RootedFileReader::readUnsigned(std::string_view relative) const
{
    char buffer[64];
    const long n = readInto(relative, buffer, sizeof buffer);
    return n < 0 ? std::nullopt : SysText::toUnsigned({buffer, std::size_t(n)});
}

std::optional<double> RootedFileReader::readDouble(std::string_view relative) const
{
    char buffer[64];
    const long n = readInto(relative, buffer, sizeof buffer);
    return n < 0 ? std::nullopt : SysText::toDouble({buffer, std::size_t(n)});
}

bool RootedFileReader::exists(std::string_view relative) const
{
    struct stat st;
    return ::stat(path(relative).c_str(), &st) == 0;
}

bool RootedFileReader::isDirectory(std::string_view relative) const
{
    struct stat st;
    return ::stat(path(relative).c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::vector<std::string> RootedFileReader::list(std::string_view relative) const
{
    std::vector<std::string> names;
    forEachEntry(relative, [&](std::string_view name) { names.emplace_back(name); });
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<std::string> RootedFileReader::readLink(std::string_view relative) const
{
    char buffer[4096];
    const ssize_t n = ::readlink(path(relative).c_str(), buffer, sizeof buffer - 1);
    if (n < 0)
        return std::nullopt;
    return std::string(buffer, std::size_t(n));
}

RootedFileReader::OpenFile::~OpenFile()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

RootedFileReader::OpenFile& RootedFileReader::OpenFile::operator=(OpenFile&& other) noexcept
{
    if (this != &other) {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = other.m_fd;
        other.m_fd = -1;
    }
    return *this;
}

long RootedFileReader::OpenFile::read(char* buffer, std::size_t capacity) const
{
    if (m_fd < 0)
        return -1;
    std::size_t total = 0;
    while (total < capacity) {
        const std::size_t wanted = capacity - total;
        const ssize_t n = ::pread(m_fd, buffer + total, wanted, off_t(total));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return -1;
        }
        // Only an empty read is the end: a proc file built from many records (mountinfo, diskstats)
        // hands them over a page or so at a time, each read short of what was asked.
        if (n == 0)
            break;
        total += std::size_t(n);
    }
    return long(total);
}

long RootedFileReader::OpenFile::readRecord(char* buffer, std::size_t capacity) const
{
    if (m_fd < 0)
        return -1;
    for (;;) {
        const ssize_t n = ::pread(m_fd, buffer, capacity, 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return -1;
        // A record the kernel builds at once comes whole in one read when it fits; the closing empty
        // read would be a second system call for every file of every process.
        if (std::size_t(n) < capacity)
            return long(n);
        break;
    }
    return read(buffer, capacity);
}

bool RootedFileReader::OpenFile::readText(std::string& out, std::size_t maxBytes, bool oneRecord) const
{
    out.clear();
    if (m_fd < 0)
        return false;
    std::size_t size = 0;
    for (;;) {
        if (size == out.size()) {
            if (size >= maxBytes)
                break;
            out.resize(std::min(maxBytes, std::max<std::size_t>({4096, out.capacity(), size * 2})));
        }
        const std::size_t wanted = out.size() - size;
        const ssize_t n = ::pread(m_fd, out.data() + size, wanted, off_t(size));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            out.clear();
            return false;
        }
        if (n == 0)
            break; // the end, as in read()
        size += std::size_t(n);
        if (oneRecord && std::size_t(n) < wanted)
            break;
    }
    out.resize(size);
    return true;
}

RootedFileReader::RepeatedFile::RepeatedFile(const RootedFileReader& sysfs, std::string relative, Shape shape)
    : m_path(sysfs.path(relative)), m_shape(shape),
      m_hold(sysfs.isProcFileSystem("proc") && relative.rfind("proc/", 0) == 0)
{
}

const RootedFileReader::OpenFile& RootedFileReader::RepeatedFile::file()
{
    if (m_hold) {
        if (!m_held.isOpen())
            m_held = OpenFile(RegularFile::open(m_path.c_str()));
        return m_held;
    }
    m_scratch = OpenFile(RegularFile::open(m_path.c_str()));
    return m_scratch;
}

bool RootedFileReader::RepeatedFile::readText(std::string& out, std::size_t maxBytes)
{
    const bool ok = file().readText(out, maxBytes, m_shape == oneRecord);
    m_scratch = OpenFile();
    if (!ok)
        m_held = OpenFile(); // opened afresh next time
    return ok;
}

long RootedFileReader::RepeatedFile::readInto(char* buffer, std::size_t capacity)
{
    const long n = m_shape == oneRecord ? file().readRecord(buffer, capacity) : file().read(buffer, capacity);
    m_scratch = OpenFile();
    if (n < 0)
        m_held = OpenFile();
    return n;
}

RootedFileReader::OpenFile RootedFileReader::open(std::string_view relative) const
{
    return OpenFile(openRelative(relative));
}

bool RootedFileReader::isProcFileSystem(std::string_view relative) const
{
    constexpr long procSuperMagic = 0x9fa0;
    struct statfs st;
    return ::statfs(path(relative).c_str(), &st) == 0 && long(st.f_type) == procSuperMagic;
}

bool RootedFileReader::forEachEntry(std::string_view relative, const std::function<void(std::string_view)>& visit) const
{
    DIR* dir = ::opendir(path(relative).c_str());
    if (!dir)
        return false;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            visit(name);
    }
    ::closedir(dir);
    return true;
}

bool RootedFileReader::writeText(std::string_view relative, std::string_view text) const
{
    const int fd = ::open(path(relative).c_str(), O_WRONLY | O_TRUNC | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0)
        return false;
    struct stat st;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return false;
    }
    std::size_t total = 0;
    while (total < text.size()) {
        const ssize_t n = ::write(fd, text.data() + total, text.size() - total);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        total += std::size_t(n);
    }
    ::close(fd);
    return total == text.size();
}

bool RootedFileReader::isWritable(std::string_view relative) const
{
    return ::access(path(relative).c_str(), W_OK) == 0;
}

} // namespace pulsebar
