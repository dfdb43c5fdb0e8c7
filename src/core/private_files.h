#pragma once

#include <QString>

#include <optional>
#include <sys/types.h>

namespace pulsebar::PrivateFiles {

// Who a file or folder should belong to; a process that is not root cannot give files away and
// leaves ownership alone.
struct Owner {
    uid_t user;
    gid_t group;
};

// The owner of an existing path (links followed), or nothing when it cannot be read.
std::optional<Owner> ownerOf(const QString& path);

// Creates the folder and every missing parent readable by their owner only (0700), whatever the
// umask; created folders are given to `owner` when one is named. False when a folder cannot be made.
bool makeFolders(const QString& path, std::optional<Owner> owner = {});

// Creates an empty file readable by its owner only (0600) when nothing exists at the path yet. False
// only when the file was missing and could not be created.
bool createIfMissing(const QString& path);

// Sets an open file's mode and, when one is named, its owner.
bool applyTo(int descriptor, mode_t mode, std::optional<Owner> owner = {});

constexpr mode_t fileMode = 0600;
constexpr mode_t folderMode = 0700;

} // namespace pulsebar::PrivateFiles
