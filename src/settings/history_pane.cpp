#include "settings/settings_panes.h"

#include "core/fmt.h"
#include "history/history_store.h"

#include <QFormLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>

namespace pulsebar {

namespace {

// The 30-day history database: how big it is, and a way to empty it.
class HistoryPane : public SettingsPane {
public:
    explicit HistoryPane(SettingsContext& context) : SettingsPane(context)
    {
        QFormLayout* form = addSection(QStringLiteral("History"));
        QLabel* note = addNote(QStringLiteral("Pulsebar keeps 30 days of graph history on this computer, for the 1H · "
                                              "24H · 7D · 30D ranges in the dropdowns."));
        column()->removeWidget(note);
        column()->insertWidget(column()->count() - 1, note); // above the form, under the heading
        m_size = new QLabel(this);
        m_size->setObjectName(QStringLiteral("fileSize"));
        m_size->setTextInteractionFlags(Qt::TextSelectableByMouse);
        form->addRow(QStringLiteral("File size:"), m_size);
        m_clear = named(new QPushButton(QStringLiteral("Clear History…"), this), QStringLiteral("clearHistory"),
                        QStringLiteral("Clear History"));
        connect(m_clear, &QPushButton::clicked, this, [this] { confirmClear(); });
        form->addRow(QString(), m_clear);
        finish();
    }

    void load(const Config&) override
    {
        const HistoryStore* store = m_context.history ? m_context.history() : nullptr;
        m_clear->setEnabled(store && store->access() == HistoryStore::Access::writable && !m_clearing);
        m_size->setText(store ? Fmt::bytes(double(store->fileSize()), 1000)
                              : QStringLiteral("No history: the database could not be opened."));
    }

protected:
    void showEvent(QShowEvent* event) override
    {
        load(config());
        SettingsPane::showEvent(event);
    }

private:
    void confirmClear()
    {
        auto* box = new QMessageBox(QMessageBox::Warning, QStringLiteral("Clear History"),
                                    QStringLiteral("Clear all graph history?"), QMessageBox::NoButton, this);
        box->setObjectName(QStringLiteral("confirmClear"));
        box->setInformativeText(QStringLiteral("The graphs start again from now. This cannot be undone."));
        QPushButton* clear = box->addButton(QStringLiteral("Clear History"), QMessageBox::DestructiveRole);
        clear->setObjectName(QStringLiteral("confirm"));
        box->addButton(QMessageBox::Cancel);
        box->setDefaultButton(QMessageBox::Cancel);
        box->setAttribute(Qt::WA_DeleteOnClose);
        connect(box, &QMessageBox::finished, this, [this, box, clear] {
            if (box->clickedButton() == clear)
                clearNow();
        });
        box->open();
    }

    void clearNow()
    {
        HistoryStore* store = m_context.history ? m_context.history() : nullptr;
        if (!store)
            return;
        m_clearing = true;
        load(config());
        store->clear(this, [this] {
            m_clearing = false;
            load(config());
        });
    }

    QLabel* m_size;
    QPushButton* m_clear;
    bool m_clearing = false;
};

} // namespace

SettingsPane* makeHistoryPane(SettingsContext& context)
{
    return new HistoryPane(context);
}

} // namespace pulsebar
