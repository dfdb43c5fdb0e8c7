#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <optional>

namespace pulsebar::RegularFile {

// Opens a file for reading only when it is a regular file (kernel pseudo-files included). The open
// never blocks, so a FIFO or a device planted where a file belongs cannot stall or flood the app:
// it reads as missing. The descriptor, or -1.
int open(const char* path);

// The whole file, or nullopt when it is missing, not a regular file, unreadable or longer than maxBytes.
std::optional<QByteArray> read(const QString& path, int64_t maxBytes);

} // namespace pulsebar::RegularFile
