#include "settings/settings_panes.h"

#include <QCheckBox>
#include <QFormLayout>

namespace pulsebar {

namespace {

// Which kinds of volume the disk list includes besides the local fixed ones.
class DisksPane : public SettingsPane {
public:
    explicit DisksPane(SettingsContext& context) : SettingsPane(context)
    {
        QFormLayout* form = addSection(QStringLiteral("Disks"));
        m_network = named(new QCheckBox(QStringLiteral("Show network volumes"), this),
                          QStringLiteral("showNetworkDisks"), QStringLiteral("Show network volumes"));
        connect(m_network, &QCheckBox::toggled, this, [this](bool on) { edit([&](Config& c) { c.showNetworkDisks = on; }); });
        form->addRow(m_network);
        m_removable = named(new QCheckBox(QStringLiteral("Show removable volumes"), this),
                            QStringLiteral("showRemovableDisks"), QStringLiteral("Show removable volumes"));
        connect(m_removable, &QCheckBox::toggled, this,
                [this](bool on) { edit([&](Config& c) { c.showRemovableDisks = on; }); });
        form->addRow(m_removable);
        addNote(QStringLiteral("Network volumes are shares mounted over the network (NFS, SMB, SSHFS); removable "
                               "volumes are USB drives and memory cards. The startup disk is always shown."));
        finish();
    }

    void load(const Config& config) override
    {
        setQuietly(m_network, config.showNetworkDisks);
        setQuietly(m_removable, config.showRemovableDisks);
    }

private:
    QCheckBox* m_network;
    QCheckBox* m_removable;
};

} // namespace

SettingsPane* makeDisksPane(SettingsContext& context)
{
    return new DisksPane(context);
}

} // namespace pulsebar
