#pragma once

#include "agents/config_edit.h"

#include <QJsonObject>
#include <QString>

#include <optional>

namespace pulsebar::JsonServers {

// Agents' JSON files keep their MCP servers as members of one object under a top-level key
// ("mcpServers", "servers"). These work on the file's text; a missing file is an empty one.

// The command of the named server: nothing when the file holds no such server (or does not parse).
// A server without a command has the empty command.
std::optional<QString> command(const QByteArray& text, const QString& key, const QString& server);

// Sets the named server to `entry`, keeping any other members an existing entry has (its "env",
// "disabled" and the like) apart from "type", which is the entry's to give or leave out.
ConfigEdit withServer(const QByteArray& text, const QString& key, const QString& server, const QJsonObject& entry);

// Takes the named server out; unchanged when it is not there.
ConfigEdit withoutServer(const QByteArray& text, const QString& key, const QString& server);

// The text of a JSON document as agents' files keep it: indented, keys sorted, slashes left alone.
QByteArray text(const QJsonObject& object);

} // namespace pulsebar::JsonServers
