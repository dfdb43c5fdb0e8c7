#pragma once

#include "agents/config_edit.h"

#include <QString>

#include <optional>

namespace pulsebar::TomlServers {

// Codex keeps its MCP servers in TOML, one table per server under mcp_servers. The file is edited
// as text, so comments, layout and every other table stay as the user wrote them; each edit is then
// read back with a real TOML parser and kept only when everything but the one server is unchanged.

// The command of the named server, written in any form TOML allows ([mcp_servers.NAME],
// [mcp_servers."NAME"], dotted keys, inline tables). Nothing when there is no such server or the
// text is not TOML; a server without a command has the empty command.
std::optional<QString> command(const QByteArray& text, const QString& server);

// The table that registers a server: header, command and args, each line ended by a line feed.
QByteArray table(const QString& server, const QString& command);

// Replaces any existing definition of the server with `table(server, command)` at the end.
ConfigEdit withServer(const QByteArray& text, const QString& server, const QString& command);

// Takes the server's definition out; unchanged when there is none.
ConfigEdit withoutServer(const QByteArray& text, const QString& server);

} // namespace pulsebar::TomlServers
