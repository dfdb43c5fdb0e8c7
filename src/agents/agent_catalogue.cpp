#include "agents/agent_client.h"

#include <QFileInfo>
#include <QStandardPaths>

namespace pulsebar {

namespace {

using Kind = AgentClient::Config::Kind;

AgentClient::Config jsonConfig(const QString& path, const QString& key = "mcpServers", bool typed = false)
{
    return {Kind::json, path, key, typed};
}

} // namespace

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

bool AgentClient::isInstalled() const
{
    for (const QString& path : detect)
        if (QFileInfo::exists(expand(path)))
            return true;
    return !detectProgram.isEmpty() && !QStandardPaths::findExecutable(detectProgram).isEmpty();
}

} // namespace pulsebar
