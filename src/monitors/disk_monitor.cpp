#include "monitors/disk_monitor.h"

#include "core/clock.h"

#include <algorithm>

namespace pulsebar {

namespace {

QString lastComponent(const QString& path)
{
    if (path == QLatin1String("/"))
        return path;
    QString trimmed = path;
    while (trimmed.size() > 1 && trimmed.endsWith(QLatin1Char('/')))
        trimmed.chop(1);
    return trimmed.mid(trimmed.lastIndexOf(QLatin1Char('/')) + 1);
}

} // namespace

DiskMonitor::DiskMonitor(std::unique_ptr<DiskReader> reader, std::function<double()> clock)
    : now(clock ? std::move(clock) : systemClock()), m_reader(std::move(reader))
{
}

DiskMonitor::~DiskMonitor() = default;

void DiskMonitor::sampleActivity()
{
    const DiskBytes bytes = m_reader->readBytes();
    const double time = now();
    if (lastBytes && lastSample && time - *lastSample > 0) {
        const double dt = time - *lastSample;
        // A sum that fell (a disk was detached) gives 0 for this interval, never a wrapped figure.
        readRate = bytes.read >= lastBytes->read ? double(bytes.read - lastBytes->read) / dt : 0;
        writeRate = bytes.write >= lastBytes->write ? double(bytes.write - lastBytes->write) / dt : 0;
        readHistory.add(readRate);
        writeHistory.add(writeRate);
    }
    lastBytes = bytes;
    lastSample = time;
}

bool DiskMonitor::volumeScanDue(double time) const
{
    return volumes.empty() || time - lastVolumeScan > volumeScanInterval;
}

double diskUsedPercent(double total, double available, double reserved)
{
    if (!(total > 0))
        return 0;
    if (!(available > 0))
        return 100;
    const double used = std::max(total - available - std::max(reserved, 0.0), 0.0);
    return used / (used + available) * 100.0;
}

void DiskMonitor::scanVolumes(bool includeNetwork, bool includeRemovable)
{
    lastVolumeScan = now();
    std::vector<Volume> listed;
    for (const VolumeInfo& info : m_reader->volumes(includeNetwork)) {
        if (info.isBrowsable == false)
            continue;
        if (!info.total || *info.total < 1)
            continue;
        Volume volume;
        volume.url = info.mountPoint;
        volume.isRemovable = info.isRemovable.value_or(false) || info.isEjectable.value_or(false);
        volume.isLocal = info.isLocal.value_or(true);
        volume.isRoot = info.isRootFileSystem.value_or(false) || info.mountPoint == QLatin1String("/");
        // Read-only volumes beside the root are system snapshots and recovery images.
        if (!volume.isRoot && info.isReadOnly.value_or(false))
            continue;
        if (!volume.isLocal && !includeNetwork)
            continue;
        if (volume.isRemovable && !includeRemovable)
            continue;
        volume.total = double(*info.total);
        volume.available = double(info.available.value_or(0));
        volume.availableImportant = std::max(double(info.availableImportant.value_or(0)), volume.available);
        volume.reserved = double(info.reserved.value_or(0));
        volume.name = info.name && !info.name->isEmpty() ? *info.name : lastComponent(info.mountPoint);
        listed.push_back(std::move(volume));
    }
    std::stable_sort(listed.begin(), listed.end(), [](const Volume& a, const Volume& b) {
        if (a.isRoot != b.isRoot)
            return a.isRoot;
        return a.name < b.name; // QString compares by UTF-16 code units: case-sensitive
    });
    volumes = std::move(listed);
}

std::optional<Volume> DiskMonitor::startupVolume() const
{
    for (const Volume& volume : volumes)
        if (volume.isRoot)
            return volume;
    if (!volumes.empty())
        return volumes.front();
    return std::nullopt;
}

} // namespace pulsebar
