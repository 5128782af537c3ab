#include "CTLNearest.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <vector>

namespace {

// Longer ones are no words of ours.
constexpr std::size_t kLongest = 64;

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// How many letters have to be changed, put in, left out or exchanged with the next.
std::size_t distance(const std::string& left, const std::string& right) {
    std::vector<std::vector<std::size_t>> cost(left.size() + 1, std::vector<std::size_t>(right.size() + 1));
    for (std::size_t i = 0; i <= left.size(); ++i) {
        for (std::size_t j = 0; j <= right.size(); ++j) {
            if (i == 0 || j == 0) {
                cost[i][j] = i + j;
                continue;
            }
            const std::size_t change = left[i - 1] == right[j - 1] ? 0 : 1;
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, cost[i - 1][j - 1] + change});
            const bool isExchanged =
                i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1];
            if (isExchanged) cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
        }
    }
    return cost.back().back();
}

}  // namespace

std::string CTLNearest::to(const std::string& word, const std::set<std::string>& words) {
    if (word.size() > kLongest) return {};
    // A third of the letters, and three at most.
    std::size_t least = std::min<std::size_t>(3, word.size() / 3) + 1;
    std::string nearest;
    for (const std::string& candidate : words) {
        if (candidate.size() > kLongest || candidate == word) continue;
        const std::size_t away = distance(lowered(word), lowered(candidate));
        if (away >= least) continue;
        least = away;
        nearest = candidate;
    }
    return nearest;
}

std::string CTLNearest::question(const std::string& word, const std::set<std::string>& words) {
    const std::string meant = to(word, words);
    return meant.empty() ? std::string() : ": did you mean \"" + meant + "\"?";
}
