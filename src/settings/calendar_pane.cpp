#include "settings/settings_panes.h"

#include <QCheckBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPainter>
#include <QPushButton>
#include <QRegularExpression>
#include <QSpinBox>

namespace pulsebar {

namespace {

constexpr int mostDaysAhead = 31;

QIcon swatch(const QColor& color)
{
    QPixmap pixmap(14, 14);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(color.isValid() ? color : QColor(Qt::gray));
    p.drawRoundedRect(QRectF(1, 1, 12, 12), 3, 3);
    return QIcon(pixmap);
}

// Which list of the sources an entry of the sources list belongs to.
enum class SourceKind { file, subscription, folder };

// What shows events, how far ahead, which calendars, and the calendars added by hand.
class CalendarPane : public SettingsPane {
public:
    explicit CalendarPane(SettingsContext& context) : SettingsPane(context)
    {
        QFormLayout* events = addSection(QStringLiteral("Events"));
        m_showEvents = named(new QCheckBox(QStringLiteral("Show calendar events"), this), QStringLiteral("showEvents"),
                             QStringLiteral("Show calendar events"));
        connect(m_showEvents, &QCheckBox::toggled, this, [this](bool on) { edit([&](Config& c) { c.showEvents = on; }); });
        events->addRow(m_showEvents);
        m_days = named(new QSpinBox(this), QStringLiteral("eventDays"), QStringLiteral("Days ahead"));
        m_days->setRange(1, mostDaysAhead);
        m_days->setSuffix(QStringLiteral(" days"));
        connect(m_days, &QSpinBox::valueChanged, this, [this](int days) { edit([&](Config& c) { c.eventDays = days; }); });
        events->addRow(QStringLiteral("Show events for:"), m_days);
        m_weekNumbers = named(new QCheckBox(QStringLiteral("Show week numbers in the month"), this),
                              QStringLiteral("showWeekNumbers"), QStringLiteral("Show week numbers"));
        connect(m_weekNumbers, &QCheckBox::toggled, this,
                [this](bool on) { edit([&](Config& c) { c.showWeekNumbers = on; }); });
        events->addRow(m_weekNumbers);

        addSection(QStringLiteral("Calendars"));
        addNote(QStringLiteral("Pulsebar reads the calendars of GNOME Calendar and GNOME Online Accounts, the "
                               "folders of vdirsyncer and khal, and the files and subscriptions below. Untick a "
                               "calendar to hide its events."));
        m_calendars = named(new QListWidget(this), QStringLiteral("calendars"), QStringLiteral("Calendars"));
        m_calendars->setMinimumHeight(90);
        m_calendars->setMaximumHeight(160);
        column()->addWidget(m_calendars);
        connect(m_calendars, &QListWidget::itemChanged, this, [this](QListWidgetItem* item) { toggled(item); });
        m_noCalendars = addNote(QStringLiteral("No calendars found yet."));
        m_noCalendars->setObjectName(QStringLiteral("noCalendars"));

        addSection(QStringLiteral("Files and subscriptions"));
        m_sources = named(new QListWidget(this), QStringLiteral("sources"), QStringLiteral("Calendar files and subscriptions"));
        m_sources->setMinimumHeight(70);
        m_sources->setMaximumHeight(110);
        column()->addWidget(m_sources);
        auto* buttons = new QHBoxLayout;
        const auto button = [&](const QString& text, const QString& name, auto action) {
            auto* b = named(new QPushButton(text, this), name, text);
            connect(b, &QPushButton::clicked, this, action);
            buttons->addWidget(b);
            return b;
        };
        button(QStringLiteral("Add File…"), QStringLiteral("addCalendarFile"), [this] { addFile(); });
        button(QStringLiteral("Add Folder…"), QStringLiteral("addCalendarFolder"), [this] { addFolder(); });
        m_remove = button(QStringLiteral("Remove"), QStringLiteral("removeCalendarSource"), [this] { removeSelected(); });
        buttons->addStretch(1);
        column()->addLayout(buttons);
        auto* added = new QFormLayout;
        column()->addLayout(added);
        auto* subscribe = new QHBoxLayout;
        m_address = named(new QLineEdit(this), QStringLiteral("subscriptionURL"), QStringLiteral("Subscription address"));
        m_address->setPlaceholderText(QStringLiteral("https://… or webcal://…"));
        m_address->setClearButtonEnabled(true);
        subscribe->addWidget(m_address, 1);
        auto* subscribeButton = named(new QPushButton(QStringLiteral("Subscribe"), this), QStringLiteral("subscribe"),
                                      QStringLiteral("Subscribe"));
        connect(subscribeButton, &QPushButton::clicked, this, [this] { addSubscription(); });
        subscribe->addWidget(subscribeButton);
        added->addRow(QStringLiteral("Subscribe to:"), subscribe);
        m_addressError = addErrorLine(added, QStringLiteral("subscriptionError"));
        connect(m_address, &QLineEdit::returnPressed, this, [this] { addSubscription(); });
        connect(m_address, &QLineEdit::textEdited, this, [this] { showErrorLine(m_addressError, {}); });
        addNote(QStringLiteral("Subscriptions are fetched every 15 minutes; the last copy is kept when a fetch fails."));

        QFormLayout* you = addSection(QStringLiteral("Invitations"));
        m_ownAddresses = named(new QLineEdit(this), QStringLiteral("ownAddresses"), QStringLiteral("Your e-mail addresses"));
        m_ownAddresses->setPlaceholderText(QStringLiteral("you@example.com, work@example.org"));
        you->addRow(QStringLiteral("Your addresses:"), m_ownAddresses);
        m_ownAddressesError = addErrorLine(you, QStringLiteral("ownAddressesError"));
        connect(m_ownAddresses, &QLineEdit::textEdited, this,
                [this] { showErrorLine(m_ownAddressesError, addressesError(m_ownAddresses->text())); });
        connect(m_ownAddresses, &QLineEdit::editingFinished, this, [this] { commitAddresses(); });
        addNote(QStringLiteral("Invitations you declined at these addresses are not shown. The addresses of your "
                               "GNOME accounts are known already."));
        finish();
        if (m_context.watchCalendars)
            m_context.watchCalendars(this, [this] { loadCalendars(config()); });
    }

    void load(const Config& config) override
    {
        setQuietly(m_showEvents, config.showEvents);
        setQuietly(m_weekNumbers, config.showWeekNumbers);
        {
            const QSignalBlocker block(m_days);
            m_days->setValue(int(std::clamp<int64_t>(config.eventDays, 1, mostDaysAhead)));
        }
        loadCalendars(config);
        loadSources();
    }

protected:
    void showEvent(QShowEvent* event) override
    {
        load(config());
        // The calendars may have changed since the last read, or, with no item showing events, never
        // been read: read them now; the list follows when the read is done.
        if (m_context.refreshCalendars)
            m_context.refreshCalendars();
        SettingsPane::showEvent(event);
    }

private:
    void loadCalendars(const Config& config)
    {
        const std::shared_ptr<const CalendarState> state =
            m_context.calendarState ? m_context.calendarState() : nullptr;
        const QSignalBlocker block(m_calendars);
        const QString selected = m_calendars->currentItem() ? m_calendars->currentItem()->data(Qt::UserRole).toString()
                                                            : QString();
        m_calendars->clear();
        if (state)
            for (const CalendarInfo& calendar : state->calendars) {
                auto* item = new QListWidgetItem(swatch(calendar.color), calendar.title, m_calendars);
                if (!calendar.source.isEmpty())
                    item->setText(calendar.title + QStringLiteral(" — ") + calendar.source);
                item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
                item->setCheckState(config.hiddenCalendars.contains(calendar.id) ? Qt::Unchecked : Qt::Checked);
                item->setData(Qt::UserRole, calendar.id);
                if (calendar.id == selected)
                    m_calendars->setCurrentItem(item);
            }
        m_calendars->setVisible(m_calendars->count() > 0);
        m_noCalendars->setVisible(m_calendars->count() == 0);
    }

    void toggled(QListWidgetItem* item)
    {
        const QString id = item->data(Qt::UserRole).toString();
        const bool shown = item->checkState() == Qt::Checked;
        edit([&](Config& c) {
            c.hiddenCalendars.removeAll(id);
            if (!shown)
                c.hiddenCalendars << id;
        });
    }

    CalendarSources sources() const { return CalendarSources::load(m_context.settings.preferences()); }

    void loadSources()
    {
        const CalendarSources s = sources();
        m_sources->clear();
        const auto add = [this](const QStringList& entries, SourceKind kind, const QString& what) {
            for (const QString& entry : entries) {
                auto* item = new QListWidgetItem(entry + QStringLiteral("  (") + what + QLatin1Char(')'), m_sources);
                item->setData(Qt::UserRole, entry);
                item->setData(Qt::UserRole + 1, int(kind));
            }
        };
        add(s.files, SourceKind::file, QStringLiteral("file"));
        add(s.folders, SourceKind::folder, QStringLiteral("folder"));
        add(s.subscriptions, SourceKind::subscription, QStringLiteral("subscription"));
        m_remove->setEnabled(m_sources->count() > 0);
        if (!m_ownAddresses->isModified())
            m_ownAddresses->setText(s.ownAddresses.join(QStringLiteral(", ")));
    }

    void save(const CalendarSources& changed)
    {
        if (!changed.save(m_context.settings.preferences()))
            return;
        loadSources();
        if (m_context.refreshCalendars)
            m_context.refreshCalendars();
    }

    void addFile()
    {
        addPath(&CalendarSources::files,
                QFileDialog::getOpenFileName(this, QStringLiteral("Add Calendar File"), QString(),
                                             QStringLiteral("Calendar files (*.ics);;All files (*)")));
    }

    void addFolder()
    {
        addPath(&CalendarSources::folders,
                QFileDialog::getExistingDirectory(this, QStringLiteral("Add Calendar Folder")));
    }

    // A chosen file or folder joins its list once; an empty path (the dialog cancelled) changes nothing.
    void addPath(QStringList CalendarSources::*list, const QString& path)
    {
        if (path.isEmpty())
            return;
        CalendarSources s = sources();
        if (!(s.*list).contains(path))
            s.*list << path;
        save(s);
    }

    void addSubscription()
    {
        const QString address = m_address->text().trimmed();
        CalendarSources s = sources();
        QString error = subscriptionError(address);
        if (error.isEmpty() && s.subscriptions.contains(address))
            error = QStringLiteral("This calendar is already subscribed to.");
        showErrorLine(m_addressError, error);
        if (!error.isEmpty())
            return;
        s.subscriptions << address;
        m_address->clear();
        save(s);
    }

    void removeSelected()
    {
        const QListWidgetItem* item = m_sources->currentItem();
        if (!item)
            return;
        const QString entry = item->data(Qt::UserRole).toString();
        CalendarSources s = sources();
        switch (SourceKind(item->data(Qt::UserRole + 1).toInt())) {
        case SourceKind::file: s.files.removeAll(entry); break;
        case SourceKind::folder: s.folders.removeAll(entry); break;
        case SourceKind::subscription: s.subscriptions.removeAll(entry); break;
        }
        save(s);
    }

    void commitAddresses()
    {
        const QString text = m_ownAddresses->text();
        const QString error = addressesError(text);
        showErrorLine(m_ownAddressesError, error);
        if (!error.isEmpty())
            return;
        CalendarSources s = sources();
        s.ownAddresses = splitAddresses(text);
        m_ownAddresses->setModified(false);
        if (s != sources())
            save(s);
    }

    static QStringList splitAddresses(const QString& text)
    {
        static const QRegularExpression separators(QStringLiteral("[,;\\s]+"));
        return text.split(separators, Qt::SkipEmptyParts);
    }

    static QString addressesError(const QString& text)
    {
        static const QRegularExpression address(QStringLiteral("^[^@\\s]+@[^@\\s]+\\.[^@\\s]+$"));
        for (const QString& one : splitAddresses(text))
            if (!address.match(one).hasMatch())
                return QStringLiteral("“%1” is not an e-mail address.").arg(one);
        return {};
    }

    QCheckBox* m_showEvents;
    QSpinBox* m_days;
    QCheckBox* m_weekNumbers;
    QListWidget* m_calendars;
    QLabel* m_noCalendars;
    QListWidget* m_sources;
    QPushButton* m_remove;
    QLineEdit* m_address;
    QLabel* m_addressError;
    QLineEdit* m_ownAddresses;
    QLabel* m_ownAddressesError;
};

} // namespace

QString subscriptionError(const QString& text)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty())
        return QStringLiteral("Enter the address of the calendar.");
    const QUrl url(trimmed, QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || (scheme != QLatin1String("http") && scheme != QLatin1String("https") &&
                           scheme != QLatin1String("webcal")))
        return QStringLiteral("“%1” is not a calendar address: it must start with http://, https:// or webcal://.")
            .arg(trimmed);
    if (url.host().isEmpty())
        return QStringLiteral("“%1” has no server name.").arg(trimmed);
    return {};
}

SettingsPane* makeCalendarPane(SettingsContext& context)
{
    return new CalendarPane(context);
}

} // namespace pulsebar
