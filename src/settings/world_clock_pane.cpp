#include "settings/settings_panes.h"

#include "calendar/world_clock.h"

#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>

namespace pulsebar {

namespace {

constexpr int menuBarClockLimit = 3;

// "New York · America/New_York · −5 h", for the lists of zones.
QString zoneTitle(const QString& id, const QDateTime& now)
{
    const QTimeZone zone(id.toUtf8());
    QString title = WorldClock::city(id);
    if (title != id)
        title += QStringLiteral(" · ") + id;
    return zone.isValid() && !id.trimmed().isEmpty()
               ? title + QStringLiteral(" · ") + WorldClock::offset(zone, now)
               : title + QStringLiteral(" · unknown zone");
}

// "Add Clock…": every zone the time-zone database knows, narrowed as the user types a city or zone.
class ZonePicker : public QDialog {
public:
    ZonePicker(const QStringList& taken, std::function<void(const QString&)> chosen, QWidget* parent)
        : QDialog(parent), m_chosen(std::move(chosen))
    {
        setObjectName(QStringLiteral("zonePicker"));
        setWindowTitle(QStringLiteral("Add Clock"));
        auto* layout = new QVBoxLayout(this);
        m_query = new QLineEdit(this);
        m_query->setObjectName(QStringLiteral("zoneQuery"));
        m_query->setAccessibleName(QStringLiteral("City or time zone"));
        m_query->setPlaceholderText(QStringLiteral("City or time zone"));
        m_query->setClearButtonEnabled(true);
        layout->addWidget(m_query);
        m_zones = new QListWidget(this);
        m_zones->setObjectName(QStringLiteral("zones"));
        m_zones->setAccessibleName(QStringLiteral("Time zones"));
        layout->addWidget(m_zones, 1);
        auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
        m_add = buttons->addButton(QStringLiteral("Add Clock"), QDialogButtonBox::AcceptRole);
        m_add->setObjectName(QStringLiteral("addZone"));
        layout->addWidget(buttons);

        const QDateTime now = QDateTime::currentDateTimeUtc();
        for (const QByteArray& id : QTimeZone::availableTimeZoneIds()) {
            const QString name = QString::fromUtf8(id);
            if (taken.contains(name))
                continue;
            auto* item = new QListWidgetItem(zoneTitle(name, now), m_zones);
            item->setData(Qt::UserRole, name);
        }
        connect(m_query, &QLineEdit::textChanged, this, [this](const QString& text) { filter(text); });
        connect(m_zones, &QListWidget::itemActivated, this, [this] { accept(); });
        connect(m_zones, &QListWidget::currentRowChanged, this, [this](int row) { m_add->setEnabled(row >= 0); });
        connect(buttons, &QDialogButtonBox::accepted, this, [this] { accept(); });
        connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
        filter({});
        resize(460, 380);
    }

    void accept() override
    {
        const QListWidgetItem* item = m_zones->currentItem();
        if (!item || item->isHidden())
            return;
        m_chosen(item->data(Qt::UserRole).toString());
        QDialog::accept();
    }

private:
    // Spaces match underscores, so "new york" finds America/New_York.
    void filter(const QString& text)
    {
        const QString wanted = text.trimmed().replace(QLatin1Char(' '), QLatin1Char('_'));
        QListWidgetItem* first = nullptr;
        for (int i = 0; i < m_zones->count(); ++i) {
            QListWidgetItem* item = m_zones->item(i);
            const bool match = item->data(Qt::UserRole).toString().contains(wanted, Qt::CaseInsensitive) ||
                               item->text().contains(text.trimmed(), Qt::CaseInsensitive);
            item->setHidden(!match);
            if (match && !first)
                first = item;
        }
        m_zones->setCurrentItem(first);
        m_add->setEnabled(first != nullptr);
    }

    std::function<void(const QString&)> m_chosen;
    QLineEdit* m_query;
    QListWidget* m_zones;
    QPushButton* m_add;
};

// The clocks of the time panel, which of them the tray item shows, and how clocks are named.
class WorldClockPane : public SettingsPane {
public:
    explicit WorldClockPane(SettingsContext& context) : SettingsPane(context)
    {
        addSection(QStringLiteral("Clocks"));
        addNote(QStringLiteral("The World Clock panel lists these clocks in this order. Tick up to three to show "
                               "them in the menu bar's World Clock item."));
        m_list = named(new QListWidget(this), QStringLiteral("clocks"), QStringLiteral("World clocks"));
        m_list->setMinimumHeight(180);
        column()->addWidget(m_list, 1);
        auto* clocks = new QFormLayout;
        column()->addLayout(clocks);
        connect(m_list, &QListWidget::itemChanged, this, [this](QListWidgetItem* item) { ticked(item); });
        m_limit = addErrorLine(clocks, QStringLiteral("menubarClockLimit"));

        auto* row = new QHBoxLayout;
        const auto button = [&](const QString& text, const QString& name, const QString& spoken, auto action) {
            auto* b = named(new QPushButton(text, this), name, spoken);
            connect(b, &QPushButton::clicked, this, action);
            row->addWidget(b);
            return b;
        };
        button(QStringLiteral("Add Clock…"), QStringLiteral("addClock"), QStringLiteral("Add a clock"),
               [this] { openPicker(); });
        m_remove = button(QStringLiteral("Remove"), QStringLiteral("removeClock"),
                          QStringLiteral("Remove the selected clock"), [this] { removeSelected(); });
        row->addStretch(1);
        button(QStringLiteral("Move Up"), QStringLiteral("moveClockUp"), QStringLiteral("Move the selected clock up"),
               [this] { moveSelected(-1); });
        button(QStringLiteral("Move Down"), QStringLiteral("moveClockDown"),
               QStringLiteral("Move the selected clock down"), [this] { moveSelected(1); });
        clocks->addRow(row);

        QFormLayout* labels = addSection(QStringLiteral("Labels"));
        m_label = choice(QStringLiteral("clockLabel"), QStringLiteral("Clock labels"),
                         {QStringLiteral("City (New York)"), QStringLiteral("Time zone abbreviation (EST)")});
        connect(m_label, &QComboBox::currentIndexChanged, this,
                [this](int index) { edit([&](Config& c) { c.clockLabel = ClockLabel(index); }); });
        labels->addRow(QStringLiteral("Label clocks by:"), m_label);
        finish();
    }

    void load(const Config& config) override
    {
        setQuietly(m_label, int(config.clockLabel));
        if (listed() == shown(config))
            return;
        const QSignalBlocker block(m_list);
        const int selected = m_list->currentRow();
        m_list->clear();
        const QDateTime now = QDateTime::currentDateTimeUtc();
        for (const auto& [id, inMenuBar] : shown(config)) {
            auto* item = new QListWidgetItem(zoneTitle(id, now), m_list);
            item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
            item->setCheckState(inMenuBar ? Qt::Checked : Qt::Unchecked);
            item->setData(Qt::UserRole, id);
            item->setToolTip(QStringLiteral("Ticked: shown in the menu bar"));
        }
        m_list->setCurrentRow(std::min(std::max(0, selected), m_list->count() - 1));
        m_remove->setEnabled(m_list->count() > 0);
    }

private:
    using Clocks = std::vector<std::pair<QString, bool>>; // zone, shown in the menu bar

    // The panel's clocks, then any menu-bar clock the panel does not list (set by hand), so none is lost.
    static Clocks shown(const Config& config)
    {
        Clocks out;
        for (const QString& id : config.worldClocks)
            out.emplace_back(id, config.menubarClocks.contains(id));
        for (const QString& id : config.menubarClocks)
            if (!config.worldClocks.contains(id))
                out.emplace_back(id, true);
        return out;
    }

    Clocks listed() const
    {
        Clocks out;
        for (int i = 0; i < m_list->count(); ++i)
            out.emplace_back(m_list->item(i)->data(Qt::UserRole).toString(),
                             m_list->item(i)->checkState() == Qt::Checked);
        return out;
    }

    void commit()
    {
        const Clocks clocks = listed();
        edit([&](Config& c) {
            c.worldClocks.clear();
            c.menubarClocks.clear();
            for (const auto& [id, inMenuBar] : clocks) {
                c.worldClocks << id;
                if (inMenuBar)
                    c.menubarClocks << id;
            }
        });
    }

    void ticked(QListWidgetItem* item)
    {
        const Clocks clocks = listed();
        const auto count = std::count_if(clocks.begin(), clocks.end(), [](const auto& c) { return c.second; });
        if (item->checkState() == Qt::Checked && count > menuBarClockLimit) {
            const QSignalBlocker block(m_list);
            item->setCheckState(Qt::Unchecked);
            showErrorLine(m_limit, QStringLiteral("The menu bar shows up to three clocks. Untick one first."));
            return;
        }
        showErrorLine(m_limit, {});
        commit();
    }

    void openPicker()
    {
        QStringList taken;
        for (const auto& [id, inMenuBar] : listed())
            taken << id;
        auto* picker = new ZonePicker(
            taken,
            [this](const QString& id) {
                edit([&](Config& c) { c.worldClocks << id; });
                m_list->setCurrentRow(m_list->count() - 1);
            },
            this);
        picker->setAttribute(Qt::WA_DeleteOnClose);
        picker->open();
    }

    void removeSelected()
    {
        const int row = m_list->currentRow();
        if (row < 0)
            return;
        delete m_list->takeItem(row);
        showErrorLine(m_limit, {});
        commit();
    }

    void moveSelected(int by)
    {
        if (moveSelectedRow(m_list, by))
            commit();
    }

    QListWidget* m_list;
    QLabel* m_limit;
    QPushButton* m_remove;
    QComboBox* m_label;
};

} // namespace

SettingsPane* makeWorldClockPane(SettingsContext& context)
{
    return new WorldClockPane(context);
}

} // namespace pulsebar
