#include "CTLDistribution.h"

#include <algorithm>
#include <vector>

void CTLDistribution::add(std::int64_t us) {
    m_times.push_back(us);
    if (m_times.size() > kMost) m_times.pop_front();
}

std::int64_t CTLDistribution::at(unsigned percent) const {
    if (m_times.empty()) return 0;
    std::vector<std::int64_t> sorted(m_times.begin(), m_times.end());
    const std::size_t rank = (sorted.size() * percent + 99) / 100;
    const auto place = sorted.begin() + static_cast<std::ptrdiff_t>(rank == 0 ? 0 : rank - 1);
    std::nth_element(sorted.begin(), place, sorted.end());
    return *place;
}

int CTLDistribution::timeoutSec() const {
    if (m_times.empty()) return 0;
    const std::int64_t us = std::max(3 * percentile95(), 2 * maximum());
    return static_cast<int>(std::max<std::int64_t>(1, (us + 999999) / 1000000));
}
