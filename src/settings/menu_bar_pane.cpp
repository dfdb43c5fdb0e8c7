#include "settings/settings_panes.h"

#include "menubar/tray_face.h"
#include "menubar/tray_icon_renderer.h"
#include "menubar/tray_preferences.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QTimer>

#include <algorithm>
#include <cmath>

namespace pulsebar {

namespace {

constexpr qreal previewWidth = 210; // points; wide enough for the widest item (the combined one)
constexpr qreal previewHeight = 26;
constexpr qreal previewIconSize = 22;
constexpr qreal previewPadding = 4;
constexpr int previewRefreshMs = 2000;

const QStringList styleTitles{QStringLiteral("Text"), QStringLiteral("Graph"), QStringLiteral("Graph and text"),
                              QStringLiteral("Icon"), QStringLiteral("Icon and text")};

QColor panelColor(bool dark)
{
    return dark ? QColor(0x1f, 0x1f, 0x24) : QColor(0xec, 0xec, 0xef);
}

// The item as the tray shows it: its square icon, drawn by the tray's own renderer, and its label, on a
// piece of panel, left-aligned in an image of fixed width so the list's previews line up. Values go
// into the icon only when the tray preferences say so; most trays show the label.
QPixmap preview(const ModuleConfig& module, const HubSnapshot& readings, const Config& config, bool dark,
                bool valueInIcon, qreal ratio)
{
    const TrayFace face = TrayFaces::face(module, readings, config, valueInIcon);
    const QImage icon = TrayIconRenderer::image(face, int(std::ceil(previewIconSize * ratio)), dark, config.monochrome);
    QImage out(int(std::ceil(previewWidth * ratio)), int(std::ceil(previewHeight * ratio)),
               QImage::Format_ARGB32_Premultiplied);
    out.setDevicePixelRatio(ratio);
    out.fill(Qt::transparent);
    QPainter p(&out);
    p.setRenderHint(QPainter::Antialiasing);
    QFont font = p.font();
    font.setPixelSize(13);
    p.setFont(font);
    const QFontMetricsF metrics(font);
    // The figure spaces that keep a label's width steady in a tray only spread it out here.
    const QString label = QString(face.label).remove(TrayFaces::figureSpace).simplified();
    const qreal labelWidth = label.isEmpty() ? 0 : metrics.horizontalAdvance(label) + previewPadding;
    const qreal width = std::min(previewWidth, previewIconSize + labelWidth + 2 * previewPadding);
    QPainterPath panel;
    panel.addRoundedRect(QRectF(0, 0, width, previewHeight), 4, 4);
    p.fillPath(panel, panelColor(dark));
    const qreal iconTop = (previewHeight - previewIconSize) / 2;
    p.drawImage(QRectF(previewPadding, iconTop, previewIconSize, previewIconSize), icon);
    if (!label.isEmpty()) {
        p.setPen(TrayIconRenderer::foreground(dark));
        const QRectF textArea(previewPadding * 2 + previewIconSize, 0, width - previewIconSize - 3 * previewPadding,
                              previewHeight);
        p.drawText(textArea, Qt::AlignLeft | Qt::AlignVCenter, metrics.elidedText(label, Qt::ElideRight, textArea.width()));
    }
    p.end();
    return QPixmap::fromImage(out);
}

// Which tray items exist, in which order and style, each with a preview drawn by the tray's own renderer.
class MenuBarPane : public SettingsPane {
public:
    explicit MenuBarPane(SettingsContext& context) : SettingsPane(context)
    {
        addSection(QStringLiteral("Menu bar items"));
        addNote(QStringLiteral("Tick the items to show in the tray and drag them into order. Each item is drawn "
                               "here as the tray draws it, with the current values."));
        m_list = named(new QListWidget(this), QStringLiteral("modules"), QStringLiteral("Menu bar items"));
        m_list->setDragDropMode(QAbstractItemView::InternalMove);
        m_list->setDefaultDropAction(Qt::MoveAction);
        m_list->setIconSize(QSize(int(previewWidth), int(previewHeight)));
        m_list->setSpacing(1);
        m_list->setMinimumHeight(300);
        column()->addWidget(m_list, 1);
        connect(m_list->model(), &QAbstractItemModel::rowsMoved, this, [this] { commitList(); });
        connect(m_list, &QListWidget::itemChanged, this, [this] { commitList(); });
        connect(m_list, &QListWidget::currentRowChanged, this, [this] { showSelected(); });

        auto* row = new QHBoxLayout;
        m_style = choice(QStringLiteral("style"), QStringLiteral("Display style of the selected item"), styleTitles);
        m_style->setIconSize(QSize(int(previewWidth), int(previewHeight)));
        connect(m_style, &QComboBox::currentIndexChanged, this, [this](int index) {
            const int selected = m_list->currentRow();
            if (selected < 0)
                return;
            edit([&](Config& c) { c.modules[std::size_t(selected)].style = DisplayStyle(index); });
        });
        m_up = named(new QPushButton(QStringLiteral("Move Up"), this), QStringLiteral("moveUp"),
                     QStringLiteral("Move the selected item up"));
        m_down = named(new QPushButton(QStringLiteral("Move Down"), this), QStringLiteral("moveDown"),
                       QStringLiteral("Move the selected item down"));
        connect(m_up, &QPushButton::clicked, this, [this] { moveSelected(-1); });
        connect(m_down, &QPushButton::clicked, this, [this] { moveSelected(1); });
        row->addWidget(new QLabel(QStringLiteral("Style:"), this));
        row->addWidget(m_style);
        row->addStretch(1);
        row->addWidget(m_up);
        row->addWidget(m_down);
        column()->addLayout(row);
        m_clocksNote = addNote(QStringLiteral("Up to three clocks from Settings › World Clock"));
        m_clocksNote->setObjectName(QStringLiteral("menubarClocksNote"));
        m_clocksNote->hide();

        m_monochrome = named(new QCheckBox(QStringLiteral("Monochrome (draw every item in one colour)"), this),
                             QStringLiteral("monochrome"), QStringLiteral("Monochrome"));
        connect(m_monochrome, &QCheckBox::toggled, this, [this](bool on) { edit([&](Config& c) { c.monochrome = on; }); });
        column()->addWidget(m_monochrome);

        auto* timer = new QTimer(this);
        connect(timer, &QTimer::timeout, this, [this] {
            if (isVisible())
                refreshPreviews();
        });
        timer->start(previewRefreshMs);
    }

    void load(const Config& config) override
    {
        setQuietly(m_monochrome, config.monochrome);
        if (listedModules() != config.modules)
            rebuildList(config);
        refreshPreviews();
        showSelected();
    }

private:
    std::vector<ModuleConfig> listedModules() const
    {
        std::vector<ModuleConfig> out;
        for (int i = 0; i < m_list->count(); ++i) {
            const QListWidgetItem* item = m_list->item(i);
            out.push_back({ModuleKind(item->data(Qt::UserRole).toInt()), item->checkState() == Qt::Checked,
                           DisplayStyle(item->data(Qt::UserRole + 1).toInt())});
        }
        return out;
    }

    void rebuildList(const Config& config)
    {
        const QSignalBlocker block(m_list);
        const int selected = m_list->currentRow();
        m_list->clear();
        for (const ModuleConfig& module : config.modules) {
            auto* item = new QListWidgetItem(MenuBarContent::title(module.kind), m_list);
            item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable | Qt::ItemIsDragEnabled);
            item->setCheckState(module.enabled ? Qt::Checked : Qt::Unchecked);
            item->setData(Qt::UserRole, int(module.kind));
            item->setData(Qt::UserRole + 1, int(module.style));
        }
        if (m_list->count() > 0)
            m_list->setCurrentRow(std::clamp(selected, 0, m_list->count() - 1));
    }

    void commitList()
    {
        const std::vector<ModuleConfig> modules = listedModules();
        // The selection follows the item the user moved; the style box shows the selected one's style.
        edit([&](Config& c) { c.modules = modules; });
        showSelected();
    }

    void moveSelected(int by)
    {
        const int from = m_list->currentRow();
        const int to = from + by;
        if (from < 0 || to < 0 || to >= m_list->count())
            return;
        edit([&](Config& c) { std::swap(c.modules[std::size_t(from)], c.modules[std::size_t(to)]); });
        m_list->setCurrentRow(to);
    }

    void showSelected()
    {
        const int selected = m_list->currentRow();
        const bool any = selected >= 0 && selected < int(config().modules.size());
        m_style->setEnabled(any);
        m_up->setEnabled(any && selected > 0);
        m_down->setEnabled(any && selected + 1 < m_list->count());
        m_clocksNote->setVisible(any && config().modules[std::size_t(selected)].kind == ModuleKind::time);
        if (!any)
            return;
        const ModuleConfig module = config().modules[std::size_t(selected)];
        const HubSnapshot readings = currentReadings();
        const QSignalBlocker block(m_style);
        for (DisplayStyle style : allCases<DisplayStyle>())
            m_style->setItemIcon(int(style), preview({module.kind, true, style}, readings, config(), isDark(), valueInIcon(), ratio()));
        m_style->setCurrentIndex(int(module.style));
    }

    void refreshPreviews()
    {
        const HubSnapshot readings = currentReadings();
        const QSignalBlocker block(m_list);
        for (int i = 0; i < m_list->count() && i < int(config().modules.size()); ++i) {
            ModuleConfig module = config().modules[std::size_t(i)];
            module.enabled = true; // a switched-off item still shows what it would look like
            m_list->item(i)->setIcon(preview(module, readings, config(), isDark(), valueInIcon(), ratio()));
        }
    }

    HubSnapshot currentReadings() const
    {
        return m_context.readings ? m_context.readings() : HubSnapshot{};
    }
    bool isDark() const { return palette().color(QPalette::Window).lightness() < 128; }
    bool valueInIcon() const
    {
        return TrayPreferences::load(m_context.settings.preferences()).valueInIcon == TrayValueInIcon::on;
    }
    qreal ratio() const { return devicePixelRatioF(); }

    QListWidget* m_list;
    QComboBox* m_style;
    QPushButton* m_up;
    QPushButton* m_down;
    QCheckBox* m_monochrome;
    QLabel* m_clocksNote; // under the list while the World Clock item is selected
};

} // namespace

SettingsPane* makeMenuBarPane(SettingsContext& context)
{
    return new MenuBarPane(context);
}

} // namespace pulsebar
