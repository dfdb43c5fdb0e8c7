#include "settings/settings_panes.h"

#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPointer>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

namespace pulsebar {

namespace {

// "Change Location…": a place search over the geocoding service, as the user types. Only the answer to
// the latest text is shown; a failed search says why and lists nothing.
class LocationSearch : public QDialog {
public:
    LocationSearch(SettingsContext& context, std::function<void(const WeatherLocation&)> chosen, QWidget* parent)
        : QDialog(parent), m_context(context), m_chosen(std::move(chosen))
    {
        setObjectName(QStringLiteral("locationSearch"));
        setWindowTitle(QStringLiteral("Change Location"));
        auto* layout = new QVBoxLayout(this);
        m_query = new QLineEdit(this);
        m_query->setObjectName(QStringLiteral("placeQuery"));
        m_query->setAccessibleName(QStringLiteral("Place name"));
        m_query->setPlaceholderText(QStringLiteral("City or place name"));
        m_query->setClearButtonEnabled(true);
        layout->addWidget(m_query);
        m_results = new QListWidget(this);
        m_results->setObjectName(QStringLiteral("placeResults"));
        m_results->setAccessibleName(QStringLiteral("Places found"));
        layout->addWidget(m_results, 1);
        m_status = new QLabel(this);
        m_status->setObjectName(QStringLiteral("placeSearchStatus"));
        m_status->setWordWrap(true);
        m_status->setForegroundRole(QPalette::PlaceholderText);
        layout->addWidget(m_status);
        auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
        m_use = buttons->addButton(QStringLiteral("Use Location"), QDialogButtonBox::AcceptRole);
        m_use->setObjectName(QStringLiteral("usePlace"));
        m_use->setEnabled(false);
        layout->addWidget(buttons);

        // A short pause after the last key, so typing a name does not send a request per letter.
        m_pause.setSingleShot(true);
        m_pause.setInterval(350);
        connect(&m_pause, &QTimer::timeout, this, [this] { search(); });
        connect(m_query, &QLineEdit::textEdited, this, [this] { m_pause.start(); });
        connect(m_query, &QLineEdit::returnPressed, this, [this] {
            m_pause.stop();
            search();
        });
        connect(m_results, &QListWidget::currentRowChanged, this,
                [this](int row) { m_use->setEnabled(row >= 0 && size_t(row) < m_places.size()); });
        connect(m_results, &QListWidget::itemActivated, this, [this] { accept(); });
        connect(buttons, &QDialogButtonBox::accepted, this, [this] { accept(); });
        connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
        resize(420, 320);
    }

    void accept() override
    {
        const int row = m_results->currentRow();
        if (row < 0 || size_t(row) >= m_places.size())
            return;
        m_chosen(m_places[size_t(row)]);
        QDialog::accept();
    }

private:
    void search()
    {
        const QString query = m_query->text().trimmed();
        const int asked = ++m_asked;
        showPlaces({});
        if (query.isEmpty()) {
            m_status->clear();
            return;
        }
        if (!m_context.searchPlaces) {
            m_status->setText(QStringLiteral("The place search is not available."));
            return;
        }
        m_status->setText(QStringLiteral("Searching…"));
        QPointer<LocationSearch> self(this);
        m_context.searchPlaces(query, [self, asked](const Parsed<std::vector<WeatherLocation>>& found) {
            if (!self || asked != self->m_asked)
                return; // closed, or the text has changed since
            self->showPlaces(found.value.value_or(std::vector<WeatherLocation>{}));
            if (!found.value)
                self->m_status->setText(found.error);
            else if (found.value->empty())
                self->m_status->setText(QStringLiteral("No places found."));
            else
                self->m_status->clear();
        });
    }

    void showPlaces(std::vector<WeatherLocation> places)
    {
        m_places = std::move(places);
        m_results->clear();
        for (const WeatherLocation& place : m_places)
            m_results->addItem(place.name);
        if (!m_places.empty())
            m_results->setCurrentRow(0);
        m_use->setEnabled(!m_places.empty());
    }

    SettingsContext& m_context;
    std::function<void(const WeatherLocation&)> m_chosen;
    QLineEdit* m_query;
    QListWidget* m_results;
    QLabel* m_status;
    QPushButton* m_use;
    QTimer m_pause;
    std::vector<WeatherLocation> m_places;
    int m_asked = 0;
};

// Where the weather, sun and moon are for, and the units their figures read in.
class WeatherPane : public SettingsPane {
public:
    explicit WeatherPane(SettingsContext& context) : SettingsPane(context)
    {
        QFormLayout* location = addSection(QStringLiteral("Location"));
        m_place = named(new QLabel(this), QStringLiteral("weatherPlace"), QStringLiteral("Weather location"));
        m_place->setTextInteractionFlags(Qt::TextSelectableByMouse);
        location->addRow(QStringLiteral("Location:"), m_place);
        auto* buttons = new QHBoxLayout;
        auto* change = named(new QPushButton(QStringLiteral("Change Location…"), this), QStringLiteral("changeLocation"),
                             QStringLiteral("Change Location…"));
        connect(change, &QPushButton::clicked, this, [this] { openSearch(); });
        m_automatic = named(new QPushButton(QStringLiteral("Use Automatic Location"), this),
                            QStringLiteral("automaticLocation"), QStringLiteral("Use Automatic Location"));
        connect(m_automatic, &QPushButton::clicked, this, [this] { edit([](Config& c) { c.weatherLocation.reset(); }); });
        buttons->addWidget(change);
        buttons->addWidget(m_automatic);
        buttons->addStretch(1);
        location->addRow(QString(), buttons);
        addNote(QStringLiteral("Automatic location asks ipapi.co where this computer's public IP address is, which "
                               "sends that address to ipapi.co. A location chosen here is used instead, and ipapi.co "
                               "is not asked. Weather data from Open-Meteo.com (free, no account needed). The same "
                               "location is used for sun and moon times."));

        QFormLayout* units = addSection(QStringLiteral("Units"));
        units->addRow(QStringLiteral("Temperature:"), m_temperature = temperatureUnitChoice());
        units->addRow(QStringLiteral("Wind speed:"), m_wind = windUnitChoice());
        finish();
    }

    void load(const Config& config) override
    {
        m_automatic->setEnabled(config.weatherLocation.has_value());
        if (config.weatherLocation) {
            m_place->setText(config.weatherLocation->name);
        } else {
            const auto found = m_context.automaticPlace ? m_context.automaticPlace() : std::nullopt;
            m_place->setText(found ? QStringLiteral("Automatic: ") + found->name
                                   : QStringLiteral("Automatic (not found yet)"));
        }
        setQuietly(m_temperature, int(config.temperatureUnit));
        setQuietly(m_wind, int(config.windUnit));
    }

private:
    void openSearch()
    {
        auto* dialog = new LocationSearch(
            m_context, [this](const WeatherLocation& place) { edit([&](Config& c) { c.weatherLocation = place; }); },
            this);
        dialog->setAttribute(Qt::WA_DeleteOnClose);
        dialog->open();
    }

    QLabel* m_place;
    QPushButton* m_automatic;
    QComboBox* m_temperature;
    QComboBox* m_wind;
};

} // namespace

SettingsPane* makeWeatherPane(SettingsContext& context)
{
    return new WeatherPane(context);
}

} // namespace pulsebar
