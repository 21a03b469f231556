#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <tuple>
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

// As above, of one program or of one thread.
class List {
 public:
    void Add(Message message);
    std::vector<Message> Take(std::int64_t& leftOut);

 private:
    std::vector<Message> kept;
    std::map<std::tuple<Severity, std::string, std::string>, std::size_t> positions;
    std::int64_t more = 0;
};

// While it lives, messages that come on the thread that made it go here, and the console prints nothing of
// what that thread says: for programs that run several graphs, each on a thread of its own. One for each
// thread.
class Collection {
 public:
    Collection();
    ~Collection();
    Collection(const Collection&) = delete;
    Collection& operator=(const Collection&) = delete;

    // Of the calling thread; null when it has none.
    static Collection* Current();
    // While it lives, a collection (null: none) is also that of the calling thread, while no other uses it.
    class Shared {
     public:
        explicit Shared(Collection* shared);
        ~Shared();
        Shared(const Shared&) = delete;
        Shared& operator=(const Shared&) = delete;
    };

    List list;
    // What the console must know to name the instances of that graph.
    std::map<std::string, std::string> instances;
    std::function<std::string()> speaker;
};

}  // namespace messages
}  // namespace host
