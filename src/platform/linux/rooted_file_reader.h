#pragma once

#include <QString>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pulsebar {

// Pure parsing of the small text files of /proc and /sys: trim, then parse the whole text or fail.
namespace SysText {
std::string_view trim(std::string_view text);
std::optional<int64_t> toInt(std::string_view text);
std::optional<uint64_t> toUnsigned(std::string_view text);
std::optional<double> toDouble(std::string_view text);
// "key: value" or "key value" lines (meminfo, cpuinfo, vmstat): the value text after the key, trimmed.
std::optional<std::string_view> field(std::string_view text, std::string_view key);
// A name the machine reports (CPU model, sensor label, product name), for display: UTF-8 with runs of
// white space made one space, and no longer than any real name, so a hostile file cannot hand a page
// of text to every tool and panel.
constexpr qsizetype maxNameLength = 128;
QString name(std::string_view text);
} // namespace SysText

// Reads files below a root directory, so the same readers run on the live system ("/") and on a
// fixture tree (PULSEBAR_SYSROOT). Paths given to it are relative ("proc/stat"). Every read fails
// softly: a missing, unreadable or malformed file is nullopt, never an exception, and so is anything
// that is not a regular file (a FIFO or device in a hostile tree must not block or flood a read).
class RootedFileReader {
public:
    explicit RootedFileReader(std::string root);
    static RootedFileReader fromEnvironment(); // PULSEBAR_SYSROOT, else "/"

    const std::string& root() const { return m_root; }
    // True when the root is "/": what the kernel says about the machine (its notifications, device
    // events) describes this tree. A fixture tree is read afresh every time instead.
    bool isRunningSystem() const { return m_root == "/"; }
    std::string path(std::string_view relative) const;

    // The whole file (up to maxBytes), or nullopt when it cannot be read.
    std::optional<std::string> readText(std::string_view relative, std::size_t maxBytes = 1 << 20) const;
    // The whole file into `out`, reusing its capacity, so a file read every tick stops allocating once
    // the buffer has grown to the file's size. False (and `out` empty) when it cannot be read.
    bool readText(std::string_view relative, std::string& out, std::size_t maxBytes = 1 << 20) const;
    // Reads into a caller's buffer without allocating; returns the byte count, or -1 on failure.
    long readInto(std::string_view relative, char* buffer, std::size_t capacity) const;

    std::optional<std::string> readLine(std::string_view relative) const; // trimmed
    std::optional<int64_t> readInt(std::string_view relative) const;
    std::optional<uint64_t> readUnsigned(std::string_view relative) const;
    std::optional<double> readDouble(std::string_view relative) const;

    bool exists(std::string_view relative) const;
    bool isDirectory(std::string_view relative) const;
    // Entry names of a directory (without "." and ".."), sorted; empty when it cannot be read.
    std::vector<std::string> list(std::string_view relative) const;
    // Target of a symbolic link, as stored in the link.
    std::optional<std::string> readLink(std::string_view relative) const;
    // A file held open and read again from its start each time. The kernel regenerates a proc file
    // on every read, so holding one saves the path walk, open and close of each later sample.
    class OpenFile {
    public:
        OpenFile() = default;
        explicit OpenFile(int fd) : m_fd(fd) {}
        ~OpenFile();
        OpenFile(OpenFile&& other) noexcept : m_fd(other.m_fd) { other.m_fd = -1; }
        OpenFile& operator=(OpenFile&& other) noexcept;
        OpenFile(const OpenFile&) = delete;
        OpenFile& operator=(const OpenFile&) = delete;

        bool isOpen() const { return m_fd >= 0; }
        // Like RootedFileReader::readText, from offset 0. For a file of one record (see readRecord) a
        // read short of what was asked is the end, with no closing empty read.
        bool readText(std::string& out, std::size_t maxBytes = 1 << 20, bool oneRecord = false) const;
        // The whole file from offset 0 into the buffer; the byte count, or -1 on failure (for a proc
        // file: the process has ended).
        long read(char* buffer, std::size_t capacity) const;
        // The same for a file of one record (a sysfs attribute; a proc file of one process, such as
        // stat, io or statm): what one read hands over is the whole file unless it filled the buffer.
        long readRecord(char* buffer, std::size_t capacity) const;

    private:
        int m_fd = -1;
    };
    OpenFile open(std::string_view relative) const; // not open when it cannot be opened

    // A file read on every sample. On a real proc file system it is held open and read again from
    // its start; anywhere else (fixture trees, whose files tests replace between samples) it is
    // opened afresh each time. Reading fails softly like every read here.
    class RepeatedFile {
    public:
        // A proc file the kernel writes out in one go (stat, meminfo, loadavg, a pressure file) rather
        // than record by record (vmstat, diskstats, mountinfo) is one record: whatever one read hands
        // over short of the buffer is all of it.
        enum Shape { records, oneRecord };
        RepeatedFile(const RootedFileReader& sysfs, std::string relative, Shape shape = records);
        bool readText(std::string& out, std::size_t maxBytes = 1 << 20);
        long readInto(char* buffer, std::size_t capacity);

    private:
        // Open for this read: the held file, or a fresh one that `scratch` keeps until the next call.
        const OpenFile& file();

        std::string m_path;
        Shape m_shape;
        bool m_hold;
        OpenFile m_held;
        OpenFile m_scratch;
    };
    // True when the directory is a mounted proc file system, whose files may be held open.
    bool isProcFileSystem(std::string_view relative) const;

    // Calls `visit` with each entry name of a directory in the order the directory lists them, without
    // copying the names; false when the directory cannot be read.
    bool forEachEntry(std::string_view relative, const std::function<void(std::string_view)>& visit) const;

    // Writes the whole text to an existing file (a sysfs control such as applesmc's key_at_index).
    bool writeText(std::string_view relative, std::string_view text) const;
    bool isWritable(std::string_view relative) const;

private:
    // Opens root + relative for reading without allocating when the path fits a stack buffer; -1 on
    // failure or when it is not a regular file.
    int openRelative(std::string_view relative) const;

    std::string m_root; // always ends with '/'
};

} // namespace pulsebar
