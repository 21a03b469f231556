#include "sigweave/services/NearNames.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <utility>

#include "sigweave/services/Bilingual.h"

namespace {

constexpr std::size_t MOST_NAMES = 3;
constexpr std::size_t LONGEST_NAME = 256;

CString Lowered(CString text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// Insertions, deletions, replacements and exchanges of neighbours that turn one text into the other.
std::size_t EditDistance(const CString& a, const CString& b) {
    CArray<std::size_t> beforeLast(b.size() + 1), last(b.size() + 1), row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::swap(beforeLast, last);
        std::swap(last, row);
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t replaced = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, replaced});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
        }
    }
    return row[b.size()];
}

// The rank of a candidate, 0 being the best; -1 when it is not near.
int Rank(const CString& typed, const CString& candidate) {
    const std::size_t longer = std::max(typed.size(), candidate.size());
    if (typed.empty() || candidate.empty() || longer > LONGEST_NAME) return -1;
    const CString name = Lowered(typed);
    const CString wanted = Lowered(candidate);
    const std::size_t limit = std::max<std::size_t>(1, longer / 3);
    const std::size_t distance = EditDistance(name, wanted);
    if (distance <= limit && distance < longer) return static_cast<int>(distance);
    return name.size() > 1 && wanted.starts_with(name) ? static_cast<int>(limit) : -1;
}

CString Joined(const CStringArray& names, const char* quote, const char* lastSeparator) {
    CString text;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (i > 0) text += i + 1 == names.size() ? lastSeparator : ", ";
        text += quote + names[i] + quote;
    }
    return text;
}

}  // namespace

CStringArray tc::NearestNames(const CString& name, const CStringArray& candidates) {
    CArray<std::pair<int, CString>> near;
    for (const CString& candidate : candidates) {
        const int rank = Rank(name, candidate);
        if (rank >= 0) near.emplace_back(rank, candidate);
    }
    std::stable_sort(near.begin(), near.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    near.resize(std::min(near.size(), MOST_NAMES));
    CStringArray names;
    for (auto& [rank, candidate] : near) names.push_back(std::move(candidate));
    return names;
}

CString tc::SuggestNames(const CString& name, const CStringArray& candidates) {
    const CStringArray near = NearestNames(name, candidates);
    if (!near.empty())
        return Bilingual("did you mean %1?", "meinten Sie %1?")
            .With({Joined(near, "'", Bilingual(" or ", " oder ").Text())});
    if (candidates.empty()) return Bilingual("there are none", "es gibt keine").Text();
    return Bilingual("known are %1", "bekannt sind %1").With({Joined(candidates, "", ", ")});
}
