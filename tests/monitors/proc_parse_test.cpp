#include "platform/linux/linux_disk_reader.h"
#include "platform/linux/proc_parse.h"

#include <gtest/gtest.h>

using namespace pulsebar;

TEST(ProcParse, CPUTicksRejectMalformedLinesAndAcceptOldKernels)
{
    std::vector<CPUTicks> ticks;
    EXPECT_TRUE(ProcParse::cpuTicks("cpu 1 2 3 4\ncpu0 1 2 3 4\ncpu1 5 6 7 8 9 10 11 12\n", ticks));
    ASSERT_EQ(ticks.size(), 2u);
    EXPECT_EQ(ticks[0], (CPUTicks{0, 1, 3, 4, 2}));
    EXPECT_EQ(ticks[1], (CPUTicks{1, 5, 7 + 10 + 11, 8 + 9 + 12, 6}));
    for (const char* bad : {"", "cpu 1 2 3 4\n", "cpu0 1 2 3\n", "cpu0 1 2 x 4\n", "cpu0 1 2 -3 4\n", "cpuX 1 2 3 4",
                            "cpu0 1 2 3 4\ncpu1 1 2"}) {
        EXPECT_FALSE(ProcParse::cpuTicks(bad, ticks)) << bad;
        EXPECT_TRUE(ticks.empty());
    }
    EXPECT_EQ(ProcParse::cpuList("0-3,8,10-11\n"), (std::vector<int>{0, 1, 2, 3, 8, 10, 11}));
    EXPECT_TRUE(ProcParse::cpuList("3-1,x").empty());
}

TEST(ProcParse, SmallFilesFailSoftly)
{
    EXPECT_EQ(ProcParse::loadAverage("0.10 0.20 0.30 1/2 3\n"), (std::array<double, 3>{0.1, 0.2, 0.3}));
    EXPECT_FALSE(ProcParse::loadAverage("0.10 0.20"));
    EXPECT_FALSE(ProcParse::loadAverage("nan 0.2 0.3"));
    EXPECT_EQ(ProcParse::lastPid("0.10 0.20 0.30 1/2 3\n"), 3u);
    EXPECT_FALSE(ProcParse::lastPid("0.10 0.20 0.30 1/2"));
    EXPECT_EQ(ProcParse::bootTime("cpu 1\nbtime 1700000000\n"), 1700000000.0);
    EXPECT_FALSE(ProcParse::bootTime("btime -5\n"));
    EXPECT_FALSE(ProcParse::memory("MemTotal: 100 kB\n", std::nullopt)); // no MemAvailable
    EXPECT_FALSE(ProcParse::memory("MemTotal: 0 kB\nMemAvailable: 0 kB\n", std::nullopt));
    // Parts larger than the whole are a broken reading.
    for (const char* broken : {"MemTotal: 100 kB\nMemAvailable: 1500 kB\n",
                               "MemTotal: 100 kB\nMemAvailable: 50 kB\nSUnreclaim: 60 kB\nPageTables: 60 kB\n",
                               "MemTotal: 99999999999999999999 kB\nMemAvailable: 5 kB\n",
                               "MemTotal: 18446744073709551615 kB\nMemAvailable: 5 kB\n"})
        EXPECT_FALSE(ProcParse::memory(broken, std::nullopt)) << broken;
    const std::string hugeModel = "model name\t: " + std::string(100000, 'A') + "\n";
    EXPECT_EQ(ProcParse::cpuBrand(hugeModel)->size(), SysText::maxNameLength);
    const auto memory = ProcParse::memory("MemTotal: 100 kB\nMemAvailable: 50 kB\n", std::string_view("pswpin 5\n"));
    ASSERT_TRUE(memory);
    EXPECT_FALSE(memory->pageIns); // half of a pair is no pair
    EXPECT_FALSE(ProcParse::memoryStall("full avg10=3.00 avg60=0 avg300=0 total=0\n"));
    const auto stall = ProcParse::memoryStall("some avg10=1.50 avg60=0 avg300=0 total=0\n");
    ASSERT_TRUE(stall);
    EXPECT_EQ(stall->someAvg10, 1.5);
    EXPECT_EQ(stall->fullAvg10, 0);
}

TEST(ProcParse, ProcessFiles)
{
    // The command may hold spaces and parentheses; the fields are counted after the last ')'.
    const auto stat = ProcParse::pidStat(
        "42 (a (b) c) S 1 42 42 0 -1 0 0 0 0 0 150 50 0 0 20 0 3 0 100 4096 77 18446744073709551615 1\n");
    ASSERT_TRUE(stat);
    EXPECT_EQ(stat->cpuTicks, 200u);
    EXPECT_EQ(stat->residentPages, 77u);
    EXPECT_FALSE(ProcParse::pidStat("42 (x) S 1 2 3 4 5 6 7 8 9 10 11\n"));
    EXPECT_FALSE(ProcParse::pidStat(""));
    EXPECT_FALSE(ProcParse::pidStat("42 (x) S 1 42 42 0 -1 0 0 0 0 0 abc 50 0 0 20 0 3 0 100 4096 77\n"));

    EXPECT_FALSE(ProcParse::pidIo("read_bytes: 5\n"));
    EXPECT_FALSE(ProcParse::pidIo("read_bytes: 5\nwrite_bytes: -1\n"));

    using ProcParse::processName;
    EXPECT_EQ(processName(std::string_view("bash\n"), std::nullopt), QString("bash"));
    EXPECT_EQ(processName(std::string_view("chrome_crashpad\n"), std::string_view("/opt/google/chrome/chrome_crashpad_handler\0--x", 48)),
              QString("chrome_crashpad_handler"));
    // A command line that does not continue the short name (a rewritten title) is not used.
    EXPECT_EQ(processName(std::string_view("kworker/u16:2-e"), std::string_view("")), QString("kworker/u16:2-e"));
    EXPECT_EQ(processName(std::string_view("Web Content Pro"), std::string_view("/usr/lib/firefox/firefox\0-content", 34)),
              QString("Web Content Pro"));
    EXPECT_FALSE(processName(std::string_view("\n"), std::nullopt));
    EXPECT_FALSE(processName(std::nullopt, std::nullopt));
}

TEST(ProcParse, MountsLabelsAndPciNames)
{
    const auto mounts = ProcParse::mountInfo(
        "36 35 98:0 /mnt1 /mnt/parent\\040dir rw,noatime master:1 shared:2 - ext3 /dev/root rw,errors=continue\n"
        "37 35 98:0 / /ro ro,noatime - ext3 /dev/root rw\n"
        "38 35 98:0 / relative rw - ext3 /dev/root rw\n"
        "39 35 x:0 / /bad rw - ext3 /dev/root rw\n"
        "40 35 98:1 / /no-type rw -\n");
    ASSERT_EQ(mounts.size(), 2u);
    EXPECT_EQ(mounts[0].mountPoint, "/mnt/parent dir");
    EXPECT_EQ(mounts[0].root, "/mnt1");
    EXPECT_EQ(mounts[0].fsType, "ext3");
    EXPECT_EQ(mounts[0].major, 98);
    EXPECT_FALSE(mounts[0].readOnly);
    EXPECT_TRUE(mounts[1].readOnly);
    EXPECT_EQ(ProcParse::unescapeOctal("a\\011b\\\\c\\9"), "a\tb\\\\c\\9");
    EXPECT_EQ(ProcParse::unescapeLabel("My\\x20Disk\\x2"), "My Disk\\x2");

    // Per device one mount: the root wins over a bind mount of one of its folders. Only the topmost
    // of the mounts at "/" counts.
    const auto visible = LinuxDiskReader::visibleMounts(ProcParse::mountInfo(
        "1 0 0:1 / / rw - rootfs rootfs rw\n"
        "1 0 8:1 /srv /srv rw - ext4 /dev/sda1 rw\n"
        "2 0 8:1 / / rw - overlay overlay rw\n"
        "3 0 0:5 / /dev/shm rw - tmpfs tmpfs rw\n"
        "4 0 8:2 /x /a rw - ext4 /dev/sda2 rw\n"
        "5 0 8:2 / /b rw - ext4 /dev/sda2 rw\n"));
    ASSERT_EQ(visible.size(), 2u);
    EXPECT_EQ(visible[0].mountPoint, "/"); // shown whatever its type: it is the startup volume
    EXPECT_EQ(visible[1].mountPoint, "/b");

    const std::string_view ids = "1234  Vendor\n\t0001  Plain Device\n\t0002  Code [Marketing Name]\n"
                                 "5678  Other\n\t0001  Not this one\nC 03  Display\n";
    EXPECT_EQ(ProcParse::pciDeviceName(ids, 0x1234, 0x0001), QString("Plain Device"));
    EXPECT_EQ(ProcParse::pciDeviceName(ids, 0x1234, 0x0002), QString("Marketing Name"));
    EXPECT_FALSE(ProcParse::pciDeviceName(ids, 0x1234, 0x0003));
    EXPECT_FALSE(ProcParse::pciDeviceName(ids, 0x9999, 0x0001));
    EXPECT_FALSE(ProcParse::pciDeviceName("", 0x1234, 0x0001));
}
