#pragma once

#include "menubar/hot_key_center.h"

#include <QDBusMessage>
#include <QObject>
#include <QString>

#include <map>

namespace pulsebar {

// Global shortcuts on Wayland through the desktop portal (org.freedesktop.portal.GlobalShortcuts).
// The compositor owns the keys: grabs made in one turn of the event loop are bound together in one
// session, the desktop may ask the user to confirm them, and its answer arrives later: a shortcut the
// desktop leaves out of its answer is reported through onRefused.
class PortalHotKeyBackend : public QObject, public HotKeyBackend {
    Q_OBJECT
public:
    PortalHotKeyBackend();
    ~PortalHotKeyBackend() override;

    static bool isAvailable();

    bool grab(int id, const QString& identifier, const HotKey& key) override;
    void ungrab(int id) override;

    // "CTRL+ALT+k": the portal's shortcut trigger format.
    static QString trigger(const HotKey& key);

private Q_SLOTS:
    void sessionCreated(const QDBusMessage& response);
    void shortcutsBound(const QDBusMessage& response);
    void activated(const QDBusMessage& signal);

private:
    struct Entry {
        QString identifier;
        HotKey key;
    };
    void scheduleBind();
    void bind();
    void closeSession();
    QString requestPath(const QString& token) const;
    QString nextToken();
    bool request(const QString& token, const QDBusMessage& call, const char* responseSlot);
    std::map<QString, int> idsByShortcut() const;

    std::map<int, Entry> m_entries;
    QString m_session;
    bool m_bindScheduled = false;
    int m_tokenCounter = 0;
};

} // namespace pulsebar
