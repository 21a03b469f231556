#pragma once

#include <string>

namespace tc {

// The place of a recording's number in the names that XmlRecorder and XmlPlayer take.
inline constexpr const char* RECORD_NUMBER = "{n}";

// The file of one of several recordings, counted from 1: the number takes the place of {n}. A name without it
// is that of a single recording; of several ones each has its number before the extension, as "take-2.xml".
std::string RecordFile(const std::string& name, int number, bool isOnly);

}  // namespace tc
