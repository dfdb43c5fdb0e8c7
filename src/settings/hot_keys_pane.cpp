#include "settings/settings_panes.h"

#include "menubar/hot_key_action.h"
#include "menubar/hot_key_center.h"
#include "menubar/hot_key_recorder.h"
#include "menubar/portal_hot_key_backend.h"

#include <QGridLayout>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QTimer>

namespace pulsebar {

namespace {

const QString refusedText = QStringLiteral("Another app already uses this shortcut.");
const QString recordingText = QStringLiteral("Press the keys…");
const QString emptyText = QStringLiteral("Record Shortcut");
constexpr int failedRefreshMs = 1000; // the desktop portal answers a registration later

QString actionTitle(const HotKeyAction& action)
{
    switch (action.kind) {
    case HotKeyAction::Kind::dropdown:
        return QStringLiteral("Show or hide the %1 panel").arg(MenuBarContent::title(action.module));
    case HotKeyAction::Kind::keepAwake: return QStringLiteral("Turn Keep Awake on or off");
    case HotKeyAction::Kind::settings: return QStringLiteral("Open Settings");
    }
    return {};
}

// X11 grabs keys itself; on Wayland only the desktop portal can, and only where the desktop offers it.
bool shortcutsWorkHere()
{
    const QString platform = QGuiApplication::platformName();
    return platform == QLatin1String("xcb") ||
           (platform.startsWith(QLatin1String("wayland")) && PortalHotKeyBackend::isAvailable());
}

// A button that shows a shortcut; clicked, it records the next accepted key combination. Esc cancels,
// Delete (or Backspace) alone clears, leaving the field cancels. While it records, the hot-key centre is
// suspended, so pressing a combination Pulsebar already uses records it instead of running it.
class ShortcutField : public QPushButton {
public:
    ShortcutField(HotKeyCenter* center, QWidget* parent) : QPushButton(parent), m_center(center)
    {
        setCheckable(true);
        setMinimumWidth(170);
        connect(this, &QPushButton::clicked, this, [this](bool on) {
            if (on)
                startRecording();
            else
                stopRecording();
        });
    }
    ~ShortcutField() override
    {
        if (m_recording)
            resumeCenter();
    }

    std::function<void(std::optional<HotKey>)> onRecorded; // nullopt: cleared

    void display(const std::optional<HotKey>& key)
    {
        m_shown = key;
        if (!m_recording)
            setText(key ? key->label : emptyText);
    }
    bool isRecording() const { return m_recording; }

    void startRecording()
    {
        m_recording = true;
        setChecked(true);
        setText(recordingText);
        if (m_center) {
            m_center->suspended = true;
            m_center->unregisterAll();
        }
        setFocus();
        grabKeyboard();
    }

protected:
    void keyPressEvent(QKeyEvent* event) override
    {
        if (!m_recording) {
            QPushButton::keyPressEvent(event);
            return;
        }
        const auto plain = event->modifiers() & ~Qt::KeypadModifier;
        if (event->key() == Qt::Key_Escape && plain == Qt::NoModifier) {
            stopRecording();
        } else if ((event->key() == Qt::Key_Delete || event->key() == Qt::Key_Backspace) && plain == Qt::NoModifier) {
            stopRecording();
            if (onRecorded)
                onRecorded(std::nullopt);
        } else if (const std::optional<HotKey> key = HotKeyRecorder::record(*event)) {
            stopRecording();
            if (onRecorded)
                onRecorded(key);
        }
        // A refused combination (Shift alone, a plain letter) keeps the field waiting.
    }

    void focusOutEvent(QFocusEvent* event) override
    {
        if (m_recording)
            stopRecording();
        QPushButton::focusOutEvent(event);
    }

private:
    void stopRecording()
    {
        if (!m_recording)
            return;
        m_recording = false;
        releaseKeyboard();
        setChecked(false);
        display(m_shown);
        resumeCenter();
    }

    void resumeCenter()
    {
        if (!m_center)
            return;
        m_center->suspended = false;
        m_center->registerAll();
    }

    HotKeyCenter* m_center;
    std::optional<HotKey> m_shown;
    bool m_recording = false;
};

// One recorder per action, with the desktop's refusals beside them.
class HotKeysPane : public SettingsPane {
public:
    explicit HotKeysPane(SettingsContext& context) : SettingsPane(context)
    {
        addSection(QStringLiteral("Hot keys"));
        addNote(QStringLiteral("Click a shortcut, then press the keys. It needs Ctrl, Alt or Super (function keys "
                               "work alone). Esc cancels, Delete clears. The desktop's own shortcuts, like Super "
                               "for the activities overview, win over Pulsebar's, so pick combinations they don't "
                               "use."));
        m_unavailable = addNote(QStringLiteral("Shortcuts cannot work on this desktop: it offers neither X11 key grabs "
                                               "nor the desktop portal's global shortcuts."));
        m_unavailable->setObjectName(QStringLiteral("shortcutsUnavailable"));
        m_unavailable->setVisible(!shortcutsWorkHere());

        auto* grid = new QGridLayout;
        grid->setContentsMargins(12, 4, 0, 0);
        grid->setHorizontalSpacing(12);
        grid->setColumnStretch(3, 1);
        int row = 0;
        for (const HotKeyAction& action : HotKeyAction::allCases()) {
            const QString id = action.identifier();
            const QString title = actionTitle(action);
            grid->addWidget(new QLabel(title + QLatin1Char(':'), this), row, 0, Qt::AlignRight);
            auto* field = named(new ShortcutField(m_context.hotKeys, this), QStringLiteral("hotKey.") + id,
                                QStringLiteral("Shortcut: ") + title);
            field->onRecorded = [this, id](std::optional<HotKey> key) {
                edit([&](Config& c) {
                    if (key)
                        c.hotKeys[id] = *key;
                    else
                        c.hotKeys.erase(id);
                });
            };
            grid->addWidget(field, row, 1);
            auto* clear = named(new QPushButton(QStringLiteral("Clear"), this), QStringLiteral("clear.") + id,
                                QStringLiteral("Clear the shortcut: ") + title);
            connect(clear, &QPushButton::clicked, this, [this, id] { edit([&](Config& c) { c.hotKeys.erase(id); }); });
            grid->addWidget(clear, row, 2);
            auto* refused = new QLabel(refusedText, this);
            refused->setObjectName(QStringLiteral("refused.") + id);
            QPalette red = refused->palette();
            red.setColor(QPalette::WindowText, QColor(0xd7, 0x3a, 0x2f));
            refused->setPalette(red);
            grid->addWidget(refused, row, 3);
            m_rows.push_back({id, field, clear, refused});
            ++row;
        }
        column()->addLayout(grid);
        finish();

        auto* timer = new QTimer(this);
        connect(timer, &QTimer::timeout, this, [this] {
            if (isVisible())
                showRefusals();
        });
        timer->start(failedRefreshMs);
    }

    void load(const Config& config) override
    {
        for (const Row& row : m_rows) {
            const auto found = config.hotKeys.find(row.id);
            const std::optional<HotKey> key = found == config.hotKeys.end() ? std::nullopt : std::optional(found->second);
            row.field->display(key);
            row.clear->setEnabled(key.has_value());
        }
        showRefusals();
    }

private:
    struct Row {
        QString id;
        ShortcutField* field;
        QPushButton* clear;
        QLabel* refused;
    };

    void showRefusals()
    {
        for (const Row& row : m_rows)
            row.refused->setVisible(m_context.hotKeys && m_context.hotKeys->failed.count(row.id) > 0 &&
                                    config().hotKeys.count(row.id) > 0);
    }

    QLabel* m_unavailable;
    std::vector<Row> m_rows;
};

} // namespace

SettingsPane* makeHotKeysPane(SettingsContext& context)
{
    return new HotKeysPane(context);
}

} // namespace pulsebar
