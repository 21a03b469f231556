#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/Mistakes.h"

namespace host {

enum class Severity { Error, Warning, Note };

// "error", "warning" or "note", in every language: for the JSON report.
const char* ToText(Severity severity);

// A message of a module or the host.
struct Message {
    Severity severity = Severity::Note;
    std::string instance;    // empty: of the host, or of the run as a whole
    std::string text;        // names the instance itself when it has a place
    Place place;             // in the graph; of most messages there is none
    bool told = false;       // on standard error, when it came
    std::int64_t times = 1;  // it came
};

// All messages of the process in one place, for the end of a run. Any thread.
namespace messages {

// Messages that are equal count as one. Beyond a thousand different ones of a severity they are only counted.
void Add(Message message);
// Those since the last call, in the order in which they came first, and how many more there were.
std::vector<Message> Take(std::int64_t& leftOut);

}  // namespace messages
}  // namespace host
