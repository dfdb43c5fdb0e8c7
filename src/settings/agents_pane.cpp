#include "settings/settings_panes.h"

#include "agents/agent_client.h"

#include <QClipboard>
#include <QGridLayout>
#include <QGuiApplication>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>

namespace pulsebar {

namespace {

QString statusTitle(const AgentClient::Status& status)
{
    switch (status.value) {
    case AgentClient::StatusCase::notInstalled: return QStringLiteral("Not installed");
    case AgentClient::StatusCase::notAdded: return QStringLiteral("Not added");
    case AgentClient::StatusCase::added: return QStringLiteral("Added");
    case AgentClient::StatusCase::addedElsewhere: return QStringLiteral("Added, for %1").arg(status.path);
    case AgentClient::StatusCase::manual: return QStringLiteral("Set up with a command");
    }
    return {};
}

// The agent applications that can ask Pulsebar about the computer: the same catalogue and the same add
// and remove as `pulsebar --agents`.
class AgentsPane : public SettingsPane {
public:
    explicit AgentsPane(SettingsContext& context) : SettingsPane(context)
    {
        addSection(QStringLiteral("AI agents"));
        addNote(QStringLiteral("Agent applications start Pulsebar's MCP server themselves and ask it about this "
                               "computer: live values, history, processes. Add registers Pulsebar in the "
                               "application's own settings file (a backup of the file is kept)."));
        auto* grid = new QGridLayout;
        grid->setContentsMargins(12, 4, 0, 0);
        grid->setHorizontalSpacing(12);
        grid->setColumnStretch(1, 1);
        int line = 0;
        for (const AgentClient& client : AgentClient::all()) {
            Row row{&client};
            auto* name = new QLabel(client.name, this);
            QFont bold = name->font();
            bold.setBold(true);
            name->setFont(bold);
            grid->addWidget(name, line, 0);
            row.status = new QLabel(this);
            row.status->setObjectName(QStringLiteral("status.") + client.id);
            row.status->setTextInteractionFlags(Qt::TextSelectableByMouse);
            grid->addWidget(row.status, line, 1);
            if (client.config.kind == AgentClient::Config::Kind::command) {
                auto* copy = named(new QPushButton(QStringLiteral("Copy command"), this), QStringLiteral("copy.") + client.id,
                                   QStringLiteral("Copy the command that adds Pulsebar to ") + client.name);
                connect(copy, &QPushButton::clicked, this, [this, id = client.id] { copyCommand(id); });
                grid->addWidget(copy, line, 2, 1, 2);
            } else {
                row.add = named(new QPushButton(QStringLiteral("Add"), this), QStringLiteral("add.") + client.id,
                                QStringLiteral("Add Pulsebar to ") + client.name);
                row.remove = named(new QPushButton(QStringLiteral("Remove"), this), QStringLiteral("remove.") + client.id,
                                   QStringLiteral("Remove Pulsebar from ") + client.name);
                connect(row.add, &QPushButton::clicked, this, [this, id = client.id] { run(id, true); });
                connect(row.remove, &QPushButton::clicked, this, [this, id = client.id] { run(id, false); });
                grid->addWidget(row.add, line, 2);
                grid->addWidget(row.remove, line, 3);
            }
            ++line;
            row.message = new QLabel(this);
            row.message->setObjectName(QStringLiteral("message.") + client.id);
            row.message->setWordWrap(true);
            row.message->setTextInteractionFlags(Qt::TextSelectableByMouse);
            row.message->hide();
            grid->addWidget(row.message, line++, 1, 1, 3);
            row.snippet = named(new QPlainTextEdit(this), QStringLiteral("snippet.") + client.id,
                                QStringLiteral("Settings to paste into the file of ") + client.name);
            row.snippet->setReadOnly(true);
            row.snippet->setMaximumHeight(120);
            row.snippet->setFont(QFont(QStringLiteral("monospace")));
            row.snippet->hide();
            grid->addWidget(row.snippet, line++, 1, 1, 3);
            row.copySnippet = named(new QPushButton(QStringLiteral("Copy"), this), QStringLiteral("copySnippet.") + client.id,
                                    QStringLiteral("Copy the settings to paste"));
            connect(row.copySnippet, &QPushButton::clicked, row.snippet,
                    [snippet = row.snippet] { QGuiApplication::clipboard()->setText(snippet->toPlainText()); });
            row.copySnippet->hide();
            grid->addWidget(row.copySnippet, line++, 1, 1, 1, Qt::AlignLeft);
            m_rows.push_back(row);
        }
        column()->addLayout(grid);
        finish();
    }

    void load(const Config&) override
    {
        for (const Row& row : m_rows)
            showStatus(row);
    }

protected:
    void showEvent(QShowEvent* event) override
    {
        load(config()); // the files may have changed while the pane was hidden
        SettingsPane::showEvent(event);
    }

private:
    struct Row {
        const AgentClient* client;
        QLabel* status = nullptr;
        QPushButton* add = nullptr;
        QPushButton* remove = nullptr;
        QLabel* message = nullptr;
        QPlainTextEdit* snippet = nullptr;
        QPushButton* copySnippet = nullptr;
    };

    Row* row(const QString& id)
    {
        for (Row& r : m_rows)
            if (r.client->id == id)
                return &r;
        return nullptr;
    }

    static void showStatus(const Row& row)
    {
        const AgentClient::Status status = row.client->status();
        row.status->setText(statusTitle(status));
        if (row.add) {
            const bool installed = status.value != AgentClient::StatusCase::notInstalled;
            row.add->setEnabled(installed && status.value != AgentClient::StatusCase::added);
            row.remove->setEnabled(status.value == AgentClient::StatusCase::added ||
                                   status.value == AgentClient::StatusCase::addedElsewhere);
        }
    }

    static void say(Row& row, const QString& message, const QString& snippet = {})
    {
        row.message->setText(message);
        row.message->setVisible(!message.isEmpty());
        row.snippet->setPlainText(snippet);
        row.snippet->setVisible(!snippet.isEmpty());
        row.copySnippet->setVisible(!snippet.isEmpty() && row.add);
    }

    void run(const QString& id, bool add)
    {
        Row* r = row(id);
        if (!r)
            return;
        try {
            if (add) {
                r->client->add();
                say(*r, r->client->detail);
            } else {
                r->client->remove();
                say(*r, {});
            }
        } catch (const ConfigError& error) {
            say(*r, error.errorDescription, error.offeredText);
        }
        showStatus(*r);
    }

    void copyCommand(const QString& id)
    {
        Row* r = row(id);
        if (!r)
            return;
        QGuiApplication::clipboard()->setText(AgentClient::command());
        say(*r, r->client->detail + QStringLiteral(" The command is on the clipboard:"), AgentClient::command());
    }

    std::vector<Row> m_rows;
};

} // namespace

SettingsPane* makeAgentsPane(SettingsContext& context)
{
    return new AgentsPane(context);
}

} // namespace pulsebar
