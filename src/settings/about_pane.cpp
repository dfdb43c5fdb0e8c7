#include "settings/settings_panes.h"

#include "core/paths.h"
#include "history/history_store.h"
#include "platform/linux/autostart.h"

#include <QFormLayout>
#include <QLabel>

namespace pulsebar {

namespace {

// What this is, which version, and where its files are.
class AboutPane : public SettingsPane {
public:
    explicit AboutPane(SettingsContext& context) : SettingsPane(context)
    {
        QFormLayout* about = addSection(QStringLiteral("Pulsebar"));
        about->addRow(QStringLiteral("Version:"), selectable(QStringLiteral(PULSEBAR_VERSION), QStringLiteral("version")));
        about->addRow(QStringLiteral("Licence:"),
                      selectable(QStringLiteral("MIT License. Copyright (c) 2026 The Pulsebar developers."),
                                 QStringLiteral("licence")));
        addNote(QStringLiteral("A system monitor that lives in the system tray: live values, 30 days of history, "
                               "an insight line, notifications and an MCP server for AI agents."));

        QFormLayout* files = addSection(QStringLiteral("Where files live"));
        files->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
        m_preferences = selectable({}, QStringLiteral("preferencesPath"));
        files->addRow(QStringLiteral("Settings:"), m_preferences);
        m_history = selectable({}, QStringLiteral("historyPath"));
        files->addRow(QStringLiteral("History:"), m_history);
        m_autostart = selectable({}, QStringLiteral("autostartPath"));
        files->addRow(QStringLiteral("Start at login:"), m_autostart);
        m_agents = selectable({}, QStringLiteral("agentHome"));
        files->addRow(QStringLiteral("Agent settings under:"), m_agents);
        finish();
    }

    void load(const Config&) override
    {
        m_preferences->setText(m_context.settings.preferences().path());
        const HistoryStore* store = m_context.history ? m_context.history() : nullptr;
        m_history->setText(store ? store->path() : HistoryStore::defaultPath());
        m_autostart->setText(Autostart::entryPath() +
                             (Autostart::isEnabled() ? QString() : QStringLiteral(" (not there while off)")));
        m_agents->setText(Paths::agentHome());
    }

private:
    QLabel* selectable(const QString& text, const QString& name)
    {
        auto* label = new QLabel(text, this);
        label->setObjectName(name);
        label->setTextInteractionFlags(Qt::TextSelectableByMouse);
        return label;
    }

    QLabel* m_preferences;
    QLabel* m_history;
    QLabel* m_autostart;
    QLabel* m_agents;
};

} // namespace

SettingsPane* makeAboutPane(SettingsContext& context)
{
    return new AboutPane(context);
}

} // namespace pulsebar
