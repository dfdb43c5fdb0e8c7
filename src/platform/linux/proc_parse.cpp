#include "platform/linux/proc_parse.h"

#include "platform/linux/rooted_file_reader.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace pulsebar::ProcParse {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }

// The next blank-separated token of a line; empty at the end.
std::string_view nextToken(std::string_view& rest)
{
    std::size_t i = 0;
    while (i < rest.size() && isBlank(rest[i]))
        ++i;
    std::size_t end = i;
    while (end < rest.size() && !isBlank(rest[end]))
        ++end;
    const std::string_view token = rest.substr(i, end - i);
    rest.remove_prefix(end);
    return token;
}

std::optional<uint64_t> nextUnsigned(std::string_view& rest)
{
    const std::string_view token = nextToken(rest);
    uint64_t value = 0;
    const auto [end, ec] = std::from_chars(token.data(), token.data() + token.size(), value);
    if (token.empty() || ec != std::errc() || end != token.data() + token.size())
        return std::nullopt;
    return value;
}

// Calls `visit` with each line (without its newline) until it returns false.
template <typename Visit>
void forEachLine(std::string_view text, Visit visit)
{
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        if (!visit(line))
            return;
        if (end == std::string_view::npos)
            return;
        text.remove_prefix(end + 1);
    }
}

bool startsWith(std::string_view text, std::string_view prefix)
{
    return text.substr(0, prefix.size()) == prefix;
}

std::optional<uint64_t> kilobytes(std::string_view meminfo, std::string_view key)
{
    const auto value = SysText::field(meminfo, key);
    if (!value)
        return std::nullopt;
    std::string_view rest = *value;
    const auto number = nextUnsigned(rest);
    if (!number || *number > UINT64_MAX / 1024)
        return std::nullopt;
    return *number * 1024;
}

} // namespace

bool cpuTicks(std::string_view procStat, std::vector<CPUTicks>& out)
{
    out.clear();
    bool malformed = false;
    forEachLine(procStat, [&](std::string_view line) {
        // "cpu " is the machine total; only the numbered lines are single CPUs.
        if (!startsWith(line, "cpu") || line.size() < 4 || line[3] < '0' || line[3] > '9')
            return true;
        std::string_view rest = line.substr(3);
        const auto index = nextUnsigned(rest);
        uint64_t fields[8] = {};
        int count = 0;
        while (count < 8) {
            std::string_view probe = rest;
            if (nextToken(probe).empty())
                break;
            const auto value = nextUnsigned(rest);
            if (!value)
                break;
            fields[count++] = *value;
        }
        // user nice system idle are in every kernel; iowait irq softirq steal came later.
        if (!index || count < 4 || *index > 1u << 20) {
            malformed = true;
            return false;
        }
        CPUTicks ticks;
        ticks.index = int(*index);
        ticks.user = fields[0];
        ticks.nice = fields[1];
        ticks.system = fields[2] + fields[5] + fields[6];
        ticks.idle = fields[3] + fields[4] + fields[7];
        out.push_back(ticks);
        return true;
    });
    if (malformed)
        out.clear();
    return !out.empty();
}

std::optional<double> bootTime(std::string_view procStat)
{
    const auto value = SysText::field(procStat, "btime");
    if (!value)
        return std::nullopt;
    const auto seconds = SysText::toUnsigned(*value);
    return seconds ? std::optional<double>(double(*seconds)) : std::nullopt;
}

std::optional<std::array<double, 3>> loadAverage(std::string_view procLoadavg)
{
    std::array<double, 3> values{};
    for (double& value : values) {
        const auto parsed = SysText::toDouble(nextToken(procLoadavg));
        if (!parsed || *parsed < 0)
            return std::nullopt;
        value = *parsed;
    }
    return values;
}

std::optional<uint64_t> lastPid(std::string_view procLoadavg)
{
    for (int field = 0; field < 4; ++field)
        if (nextToken(procLoadavg).empty())
            return std::nullopt;
    return SysText::toUnsigned(nextToken(procLoadavg));
}

std::optional<double> uptime(std::string_view procUptime)
{
    const auto value = SysText::toDouble(nextToken(procUptime));
    return value && *value >= 0 ? value : std::nullopt;
}

std::optional<QString> cpuBrand(std::string_view procCpuinfo)
{
    for (const std::string_view key : {"model name", "Hardware", "Model"}) {
        const auto value = SysText::field(procCpuinfo, key);
        if (value && !value->empty())
            return SysText::name(*value);
    }
    return std::nullopt;
}

std::vector<int> cpuList(std::string_view text)
{
    std::vector<int> cpus;
    text = SysText::trim(text);
    while (!text.empty()) {
        const std::size_t comma = text.find(',');
        const std::string_view range = text.substr(0, comma);
        const std::size_t dash = range.find('-');
        const auto first = SysText::toInt(range.substr(0, dash));
        const auto last = dash == std::string_view::npos ? first : SysText::toInt(range.substr(dash + 1));
        if (first && last && *first >= 0 && *last >= *first && *last - *first < 65536)
            for (int64_t cpu = *first; cpu <= *last; ++cpu)
                cpus.push_back(int(cpu));
        if (comma == std::string_view::npos)
            break;
        text.remove_prefix(comma + 1);
    }
    return cpus;
}

std::optional<MemoryReading> memory(std::string_view meminfo, std::optional<std::string_view> vmstat)
{
    const auto total = kilobytes(meminfo, "MemTotal");
    const auto available = kilobytes(meminfo, "MemAvailable");
    // Parts of memory that do not fit in it make the reading a broken one, not a 1500 % figure.
    if (!total || !available || *total == 0 || *available > *total)
        return std::nullopt;
    MemoryReading r;
    r.total = *total;
    r.available = *available;
    const auto orZero = [&](std::string_view key) { return kilobytes(meminfo, key).value_or(0); };
    r.unreclaimableSlab = orZero("SUnreclaim");
    r.kernelStack = orZero("KernelStack");
    r.pageTables = orZero("PageTables");
    r.zswap = orZero("Zswap");
    const uint64_t parts[] = {r.unreclaimableSlab, r.kernelStack, r.pageTables, r.zswap};
    uint64_t held = 0;
    for (const uint64_t part : parts) {
        if (part > *total - held)
            return std::nullopt;
        held += part;
    }
    r.cached = orZero("Cached");
    r.buffers = orZero("Buffers");
    r.reclaimableSlab = orZero("SReclaimable");
    r.shmem = orZero("Shmem");
    r.swapTotal = kilobytes(meminfo, "SwapTotal");
    r.swapFree = kilobytes(meminfo, "SwapFree");
    if (vmstat) {
        const auto counter = [&](std::string_view key) -> std::optional<uint64_t> {
            const auto value = SysText::field(*vmstat, key);
            return value ? SysText::toUnsigned(*value) : std::nullopt;
        };
        const auto ins = counter("pswpin");
        const auto outs = counter("pswpout");
        if (ins && outs) {
            r.pageIns = ins;
            r.pageOuts = outs;
        }
    }
    return r;
}

std::optional<MemoryStall> memoryStall(std::string_view text)
{
    std::optional<double> some;
    std::optional<double> full;
    forEachLine(text, [&](std::string_view line) {
        std::string_view rest = line;
        const std::string_view kind = nextToken(rest);
        const std::string_view avg10 = nextToken(rest);
        if (!startsWith(avg10, "avg10="))
            return true;
        const auto value = SysText::toDouble(avg10.substr(6));
        if (kind == "some")
            some = value;
        else if (kind == "full")
            full = value;
        return true;
    });
    if (!some)
        return std::nullopt;
    return MemoryStall{*some, full.value_or(0)};
}

std::optional<PidStat> pidStat(std::string_view text)
{
    const std::size_t close = text.rfind(')');
    if (close == std::string_view::npos)
        return std::nullopt;
    std::string_view rest = text.substr(close + 1);
    // After the command: state (field 3) ... utime (14), stime (15) ... rss (24).
    uint64_t utime = 0, stime = 0, rss = 0;
    for (int field = 3; field <= 24; ++field) {
        if (field == 3) {
            if (nextToken(rest).empty())
                return std::nullopt;
            continue;
        }
        if (field != 14 && field != 15 && field != 24) {
            if (nextToken(rest).empty())
                return std::nullopt;
            continue;
        }
        // rss is signed in the kernel's format; a negative figure cannot happen but must not wrap.
        std::string_view probe = rest;
        const std::string_view token = nextToken(probe);
        if (field == 24 && startsWith(token, "-")) {
            rest = probe;
            rss = 0;
            continue;
        }
        const auto value = nextUnsigned(rest);
        if (!value)
            return std::nullopt;
        (field == 14 ? utime : field == 15 ? stime : rss) = *value;
    }
    return PidStat{utime + stime, rss};
}

std::optional<PidIo> pidIo(std::string_view text)
{
    const auto read = SysText::field(text, "read_bytes");
    const auto write = SysText::field(text, "write_bytes");
    if (!read || !write)
        return std::nullopt;
    const auto r = SysText::toUnsigned(*read);
    const auto w = SysText::toUnsigned(*write);
    if (!r || !w)
        return std::nullopt;
    return PidIo{*r, *w};
}

std::optional<uint64_t> statmResidentPages(std::string_view text)
{
    std::string_view rest = text;
    if (nextToken(rest).empty())
        return std::nullopt;
    return SysText::toUnsigned(nextToken(rest));
}

std::optional<QString> processName(std::optional<std::string_view> comm, std::optional<std::string_view> cmdline)
{
    std::string_view name = comm ? SysText::trim(*comm) : std::string_view();
    if (name.size() == 15 && cmdline) {
        std::string_view first = cmdline->substr(0, cmdline->find('\0'));
        // Kernel threads and processes that rewrote their arguments may leave spaces in one argument.
        first = SysText::trim(first);
        const std::size_t slash = first.rfind('/');
        if (slash != std::string_view::npos)
            first.remove_prefix(slash + 1);
        // The argument is only a better name when it starts like the truncated one.
        if (first.size() > name.size() && first.substr(0, name.size()) == name)
            name = first;
    }
    if (name.empty())
        return std::nullopt;
    return QString::fromUtf8(name.data(), qsizetype(name.size()));
}

void diskStats(std::string_view text,
               const std::function<void(std::string_view, uint64_t, uint64_t)>& visit)
{
    forEachLine(text, [&](std::string_view line) {
        std::string_view rest = line;
        // major minor name reads merged sectors-read ms writes merged sectors-written ...
        if (!nextUnsigned(rest) || !nextUnsigned(rest))
            return true;
        const std::string_view name = nextToken(rest);
        uint64_t fields[7] = {};
        for (uint64_t& field : fields) {
            const auto value = nextUnsigned(rest);
            if (!value)
                return true;
            field = *value;
        }
        if (!name.empty())
            visit(name, fields[2], fields[6]);
        return true;
    });
}

std::string unescapeOctal(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size()) {
            const std::string_view digits = text.substr(i + 1, 3);
            if (digits.size() == 3 && std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '7'; })) {
                out += char((digits[0] - '0') * 64 + (digits[1] - '0') * 8 + (digits[2] - '0'));
                i += 3;
                continue;
            }
        }
        out += text[i];
    }
    return out;
}

QString unescapeLabel(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size() && text[i + 1] == 'x') {
            unsigned value = 0;
            const auto [end, ec] = std::from_chars(text.data() + i + 2, text.data() + i + 4, value, 16);
            if (ec == std::errc() && end == text.data() + i + 4) {
                out += char(value);
                i += 3;
                continue;
            }
        }
        out += text[i];
    }
    return QString::fromStdString(out);
}

std::vector<MountEntry> mountInfo(std::string_view text)
{
    std::vector<MountEntry> mounts;
    forEachLine(text, [&](std::string_view line) {
        // id parent major:minor root mount-point options [optional fields...] - type source super-options
        std::string_view rest = line;
        if (nextToken(rest).empty() || nextToken(rest).empty())
            return true;
        const std::string_view device = nextToken(rest);
        const std::size_t colon = device.find(':');
        const auto major = SysText::toInt(device.substr(0, colon));
        const auto minor = colon == std::string_view::npos ? std::nullopt : SysText::toInt(device.substr(colon + 1));
        const std::string_view root = nextToken(rest);
        const std::string_view mountPoint = nextToken(rest);
        const std::string_view options = nextToken(rest);
        std::string_view token;
        do
            token = nextToken(rest);
        while (!token.empty() && token != "-");
        const std::string_view fsType = nextToken(rest);
        const std::string_view source = nextToken(rest);
        if (!major || !minor || root.empty() || mountPoint.empty() || mountPoint.front() != '/' || fsType.empty())
            return true;
        MountEntry entry;
        entry.major = int(*major);
        entry.minor = int(*minor);
        entry.root = unescapeOctal(root);
        entry.mountPoint = unescapeOctal(mountPoint);
        entry.fsType = std::string(fsType);
        entry.source = unescapeOctal(source);
        std::string_view opts = options;
        while (!opts.empty()) {
            const std::size_t comma = opts.find(',');
            if (opts.substr(0, comma) == "ro")
                entry.readOnly = true;
            if (comma == std::string_view::npos)
                break;
            opts.remove_prefix(comma + 1);
        }
        mounts.push_back(std::move(entry));
        return true;
    });
    return mounts;
}

std::optional<QString> pciDeviceName(std::string_view pciIds, uint32_t vendor, uint32_t device)
{
    char vendorKey[5];
    char deviceKey[6];
    std::snprintf(vendorKey, sizeof vendorKey, "%04x", vendor & 0xffff);
    std::snprintf(deviceKey, sizeof deviceKey, "\t%04x", device & 0xffff);
    bool inVendor = false;
    std::optional<QString> found;
    forEachLine(pciIds, [&](std::string_view line) {
        if (line.empty() || line.front() == '#')
            return true;
        if (line.front() != '\t') {
            // A new vendor; the device classes at the end of the file start with "C ".
            if (inVendor)
                return false;
            inVendor = startsWith(line, vendorKey) && line.size() > 4 && isBlank(line[4]);
            return true;
        }
        if (!inVendor || !startsWith(line, deviceKey) || line.size() <= 5 || !isBlank(line[5]))
            return true;
        std::string_view name = SysText::trim(line.substr(5));
        const std::size_t open = name.find('[');
        const std::size_t close = name.rfind(']');
        if (open != std::string_view::npos && close != std::string_view::npos && close > open + 1)
            name = name.substr(open + 1, close - open - 1);
        if (!name.empty())
            found = QString::fromUtf8(name.data(), qsizetype(name.size()));
        return false;
    });
    return found;
}

} // namespace pulsebar::ProcParse
