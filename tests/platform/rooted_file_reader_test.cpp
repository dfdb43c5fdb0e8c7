#include "platform/linux/rooted_file_reader.h"

#include "../support/test_support.h"

#include <gtest/gtest.h>

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
