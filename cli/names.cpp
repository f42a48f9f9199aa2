#include "names.h"

#include <algorithm>
#include <utility>

namespace qvthost {

namespace {

char LowerChar(char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; }

std::string Lower(std::string_view word) {
    std::string lower(word);
    for (char &c : lower) c = LowerChar(c);
    return lower;
}

std::size_t Distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1,
                               diagonal + (LowerChar(a[i - 1]) == LowerChar(b[j - 1]) ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

}  // namespace

std::string NameOf(std::string_view declaration) {
    return std::string(declaration.substr(0, declaration.find_first_of("( ")));
}

std::vector<std::size_t> Matching(std::string_view typed, const std::vector<std::string> &names) {
    const std::string lower = Lower(typed);
    std::vector<std::size_t> equal, begun;
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::string name = Lower(names[i]);
        if (name == lower) equal.push_back(i);
        if (name.starts_with(lower)) begun.push_back(i);
    }
    return equal.empty() ? begun : equal;
}

std::string Closest(std::string_view typed, const std::vector<std::string> &names) {
    std::vector<std::pair<std::size_t, std::string>> closest;
    for (const std::string &candidate : names) {
        const bool holds = !typed.empty() && Lower(candidate).find(Lower(typed)) != std::string::npos;
        closest.emplace_back(holds ? 0 : 1 + Distance(typed, candidate), candidate);
    }
    std::sort(closest.begin(), closest.end());
    closest.erase(std::unique(closest.begin(), closest.end(),
                              [](const auto &a, const auto &b) { return a.second == b.second; }),
                  closest.end());
    std::string listed;
    for (std::size_t i = 0; i < closest.size() && i < 3; ++i) {
        listed += (i ? ", " : "") + closest[i].second;
    }
    return listed;
}

}  // namespace qvthost
