#pragma once

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
    // In the order of the lines; those without a line come first.
    std::vector<Mistake> InOrder() const;

 private:
    std::vector<Mistake> mistakes;
};

}  // namespace host
