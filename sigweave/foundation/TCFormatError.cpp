#include "sigweave/foundation/TCFormatError.h"

#include <algorithm>
#include <cstdarg>

#include "sigweave/foundation/ErrorConstants.h"
#include "sigweave/platform/SystemError.h"

namespace {

bool HasText(const char* text) {
    return text != nullptr && *text != '\0';
}

TCString Describe(unsigned long error, const char* userText, const char* numberFormat) {
    return TCFormatError::AsString(static_cast<int>(error), TCFormatError::GetErrorConstant(error), userText,
                                   TCFormatError::GetLastErrorText(error), numberFormat);
}

}  // namespace

const char* TCFormatError::GetErrorConstant(unsigned long error) {
    const auto& table = tc::ERROR_CONSTANTS;
    const auto* row = std::ranges::lower_bound(table, error, {}, &tc::ErrorConstant::number);
    return row != std::ranges::end(table) && row->number == error ? row->name : "Unknown error";
}

TCString TCFormatError::GetLastErrorText(unsigned long error) {
    TCString text = tc::SystemErrorText(error).c_str();
    text.TrimRight();
    return text;
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
    return Describe(static_cast<unsigned>(error), userText, "%d");
}

TCString TCFormatError::LastErrorAsString(const char* format, ...) {
    const unsigned long error = GetLastError();
    va_list arguments;
    va_start(arguments, format);
    const TCString userText = TCString::FormatVS(format, arguments);
    va_end(arguments);
    return Describe(error, userText, "%u");
}
