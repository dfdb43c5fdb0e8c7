#pragma once

#include "history/history.h"

#include <QString>

#include <algorithm>

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <vector>

namespace pulsebar {

// Percent of a volume in use, as df shows it: used ÷ (used + available) × 100, where used leaves out
// the blocks the file system keeps in reserve for the system (neither used nor free for the user).
// 100 exactly when nothing is left for the user; 0 for a volume that reports no size.
double diskUsedPercent(double total, double available, double reserved);

struct Volume {
    QString url;  // the mount point's absolute path
    QString name; // the file-system label, else the mount point's last component ("/" for the root)
    double total = 0;              // bytes
    double available = 0;          // bytes free for the user
    double availableImportant = 0; // bytes; never below `available`
    bool isRemovable = false;
    bool isLocal = true;
    bool isRoot = false;
    double reserved = 0; // bytes kept for the system (root's reserve): neither used nor available

    double used() const { return std::max(total - available - reserved, 0.0); } // bytes
    double usedPercent() const { return diskUsedPercent(total, available, reserved); }

    bool operator==(const Volume&) const = default;
};

// Cumulative bytes moved by the physical disks together.
struct DiskBytes {
    uint64_t read = 0;
    uint64_t write = 0;

    bool operator==(const DiskBytes&) const = default;
};

// What the platform says about one visible mounted volume; every value may be unknown.
struct VolumeInfo {
    QString mountPoint;
    std::optional<QString> name;
    std::optional<uint64_t> total;
    std::optional<uint64_t> available;
    std::optional<uint64_t> availableImportant;
    std::optional<uint64_t> reserved;
    std::optional<bool> isRemovable;
    std::optional<bool> isEjectable;
    std::optional<bool> isLocal;
    std::optional<bool> isBrowsable;
    std::optional<bool> isRootFileSystem;
    std::optional<bool> isReadOnly;
};

class DiskReader {
public:
    virtual ~DiskReader() = default;
    // Sum over physical disks; zeros when the counters cannot be read.
    virtual DiskBytes readBytes() = 0;
    // The visible mounted volumes in mount order. Capacities of network volumes are only asked for
    // when `includeNetwork` is set, so a dead server cannot stall a scan that would skip it anyway.
    virtual std::vector<VolumeInfo> volumes(bool includeNetwork) = 0;
};

class DiskMonitor {
public:
    static constexpr double volumeScanInterval = 10; // seconds

    explicit DiskMonitor(std::unique_ptr<DiskReader> reader, std::function<double()> clock = {});
    ~DiskMonitor();
    DiskMonitor(const DiskMonitor&) = delete;
    DiskMonitor& operator=(const DiskMonitor&) = delete;

    void sampleActivity();
    void scanVolumes(bool includeNetwork, bool includeRemovable);
    // More than volumeScanInterval since the last scan, or no volume listed.
    bool volumeScanDue(double time) const;
    // The physical disks' cumulative byte counters at the last sample, as the kernel counts them.
    const std::optional<DiskBytes>& totalBytes() const { return m_lastBytes; }
    // When the volumes were last listed (the monitor's clock).
    double lastVolumeScan() const { return m_lastVolumeScan; }

    // The first root volume, else the first volume.
    std::optional<Volume> startupVolume() const;

    std::vector<Volume> volumes; // startup volume first, then by name
    double readRate = 0;  // bytes per second
    double writeRate = 0; // bytes per second
    History readHistory;
    History writeHistory;

    std::function<double()> now;

private:
    std::unique_ptr<DiskReader> m_reader;
    std::optional<DiskBytes> m_lastBytes;
    std::optional<double> m_lastSample;
    double m_lastVolumeScan = std::numeric_limits<double>::lowest(); // the distant past
};

} // namespace pulsebar
