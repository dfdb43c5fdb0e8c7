#include "agents/agent_client.h"

#include <cstdio>

namespace pulsebar {

namespace {

void printLine(std::FILE* stream, const QString& text)
{
    std::fputs(text.toLocal8Bit().constData(), stream);
    std::fputc('\n', stream);
}

} // namespace

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
