#pragma once

#include <QString>
#include <QTimer>

#include <array>
#include <functional>
#include <memory>
#include <optional>

namespace pulsebar {

// The platform's way of holding off sleep while an assertion is held.
class PowerAssertions {
public:
    virtual ~PowerAssertions() = default;
    // An identifier of the held assertion, or nullopt when the system refused it.
    virtual std::optional<int> create(bool keepDisplayOn, const QString& name) = 0;
    virtual void release(int assertion) = 0;
};

// Keeps the computer (and optionally the display) awake until a chosen time or until turned off.
// Main thread only.
class KeepAwake {
public:
    enum class Duration { minutes30, hour1, hours2, indefinitely };
    static constexpr std::array<Duration, 4> allDurations{Duration::minutes30, Duration::hour1, Duration::hours2,
                                                          Duration::indefinitely};
    static QString label(Duration duration);
    // Seconds from the start to the end; nullopt for "Until turned off".
    static std::optional<double> seconds(Duration duration);

    static inline const QString assertionName = QStringLiteral("Pulsebar Keep Awake");

    explicit KeepAwake(std::unique_ptr<PowerAssertions> assertions);
    ~KeepAwake();
    KeepAwake(const KeepAwake&) = delete;
    KeepAwake& operator=(const KeepAwake&) = delete;

    // Replaces any running keep-awake. `until` is seconds since 1970; a refused assertion leaves it off.
    void activate(bool keepDisplayOn, std::optional<double> until);
    // Starts from a menu choice: the end is now plus the duration.
    void activate(bool keepDisplayOn, Duration duration);
    void stop(bool notify);

    // "Off", "Until 14:30", or "Until turned off".
    QString statusText() const;

    bool isActive = false;
    std::optional<double> endDate; // seconds since 1970
    bool keepsDisplayOn = false;
    std::function<void()> onChange;
    std::optional<int> assertion;

    const QTimer* timer() const { return m_timer.get(); }

    // Seconds since 1970; tests replace it.
    std::function<double()> now;

private:
    std::unique_ptr<PowerAssertions> m_assertions;
    std::unique_ptr<QTimer> m_timer;
};

} // namespace pulsebar
