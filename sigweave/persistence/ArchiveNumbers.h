#pragma once

#include <algorithm>
#include <unordered_set>
#include <vector>

namespace tc {

// The numbers of the items of one subsection while they are read, of which no two may be equal. Those that
// come in ascending order, as they mostly do, cost no allocation each.
class ArchiveNumbers {
 public:
    // False when it was there already.
    bool Add(int number) {
        if (ascending.empty() || number > ascending.back()) return ascending.push_back(number), true;
        return !std::ranges::binary_search(ascending, number) && others.insert(number).second;
    }

 private:
    std::vector<int> ascending;
    std::unordered_set<int> others;
};

}  // namespace tc
