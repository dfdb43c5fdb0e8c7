#include "settings/settings_panes.h"

#include <QHBoxLayout>
#include <QListWidget>
#include <QPushButton>

#include <algorithm>

namespace pulsebar {

namespace {

QString overviewTitle(OverviewItem item)
{
    switch (item) {
    case OverviewItem::insight: return QStringLiteral("Insight");
    case OverviewItem::cpu: return QStringLiteral("CPU");
    case OverviewItem::gpu: return QStringLiteral("GPU");
    case OverviewItem::memory: return QStringLiteral("Memory");
    case OverviewItem::network: return QStringLiteral("Network");
    case OverviewItem::disk: return QStringLiteral("Disk");
    case OverviewItem::sensors: return QStringLiteral("Sensors");
    case OverviewItem::battery: return QStringLiteral("Battery");
    case OverviewItem::devices: return QStringLiteral("Devices (phones and tablets)");
    case OverviewItem::keepAwake: return QStringLiteral("Keep Awake");
    case OverviewItem::weather: return QStringLiteral("Weather");
    case OverviewItem::worldClocks: return QStringLiteral("World Clocks");
    case OverviewItem::nextEvent: return QStringLiteral("Next Event");
    }
    return {};
}

// The tiles of the overview panel: their order and which of them show.
class OverviewPane : public SettingsPane {
public:
    explicit OverviewPane(SettingsContext& context) : SettingsPane(context)
    {
        addSection(QStringLiteral("Overview tiles"));
        addNote(QStringLiteral("Tick the tiles the overview shows and drag them into order. Switching off Devices "
                               "also stops watching for connected phones and tablets."));
        m_list = named(new QListWidget(this), QStringLiteral("tiles"), QStringLiteral("Overview tiles"));
        m_list->setDragDropMode(QAbstractItemView::InternalMove);
        m_list->setDefaultDropAction(Qt::MoveAction);
        m_list->setMinimumHeight(330);
        column()->addWidget(m_list, 1);
        connect(m_list->model(), &QAbstractItemModel::rowsMoved, this, [this] { commit(); });
        connect(m_list, &QListWidget::itemChanged, this, [this] { commit(); });

        auto* row = new QHBoxLayout;
        row->addStretch(1);
        for (int by : {-1, 1}) {
            auto* button = by < 0 ? named(new QPushButton(QStringLiteral("Move Up"), this), QStringLiteral("moveUp"),
                                          QStringLiteral("Move the selected tile up"))
                                  : named(new QPushButton(QStringLiteral("Move Down"), this),
                                          QStringLiteral("moveDown"), QStringLiteral("Move the selected tile down"));
            connect(button, &QPushButton::clicked, this, [this, by] { moveSelected(by); });
            row->addWidget(button);
        }
        column()->addLayout(row);
    }

    void load(const Config& config) override
    {
        if (listed() == shown(config))
            return;
        const QSignalBlocker block(m_list);
        const int selected = m_list->currentRow();
        m_list->clear();
        for (OverviewItem item : config.overviewItems()) {
            auto* entry = new QListWidgetItem(overviewTitle(item), m_list);
            entry->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable | Qt::ItemIsDragEnabled);
            entry->setCheckState(config.showsInOverview(item) ? Qt::Checked : Qt::Unchecked);
            entry->setData(Qt::UserRole, int(item));
        }
        m_list->setCurrentRow(std::max(0, selected));
    }

private:
    using Tiles = std::vector<std::pair<OverviewItem, bool>>;

    static Tiles shown(const Config& config)
    {
        Tiles out;
        for (OverviewItem item : config.overviewItems())
            out.emplace_back(item, config.showsInOverview(item));
        return out;
    }

    Tiles listed() const
    {
        Tiles out;
        for (int i = 0; i < m_list->count(); ++i)
            out.emplace_back(OverviewItem(m_list->item(i)->data(Qt::UserRole).toInt()),
                             m_list->item(i)->checkState() == Qt::Checked);
        return out;
    }

    void commit()
    {
        const Tiles tiles = listed();
        edit([&](Config& c) {
            c.overviewOrder.clear();
            for (const auto& [item, on] : tiles) {
                c.overviewOrder.push_back(item);
                if (c.showsInOverview(item) != on)
                    c.setShowsInOverview(item, on);
            }
        });
    }

    void moveSelected(int by)
    {
        if (moveSelectedRow(m_list, by))
            commit();
    }

    QListWidget* m_list;
};

} // namespace

SettingsPane* makeOverviewPane(SettingsContext& context)
{
    return new OverviewPane(context);
}

} // namespace pulsebar
