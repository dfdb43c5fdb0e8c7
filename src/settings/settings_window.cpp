#include "settings/settings_window.h"

#include "settings/settings_panes.h"

#include <QApplication>
#include <QComboBox>
#include <QFileInfo>
#include <QFrame>
#include <QPointer>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QListWidget>
#include <QScreen>
#include <QScrollArea>
#include <QShortcut>
#include <QStackedWidget>

namespace pulsebar {

SettingsWindow::SettingsWindow(SettingsContext context, QWidget* parent)
    : QWidget(parent, Qt::Window), m_context(std::move(context)), m_sidebar(new QListWidget(this)),
      m_stack(new QStackedWidget(this))
{
    setWindowTitle(QStringLiteral("Pulsebar Settings"));
    setAccessibleName(windowTitle());
    resize(defaultWidth, defaultHeight);
    setMinimumSize(640, 420);

    m_sidebar->setObjectName(QStringLiteral("sidebar"));
    m_sidebar->setAccessibleName(QStringLiteral("Settings sections"));
    m_sidebar->setFixedWidth(180);
    m_sidebar->setFrameShape(QFrame::NoFrame);
    m_sidebar->setSpacing(1);
    // A blank icon is the indent: the style lays text out after the icon, whatever the style is.
    m_sidebar->setIconSize(QSize(6, 6));
    QFont font = m_sidebar->font();
    font.setPointSizeF(font.pointSizeF() * 1.05);
    m_sidebar->setFont(font);

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_sidebar);
    auto* divider = new QFrame(this);
    divider->setFrameShape(QFrame::VLine);
    divider->setFrameShadow(QFrame::Sunken);
    layout->addWidget(divider);
    layout->addWidget(m_stack, 1);

    buildPanes();
    outlineChecksInLists();
    connect(m_sidebar, &QListWidget::currentRowChanged, this, [this](int row) {
        if (row < 0 || row >= int(m_panes.size()))
            return;
        m_stack->setCurrentIndex(row);
        m_context.settings.preferences().setValue(paneKey, m_panes[std::size_t(row)].first);
    });
    const QString remembered = m_context.settings.preferences().value(paneKey).toString();
    showPane(pane(remembered) ? remembered : m_panes.front().first);

    const QByteArray geometry =
        QByteArray::fromBase64(m_context.settings.preferences().value(geometryKey).toString().toLatin1());
    if (!geometry.isEmpty() && restoreGeometry(geometry))
        m_placed = true;

    QPointer<SettingsWindow> self(this);
    m_context.settings.addObserver([self](const Config&, const Config& newConfig) {
        if (!self)
            return;
        for (const auto& [id, pane] : self->m_panes)
            pane->load(newConfig);
    });

    auto* close = new QShortcut(QKeySequence::Close, this);
    connect(close, &QShortcut::activated, this, &QWidget::close);

    m_reloadTimer.setSingleShot(true);
    m_reloadTimer.setInterval(150); // an editor's save is several file events; read once they settle
    connect(&m_reloadTimer, &QTimer::timeout, this, &SettingsWindow::preferencesFileChanged);
    connect(&m_watcher, &QFileSystemWatcher::fileChanged, &m_reloadTimer, qOverload<>(&QTimer::start));
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, &m_reloadTimer, qOverload<>(&QTimer::start));
    watchPreferences();
}

SettingsWindow::~SettingsWindow()
{
    // Leaving a field commits it; let that happen while the window is whole, not from QWidget's destructor.
    if (QWidget* focused = focusWidget())
        focused->clearFocus();
    if (isVisible())
        saveGeometryToPreferences();
}

void SettingsWindow::buildPanes()
{
    for (const SettingsPaneEntry& entry : settingsPanes()) {
        SettingsPane* pane = entry.make(m_context);
        pane->setObjectName(entry.id);
        pane->load(m_context.settings.config());
        auto* scroll = new QScrollArea(m_stack);
        scroll->setWidget(pane);
        scroll->setWidgetResizable(true);
        scroll->setFrameShape(QFrame::NoFrame);
        m_stack->addWidget(scroll);
        QPixmap indent(6, 6);
        indent.fill(Qt::transparent);
        auto* item = new QListWidgetItem(QIcon(indent), entry.title, m_sidebar);
        item->setSizeHint(QSize(0, 30));
        m_panes.emplace_back(entry.id, pane);
    }
}

void SettingsWindow::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::PaletteChange)
        outlineChecksInLists();
    QWidget::changeEvent(event);
}

void SettingsWindow::outlineChecksInLists()
{
    // Fusion outlines a check box in a shade of the window colour; on a dark palette that shade is as dark
    // as a list's background, and an unticked box inside a list vanishes. Lists get a lighter window
    // colour (used for nothing else there) so their boxes keep an outline.
    const QPalette application = QApplication::palette();
    const bool dark = application.color(QPalette::Window).lightness() < 128;
    QPalette lists;
    if (dark)
        lists.setColor(QPalette::Window, application.color(QPalette::Text).darker(160));
    for (QAbstractItemView* view : findChildren<QAbstractItemView*>())
        if (!qobject_cast<QComboBox*>(view->parentWidget()) && view->objectName() != QLatin1String("sidebar"))
            view->setPalette(lists);
}

void SettingsWindow::loadPanes()
{
    for (const auto& [id, pane] : m_panes)
        pane->load(m_context.settings.config());
}

void SettingsWindow::present()
{
    if (!m_placed) {
        if (const QScreen* screen = QGuiApplication::primaryScreen())
            move(screen->availableGeometry().center() - rect().center());
        m_placed = true;
    }
    show();
    if (isMinimized())
        showNormal();
    raise();
    activateWindow();
}

void SettingsWindow::showPane(const QString& id)
{
    for (std::size_t i = 0; i < m_panes.size(); ++i)
        if (m_panes[i].first == id)
            m_sidebar->setCurrentRow(int(i));
}

QString SettingsWindow::currentPane() const
{
    const int row = m_sidebar->currentRow();
    return row >= 0 && row < int(m_panes.size()) ? m_panes[std::size_t(row)].first : QString();
}

SettingsPane* SettingsWindow::pane(const QString& id) const
{
    for (const auto& [paneId, pane] : m_panes)
        if (paneId == id)
            return pane;
    return nullptr;
}

void SettingsWindow::watchPreferences()
{
    // The file is replaced, not rewritten, on every save (ours and most editors'), which ends a watch on
    // the file itself; the folder's watch sees the replacement and the file is watched again.
    const QString path = m_context.settings.preferences().path();
    const QString folder = QFileInfo(path).absolutePath();
    if (QFileInfo::exists(folder) && !m_watcher.directories().contains(folder))
        m_watcher.addPath(folder);
    if (QFileInfo::exists(path) && !m_watcher.files().contains(path))
        m_watcher.addPath(path);
}

void SettingsWindow::preferencesFileChanged()
{
    watchPreferences();
    m_context.settings.reload(); // observers (the panes among them) hear of a changed record
    loadPanes();                 // values kept outside the record, such as the appearance
}

void SettingsWindow::hideEvent(QHideEvent* event)
{
    saveGeometryToPreferences();
    QWidget::hideEvent(event);
}

void SettingsWindow::saveGeometryToPreferences()
{
    m_context.settings.preferences().setValue(geometryKey, QString::fromLatin1(saveGeometry().toBase64()));
}

} // namespace pulsebar
