#include "history/history.h"

#include <algorithm>
#include <cmath>

namespace pulsebar {

History::History(int capacity) : m_capacity(std::max(0, capacity)) {}

void History::add(double value)
{
    m_values.push_back(std::isfinite(value) ? value : 0.0);
    while (int(m_values.size()) > m_capacity)
        m_values.pop_front();
}

std::vector<double> History::lastValues(int count) const
{
    const int n = std::clamp(count, 0, size());
    return {m_values.end() - n, m_values.end()};
}

} // namespace pulsebar
