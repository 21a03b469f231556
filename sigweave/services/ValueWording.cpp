#include "sigweave/services/ValueWording.h"

#include <algorithm>
#include <limits>

#include "sigweave/foundation/NumberFormat.h"

namespace tc {
namespace {

constexpr double HIGHEST = std::numeric_limits<double>::max();

// What a number may be: without limits, with a lower one, an upper one, or both.
struct Wording {
    Bilingual any;
    Bilingual from;
    Bilingual to;
    Bilingual between;
};

// By NumberKind.
constexpr Wording WORDINGS[] = {{{"an integer", "eine ganze Zahl"},
                                 {"an integer of at least %1", "eine ganze Zahl ab %1"},
                                 {"an integer of at most %2", "eine ganze Zahl bis %2"},
                                 {"an integer from %1 to %2", "eine ganze Zahl von %1 bis %2"}},
                                {{"a number", "eine Zahl"},
                                 {"a number of at least %1", "eine Zahl ab %1"},
                                 {"a number of at most %2", "eine Zahl bis %2"},
                                 {"a number from %1 to %2", "eine Zahl von %1 bis %2"}}};

}  // namespace

CString NotValidText(const CString& name, const CString& value, const CString& expected,
                     const CString& circumstances) {
    return Bilingual("%1: '%2' is not valid%3; expected %4", "%1: '%2' ist nicht gültig%3; erwartet wird %4")
        .With({name, value, circumstances.empty() ? CString() : " " + circumstances, expected});
}

CString DescribeNumbers(NumberKind kind, double minimum, double maximum, const CString& unit) {
    if (kind == NumberKind::INTEGER) {
        minimum = std::max<double>(minimum, std::numeric_limits<int>::min());
        maximum = std::min<double>(maximum, std::numeric_limits<int>::max());
    }
    const Wording& wording = WORDINGS[static_cast<std::size_t>(kind)];
    const bool from = minimum > -HIGHEST;
    const bool to = maximum < HIGHEST;
    const Bilingual& limits = from ? (to ? wording.between : wording.from) : (to ? wording.to : wording.any);
    const CString text = limits.With({ShortestText(minimum), ShortestText(maximum)});
    return unit.empty() ? text : text + " (in " + unit + ")";
}

CString DescribeWords(const CStringArray& words) {
    CString text;
    for (const CString& word : words) text += (text.empty() ? "" : ", ") + word;
    return Bilingual("one of %1", "eins von %1").With({text});
}

}  // namespace tc
