#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace host {

// Where something was written: a file and a line counted from 1, or (line 0) a file as a whole or an argument
// of the command line.
struct Place {
    std::string source;
    int line = 0;
};

// "voice.graph:7", or the source alone.
std::string ToText(const Place& place);

// One thing that the user has to mend: what is wrong and the remedy, in one or two sentences.
struct Mistake {
    Place place;
    std::string text;
};

// Collects mistakes, so that all of them can be reported in one go.
class Mistakes {
 public:
    void Add(const Place& place, std::string text);
    bool IsEmpty() const { return mistakes.empty(); }
    // Whether there is one at this place.
    bool HasAny(const std::string& source) const;
    std::size_t GetCount() const { return mistakes.size(); }
    // In the order of the lines; those without a line come first. The first ones, if a number is given.
    std::vector<Mistake> InOrder(std::size_t most = static_cast<std::size_t>(-1)) const;

 private:
    std::vector<Mistake> mistakes;
};

}  // namespace host
