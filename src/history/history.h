#pragma once

#include <deque>
#include <vector>

namespace pulsebar {

// A bounded trail of recent samples, oldest first. Monitors keep 120 entries (samples, not seconds),
// so the memory of a trail is constant however long the process runs.
class History {
public:
    static constexpr int defaultCapacity = 120;

    explicit History(int capacity = defaultCapacity);

    // A non-finite sample is stored as 0 so that graphs and means never see NaN or infinity.
    void add(double value);

    int capacity() const { return m_capacity; }
    const std::deque<double>& values() const { return m_values; }
    std::vector<double> lastValues(int count) const;
    bool isEmpty() const { return m_values.empty(); }
    int size() const { return int(m_values.size()); }
    double last() const { return m_values.empty() ? 0.0 : m_values.back(); }

    bool operator==(const History&) const = default;

private:
    int m_capacity;
    std::deque<double> m_values;
};

} // namespace pulsebar
