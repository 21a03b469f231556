#pragma once

#include <cstdint>

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"

// An archive of settings, as the objects see it that store themselves in one: a sequence of typed items, each
// with a number that is unique within its object and a label for people. The same calls store and load, so an
// object describes its items once. Implemented for each form of archive; used on one thread.
class TC_API ArchiveParser {
 public:
    virtual ~ArchiveParser() = default;
    virtual bool IsStoring() const = 0;
    // Store the value, or load it. False, with the value unchanged, when the item is not there or is of
    // another type, or when it cannot be written.
    virtual bool Integer(int number, const char* label, std::int64_t& value) = 0;
    virtual bool String(int number, const char* label, TCString& value) = 0;
};
