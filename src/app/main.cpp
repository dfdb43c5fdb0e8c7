#include "agents/agent_client.h"
#include "app/app_delegate.h"
#include "core/paths.h"
#include "dump/debug_dump.h"
#include "mcp/mcp_server.h"
#include "speedtest/network_quality.h"

#include <QApplication>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

const char* const usage =
    "Usage: pulsebar [MODE]\n"
    "\n"
    "A system monitor that lives in the system tray.\n"
    "\n"
    "Modes:\n"
    "  (none)                     start the tray application\n"
    "  --mcp                      run as an MCP server on standard input and output\n"
    "  --agents status            show which agent applications know Pulsebar\n"
    "  --agents add CLIENT        register Pulsebar's MCP server with an agent application\n"
    "  --agents remove CLIENT     remove it again\n"
    "  --network-quality [-c] [-M SECONDS]\n"
    "                             measure the internet connection's capacity and responsiveness\n"
    "                             (-c: one JSON object; -M: at most SECONDS, default 20)\n"
    "  --dump [DIR]               render the tray items for sample states into DIR\n"
    "  --version                  print the version\n"
    "  --help                     print this help\n"
    "\n"
    "Files:\n";

void printUsage()
{
    std::fputs(usage, stdout);
    std::printf("  %-44s settings\n", qPrintable(pulsebar::Paths::preferencesFile()));
    std::printf("  %-44s 30 days of history\n", qPrintable(pulsebar::Paths::historyFile()));
}

int find(int argc, char** argv, const char* flag)
{
    for (int i = 0; i < argc; ++i)
        if (std::strcmp(argv[i], flag) == 0)
            return i;
    return -1;
}

} // namespace

int main(int argc, char** argv)
{
    using namespace pulsebar;

    // The order of these rules decides, not the order of the arguments; matching is exact.
    if (const int at = find(argc, argv, "--dump"); at >= 0) {
        // Rendering needs an application object but never a display.
        qputenv("QT_QPA_PLATFORM", "offscreen");
        QApplication app(argc, argv);
        std::optional<QString> directory;
        if (at + 1 < argc)
            directory = QString::fromLocal8Bit(argv[at + 1]);
        return DebugDump::run(directory);
    }
    if (const int at = find(argc, argv, "--agents"); at >= 0) {
        QStringList rest;
        for (int i = at + 1; i < argc; ++i)
            rest << QString::fromLocal8Bit(argv[i]);
        return AgentClient::runCommand(rest);
    }
    if (find(argc, argv, "--mcp") >= 0)
        return MCPServer::run(argc, argv);
    if (find(argc, argv, "--network-quality") >= 0)
        return NetworkQuality::run(argc, argv);
    if (find(argc, argv, "--version") >= 0) {
        std::printf("pulsebar %s\n", PULSEBAR_VERSION);
        return 0;
    }
    if (find(argc, argv, "--help") >= 0) {
        printUsage();
        return 0;
    }
    return AppDelegate::runApplication(argc, argv);
}
