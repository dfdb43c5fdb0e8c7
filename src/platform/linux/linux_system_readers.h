#pragma once

#include "hub/system_readers.h"
#include "platform/linux/rooted_file_reader.h"

namespace pulsebar {

// The Linux readers over the files below `root`: systemReaders() gives them PULSEBAR_SYSROOT (or
// "/"); tests give them a fixture tree. The sensors come from the Apple SMC when the machine has one.
SystemReaders linuxSystemReaders(const RootedFileReader& root);

} // namespace pulsebar
