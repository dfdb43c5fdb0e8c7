#pragma once

#include "agents/config_edit.h"
#include "agents/config_error.h"
#include "core/enum_names.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

namespace pulsebar {

// One agent application that can launch Pulsebar's MCP server, and the file (or command) that tells it how.
// The --agents command and the settings window's agent list both work through this: status(), add()
// and remove() per client, `detail` to show after adding, and snippet() to offer when a file cannot be
// edited (ConfigError carries the same text, with the sentence that says why).
class AgentClient {
public:
    struct Config {
        enum class Kind { json, toml, command };
        Kind kind = Kind::json;
        QString path;       // json, toml: where the servers live, "~" for the home
        QString key;        // json: the top-level member that holds the servers
        bool typed = false; // json: entries also carry "type": "stdio"
    };

    enum class StatusCase { notInstalled, notAdded, added, addedElsewhere, manual };
    struct Status {
        StatusCase value = StatusCase::notInstalled;
        QString path; // addedElsewhere: the executable the existing entry launches
        QString text() const; // "added", "addedElsewhere(/old/pulsebar)", ...
    };

    QString id;
    QString name;
    QString detail;
    Config config;
    QStringList detect;    // the client counts as installed when any of these exists
    QString detectProgram; // ... or when this program is on PATH

    static inline const QString serverName = QStringLiteral("pulsebar");

    static const std::vector<AgentClient>& all();
    static const AgentClient* find(const QString& id);

    // The running executable with every symbolic link resolved; what agents are told to launch.
    static QString executable();
    // "~" at the start becomes the agent home ($PULSEBAR_AGENT_HOME, else $HOME).
    static QString expand(const QString& path);

    bool isInstalled() const;
    Status status() const;
    void add() const;    // throws ConfigError
    void remove() const; // throws ConfigError

    QJsonObject entry() const;   // the server object written under "pulsebar" in a JSON file
    // What to paste by hand: {key: {"pulsebar": entry}} for a JSON file, the TOML table for Codex,
    // the shell command for a command-kind client.
    QString snippet() const;
    static QString command();    // the shell command that sets up the command-kind client
    static QString tomlTable();  // the three-line table of the toml-kind client

    // The --agents command; the arguments are those after "--agents". Returns the exit status.
    static int runCommand(const QStringList& arguments);

private:
    QString configPath() const { return expand(config.path); }
    std::optional<QByteArray> read() const; // nullopt when there is no file
    void apply(const ConfigEdit& edit) const;
};

template <> struct EnumNames<AgentClient::StatusCase> {
    static constexpr std::array<std::string_view, 5> names{"notInstalled", "notAdded", "added", "addedElsewhere",
                                                           "manual"};
};

} // namespace pulsebar
