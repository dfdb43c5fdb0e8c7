#pragma once

#include <QObject>
#include <QVariantMap>

#include <functional>

namespace pulsebar {

// One running application per session: the first takes the application id on the session bus and
// answers org.freedesktop.Application there; a later start asks it to activate (open its settings) and
// ends. Without a session bus every start runs on its own.
class SingleInstance : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")
public:
    static QString objectPath();

    explicit SingleInstance(QObject* parent = nullptr);
    ~SingleInstance() override;

    // True when this process is now the one instance (or there is no bus to ask).
    bool claim();
    // Asks the running instance to activate; false when none answered.
    static bool activateRunning();

    std::function<void()> onActivate;

public Q_SLOTS:
    void Activate(const QVariantMap& platformData);
    void Open(const QStringList& uris, const QVariantMap& platformData);
    void ActivateAction(const QString& name, const QVariantList& parameters, const QVariantMap& platformData);

private:
    bool m_registered = false;
};

} // namespace pulsebar
