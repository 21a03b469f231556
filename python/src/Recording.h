#pragma once

#include <cstdint>
#include <string>

#include "python/src/Samples.h"

namespace python {

// What a recording holds.
struct Recording {
    Track track;  // signals by their names
    std::int64_t blocks = 0;
    std::string missing;  // what the end of the file lacks, in words; empty: nothing
    std::string error;    // why it cannot be read at all; empty: it could
};

// Of a recording as an XML document, whole or still being written. What was read before a damaged place
// stays.
Recording ReadRecording(const std::string& path);

}  // namespace python
