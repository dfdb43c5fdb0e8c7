#include "panels/panel_view.h"

#include "panels/panel_body.h"
#include "panels/panel_style.h"
#include "panels/process_row_actions.h"

#include <QClipboard>
#include <QDesktopServices>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QScrollArea>
#include <QToolButton>
#include <QVBoxLayout>

namespace pulsebar {

namespace {

QFrame* rule(QWidget* parent)
{
    auto* line = new QFrame(parent);
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Plain);
    line->setFixedHeight(1);
    line->setStyleSheet(QStringLiteral("color: palette(mid);"));
    return line;
}

} // namespace

PanelView::PanelView(HistoryGraph::Loader loader, Preferences* preferences, QWidget* parent)
    : QWidget(parent), m_back(new QToolButton(this)), m_title(new QLabel(this)), m_subtitle(new QLabel(this)),
      m_headline(new QLabel(this)), m_scroll(new QScrollArea(this)), m_body(new PanelBody),
      m_graph(new HistoryGraph(std::move(loader), preferences)), m_keepAwake(new QLabel(this)),
      m_settings(new QPushButton(QStringLiteral("Settings…"), this)),
      m_quit(new QPushButton(QStringLiteral("Quit Pulsebar"), this))
{
    setFixedWidth(PanelStyle::width);
    setAutoFillBackground(true);

    m_back->setText(QStringLiteral("‹ Overview"));
    m_back->setAutoRaise(true);
    m_back->setAccessibleName(QStringLiteral("Open the overview"));
    m_back->setFocusPolicy(Qt::StrongFocus);
    connect(m_back, &QToolButton::clicked, this, [this] {
        if (actions.openPanel)
            actions.openPanel(ModuleKind::combined);
    });
    m_title->setFont(PanelStyle::titleFont(font()));
    m_subtitle->setFont(PanelStyle::smallFont(font()));
    m_subtitle->setForegroundRole(QPalette::PlaceholderText);
    m_headline->setFont(PanelStyle::headlineFont(font()));
    m_headline->setAlignment(Qt::AlignRight | Qt::AlignVCenter);

    auto* header = new QGridLayout;
    header->setContentsMargins(PanelStyle::margin - 4, 8, PanelStyle::margin, 4);
    header->setHorizontalSpacing(8);
    header->setVerticalSpacing(0);
    header->addWidget(m_back, 0, 0, 1, 2, Qt::AlignLeft);
    auto* titles = new QVBoxLayout;
    titles->setContentsMargins(4, 0, 0, 0);
    titles->setSpacing(0);
    titles->addWidget(m_title);
    titles->addWidget(m_subtitle);
    header->addLayout(titles, 1, 0);
    header->addWidget(m_headline, 1, 1);
    header->setColumnStretch(0, 1);

    auto* content = new QWidget;
    auto* contentLayout = new QVBoxLayout(content);
    contentLayout->setContentsMargins(0, 0, 0, 0);
    contentLayout->setSpacing(0);
    contentLayout->addWidget(m_body);
    contentLayout->addWidget(rule(content));
    contentLayout->addWidget(m_graph);
    m_scroll->setWidget(content);
    m_scroll->setWidgetResizable(true);
    m_scroll->setFrameShape(QFrame::NoFrame);
    m_scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_scroll->setBackgroundRole(QPalette::Window);
    content->setBackgroundRole(QPalette::Window);

    m_keepAwake->setFont(PanelStyle::smallFont(font()));
    m_keepAwake->setForegroundRole(QPalette::PlaceholderText);
    for (QPushButton* button : {m_settings, m_quit}) {
        button->setFlat(true);
        button->setFocusPolicy(Qt::StrongFocus);
    }
    connect(m_settings, &QPushButton::clicked, this, [this] {
        if (actions.close)
            actions.close();
        if (actions.openSettings)
            actions.openSettings();
    });
    connect(m_quit, &QPushButton::clicked, this, [this] {
        if (actions.quit)
            actions.quit();
    });
    auto* footer = new QHBoxLayout;
    footer->setContentsMargins(PanelStyle::margin, 4, PanelStyle::margin - 6, 6);
    footer->addWidget(m_keepAwake, 1);
    footer->addWidget(m_settings);
    footer->addWidget(m_quit);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addLayout(header);
    layout->addWidget(rule(this));
    layout->addWidget(m_scroll);
    layout->addWidget(rule(this));
    layout->addLayout(footer);

    m_body->onActivate = [this](const PanelRow& row, QPoint at) { activate(row, at); };
    m_body->onContextMenu = [this](const PanelRow& row, QPoint at) { showProcessMenu(row, at); };
    m_body->onOpenURL = [this](const QUrl& url) {
        if (url.isEmpty())
            return;
        if (actions.openURL)
            actions.openURL(url);
        else
            QDesktopServices::openUrl(url);
        if (actions.close)
            actions.close();
    };
    setTabOrder(m_back, m_body);
}

void PanelView::setContent(const PanelModel& model, const PanelSnapshot& snapshot, const Config& config)
{
    m_kind = model.kind;
    m_tilePanel = model.tilePanel;
    m_back->setVisible(model.kind != ModuleKind::combined || model.tilePanel);
    m_title->setText(model.title);
    m_subtitle->setText(model.subtitle);
    m_subtitle->setVisible(!model.subtitle.isEmpty());
    m_headline->setText(model.headline);
    m_headline->setAccessibleName(model.title + QLatin1Char(' ') + model.headline);
    setAccessibleName(model.title + QStringLiteral(" panel"));
    m_keepAwake->setText(QStringLiteral("Keep Awake: ") + snapshot.keepAwake.statusText);
    m_body->setModel(model);
    m_graph->setCharts(model.history, snapshot.now, config);
    fitHeight();
}

void PanelView::setMaximumContentHeight(int height)
{
    m_maximumContentHeight = height;
    fitHeight();
}

void PanelView::fitHeight()
{
    const int content = m_body->sizeHint().height() + 1 + (m_graph->isHidden() ? 0 : m_graph->sizeHint().height());
    m_scroll->setFixedHeight(std::min(content, m_maximumContentHeight));
    adjustSize();
}

void PanelView::activate(const PanelRow& row, QPoint at)
{
    switch (row.kind) {
    case PanelRow::Kind::link:
    case PanelRow::Kind::tile:
        if (row.target && actions.openPanel)
            actions.openPanel(*row.target);
        else if (row.tilePanel && actions.openTilePanel)
            actions.openTilePanel(*row.tilePanel);
        break;
    case PanelRow::Kind::copy:
        QGuiApplication::clipboard()->setText(row.value);
        break;
    case PanelRow::Kind::process: showProcessMenu(row, at); break;
    case PanelRow::Kind::command:
        if (actions.run)
            actions.run(row.command);
        break;
    case PanelRow::Kind::choice: {
        QMenu menu(this);
        for (const auto& [key, label] : row.choices) {
            QAction* action = menu.addAction(label);
            action->setCheckable(true);
            action->setChecked(key == row.chosen);
            const QString chosen = key;
            connect(action, &QAction::triggered, this, [this, chosen] {
                if (actions.chooseMenubarSensor)
                    actions.chooseMenubarSensor(chosen);
            });
        }
        menu.exec(at);
        break;
    }
    default: break;
    }
}

void PanelView::showProcessMenu(const PanelRow& row, QPoint at)
{
    if (!row.process)
        return;
    QMenu menu(this);
    ProcessRowActions::fillMenu(menu, *row.process, row.canQuit, [this] {
        if (actions.close)
            actions.close();
    });
    menu.exec(at);
}

} // namespace pulsebar
