#include "../support/test_support.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QThread>

#include <gtest/gtest.h>

#include <csignal>

using namespace pulsebar::test;

class Entry : public ::testing::Test {
protected:
    QTemporaryDir home;
};

TEST_F(Entry, VersionAndHelp)
{
    RunResult r = runPulsebar({"--version"}, home.path());
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, QByteArray("pulsebar ") + PULSEBAR_VERSION + "\n");

    r = runPulsebar({"--help"}, home.path());
    EXPECT_EQ(r.exitCode, 0);
    for (const char* mode : {"--mcp", "--agents status", "--agents add", "--agents remove", "--dump", "--version"})
        EXPECT_TRUE(r.out.contains(mode)) << mode;
    EXPECT_TRUE(r.out.endsWith("\n"));
    EXPECT_TRUE(r.err.isEmpty());
}

TEST_F(Entry, DumpWinsOverEveryOtherModeAndTakesTheNextArgumentAsItsFolder)
{
    // A request on standard input: had the server run, it would have answered it.
    const QByteArray request = R"({"jsonrpc":"2.0","id":1,"method":"ping"})" "\n";
    const QString out = home.path() + "/dump-out";
    // Rendering every sample state takes a while on a busy machine.
    constexpr int dumpTimeoutMs = 300000;
    RunResult r = runPulsebar({"--mcp", "--dump", out}, home.path(), request, {}, dumpTimeoutMs);
    EXPECT_EQ(r.exitCode, 0) << r.err.constData();
    EXPECT_FALSE(r.out.contains("jsonrpc"));
    EXPECT_TRUE(QFileInfo::exists(out + "/index.html"));

    // Without a folder after it, --dump makes a new one in the working folder; --agents never runs.
    r = runPulsebar({"--agents", "status", "--dump"}, home.path(), request, {}, dumpTimeoutMs);
    EXPECT_EQ(r.exitCode, 0) << r.err.constData();
    EXPECT_FALSE(r.out.contains("claude-desktop"));
    const QString made = QString::fromUtf8(r.out.trimmed());
    EXPECT_TRUE(QFileInfo(made).fileName().startsWith("pulsebar-dump-")) << r.out.constData();
    EXPECT_TRUE(QFileInfo::exists(made + "/index.html"));
}

TEST_F(Entry, ModesAreMatchedExactly)
{
    // "--version=1", "--MCP" and "-mcp" are unknown arguments: they must not pick a headless mode.
    // With --version after them, the version is printed instead of the app starting.
    RunResult r = runPulsebar({"--MCP", "-mcp", "--mcp=1", "--version"}, home.path());
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_TRUE(r.out.startsWith("pulsebar "));
}

TEST_F(Entry, UnknownArgumentsStartTheAppWhichQuitsCleanlyOnSigterm)
{
    QProcess app;
    app.setProcessEnvironment(isolatedEnvironment(home.path()));
    app.start(binaryPath(), {"--no-such-flag"});
    ASSERT_TRUE(app.waitForStarted());
    // Still running after a second: it is the app role, not a mode that ends on its own.
    EXPECT_FALSE(app.waitForFinished(1500));
    ::kill(pid_t(app.processId()), SIGTERM);
    ASSERT_TRUE(app.waitForFinished(10000));
    EXPECT_EQ(app.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(app.exitCode(), 0);
    EXPECT_FALSE(app.readAllStandardError().contains("ERROR: AddressSanitizer"));
}
