#include "agents/agent_client.h"

#include "core/paths.h"
#include "platform/linux/rooted_file_reader.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QSaveFile>
#include <QStandardPaths>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace pulsebar {

namespace {

using Kind = AgentClient::Config::Kind;
using StatusCase = AgentClient::StatusCase;

AgentClient::Config jsonConfig(const QString& path, const QString& key = "mcpServers", bool typed = false)
{
    return {Kind::json, path, key, typed};
}

void printLine(std::FILE* stream, const QString& text)
{
    std::fputs(text.toLocal8Bit().constData(), stream);
    std::fputc('\n', stream);
}

// The text of a JSON document as agents' files keep it: indented, keys sorted, slashes left alone.
QByteArray jsonText(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Indented);
}

// Follows a chain of symbolic links to the file it ends at (which need not exist yet), so that a
// config file kept elsewhere and linked into place is edited where it lives instead of being replaced.
QString followLinks(const QString& path)
{
    QFileInfo info(path);
    for (int depth = 0; depth < 40 && info.isSymLink(); ++depth)
        info.setFile(info.symLinkTarget());
    return info.absoluteFilePath();
}

bool launchesThisExecutable(const QString& command)
{
    const QString self = AgentClient::executable();
    return !command.isEmpty() && (command == self || QFileInfo(command).canonicalFilePath() == self);
}

// Quotes a path for a POSIX shell when it needs it; a path of plain characters stays as it is.
QString shellQuoted(const QString& path)
{
    static const QString plain = QStringLiteral("/._-+@%:,=");
    const bool needsQuotes = path.isEmpty() || std::any_of(path.begin(), path.end(), [](QChar c) {
        return !(c.isLetterOrNumber() && c.unicode() < 128) && !plain.contains(c);
    });
    if (!needsQuotes)
        return path;
    QString inner = path;
    inner.replace('\'', QStringLiteral("'\\''"));
    return '\'' + inner + '\'';
}

// The Codex table is edited as text, so comments, formatting and every other table stay as the user
// wrote them. Everything works on bytes: a file that is not valid UTF-8 is still kept intact.
namespace Toml {

const QByteArray header = "[mcp_servers.pulsebar]";

// Where the pulsebar table lies: from its header line to the start of the next line that opens a
// table ("[...") or to the end of the text.
std::optional<std::pair<qsizetype, qsizetype>> section(const QByteArray& text)
{
    for (qsizetype at = text.indexOf(header); at >= 0; at = text.indexOf(header, at + 1)) {
        const qsizetype after = at + header.size();
        const bool startsLine = at == 0 || text[at - 1] == '\n';
        const bool endsLine = after == text.size() || text[after] == '\n' ||
                              (text[after] == '\r' && (after + 1 == text.size() || text[after + 1] == '\n'));
        if (!startsLine || !endsLine)
            continue;
        const qsizetype next = text.indexOf("\n[", after);
        return std::pair{at, next < 0 ? text.size() : next + 1};
    }
    return std::nullopt;
}

void dropTrailingBlankLines(QByteArray& text)
{
    while (text.endsWith("\n\n"))
        text.chop(1);
}

QByteArray withoutTable(QByteArray text)
{
    if (const auto range = section(text))
        text.remove(range->first, range->second - range->first);
    dropTrailingBlankLines(text);
    return text;
}

// The value of a basic ("...") or literal ('...') TOML string at the start of text.
QString stringValue(QByteArrayView text)
{
    if (text.startsWith('\'')) {
        const qsizetype end = text.indexOf('\'', 1);
        return QFile::decodeName(text.sliced(1, (end < 0 ? text.size() : end) - 1).toByteArray());
    }
    if (!text.startsWith('"'))
        return QFile::decodeName(text.toByteArray().trimmed());
    QByteArray value;
    for (qsizetype i = 1; i < text.size() && text[i] != '"'; ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) {
            const char escaped = text[++i];
            value += escaped == 'n' ? '\n' : escaped == 't' ? '\t' : escaped;
        } else {
            value += text[i];
        }
    }
    return QFile::decodeName(value);
}

// The command the pulsebar table launches; empty when the table names none.
QString command(const QByteArray& text)
{
    const auto range = section(text);
    if (!range)
        return {};
    const QByteArray table = text.mid(range->first, range->second - range->first);
    for (const QByteArray& rawLine : table.split('\n')) {
        const QByteArray line = rawLine.trimmed();
        if (!line.startsWith("command"))
            continue;
        const QByteArray rest = line.mid(7).trimmed();
        if (rest.startsWith('='))
            return stringValue(rest.mid(1).trimmed());
    }
    return {};
}

QByteArray basicString(const QString& value)
{
    QByteArray bytes = QFile::encodeName(value);
    bytes.replace("\\", "\\\\").replace("\"", "\\\"");
    return '"' + bytes + '"';
}

} // namespace Toml

} // namespace

QString AgentClient::Status::text() const
{
    const QString caseName = enumName(value);
    return value == StatusCase::addedElsewhere ? caseName + '(' + path + ')' : caseName;
}

const std::vector<AgentClient>& AgentClient::all()
{
    static const std::vector<AgentClient> clients{
        {"claude-desktop", "Claude Desktop", "Quit and reopen Claude after adding.",
         jsonConfig("~/.config/Claude/claude_desktop_config.json"), {"~/.config/Claude"}, "claude-desktop"},
        {"claude-code", "Claude Code", "Run this once in Terminal.", {Kind::command, {}, {}, false},
         {"~/.claude.json", "~/.claude"}, {}},
        {"cursor", "Cursor", "Appears under Settings › MCP.", jsonConfig("~/.cursor/mcp.json"), {"~/.cursor"},
         "cursor"},
        {"vscode", "VS Code", "For Copilot's agent mode. Reload the window after adding.",
         jsonConfig("~/.config/Code/User/mcp.json", "servers", true), {"~/.config/Code/User"}, "code"},
        {"windsurf", "Windsurf", "Refresh MCP servers in Cascade after adding.",
         jsonConfig("~/.codeium/windsurf/mcp_config.json"), {"~/.codeium/windsurf"}, "windsurf"},
        {"lm-studio", "LM Studio", "For local models that support tools.", jsonConfig("~/.lmstudio/mcp.json"),
         {"~/.lmstudio"}, {}},
        {"gemini-cli", "Gemini CLI", "Start a new session after adding.", jsonConfig("~/.gemini/settings.json"),
         {"~/.gemini"}, {}},
        {"codex", "Codex CLI", "Start a new session after adding.", {Kind::toml, "~/.codex/config.toml", {}, false},
         {"~/.codex"}, {}},
    };
    return clients;
}

const AgentClient* AgentClient::find(const QString& id)
{
    for (const AgentClient& client : all())
        if (client.id == id)
            return &client;
    return nullptr;
}

QString AgentClient::executable()
{
    // The running process itself, never the sysroot a test may have pointed the monitors at.
    const std::optional<std::string> link = RootedFileReader("/").readLink("proc/self/exe");
    if (!link)
        return {};
    QString path = QFile::decodeName(QByteArray::fromStdString(*link));
    // The kernel gives the resolved path already; canonicalising also covers a binary that was replaced.
    const QString canonical = QFileInfo(path).canonicalFilePath();
    return canonical.isEmpty() ? path : canonical;
}

QString AgentClient::expand(const QString& path)
{
    return path.startsWith('~') ? Paths::agentHome() + path.mid(1) : path;
}

bool AgentClient::isInstalled() const
{
    for (const QString& path : detect)
        if (QFileInfo::exists(expand(path)))
            return true;
    return !detectProgram.isEmpty() && !QStandardPaths::findExecutable(detectProgram).isEmpty();
}

QJsonObject AgentClient::entry() const
{
    QJsonObject server{{"command", executable()}, {"args", QJsonArray{"--mcp"}}};
    if (config.typed)
        server.insert("type", "stdio");
    return server;
}

QString AgentClient::snippet() const
{
    const QByteArray text = jsonText(QJsonObject{{config.key, QJsonObject{{serverName, entry()}}}}).trimmed();
    return text.isEmpty() ? QStringLiteral("{}") : QString::fromUtf8(text);
}

QString AgentClient::command()
{
    return "claude mcp add --scope user " + serverName + " -- " + shellQuoted(executable()) + " --mcp";
}

QString AgentClient::tomlTable()
{
    return QString::fromUtf8(Toml::header + "\ncommand = " + Toml::basicString(executable()) +
                             "\nargs = [\"--mcp\"]\n");
}

std::optional<QByteArray> AgentClient::read() const
{
    const QString path = configPath();
    const QFileInfo info(path);
    if (!info.exists())
        return std::nullopt;
    const ConfigError unreadable{"Couldn't read " + name + "'s config file, so Pulsebar left it alone.", {}};
    // Only a regular file is read: a folder cannot be, and a pipe in its place would block forever.
    if (!info.isFile())
        throw unreadable;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw unreadable;
    QByteArray contents = file.readAll();
    if (file.error() != QFileDevice::NoError)
        throw unreadable;
    return contents;
}

void AgentClient::write(const QByteArray& contents) const
{
    const QString path = configPath();
    const QString target = followLinks(path);
    const QString folder = QFileInfo(target).absolutePath();
    if (!QDir().mkpath(folder))
        throw ConfigError{"Couldn't create the folder " + folder + ".", {}};

    // The first edit keeps the user's own version; later edits never overwrite that copy.
    const QString backup = path + ".pulsebar-backup";
    const QFileInfo backupInfo(backup);
    if (QFileInfo::exists(target) && !backupInfo.exists() && !backupInfo.isSymLink()) {
        QFile original(target);
        if (!original.copy(backup))
            throw ConfigError{"Couldn't back up " + path + " to " + backup + ": " + original.errorString() + ".", {}};
    }

    QSaveFile file(target);
    if (!file.open(QIODevice::WriteOnly) || file.write(contents) != contents.size() || !file.commit())
        throw ConfigError{"Couldn't write " + target + ": " + file.errorString() + ".", {}};
}

// The file's top-level object; a missing or empty file holds no servers yet.
// Anything that is not a plain JSON object is refused, so the user's file is never rewritten from a guess.
QJsonObject AgentClient::readJson() const
{
    const std::optional<QByteArray> contents = read();
    if (!contents || contents->trimmed().isEmpty())
        return {};
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(*contents, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        throw ConfigError{name + "'s config file couldn't be read as plain JSON (it may contain comments), so "
                                 "Pulsebar left it alone. Use the snippet below instead.",
                          snippet()};
    return document.object();
}

AgentClient::Status AgentClient::status() const
{
    if (!isInstalled())
        return {StatusCase::notInstalled, {}};
    QString command;
    try {
        switch (config.kind) {
        case Kind::command:
            return {StatusCase::manual, {}};
        case Kind::json: {
            const QJsonValue server = readJson().value(config.key).toObject().value(serverName);
            if (server.isUndefined())
                return {StatusCase::notAdded, {}};
            command = server.toObject().value("command").toString();
            break;
        }
        case Kind::toml: {
            const QByteArray text = read().value_or(QByteArray());
            if (!Toml::section(text))
                return {StatusCase::notAdded, {}};
            command = Toml::command(text);
            break;
        }
        }
    } catch (const ConfigError&) {
        // A file Pulsebar cannot read is one it has not edited either.
        return {StatusCase::notAdded, {}};
    }
    if (launchesThisExecutable(command))
        return {StatusCase::added, {}};
    return {StatusCase::addedElsewhere, command};
}

void AgentClient::add() const
{
    if (executable().isEmpty())
        throw ConfigError{"Couldn't find the path of Pulsebar's own executable.", {}};
    switch (config.kind) {
    case Kind::command:
        throw ConfigError{name + " is set up with a command; copy it and run it in a terminal.", command()};
    case Kind::json: {
        QJsonObject root = readJson();
        QJsonObject servers = root.value(config.key).toObject();
        servers.insert(serverName, entry());
        root.insert(config.key, servers);
        write(jsonText(root));
        return;
    }
    case Kind::toml: {
        QByteArray text = Toml::withoutTable(read().value_or(QByteArray()));
        if (!text.isEmpty()) {
            if (!text.endsWith('\n'))
                text += '\n';
            text += '\n';
        }
        write(text + tomlTable().toUtf8());
        return;
    }
    }
}

void AgentClient::remove() const
{
    switch (config.kind) {
    case Kind::command:
        throw ConfigError{"Run `claude mcp remove " + serverName + " --scope user` in a terminal.", {}};
    case Kind::json: {
        // No file: nothing to remove, and no empty file is left behind.
        if (!QFileInfo::exists(configPath()))
            return;
        QJsonObject root = readJson();
        if (const QJsonValue servers = root.value(config.key); servers.isObject()) {
            QJsonObject kept = servers.toObject();
            kept.remove(serverName);
            root.insert(config.key, kept);
        }
        write(jsonText(root));
        return;
    }
    case Kind::toml:
        if (const std::optional<QByteArray> text = read())
            write(Toml::withoutTable(*text));
        return;
    }
}

int AgentClient::runCommand(const QStringList& arguments)
{
    const QString subcommand = arguments.value(0);
    if (subcommand != "status" && subcommand != "add" && subcommand != "remove") {
        printLine(stderr, "Usage: Pulsebar --agents status | add <client> | remove <client>");
        return 2;
    }
    if (subcommand != "status") {
        const AgentClient* client = find(arguments.value(1));
        if (!client) {
            QStringList ids;
            for (const AgentClient& each : all())
                ids << each.id;
            printLine(stderr, "Usage: Pulsebar --agents " + subcommand + " <" + ids.join('|') + '>');
            return 2;
        }
        try {
            subcommand == "add" ? client->add() : client->remove();
        } catch (const ConfigError& error) {
            printLine(stderr, error.errorDescription);
            // What to do by hand goes to standard output, so it can be piped or copied as it is.
            if (!error.offeredText.isEmpty())
                printLine(stdout, error.offeredText);
            return 1;
        }
    }
    for (const AgentClient& client : all())
        printLine(stdout, client.id.leftJustified(15, ' ', true) + ' ' + client.status().text());
    return 0;
}

} // namespace pulsebar
