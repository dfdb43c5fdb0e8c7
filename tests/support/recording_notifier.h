#pragma once

#include "alerts/notifier.h"
#include "hub/hub.h"
#include "test_support.h"

#include <vector>

namespace pulsebar::test {

// Keeps every post instead of reaching the desktop.
class RecordingNotifier : public Notifier {
public:
    bool isAvailable() const override { return true; }
    void post(const QString& title, const QString& body) override { posts.push_back({title, body}); }
    void post(const Notification& notification, const NotificationAction& action) override
    {
        posts.push_back(notification);
        actions.push_back(action);
    }
    using Notifier::post;

    std::vector<Notification> posts;
    std::vector<NotificationAction> actions; // of the posts that had a button, in order
};

// A hub over a private preferences file, for engines that need one to exist.
struct HubFixture {
    IsolatedSettings isolated;
    Hub hub{isolated.settings, fixtureReaders(fixture("monitors/sys-basic-1"))};
};

} // namespace pulsebar::test
