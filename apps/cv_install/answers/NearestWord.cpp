#include "answers/NearestWord.h"

#include <algorithm>
#include <numeric>

namespace {

// Returns how many characters must be inserted, removed or replaced to turn one word into the
// other.
size_t EditDistance(std::string_view from, std::string_view to) {
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < from.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t j = 0; j < to.size(); ++j) {
            const size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

}  // namespace

std::string NearestWord(std::string_view word, const std::vector<std::string>& candidates) {
    std::string nearest;
    size_t nearestDistance = word.size() / 3 + 1;
    for (const std::string& candidate : candidates) {
        const size_t distance = EditDistance(word, candidate);
        if (distance < nearestDistance) {
            nearestDistance = distance;
            nearest = candidate;
        }
    }
    return nearest;
}
