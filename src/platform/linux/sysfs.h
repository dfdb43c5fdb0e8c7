#pragma once

#include <QString>

#include <cstdint>
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
} // namespace SysText

// Reads files below a root directory, so the same readers run on the live system ("/") and on a
// fixture tree (PULSEBAR_SYSROOT). Paths given to it are relative ("proc/stat"). Every read fails
// softly: a missing, unreadable or malformed file is nullopt, never an exception.
class SysFs {
public:
    explicit SysFs(std::string root);
    static SysFs fromEnvironment(); // PULSEBAR_SYSROOT, else "/"

    const std::string& root() const { return m_root; }
    std::string path(std::string_view relative) const;

    // The whole file (up to maxBytes), or nullopt when it cannot be read.
    std::optional<std::string> readText(std::string_view relative, std::size_t maxBytes = 1 << 20) const;
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

    // Writes the whole text to an existing file (a sysfs control such as applesmc's key_at_index).
    bool writeText(std::string_view relative, std::string_view text) const;
    bool isWritable(std::string_view relative) const;

private:
    std::string m_root; // always ends with '/'
};

} // namespace pulsebar
