#include "sigweave/foundation/TCFormatError.h"

#include <algorithm>
#include <cstdarg>

#include "sigweave/foundation/ErrorConstants.h"
#include "sigweave/platform/SystemError.h"

namespace {

bool HasText(const char* text) {
    return text != nullptr && *text != '\0';
}

TCString WithoutLineEnd(TCString text) {
    return text.TrimRight();
}

TCString Describe(unsigned long error, const char* userText, const char* systemText,
                  const char* numberFormat) {
    return TCFormatError::AsString(static_cast<int>(error), TCFormatError::GetErrorConstant(error), userText,
                                   systemText, numberFormat);
}

}  // namespace

const char* TCFormatError::GetErrorConstant(unsigned long error) {
    const auto& table = tc::ERROR_CONSTANTS;
    const auto* row = std::ranges::lower_bound(table, error, {}, &tc::ErrorConstant::number);
    return row != std::ranges::end(table) && row->number == error ? row->name : "Unknown error";
}

TCString TCFormatError::GetLastErrorText(unsigned long error) {
    return WithoutLineEnd(tc::SystemErrorText(error).c_str());
}

TCString TCFormatError::AsString(int error, const char* constantName, const char* userText,
                                 const char* systemText, const char* numberFormat) {
    TCString line = TCString::FormatS(numberFormat, error);
    if (constantName == nullptr) constantName = GetErrorConstant(static_cast<unsigned>(error));
    if (HasText(constantName)) line.FormatAppend(" (%s)", constantName);
    line += ':';
    if (HasText(userText)) line.FormatAppend(" %s", userText);
    if (HasText(systemText)) line.FormatAppend(" (%s)", systemText);
    line.TrimRight(':');
    return line;
}

TCString TCFormatError::ErrorAsString(int error, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const TCString userText = TCString::FormatVS(format, arguments);
    va_end(arguments);
    return Describe(static_cast<unsigned>(error), userText, GetLastErrorText(static_cast<unsigned>(error)),
                    "%d");
}

TCString TCFormatError::LastErrorAsString(const char* format, ...) {
    const unsigned long error = GetLastError();
    const TCString systemText = error != 0 ? WithoutLineEnd(tc::LastSystemErrorText().c_str()) : TCString();
    va_list arguments;
    va_start(arguments, format);
    const TCString userText = TCString::FormatVS(format, arguments);
    va_end(arguments);
    return Describe(error, userText, systemText, "%u");
}
