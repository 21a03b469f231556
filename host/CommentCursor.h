#pragma once

#include <string>
#include <vector>

#include "host/GraphFile.h"

namespace host {

// The comments of a graph that is written anew, each once: those between an entry and the one above it in the
// file belong to the entry. The graph must outlive it.
class CommentCursor {
 public:
    explicit CommentCursor(const GraphFile& graph);

    std::vector<std::string> Before(const Place& entry);
    // Those that no entry took.
    std::vector<std::string> Rest();

 private:
    std::vector<std::string> Take(int afterLine, int line);

    std::vector<Comment> comments;  // by line
    std::vector<bool> taken;
    std::vector<int> entryLines;
};

}  // namespace host
