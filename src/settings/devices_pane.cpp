#include "settings/settings_panes.h"
#include "devices/mobile_device_api.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QLabel>

namespace pulsebar {

namespace {

// Whether phones and tablets are watched and shown, what that needs, and which are attached now.
class DevicesPane : public SettingsPane {
public:
    explicit DevicesPane(SettingsContext& context) : SettingsPane(context)
    {
        QFormLayout* form = addSection(QStringLiteral("Devices"));
        m_show = named(new QCheckBox(QStringLiteral("Show connected iPhones and iPads"), this),
                       QStringLiteral("showDevices"), QStringLiteral("Show connected iPhones and iPads"));
        connect(m_show, &QCheckBox::toggled, this, [this](bool on) { edit([&](Config& c) { c.showDevices = on; }); });
        form->addRow(m_show);
        m_attached = named(new QLabel(this), QStringLiteral("attachedDevices"), QStringLiteral("Connected now"));
        m_attached->setWordWrap(true);
        m_attached->setTextInteractionFlags(Qt::TextSelectableByMouse);
        form->addRow(QStringLiteral("Connected now:"), m_attached);
        addNote(QStringLiteral("Shows the charge, battery health and storage of iPhones, iPads and iPod touches in "
                               "the overview, and gives them to agents. Switching this off hides the Devices tile."));

        addSection(QStringLiteral("What is needed"));
        for (const QString& note : mobileDeviceRequirements())
            addNote(note);
        finish();
    }

    void load(const Config& config) override
    {
        setQuietly(m_show, config.showDevices);
        QStringList lines;
        if (m_context.readings)
            for (const ConnectedDevice& d : m_context.readings().connectedDevices)
                lines << d.displayName() + QStringLiteral(" (") + connectionName(d.connection) +
                             (d.trusted ? QString() : QStringLiteral(", not trusted")) + QLatin1Char(')');
        m_attached->setText(lines.isEmpty() ? QStringLiteral("None") : lines.join(QLatin1Char('\n')));
    }

private:
    QCheckBox* m_show;
    QLabel* m_attached;
};

} // namespace

SettingsPane* makeDevicesPane(SettingsContext& context)
{
    return new DevicesPane(context);
}

} // namespace pulsebar
