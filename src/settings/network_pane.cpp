#include "settings/settings_panes.h"

#include <QFormLayout>
#include <QHostAddress>
#include <QLabel>
#include <QLineEdit>
#include <QRegularExpression>

namespace pulsebar {

// Empty when the text is an IP address or a host name (letters, digits and hyphens in dot-separated
// labels of up to 63 characters, not all digits at the end); otherwise the sentence that says why not.
QString pingHostError(const QString& text)
{
    const QString host = text.trimmed();
    if (host.isEmpty())
        return QStringLiteral("Enter a host name or an IP address to ping.");
    // QHostAddress also takes the old shorthand "1.2.3" for 1.2.0.3; here that is a half-typed address.
    static const QRegularExpression dotted(QStringLiteral("^[0-9.]+$"));
    const bool shorthand = dotted.match(host).hasMatch() && host.count('.') != 3;
    if (!shorthand && !QHostAddress(host).isNull())
        return {};
    static const QRegularExpression label(QStringLiteral("^[A-Za-z0-9]([A-Za-z0-9-]{0,61}[A-Za-z0-9])?$"));
    const QStringList labels = host.endsWith('.') ? host.chopped(1).split('.') : host.split('.');
    const bool wellFormed = host.size() <= 253 &&
                            std::all_of(labels.begin(), labels.end(), [](const QString& l) { return label.match(l).hasMatch(); });
    static const QRegularExpression digits(QStringLiteral("^[0-9]+$"));
    if (!wellFormed || digits.match(labels.last()).hasMatch())
        return QStringLiteral("“%1” is not a host name or an IP address.").arg(host);
    return {};
}

namespace {

// The host the latency probe pings, and through it what "internet reachable" means.
class NetworkPane : public SettingsPane {
public:
    explicit NetworkPane(SettingsContext& context) : SettingsPane(context)
    {
        QFormLayout* form = addSection(QStringLiteral("Network"));
        m_host = named(new QLineEdit(this), QStringLiteral("pingHost"), QStringLiteral("Ping host"));
        m_host->setMinimumWidth(260);
        m_host->setPlaceholderText(QStringLiteral("1.1.1.1 or example.com"));
        connect(m_host, &QLineEdit::textEdited, this, [this] { showError(); });
        connect(m_host, &QLineEdit::editingFinished, this, [this] { commit(); });
        form->addRow(QStringLiteral("Ping host:"), m_host);
        m_error = addErrorLine(form, QStringLiteral("pingHostError"));
        addNote(QStringLiteral("Pulsebar pings this host every few samples to measure latency and to tell whether "
                               "the internet is reachable. Press Enter to use a new host."));
        finish();
    }

    void load(const Config& config) override
    {
        setTextUnlessEditing(m_host, config.pingHost);
        showError();
    }

private:
    void showError()
    {
        showErrorLine(m_error, pingHostError(m_host->text()));
    }

    void commit()
    {
        showError();
        if (!pingHostError(m_host->text()).isEmpty())
            return; // the text stays for the user to correct; the stored host is unchanged
        const QString host = m_host->text().trimmed();
        m_host->setModified(false);
        edit([&](Config& c) { c.pingHost = host; });
        setTextUnlessEditing(m_host, host);
    }

    QLineEdit* m_host;
    QLabel* m_error;
};

} // namespace

SettingsPane* makeNetworkPane(SettingsContext& context)
{
    return new NetworkPane(context);
}

} // namespace pulsebar
