#include "host/check/NameRules.h"

#include <algorithm>

#include "sigweave/services/Bilingual.h"

namespace host::check {
namespace {

using tc::Bilingual;

bool IsControl(char byte) {
    return static_cast<unsigned char>(byte) < ' ' || byte == 0x7F;
}

// `nowhere` and `inFront` are the characters that would be taken for something else.
std::string WhyMalformed(const std::string& name, const char* nowhere, const char* inFront) {
    if (name.empty()) return Bilingual("is empty", "ist leer").Text();
    if (name.front() == ' ' || name.back() == ' ')
        return Bilingual("begins or ends with a blank", "beginnt oder endet mit einem Leerzeichen").Text();
    if (std::any_of(name.begin(), name.end(), IsControl))
        return Bilingual("holds a control character", "enthält ein Steuerzeichen").Text();
    const std::size_t bad = name.find_first_of(nowhere);
    if (bad != std::string::npos)
        return Bilingual("holds a '%1'", "enthält ein '%1'").With({name.substr(bad, 1)});
    if (std::string(inFront).find(name.front()) == std::string::npos) return {};
    return Bilingual("begins with '%1'", "beginnt mit '%1'").With({name.substr(0, 1)});
}

}  // namespace

std::string WhyNoId(const std::string& id) {
    return WhyMalformed(id, "", "\"'");
}

std::string WhyNoPortName(const std::string& name, bool isOutput) {
    return WhyMalformed(name, isOutput ? "=" : "", "");
}

std::string WhyNoParameterName(const std::string& name) {
    return WhyMalformed(name, "=", "#;[\"'");
}

}  // namespace host::check
