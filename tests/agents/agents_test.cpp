#include "../support/test_support.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace pulsebar::test;

namespace {

const QByteArray usage = "Usage: Pulsebar --agents status | add <client> | remove <client>\n";
const QString clientIds = "claude-desktop|claude-code|cursor|vscode|windsurf|lm-studio|gemini-cli|codex";

QJsonObject parseObject(const QByteArray& text)
{
    return QJsonDocument::fromJson(text).object();
}

// The status table as a map from client id to its status text.
QMap<QString, QString> statusTable(const QByteArray& out)
{
    QMap<QString, QString> table;
    for (const QByteArray& line : out.split('\n')) {
        if (line.isEmpty())
            continue;
        EXPECT_EQ(line[15], ' ') << line.constData();
        table.insert(QString::fromUtf8(line.left(15)).trimmed(), QString::fromUtf8(line.mid(16)));
    }
    return table;
}

} // namespace

class Agents : public ::testing::Test {
protected:
    QTemporaryDir tmp;
    QString home = tmp.path() + "/home";        // HOME: must never be touched
    QString agentHome = tmp.path() + "/agents"; // PULSEBAR_AGENT_HOME
    QString bin = tmp.path() + "/bin";          // the only folder on PATH
    QString self = QFileInfo(binaryPath()).canonicalFilePath();

    void SetUp() override
    {
        QDir().mkpath(home);
        QDir().mkpath(agentHome);
        QDir().mkpath(bin);
    }

    QProcessEnvironment extraEnvironment() const
    {
        QProcessEnvironment env;
        env.insert("PULSEBAR_AGENT_HOME", agentHome);
        env.insert("PATH", bin);
        return env;
    }

    RunResult agents(const QStringList& arguments) const
    {
        return runPulsebar(QStringList{"--agents"} + arguments, home, {}, extraEnvironment());
    }

    // Runs another copy of the executable, as if Pulsebar had been moved or reinstalled elsewhere.
    RunResult agentsFrom(const QString& program, const QStringList& arguments) const
    {
        QProcess process;
        QProcessEnvironment env = isolatedEnvironment(home);
        env.insert(extraEnvironment());
        process.setProcessEnvironment(env);
        process.start(program, QStringList{"--agents"} + arguments);
        const bool finished = process.waitForFinished(30000);
        return {process.exitCode(), finished, process.readAllStandardOutput(), process.readAllStandardError()};
    }

    QString copyOfBinary(const QString& folder) const
    {
        const QString path = tmp.path() + '/' + folder + "/pulsebar";
        QDir().mkpath(QFileInfo(path).path());
        EXPECT_TRUE(QFile::copy(binaryPath(), path));
        return QFileInfo(path).canonicalFilePath();
    }

    QString agentPath(const QString& relative) const { return agentHome + '/' + relative; }

    void makeProgram(const QString& name) const
    {
        writeFile(bin + '/' + name, "#!/bin/sh\n");
        QFile::setPermissions(bin + '/' + name, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    QString status(const QString& client) const { return statusTable(agents({"status"}).out).value(client); }

    QJsonObject pulsebarEntry(const QString& command) const
    {
        return QJsonObject{{"command", command}, {"args", QJsonArray{"--mcp"}}};
    }

    static QByteArray codexTable(const QString& command)
    {
        return "[mcp_servers.pulsebar]\ncommand = \"" + command.toUtf8() + "\"\nargs = [\"--mcp\"]\n";
    }

    QJsonObject parsedTomlText(const QByteArray& text) const
    {
        const QString path = tmp.path() + "/expected.toml";
        writeFile(path, text);
        return parsedToml(path);
    }

    // The TOML file as Python's own TOML reader sees it, converted to JSON.
    QJsonObject parsedToml(const QString& path) const
    {
        QProcess python;
        python.start("/usr/bin/python3",
                     {"-c", "import json, sys, tomllib\n"
                            "print(json.dumps(tomllib.load(open(sys.argv[1], 'rb'))))",
                      path});
        EXPECT_TRUE(python.waitForFinished(20000));
        EXPECT_EQ(python.exitCode(), 0) << python.readAllStandardError().constData();
        return parseObject(python.readAllStandardOutput());
    }
};

TEST_F(Agents, UsageErrorsExitWithStatusTwo)
{
    const QList<QStringList> badCommands{{}, {"list"}, {"ADD", "cursor"}, {"--help"}};
    for (const QStringList& arguments : badCommands) {
        const RunResult r = agents(arguments);
        EXPECT_EQ(r.exitCode, 2) << arguments.join(' ').toStdString();
        EXPECT_EQ(r.err, usage);
        EXPECT_TRUE(r.out.isEmpty());
    }
    for (const QString& subcommand : {"add", "remove"}) {
        for (const QStringList& rest : QList<QStringList>{{}, {"nope"}, {"Cursor"}, {""}}) {
            const RunResult r = agents(QStringList{subcommand} + rest);
            EXPECT_EQ(r.exitCode, 2);
            EXPECT_EQ(QString::fromUtf8(r.err), "Usage: Pulsebar --agents " + subcommand + " <" + clientIds + ">\n");
            EXPECT_TRUE(r.out.isEmpty());
        }
    }
    EXPECT_TRUE(QDir(agentHome).isEmpty());
}

TEST_F(Agents, StatusWithAnEmptyAgentHomeReportsEveryClientNotInstalled)
{
    // The real home has a Cursor folder; only the agent home may count.
    QDir().mkpath(home + "/.cursor");
    const RunResult r = agents({"status", "extra", "words"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_TRUE(r.err.isEmpty());
    EXPECT_EQ(r.out, "claude-desktop  notInstalled\n"
                     "claude-code     notInstalled\n"
                     "cursor          notInstalled\n"
                     "vscode          notInstalled\n"
                     "windsurf        notInstalled\n"
                     "lm-studio       notInstalled\n"
                     "gemini-cli      notInstalled\n"
                     "codex           notInstalled\n");
}

TEST_F(Agents, DetectsClientsByTheirFoldersAndByTheirProgramsOnPath)
{
    makeProgram("code");
    makeProgram("claude-desktop");
    QDir().mkpath(agentPath(".lmstudio"));
    writeFile(agentPath(".claude.json"), "{}");
    QDir().mkpath(agentPath(".codex"));
    // A Windsurf data folder elsewhere does not count.
    QDir().mkpath(agentPath(".codeium/other"));

    EXPECT_EQ(statusTable(agents({"status"}).out),
              (QMap<QString, QString>{{"claude-desktop", "notAdded"}, {"claude-code", "manual"},
                                      {"cursor", "notInstalled"}, {"vscode", "notAdded"}, {"windsurf", "notInstalled"},
                                      {"lm-studio", "notAdded"}, {"gemini-cli", "notInstalled"}, {"codex", "notAdded"}}));
}

TEST_F(Agents, AddKeepsOtherServersAndKeysAndLeavesOneEntry)
{
    const QString config = agentPath(".cursor/mcp.json");
    const QByteArray original = R"({
  "mcpServers": {
    "github": {"command": "npx", "args": ["-y", "@x/server-github"], "env": {"TOKEN": "abc"}},
    "pulsebar": {"command": "/opt/old/pulsebar", "args": ["--mcp"]}
  },
  "theme": "dark",
  "limits": {"timeout": 30, "ratio": 0.25, "big": 9007199254740993, "on": true, "none": null},
  "url": "https://example.com/a/b",
  "name": "Grüße"
})";
    writeFile(config, original);
    EXPECT_EQ(status("cursor"), "addedElsewhere(/opt/old/pulsebar)");

    for (int round = 0; round < 2; ++round) {
        const RunResult r = agents({"add", "cursor"});
        EXPECT_EQ(r.exitCode, 0) << r.err.constData();
        EXPECT_TRUE(r.err.isEmpty());
        EXPECT_EQ(statusTable(r.out).value("cursor"), "added");
    }

    const QByteArray written = readFile(config);
    const QJsonObject before = parseObject(original);
    QJsonObject after = parseObject(written);
    const QJsonObject servers = after.value("mcpServers").toObject();
    EXPECT_EQ(servers.keys(), QStringList({"github", "pulsebar"}));
    EXPECT_EQ(servers.value("pulsebar").toObject(), pulsebarEntry(self));
    EXPECT_EQ(servers.value("github"), before.value("mcpServers").toObject().value("github"));
    after.remove("mcpServers");
    QJsonObject beforeRest = before;
    beforeRest.remove("mcpServers");
    EXPECT_EQ(after, beforeRest);
    EXPECT_TRUE(written.contains("9007199254740993"));

    // Readable as a person would keep it: indented, sorted, slashes as they are.
    EXPECT_TRUE(written.contains("\n    \"mcpServers\": {\n"));
    EXPECT_TRUE(written.contains("\"https://example.com/a/b\""));
    EXPECT_TRUE(written.contains(QFileInfo(self).path().toUtf8() + "/pulsebar\""));
    EXPECT_LT(written.indexOf("\"limits\""), written.indexOf("\"mcpServers\""));
    EXPECT_LT(written.indexOf("\"mcpServers\""), written.indexOf("\"name\""));

    // The backup holds the user's file from before the first edit, not the one from the second.
    EXPECT_EQ(readFile(config + ".pulsebar-backup"), original);
    EXPECT_EQ(QDir(agentPath(".cursor")).entryList(QDir::Files), QStringList({"mcp.json", "mcp.json.pulsebar-backup"}));
}

TEST_F(Agents, AddCreatesMissingFilesAndTypesTheVsCodeEntry)
{
    makeProgram("code");
    EXPECT_EQ(agents({"add", "vscode"}).exitCode, 0);
    EXPECT_EQ(parseObject(readFile(agentPath(".config/Code/User/mcp.json"))),
              QJsonObject({{"servers", QJsonObject{{"pulsebar", QJsonObject{{"command", self},
                                                                             {"args", QJsonArray{"--mcp"}},
                                                                             {"type", "stdio"}}}}}}));
    // Nothing existed before, so there is nothing to back up.
    EXPECT_FALSE(QFile::exists(agentPath(".config/Code/User/mcp.json.pulsebar-backup")));

    // An empty file starts an empty server list.
    writeFile(agentPath(".gemini/settings.json"), "  \n");
    EXPECT_EQ(agents({"add", "gemini-cli"}).exitCode, 0);
    EXPECT_EQ(parseObject(readFile(agentPath(".gemini/settings.json"))),
              QJsonObject({{"mcpServers", QJsonObject{{"pulsebar", pulsebarEntry(self)}}}}));
}

TEST_F(Agents, AnExistingEntryKeepsItsOwnMembers)
{
    makeProgram("code");
    const QString config = agentPath(".config/Code/User/mcp.json");
    writeFile(config, R"({"servers": {"pulsebar": {"command": "/old", "args": ["-v"], "type": "sse",
                                                  "env": {"A": "1"}, "disabled": true}}})");
    ASSERT_EQ(agents({"add", "vscode"}).exitCode, 0);
    EXPECT_EQ(parseObject(readFile(config)).value("servers").toObject().value("pulsebar").toObject(),
              QJsonObject({{"command", self}, {"args", QJsonArray{"--mcp"}}, {"type", "stdio"},
                           {"env", QJsonObject{{"A", "1"}}}, {"disabled", true}}));
}

TEST_F(Agents, JsonThatARewriteWouldChangeIsLeftAlone)
{
    const QString config = agentPath(".lmstudio/mcp.json");
    const QList<QPair<QByteArray, QByteArray>> refused{
        {R"({"mcpServers": [{"name": "a"}]})", "\"mcpServers\" is not an object"},
        {R"({"mcpServers": "none", "keep": 1})", "\"mcpServers\" is not an object"},
        {R"({"mcpServers": {}, "id": 123456789012345678901234567890})", "it holds numbers"},
        {R"({"mcpServers": {}, "ratio": 0.10000000000000000000001})", "it holds numbers"},
    };
    for (const auto& [contents, reason] : refused) {
        writeFile(config, contents);
        const RunResult r = agents({"add", "lm-studio"});
        EXPECT_EQ(r.exitCode, 1) << contents.constData();
        EXPECT_TRUE(r.err.startsWith("LM Studio's config file couldn't be edited safely (" + reason)) << r.err.constData();
        EXPECT_TRUE(r.err.endsWith("), so Pulsebar left it alone. Use the snippet below instead.\n"));
        EXPECT_EQ(parseObject(r.out), QJsonObject({{"mcpServers", QJsonObject{{"pulsebar", pulsebarEntry(self)}}}}));
        EXPECT_EQ(readFile(config), contents);
    }
    // Numbers that read back as the same value are rewritten, whatever their spelling.
    writeFile(config, R"({"a": 1.50, "b": 15e-1, "c": -0.0, "d": 9223372036854775807, "e": 1e20})");
    EXPECT_EQ(agents({"add", "lm-studio"}).exitCode, 0);
}

TEST_F(Agents, AddingFromAMovedExecutableUpdatesTheCommand)
{
    const QString moved = copyOfBinary("My Tools");
    writeFile(agentPath(".cursor/mcp.json"), R"({"mcpServers": {"other": {"command": "x"}}})");
    QDir().mkpath(agentPath(".codex"));
    QDir().mkpath(agentPath(".claude"));

    for (const QString& client : {"cursor", "codex"})
        ASSERT_EQ(agents({"add", client}).exitCode, 0);
    RunResult r = agentsFrom(moved, {"add", "cursor"});
    EXPECT_EQ(r.exitCode, 0) << r.err.constData();
    EXPECT_EQ(statusTable(r.out).value("cursor"), "added");
    EXPECT_EQ(statusTable(r.out).value("codex"), "addedElsewhere(" + self + ")");
    EXPECT_EQ(agentsFrom(moved, {"add", "codex"}).exitCode, 0);

    const QJsonObject servers = parseObject(readFile(agentPath(".cursor/mcp.json"))).value("mcpServers").toObject();
    EXPECT_EQ(servers.value("pulsebar").toObject(), pulsebarEntry(moved));
    EXPECT_EQ(servers.value("other").toObject(), QJsonObject({{"command", "x"}}));
    EXPECT_EQ(parsedToml(agentPath(".codex/config.toml")).value("mcp_servers").toObject(),
              QJsonObject({{"pulsebar", pulsebarEntry(moved)}}));

    // Seen from the original executable, both entries now launch the other one.
    const QMap<QString, QString> table = statusTable(agents({"status"}).out);
    EXPECT_EQ(table.value("cursor"), "addedElsewhere(" + moved + ")");
    EXPECT_EQ(table.value("codex"), "addedElsewhere(" + moved + ")");

    // The Claude Code command quotes a path with a space.
    r = agentsFrom(moved, {"add", "claude-code"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(QString::fromUtf8(r.out), "claude mcp add --scope user pulsebar -- '" + moved + "' --mcp\n");
}

TEST_F(Agents, ClaudeCodeIsSetUpByACommandThePersonRuns)
{
    QDir().mkpath(agentPath(".claude"));
    RunResult r = agents({"add", "claude-code"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "Claude Code is set up with a command; copy it and run it in a terminal.\n");
    EXPECT_EQ(QString::fromUtf8(r.out), "claude mcp add --scope user pulsebar -- " + self + " --mcp\n");

    r = agents({"remove", "claude-code"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "Run `claude mcp remove pulsebar --scope user` in a terminal.\n");
    EXPECT_TRUE(r.out.isEmpty());

    EXPECT_EQ(status("claude-code"), "manual");
    EXPECT_EQ(QDir(agentPath(".claude")).entryList(QDir::NoDotAndDotDot | QDir::AllEntries), QStringList());
}

TEST_F(Agents, RemoveTakesOutOnlyPulsebar)
{
    const QString config = agentPath(".codeium/windsurf/mcp_config.json");
    writeFile(config, R"({"mcpServers": {"a": {"command": "a"}}, "other": [1, 2]})");
    const QJsonObject original = parseObject(readFile(config));

    // Without the entry: rewritten without error, still not added.
    RunResult r = agents({"remove", "windsurf"});
    EXPECT_EQ(r.exitCode, 0) << r.err.constData();
    EXPECT_EQ(statusTable(r.out).value("windsurf"), "notAdded");
    EXPECT_EQ(parseObject(readFile(config)), original);

    ASSERT_EQ(agents({"add", "windsurf"}).exitCode, 0);
    EXPECT_EQ(status("windsurf"), "added");
    r = agents({"remove", "windsurf"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(statusTable(r.out).value("windsurf"), "notAdded");
    EXPECT_EQ(parseObject(readFile(config)), original);

    // Removing where there is no file leaves no file behind.
    QDir().mkpath(agentPath(".cursor"));
    EXPECT_EQ(agents({"remove", "cursor"}).exitCode, 0);
    EXPECT_EQ(agents({"remove", "codex"}).exitCode, 0);
    EXPECT_FALSE(QFile::exists(agentPath(".cursor/mcp.json")));
    EXPECT_FALSE(QFile::exists(agentPath(".codex/config.toml")));
}

TEST_F(Agents, FilesThatCannotBeParsedAreLeftExactlyAsTheyWere)
{
    const QString config = agentPath(".config/Claude/claude_desktop_config.json");
    const QList<QByteArray> refused{
        "{\n  // my servers\n  \"mcpServers\": {}\n}\n", // comments
        "[{\"mcpServers\": {}}]\n",                   // not an object
        "{\"mcpServers\": {\"a\": 1},}",              // trailing comma
    };
    for (const QByteArray& contents : refused) {
        writeFile(config, contents);
        for (const QString& subcommand : {"add", "remove"}) {
            const RunResult r = agents({subcommand, "claude-desktop"});
            EXPECT_EQ(r.exitCode, 1);
            EXPECT_EQ(r.err, "Claude Desktop's config file couldn't be read as plain JSON (it may contain "
                             "comments), so Pulsebar left it alone. Use the snippet below instead.\n");
            // The snippet is the server object to paste by hand.
            EXPECT_EQ(parseObject(r.out),
                      QJsonObject({{"mcpServers", QJsonObject{{"pulsebar", pulsebarEntry(self)}}}}));
            EXPECT_EQ(readFile(config), contents);
        }
        EXPECT_EQ(status("claude-desktop"), "notAdded");
    }
    EXPECT_EQ(QDir(agentPath(".config/Claude")).entryList(QDir::Files), QStringList({"claude_desktop_config.json"}));
}

TEST_F(Agents, ConfigPathsThatAreNotReadableFilesAreLeftAlone)
{
    // A folder, and a pipe (which would block a reader forever), where the config file should be.
    QDir().mkpath(agentPath(".cursor/mcp.json/inner"));
    QDir().mkpath(agentPath(".codex"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(agentPath(".codex/config.toml")).constData(), 0600), 0);

    const QList<QPair<QString, QString>> cases{{"cursor", "Cursor"}, {"codex", "Codex CLI"}};
    for (const auto& [id, name] : cases) {
        for (const QString& subcommand : {"add", "remove"}) {
            const RunResult r = agents({subcommand, id});
            EXPECT_TRUE(r.finished);
            EXPECT_EQ(r.exitCode, 1);
            EXPECT_EQ(QString::fromUtf8(r.err), "Couldn't read " + name + "'s config file, so Pulsebar left it alone.\n");
        }
    }
    EXPECT_TRUE(QFileInfo(agentPath(".cursor/mcp.json/inner")).isDir());
    EXPECT_EQ(QDir(agentPath(".cursor")).entryList(QDir::NoDotAndDotDot | QDir::AllEntries), QStringList({"mcp.json"}));
    EXPECT_EQ(QDir(agentPath(".codex")).entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System),
              QStringList({"config.toml"}));

    // A file where the config folder should be: nothing can be written, and the error says why.
    writeFile(agentPath(".gemini"), "mine");
    const RunResult blocked = agents({"add", "gemini-cli"});
    EXPECT_EQ(blocked.exitCode, 1);
    EXPECT_EQ(QString::fromUtf8(blocked.err), "Couldn't create the folder " + agentPath(".gemini") + ".\n");
    EXPECT_EQ(readFile(agentPath(".gemini")), "mine");

    if (::geteuid() != 0) {
        const QString config = agentPath(".lmstudio/mcp.json");
        writeFile(config, "{}");
        ::chmod(QFile::encodeName(config).constData(), 0);
        const RunResult r = agents({"add", "lm-studio"});
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_EQ(r.err, "Couldn't read LM Studio's config file, so Pulsebar left it alone.\n");
    }
}

TEST_F(Agents, ASymlinkedConfigIsWrittenThroughToItsTarget)
{
    const QString target = agentPath("dotfiles/cursor.json");
    writeFile(target, R"({"mcpServers": {"mine": {"command": "m"}}})");
    QDir().mkpath(agentPath(".cursor"));
    ASSERT_TRUE(QFile::link(target, agentPath(".cursor/mcp.json")));

    ASSERT_EQ(agents({"add", "cursor"}).exitCode, 0);
    EXPECT_TRUE(QFileInfo(agentPath(".cursor/mcp.json")).isSymLink());
    const QJsonObject servers = parseObject(readFile(target)).value("mcpServers").toObject();
    EXPECT_EQ(servers.keys(), QStringList({"mine", "pulsebar"}));
    EXPECT_EQ(status("cursor"), "added");
    EXPECT_EQ(parseObject(readFile(agentPath(".cursor/mcp.json.pulsebar-backup"))),
              QJsonObject({{"mcpServers", QJsonObject{{"mine", QJsonObject{{"command", "m"}}}}}}));

    // A link whose target does not exist yet gets its target created.
    QFile::remove(agentPath(".cursor/mcp.json"));
    ASSERT_TRUE(QFile::link(agentPath("dotfiles/new/cursor.json"), agentPath(".cursor/mcp.json")));
    ASSERT_EQ(agents({"add", "cursor"}).exitCode, 0);
    EXPECT_TRUE(QFileInfo(agentPath(".cursor/mcp.json")).isSymLink());
    EXPECT_EQ(status("cursor"), "added");
}

// Root setting up another user's agents keeps that user's files theirs and private.
TEST_F(Agents, RootKeepsOwnersAndModesAndFollowsNoLinkOutOfTheHome)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root";
    const uid_t user = 4321;
    ASSERT_EQ(::chown(QFile::encodeName(agentHome).constData(), user, user), 0);
    const QString cursor = agentPath(".cursor/mcp.json");
    writeFile(cursor, "{}");
    ::chmod(QFile::encodeName(cursor).constData(), 0400);
    ::chown(QFile::encodeName(cursor).constData(), user, user);

    const mode_t oldMask = ::umask(0);
    const RunResult added = agents({"add", "cursor"});
    const RunResult created = agents({"add", "gemini-cli"});
    ::umask(oldMask);
    ASSERT_EQ(added.exitCode, 0) << added.err.constData();
    ASSERT_EQ(created.exitCode, 0) << created.err.constData();

    const auto stat = [](const QString& path) {
        struct stat info{};
        EXPECT_EQ(::stat(QFile::encodeName(path).constData(), &info), 0) << path.toStdString();
        return std::tuple{info.st_uid, info.st_gid, info.st_mode & 07777};
    };
    EXPECT_EQ(stat(cursor), std::tuple(user, user, 0400u));
    EXPECT_EQ(stat(cursor + ".pulsebar-backup"), std::tuple(user, user, 0400u));
    EXPECT_EQ(stat(agentPath(".gemini")), std::tuple(user, user, 0700u));
    EXPECT_EQ(stat(agentPath(".gemini/settings.json")), std::tuple(user, user, 0600u));

    // Links out of the home, or to a file the user does not own, are not written through.
    const QString outside = tmp.path() + "/elsewhere.json";
    const QString rootsOwn = agentPath("roots.json");
    writeFile(outside, "{}");
    writeFile(rootsOwn, "{}");
    const QString windsurf = agentPath(".codeium/windsurf/mcp_config.json");
    for (const QString& target : {outside, rootsOwn, tmp.path() + "/missing/new.json"}) {
        QFile::remove(windsurf);
        QDir().mkpath(QFileInfo(windsurf).path());
        ASSERT_TRUE(QFile::link(target, windsurf));
        const RunResult r = agents({"add", "windsurf"});
        EXPECT_EQ(r.exitCode, 1) << target.toStdString();
        EXPECT_TRUE(r.err.contains("left it alone")) << r.err.constData();
    }
    EXPECT_EQ(readFile(outside), "{}");
    EXPECT_EQ(readFile(rootsOwn), "{}");
    EXPECT_FALSE(QFileInfo::exists(tmp.path() + "/missing"));
}

TEST_F(Agents, CodexTableIsAddedAndRemovedAroundOtherTables)
{
    const QString config = agentPath(".codex/config.toml");
    const QByteArray head = "# Codex settings\n"
                            "model = \"o3\"\n"
                            "\n"
                            "[mcp_servers.github]\n"
                            "command = \"npx\"\n"
                            "args = [\"-y\", \"server-github\"]\n"
                            "\n";
    const QByteArray tail = "[profiles.fast]\n"
                            "model = \"o4-mini\" # quick\n";
    const QByteArray oldTable = "[mcp_servers.pulsebar]\ncommand = \"/opt/old/pulsebar\"\nargs = [\"--mcp\"]\n";
    const QByteArray before = head + oldTable + "\n" + tail + "\n\n\n";
    const QByteArray others = head + tail;
    writeFile(config, before);
    EXPECT_EQ(status("codex"), "addedElsewhere(/opt/old/pulsebar)");

    RunResult r = agents({"add", "codex"});
    ASSERT_EQ(r.exitCode, 0) << r.err.constData();
    EXPECT_EQ(statusTable(r.out).value("codex"), "added");
    const QByteArray table = codexTable(self);
    EXPECT_EQ(readFile(config), others + "\n" + table);
    EXPECT_EQ(readFile(config + ".pulsebar-backup"), before);

    QJsonObject parsed = parsedToml(config);
    EXPECT_EQ(parsed.value("model"), "o3");
    EXPECT_EQ(parsed.value("profiles").toObject(), QJsonObject({{"fast", QJsonObject{{"model", "o4-mini"}}}}));
    const QJsonObject servers = parsed.value("mcp_servers").toObject();
    EXPECT_EQ(servers.value("pulsebar").toObject(), pulsebarEntry(self));
    EXPECT_EQ(servers.value("github").toObject(),
              QJsonObject({{"command", "npx"}, {"args", QJsonArray{"-y", "server-github"}}}));

    ASSERT_EQ(agents({"add", "codex"}).exitCode, 0);
    EXPECT_EQ(readFile(config), others + "\n" + table);

    r = agents({"remove", "codex"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(statusTable(r.out).value("codex"), "notAdded");
    EXPECT_EQ(readFile(config), others);
    parsed = parsedToml(config);
    EXPECT_FALSE(parsed.value("mcp_servers").toObject().contains("pulsebar"));
    EXPECT_TRUE(parsed.value("mcp_servers").toObject().contains("github"));
}

TEST_F(Agents, CodexTableInEmptyFilesAndFilesWithoutAFinalNewline)
{
    const QString config = agentPath(".codex/config.toml");
    const QByteArray table = codexTable(self);

    ASSERT_EQ(agents({"add", "codex"}).exitCode, 0);
    EXPECT_EQ(readFile(config), table);

    // The header must be a whole line: a longer table name or a commented header is another table.
    const QByteArray lookalikes = "#[mcp_servers.pulsebar]\n[mcp_servers.pulsebar2]\ncommand = \"y\"";
    writeFile(config, lookalikes);
    EXPECT_EQ(status("codex"), "notAdded");
    ASSERT_EQ(agents({"add", "codex"}).exitCode, 0);
    EXPECT_EQ(readFile(config), lookalikes + "\n\n" + table);
    const QJsonObject servers = parsedToml(config).value("mcp_servers").toObject();
    EXPECT_EQ(servers.keys(), QStringList({"pulsebar", "pulsebar2"}));

    ASSERT_EQ(agents({"remove", "codex"}).exitCode, 0);
    EXPECT_EQ(readFile(config), lookalikes + "\n");
}

TEST_F(Agents, CodexCommandsWithQuotesBackslashesAndControlCharactersStayValidToml)
{
    for (const QString& folder : {"odd \"dir\" \\ name", "line\nfeed\ttab"}) {
        const QString moved = copyOfBinary(folder);
        QFile::remove(agentPath(".codex/config.toml"));
        QDir().mkpath(agentPath(".codex"));
        const RunResult r = agentsFrom(moved, {"add", "codex"});
        ASSERT_EQ(r.exitCode, 0) << r.err.constData();
        EXPECT_EQ(statusTable(r.out).value("codex"), "added");
        EXPECT_EQ(parsedToml(agentPath(".codex/config.toml")).value("mcp_servers").toObject(),
                  QJsonObject({{"pulsebar", pulsebarEntry(moved)}}));
    }
}

TEST_F(Agents, CodexTablesInEveryLayoutAreReplacedOrTheFileIsLeftAlone)
{
    const QString config = agentPath(".codex/config.toml");
    const QByteArray profile = "# the fast one\n[profiles.fast]\nmodel = \"o4-mini\"\n";
    struct Case {
        QByteArray before;
        QByteArray others; // the settings besides pulsebar, as TOML; refused when empty
    };
    const QList<Case> cases{
        {"[mcp_servers.pulsebar] # mine\ncommand = \"/old\"\n\n" + profile, profile},
        {"  [ mcp_servers . pulsebar ]  \n  command = \"/old\"\n" + profile, profile},
        {"[mcp_servers.\"pulsebar\"]\ncommand = '/old'\nenv = { A = \"1\" }\n[mcp_servers.pulsebar.more]\nx = 1\n" + profile,
         profile},
        {"model = \"o3\"\nmcp_servers.pulsebar.command = \"/old\"\nmcp_servers.pulsebar.args = []\n", "model = \"o3\"\n"},
        {"[mcp_servers]\npulsebar = { command = \"/old\" }\ngithub = { command = \"gh\" }\n",
         "[mcp_servers]\ngithub = { command = \"gh\" }\n"},
        {"[mcp_servers]\npulsebar.command = \"/old\"\npulsebar.args = [\n  \"--mcp\",\n]\nx.command = \"x\"\n",
         "[mcp_servers]\nx.command = \"x\"\n"},
        {"notes = \"\"\"\n[mcp_servers.pulsebar]\ncommand = \"/fake\"\n\"\"\"\n" + profile,
         "notes = \"\"\"\n[mcp_servers.pulsebar]\ncommand = \"/fake\"\n\"\"\"\n" + profile},
        {"mcp_servers = { pulsebar = { command = \"/old\" }, github = { command = \"gh\" } }\n", {}},
        {"mcp_servers = 1\n", {}},
    };
    for (const Case& c : cases) {
        writeFile(config, c.before);
        QFile::remove(config + ".pulsebar-backup");
        RunResult r = agents({"add", "codex"});
        if (c.others.isEmpty()) {
            EXPECT_EQ(r.exitCode, 1) << c.before.constData();
            EXPECT_TRUE(r.err.startsWith("Codex CLI's config file couldn't be edited safely (mcp_servers is "));
            EXPECT_TRUE(r.err.endsWith("so Pulsebar left it alone. Use the table below instead.\n"));
            EXPECT_EQ(r.out, codexTable(self));
            EXPECT_EQ(readFile(config), c.before);
            continue;
        }
        ASSERT_EQ(r.exitCode, 0) << c.before.constData() << r.err.constData();
        QJsonObject expected = parsedTomlText(c.others);
        QJsonObject servers = expected.value("mcp_servers").toObject();
        servers.insert("pulsebar", pulsebarEntry(self));
        expected.insert("mcp_servers", servers);
        EXPECT_EQ(parsedToml(config), expected) << readFile(config).constData();
        if (c.before.contains(profile))
            EXPECT_TRUE(readFile(config).contains(profile)) << readFile(config).constData();
        EXPECT_EQ(statusTable(r.out).value("codex"), "added");

        r = agents({"remove", "codex"});
        ASSERT_EQ(r.exitCode, 0) << r.err.constData();
        QJsonObject left = parsedToml(config);
        if (left.value("mcp_servers").toObject().isEmpty())
            left.remove("mcp_servers");
        EXPECT_EQ(left, parsedTomlText(c.others)) << readFile(config).constData();
    }

    // Text that is not TOML is not touched.
    writeFile(config, "model = \n");
    const RunResult r = agents({"add", "codex"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "Codex CLI's config file couldn't be read as TOML, so Pulsebar left it alone. Use the table "
                     "below instead.\n");
    EXPECT_EQ(readFile(config), "model = \n");
}
