#include "panels/panel_host.h"

#include "app/app_delegate.h"
#include "core/app_settings.h"
#include "hub/hub.h"
#include "panels/panel_body.h"
#include "panels/panel_content.h"
#include "panels/panel_placement.h"
#include "panels/panel_style.h"
#include "panels/panel_view.h"

#include <QApplication>
#include <QCursor>
#include <QEvent>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QScreen>
#include <QVBoxLayout>

namespace pulsebar {

namespace {

constexpr int reopenGuardMs = 350;

class PanelWindow : public QWidget {
public:
    // Called when a click elsewhere (or, where windows cannot place themselves, the loss of focus) has
    // closed the panel.
    std::function<void()> onClosedFromOutside;

    PanelWindow()
        : QWidget(nullptr, panelWindowsPlaceThemselves() ? Qt::Popup | Qt::FramelessWindowHint
                                          : Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint)
    {
        setObjectName(QStringLiteral("PulsebarPanel"));
        setAttribute(Qt::WA_ShowWithoutActivating, false);
    }

protected:
    void keyPressEvent(QKeyEvent* event) override
    {
        if (event->key() == Qt::Key_Escape) {
            hide();
            return;
        }
        QWidget::keyPressEvent(event);
    }
    void mousePressEvent(QMouseEvent* event) override
    {
        // A popup sees the press that closes it, wherever it lands.
        const bool outside = !rect().contains(event->position().toPoint());
        QWidget::mousePressEvent(event);
        if (outside && !isVisible() && onClosedFromOutside)
            onClosedFromOutside();
    }
    bool event(QEvent* event) override
    {
        if (event->type() == QEvent::WindowDeactivate && !panelWindowsPlaceThemselves() && !QApplication::activeModalWidget() &&
            !QApplication::activePopupWidget()) {
            hide();
            if (onClosedFromOutside)
                onClosedFromOutside();
        }
        return QWidget::event(event);
    }
};

} // namespace

PanelHost::PanelHost(Hub& hub, AppSettings& settings, QObject* parent)
    : QObject(parent), snapshot([&hub] { return PanelSnapshot::from(hub); }),
      loader([&hub](std::vector<HistoryMetric> metrics, HistoryRange range, QObject* receiver,
                    std::function<void(HistorySeries)> done) {
          if (hub.history)
              hub.history->load(std::move(metrics), range, receiver, std::move(done));
          else
              done({});
      }),
      m_hub(hub), m_settings(settings)
{
    // A running test redraws the network panel twice a second for its elapsed time.
    connect(&hub.speedTest(), &SpeedTest::changed, this, [this] {
        if (openPanel() == ModuleKind::network)
            refresh();
    });
}

PanelHost::~PanelHost() = default;

QWidget* PanelHost::window() const
{
    return m_window.get();
}

std::optional<ModuleKind> PanelHost::openPanel() const
{
    if (m_window && m_window->isVisible())
        return m_view->kind();
    return std::nullopt;
}

void PanelHost::toggle(ModuleKind kind, const QRect& anchor)
{
    if (openPanel() == kind) {
        close();
        return;
    }
    if (!openPanel() && m_lastClosed == kind && m_sinceClosed.isValid() && m_sinceClosed.elapsed() < reopenGuardMs) {
        m_lastClosed.reset();
        return;
    }
    open(kind, anchor);
}

void PanelHost::open(ModuleKind kind, const QRect& anchor)
{
    if (!PanelContent::hasPanel(kind))
        return;
    ensureWindow();
    m_anchor = anchor.isEmpty() ? QRect(QCursor::pos(), QSize(1, 1)) : anchor;
    showContent(kind);
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
    m_view->body()->setFocus(Qt::PopupFocusReason);
}

void PanelHost::close()
{
    if (m_window)
        m_window->hide();
}

void PanelHost::refresh()
{
    if (!openPanel())
        return;
    if (const std::optional<OverviewItem> item = m_view->tilePanel())
        showTilePanel(*item);
    else
        showContent(m_view->kind());
}

void PanelHost::showContent(ModuleKind kind)
{
    show([kind](const PanelSnapshot& live, const Config& config) { return PanelContent::build(kind, live, config); });
}

void PanelHost::showTilePanel(OverviewItem item)
{
    show([item](const PanelSnapshot& live, const Config& config) {
        return PanelContent::buildTilePanel(item, live, config);
    });
}

void PanelHost::show(const std::function<std::optional<PanelModel>(const PanelSnapshot&, const Config&)>& build)
{
    const Config& config = m_settings.config();
    m_hub.refreshEvents(config);
    const PanelSnapshot live = snapshot();
    if (std::optional<PanelModel> model = build(live, config))
        m_view->setContent(*model, live, config);
    place();
}

void PanelHost::ensureWindow()
{
    if (m_window)
        return;
    auto window = std::make_unique<PanelWindow>();
    window->onClosedFromOutside = [this] {
        m_lastClosed = m_view->kind();
        m_sinceClosed.start();
    };
    m_view = new PanelView(loader, &m_settings.preferences(), window.get());
    auto* layout = new QVBoxLayout(window.get());
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    layout->addWidget(m_view);
    m_view->actions.openPanel = [this](ModuleKind kind) { showContent(kind); };
    m_view->actions.openTilePanel = [this](OverviewItem item) { showTilePanel(item); };
    m_view->actions.chooseMenubarSensor = [this](const QString& key) {
        Config config = m_settings.config();
        config.menubarSensorKey = key.isEmpty() ? std::nullopt : std::optional<QString>(key);
        m_settings.setConfig(config);
        refresh();
    };
    m_view->actions.close = [this] { close(); };
    m_view->actions.openSettings = [] { AppDelegate::openSettings(); };
    m_view->actions.quit = [] { QCoreApplication::quit(); };
    m_view->actions.run = [this](const QString& command) {
        if (command == PanelContent::runSpeedTest)
            m_hub.speedTest().start();
        else if (command == PanelContent::cancelSpeedTest)
            m_hub.speedTest().cancel();
    };
    m_window = std::move(window);
}

void PanelHost::place()
{
    const QScreen* screen = QGuiApplication::screenAt(m_anchor.center());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (!screen)
        return;
    const QRect available = screen->availableGeometry();
    m_view->setMaximumContentHeight(available.height() - 160);
    m_window->adjustSize();
    const QRect frame = panelGeometry(m_window->sizeHint(), m_anchor, available, screen->geometry());
    m_window->move(frame.topLeft());
}

} // namespace pulsebar
