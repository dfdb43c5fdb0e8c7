#include "platform/linux/rooted_file_reader.h"

#include "../support/test_support.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace pulsebar;

TEST(SysText, NumbersMustBeTheWholeTrimmedText)
{
    EXPECT_EQ(SysText::toInt(" 42\n"), 42);
    EXPECT_EQ(SysText::toInt("-7"), -7);
    EXPECT_FALSE(SysText::toInt("42abc"));
    EXPECT_FALSE(SysText::toInt(""));
    EXPECT_FALSE(SysText::toInt("\n"));
    EXPECT_FALSE(SysText::toInt("99999999999999999999999"));
    EXPECT_EQ(SysText::toUnsigned("18446744073709551615"), 18446744073709551615ull);
    EXPECT_FALSE(SysText::toUnsigned("-1"));
    EXPECT_EQ(SysText::toDouble("0.25\n"), 0.25);
    EXPECT_FALSE(SysText::toDouble("nan"));
    EXPECT_FALSE(SysText::toDouble("inf"));
}

TEST(SysText, FieldMatchesWholeKeys)
{
    const std::string_view meminfo = "MemTotal:       16310776 kB\nMemFree:         1210536 kB\nMemFreeX: 5\n";
    EXPECT_EQ(SysText::field(meminfo, "MemTotal"), "16310776 kB");
    EXPECT_EQ(SysText::field(meminfo, "MemFree"), "1210536 kB");
    EXPECT_FALSE(SysText::field(meminfo, "Mem"));
    EXPECT_EQ(SysText::field("model name\t: Some CPU @ 3GHz\n", "model name"), "Some CPU @ 3GHz");
    EXPECT_EQ(SysText::field("pswpin 12\npswpout 3", "pswpout"), "3");
}

TEST(RootedFileReader, ReadsBelowItsRootAndFailsSoftly)
{
    QTemporaryDir dir;
    test::writeFile(dir.path() + "/sys/class/x/value", "  123\n");
    test::writeFile(dir.path() + "/sys/class/x/garbage", "12 34");
    test::writeFile(dir.path() + "/sys/class/x/empty", "");
    test::writeFile(dir.path() + "/proc/b", "line one\nline two\n");
    const RootedFileReader fs(dir.path().toStdString()); // no trailing slash on purpose
    EXPECT_EQ(fs.readInt("sys/class/x/value"), 123);
    EXPECT_EQ(fs.readInt("/sys/class/x/value"), 123);
    EXPECT_FALSE(fs.readInt("sys/class/x/garbage"));
    EXPECT_FALSE(fs.readInt("sys/class/x/empty"));
    EXPECT_FALSE(fs.readInt("sys/class/x/missing"));
    EXPECT_EQ(fs.readLine("proc/b"), "line one");
    EXPECT_EQ(fs.readText("proc/b"), "line one\nline two\n");
    EXPECT_EQ(fs.readText("proc/b", 4), "line");
    EXPECT_EQ(fs.list("sys/class/x"), (std::vector<std::string>{"empty", "garbage", "value"}));
    EXPECT_TRUE(fs.list("nowhere").empty());
    EXPECT_TRUE(fs.isDirectory("sys/class"));
    EXPECT_FALSE(fs.isDirectory("proc/b"));
    EXPECT_FALSE(fs.readText("sys/class")); // a directory is not a file

    test::ScopedEnv root("PULSEBAR_SYSROOT", dir.path());
    EXPECT_EQ(RootedFileReader::fromEnvironment().readInt("sys/class/x/value"), 123);
}

// A special file planted where a file belongs reads as missing, at once: a FIFO would block a read
// forever and /dev/zero would never end.
TEST(RootedFileReader, OnlyRegularFilesAreRead)
{
    QTemporaryDir dir;
    const std::string root = dir.path().toStdString();
    ASSERT_EQ(::mkfifo((root + "/fifo").c_str(), 0600), 0);
    ASSERT_EQ(::symlink("/dev/zero", (root + "/zero").c_str()), 0);
    ASSERT_EQ(::mkdir((root + "/folder").c_str(), 0700), 0);
    const RootedFileReader fs(root);
    for (const char* name : {"fifo", "zero", "folder"}) {
        SCOPED_TRACE(name);
        EXPECT_FALSE(fs.readText(name));
        EXPECT_FALSE(fs.readInt(name));
        EXPECT_FALSE(fs.open(name).isOpen());
        std::string text;
        RootedFileReader::RepeatedFile repeated(fs, name);
        EXPECT_FALSE(repeated.readText(text));
        EXPECT_FALSE(fs.writeText(name, "1"));
    }
}

// The kernel hands a proc file made of many records over a page or so per read; the text must still
// arrive whole. The process's own memory map is such a file, many pages long in a test binary.
TEST(RootedFileReader, ProcFilesLongerThanAPageAreReadWhole)
{
    const RootedFileReader fs("/");
    std::string held;
    ASSERT_TRUE(fs.open("proc/self/maps").readText(held));
    std::string repeated;
    RootedFileReader::RepeatedFile file(fs, "proc/self/maps");
    ASSERT_TRUE(file.readText(repeated));
    std::vector<char> buffer(1 << 20);
    const long n = fs.readInto("proc/self/maps", buffer.data(), buffer.size());
    for (const std::string& text : {held, repeated, *fs.readText("proc/self/maps"), std::string(buffer.data(), std::size_t(std::max(n, 0L)))}) {
        EXPECT_GT(text.size(), 3 * 4096u);
        EXPECT_EQ(text.back(), '\n');
    }
}
