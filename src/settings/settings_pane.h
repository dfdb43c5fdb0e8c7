#pragma once

#include "calendar/calendar_event.h"
#include "core/app_settings.h"
#include "monitors/sensor_monitor.h"
#include "menubar/menu_bar_content.h"
#include "weather/weather_report.h"

#include <QWidget>

#include <functional>
#include <vector>

class QAbstractButton;
class QComboBox;
class QDoubleSpinBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QListWidget;
class QVBoxLayout;

namespace pulsebar {

class HistoryStore;
class HotKeyCenter;
class MetricsExporter;
class Notifier;

// What the panes read and change besides the configuration. The live sources are functions so the
// window works the same over the running hub, over sample states (--dump) and over fakes (tests);
// each may be empty, and a pane then shows what it can without it.
struct SettingsContext {
    SettingsContext(AppSettings& settings, Notifier& notifier, HotKeyCenter* hotKeys = nullptr)
        : settings(settings), notifier(notifier), hotKeys(hotKeys)
    {
    }

    AppSettings& settings;
    Notifier& notifier;
    HotKeyCenter* hotKeys = nullptr;                  // suspended while a shortcut is recorded
    std::function<std::vector<Sensor>()> sensors;     // the machine's sensors with their current values
    std::function<HubSnapshot()> readings;        // what the menu-bar previews show
    std::function<HistoryStore*()> history;           // the open history store, if any
    std::function<void()> trayLookChanged;            // the tray redraws: new palette or tray preferences
    // The place search behind "Change Location…" (answers on the main thread), and the place found
    // from this computer's address while none is configured.
    std::function<void(const QString& query, std::function<void(Parsed<std::vector<WeatherLocation>>)> done)>
        searchPlaces;
    std::function<std::optional<WeatherLocation>()> automaticPlace;
    MetricsExporter* metrics = nullptr;               // the running exporter, told of its preferences' changes
    // The calendars and events of the last fetch; the call that makes the calendar read its sources
    // (CalendarSources in the preferences) again at once; and a subscription to what that read finds,
    // for as long as the receiver lives.
    std::function<std::shared_ptr<const CalendarState>()> calendarState;
    std::function<void()> refreshCalendars;
    std::function<void(QObject* receiver, std::function<void()> changed)> watchCalendars;
};

// One page of the settings window: a form built from the current Config. Every edit assigns a new
// Config through AppSettings, so it is saved and every observer reacts at once; nothing waits for an
// OK button. A text field keeps what the user is typing until it is valid and finished.
class SettingsPane : public QWidget {
    Q_OBJECT
public:
    explicit SettingsPane(SettingsContext& context, QWidget* parent = nullptr);

    // Brings every widget in line with the record (after an edit, or a hand edit of the preferences
    // file), leaving alone the fields the user has changed and not yet committed.
    virtual void load(const Config& config) = 0;

protected:
    const Config& config() const { return m_context.settings.config(); }
    void edit(const std::function<void(Config&)>& change);

    // The pane's column: a bold heading per section, forms and notes under it, a stretch at the end
    // (added by finish()).
    QVBoxLayout* column() const { return m_column; }
    QFormLayout* addSection(const QString& heading);
    QLabel* addNote(const QString& text, QLayout* into = nullptr);
    // A red, wrapping line under a field for what is wrong with it; hidden until it has a text.
    QLabel* addErrorLine(QFormLayout* form, const QString& objectName);
    static void showErrorLine(QLabel* line, const QString& error);
    // Moves the selected entry of an ordered list `by` places, keeping it selected; false when it cannot
    // move (nothing selected, or already at that end).
    static bool moveSelectedRow(QListWidget* list, int by);
    void finish();

    // A combo box of fixed choices, an entry per title, named for tests and screen readers.
    QComboBox* choice(const QString& objectName, const QString& accessibleName, const QStringList& titles);
    // The temperature and wind-speed units, editing the record as they change (General and Weather).
    QComboBox* temperatureUnitChoice();
    QComboBox* windUnitChoice();

    // Setters that do not report back as edits (load() must not assign the record it is reading).
    static void setQuietly(QComboBox* box, int index);
    static void setQuietly(QAbstractButton* button, bool checked);
    static void setQuietly(QDoubleSpinBox* box, double value);
    // Sets the text unless the user is editing the field (modified since the last commit).
    static void setTextUnlessEditing(QLineEdit* field, const QString& text);
    // Names a widget for tests (objectName) and for screen readers (accessibleName) at once.
    template <typename W>
    static W* named(W* widget, const QString& objectName, const QString& accessibleName)
    {
        widget->setObjectName(objectName);
        widget->setAccessibleName(accessibleName);
        return widget;
    }

    SettingsContext& m_context;

private:
    QVBoxLayout* m_column;
};

} // namespace pulsebar
