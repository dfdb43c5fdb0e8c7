#include "core/app_settings.h"

namespace pulsebar {

AppSettings::AppSettings(Preferences& preferences) : m_preferences(preferences), m_config(load(preferences)) {}

AppSettings& AppSettings::shared()
{
    static AppSettings settings(Preferences::standard());
    return settings;
}

Config AppSettings::load(const Preferences& preferences)
{
    const QJsonValue stored = preferences.value(configKey);
    return stored.isObject() ? Config::fromJson(stored.toObject()) : Config{};
}

void AppSettings::setConfig(const Config& config)
{
    if (config == m_config)
        return;
    m_preferences.setValue(configKey, config.toJson());
    adopt(config);
}

void AppSettings::reload()
{
    const QJsonValue stored = m_preferences.value(configKey);
    if (!stored.isObject())
        return;
    const Config config = Config::fromJson(stored.toObject());
    if (config != m_config)
        adopt(config);
}

void AppSettings::adopt(const Config& config)
{
    const Config old = m_config;
    m_config = config;
    // An observer may assign the config again or add observers, so it gets its own copy of the
    // record and the list is walked by index.
    const Config current = m_config;
    for (std::size_t i = 0; i < m_observers.size(); ++i)
        m_observers[i](old, current);
}

void AppSettings::addObserver(Observer observer)
{
    m_observers.push_back(std::move(observer));
}

AppearanceMode AppSettings::appearance() const
{
    return enumFromName<AppearanceMode>(m_preferences.value(appearanceKey).toString()).value_or(AppearanceMode::system);
}

void AppSettings::setAppearance(AppearanceMode mode)
{
    m_preferences.setValue(appearanceKey, enumName(mode));
}

} // namespace pulsebar
