#pragma once

#include <vector>

#include "host/parts/PartLink.h"

namespace host {

// While it lives, what modules say on the calling thread goes to a list instead of the console (see
// console::FromModule), for a part that is not the last one. The one before it holds again afterwards; null
// captures nothing.
class TextCapture {
 public:
    explicit TextCapture(std::vector<PartText>* list);
    ~TextCapture();
    TextCapture(const TextCapture&) = delete;
    TextCapture& operator=(const TextCapture&) = delete;

    // Of the calling thread; null: none.
    static std::vector<PartText>* Current();

 private:
    std::vector<PartText>* before;
};

}  // namespace host
