#pragma once

#include "core/config.h"
#include "core/preferences.h"

#include <functional>
#include <vector>

namespace pulsebar {

// The one holder of the user's Config. Every change is saved whole and then reported to the
// observers with the old and the new record; an identical record is neither saved nor reported.
// Main thread only.
class AppSettings {
public:
    using Observer = std::function<void(const Config& oldConfig, const Config& newConfig)>;

    static inline const QString configKey = QStringLiteral("PulsebarConfig.v1");
    static inline const QString appearanceKey = QStringLiteral("appearance");

    explicit AppSettings(Preferences& preferences);

    static AppSettings& shared();

    const Config& config() const { return m_config; }
    void setConfig(const Config& config);
    // Adopts the record stored in preferences when someone changed the file by hand; observers hear of it
    // like of any change and nothing is written back. A file whose record is missing or damaged (half
    // saved by an editor) is ignored, so the record in use is never replaced by defaults that way.
    void reload();

    // Observers are never removed; an observer guards its own target (a QPointer capture).
    void addObserver(Observer observer);

    Preferences& preferences() const { return m_preferences; }

    AppearanceMode appearance() const;
    void setAppearance(AppearanceMode mode);

    // Reads the record stored in preferences: defaults when absent or not an object.
    static Config load(const Preferences& preferences);

private:
    void adopt(const Config& config);

    Preferences& m_preferences;
    std::vector<Observer> m_observers;
    Config m_config;
};

} // namespace pulsebar
