// What is said of many measurements of one thing.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace statistics {

inline double quantile(std::vector<double> values, double part) {
    const auto place = values.begin() + static_cast<std::ptrdiff_t>(static_cast<double>(values.size() - 1) * part);
    std::nth_element(values.begin(), place, values.end());
    return *place;
}

inline double median(const std::vector<double>& values) {
    return quantile(values, 0.5);
}

inline double half_quartile_distance(const std::vector<double>& values) {
    return (quantile(values, 0.75) - quantile(values, 0.25)) / 2;
}

} // namespace statistics
