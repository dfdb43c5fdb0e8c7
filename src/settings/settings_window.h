#pragma once

#include "settings/settings_pane.h"

#include <QFileSystemWatcher>
#include <QTimer>
#include <QWidget>

#include <vector>

class QListWidget;
class QStackedWidget;

namespace pulsebar {

// The settings window: a sidebar of panes and the selected pane beside it. Created once and kept; closing
// only hides it. Its geometry is remembered under "PulsebarSettings" and the selected pane under
// "settings.pane". While it exists it watches the preferences file, so a hand edit made with the window
// open shows up in it at once (fields being typed in keep their text).
class SettingsWindow : public QWidget {
    Q_OBJECT
public:
    static inline const QString paneKey = QStringLiteral("settings.pane");
    static inline const QString geometryKey = QStringLiteral("PulsebarSettings");
    static constexpr int defaultWidth = 840;
    static constexpr int defaultHeight = 580;

    explicit SettingsWindow(SettingsContext context, QWidget* parent = nullptr);
    ~SettingsWindow() override;

    // Shows the window (centred the first time, where it was left afterwards), raises and focuses it.
    void present();

    void showPane(const QString& id);
    QString currentPane() const;
    SettingsPane* pane(const QString& id) const;

    // Adopts what the preferences file says now; called by the watcher, a moment after the file changed.
    void preferencesFileChanged();

protected:
    void hideEvent(QHideEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void buildPanes();
    void loadPanes();
    void outlineChecksInLists();
    void watchPreferences();
    void saveGeometryToPreferences();

    SettingsContext m_context;
    QListWidget* m_sidebar;
    QStackedWidget* m_stack;
    std::vector<std::pair<QString, SettingsPane*>> m_panes;
    QFileSystemWatcher m_watcher;
    QTimer m_reloadTimer;
    bool m_placed = false;
};

} // namespace pulsebar
