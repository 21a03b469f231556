#include "host/check/ParameterValues.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "host/Guard.h"
#include "sigweave/foundation/NumberFormat.h"

namespace host::check {
namespace {

using Kind = TCModuleParameter::Kind;
using Integers = std::numeric_limits<int>;

constexpr const char* TEXTS[] = {"",
                                 "plain",
                                 " blanks ",
                                 "a \"quoted\" 'text'",
                                 "back\\slash",
                                 "line\nfeed\ttab",
                                 "# no comment",
                                 "a=b;c",
                                 "[section]",
                                 "caf\xC3\xA9",
                                 "bad \xFF byte",
                                 "%1 %s %n"};

bool IsNumeric(Kind kind) {
    return kind == Kind::INTEGER || kind == Kind::NUMBER;
}

std::vector<std::string> Words(const std::string& choices) {
    std::vector<std::string> words;
    for (std::size_t begin = 0; begin < choices.size();) {
        const std::size_t end = std::min(choices.find('|', begin), choices.size());
        words.push_back(choices.substr(begin, end - begin));
        begin = end + 1;
    }
    return words;
}

std::vector<std::string> Numbers(const TCModuleParameter& parameter) {
    const bool whole = parameter.kind == Kind::INTEGER;
    const double least = whole ? std::max<double>(parameter.minimum, Integers::min()) : parameter.minimum;
    const double most = whole ? std::min<double>(parameter.maximum, Integers::max()) : parameter.maximum;
    std::vector<std::string> texts;
    for (const double value : {least, most, std::clamp(0.0, least, most), std::clamp(7.0, least, most)})
        texts.push_back(whole ? std::to_string(static_cast<int>(value)) : tc::ShortestText(value));
    return texts;
}

}  // namespace

std::vector<std::string> AllowedValues(const TCModuleParameter& parameter) {
    std::vector<std::string> values;
    if (parameter.defaultValue != nullptr) values.push_back(parameter.defaultValue);
    std::vector<std::string> more;
    if (IsNumeric(parameter.kind)) more = Numbers(parameter);
    if (parameter.kind == Kind::CHOICE) more = Words(Text(parameter.choices));
    if (parameter.kind == Kind::SWITCH) more = {"no", "yes"};
    if (parameter.kind == Kind::TEXT) more.assign(std::begin(TEXTS), std::end(TEXTS));
    if (parameter.kind == Kind::FILE || parameter.kind == Kind::OUTPUT_FILE)
        more = {"no such folder/file.dat", "caf\xC3\xA9 \"1\".csv"};
    values.insert(values.end(), more.begin(), more.end());
    return values;
}

std::vector<std::string> ForbiddenValues(const TCModuleParameter& parameter) {
    if (parameter.kind == Kind::CHOICE || parameter.kind == Kind::SWITCH) return {"", "none of the words"};
    if (!IsNumeric(parameter.kind)) return {};
    std::vector<std::string> values = {"", "x", "1x", "nan", "inf", "1e999", "99999999999999999999x"};
    const double beyond = std::nextafter(parameter.maximum, std::numeric_limits<double>::infinity());
    if (parameter.maximum < 1e15) values.push_back(tc::ShortestText(std::floor(beyond) + 1.0));
    if (parameter.minimum > -1e15) values.push_back(tc::ShortestText(std::ceil(parameter.minimum) - 1.0));
    return values;
}

}  // namespace host::check
