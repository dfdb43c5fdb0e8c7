#include "agents/agent_client.h"

#include "agents/agent_config_file.h"
#include "agents/json_servers.h"
#include "agents/toml_servers.h"
#include "core/paths.h"
#include "platform/linux/rooted_file_reader.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

#include <algorithm>

namespace pulsebar {

namespace {

using Kind = AgentClient::Config::Kind;
using StatusCase = AgentClient::StatusCase;
using Outcome = ConfigEdit::Outcome;

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

} // namespace

QString AgentClient::Status::text() const
{
    const QString caseName = enumName(value);
    return value == StatusCase::addedElsewhere ? caseName + '(' + path + ')' : caseName;
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

QJsonObject AgentClient::entry() const
{
    QJsonObject server{{"command", executable()}, {"args", QJsonArray{"--mcp"}}};
    if (config.typed)
        server.insert("type", "stdio");
    return server;
}

QString AgentClient::snippet() const
{
    switch (config.kind) {
    case Kind::command:
        return command();
    case Kind::toml:
        return tomlTable().chopped(1);
    case Kind::json:
        break;
    }
    const QByteArray text = JsonServers::text(QJsonObject{{config.key, QJsonObject{{serverName, entry()}}}}).trimmed();
    return text.isEmpty() ? QStringLiteral("{}") : QString::fromUtf8(text);
}

QString AgentClient::command()
{
    return "claude mcp add --scope user " + serverName + " -- " + shellQuoted(executable()) + " --mcp";
}

QString AgentClient::tomlTable()
{
    return QString::fromUtf8(TomlServers::table(serverName, executable()));
}

std::optional<QByteArray> AgentClient::read() const
{
    return AgentConfigFile(configPath(), name).read();
}

// Writes an edit, or says why there is none to write.
void AgentClient::apply(const ConfigEdit& edit) const
{
    const bool toml = config.kind == Kind::toml;
    const QString instead = toml ? QStringLiteral("Use the table below instead.")
                                 : QStringLiteral("Use the snippet below instead.");
    switch (edit.outcome) {
    case Outcome::unchanged:
        return;
    case Outcome::edited:
        AgentConfigFile(configPath(), name).write(edit.text);
        return;
    case Outcome::unparsable:
        if (toml)
            throw ConfigError{name + "'s config file couldn't be read as TOML, so Pulsebar left it alone. " + instead,
                              snippet()};
        throw ConfigError{name + "'s config file couldn't be read as plain JSON (it may contain comments), so "
                                 "Pulsebar left it alone. " + instead,
                          snippet()};
    case Outcome::refused:
        throw ConfigError{name + "'s config file couldn't be edited safely (" + edit.reason +
                              "), so Pulsebar left it alone. " + instead,
                          snippet()};
    }
}

AgentClient::Status AgentClient::status() const
{
    if (!isInstalled())
        return {StatusCase::notInstalled, {}};
    if (config.kind == Kind::command)
        return {StatusCase::manual, {}};
    std::optional<QString> command;
    try {
        const QByteArray text = read().value_or(QByteArray());
        command = config.kind == Kind::toml ? TomlServers::command(text, serverName)
                                            : JsonServers::command(text, config.key, serverName);
    } catch (const ConfigError&) {
        // A file Pulsebar cannot read is one it has not edited either.
    }
    if (!command)
        return {StatusCase::notAdded, {}};
    if (launchesThisExecutable(*command))
        return {StatusCase::added, {}};
    return {StatusCase::addedElsewhere, *command};
}

void AgentClient::add() const
{
    if (executable().isEmpty())
        throw ConfigError{"Couldn't find the path of Pulsebar's own executable.", {}};
    switch (config.kind) {
    case Kind::command:
        throw ConfigError{name + " is set up with a command; copy it and run it in a terminal.", command()};
    case Kind::json:
        apply(JsonServers::withServer(read().value_or(QByteArray()), config.key, serverName, entry()));
        return;
    case Kind::toml:
        apply(TomlServers::withServer(read().value_or(QByteArray()), serverName, executable()));
        return;
    }
}

void AgentClient::remove() const
{
    switch (config.kind) {
    case Kind::command:
        throw ConfigError{"Run `claude mcp remove " + serverName + " --scope user` in a terminal.", {}};
    case Kind::json:
        // No file: nothing to remove, and no empty file is left behind.
        if (const std::optional<QByteArray> text = read())
            apply(JsonServers::withoutServer(*text, config.key, serverName));
        return;
    case Kind::toml:
        if (const std::optional<QByteArray> text = read())
            apply(TomlServers::withoutServer(*text, serverName));
        return;
    }
}

} // namespace pulsebar
