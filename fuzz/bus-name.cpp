// TCBusSerializeHelper: the names of bus segments. Parts of an input: two names, a type code, a type string,
// a number of items and a port index.
#include "fuzz/Fuzz.h"
#include "sigweave/signal/TCBusSerializeHelper.h"

namespace {

int Sign(int value) {
    return (value > 0) - (value < 0);
}

std::string_view View(const TCString& text) {
    return {text, static_cast<std::size_t>(text.GetLength())};
}

void CheckParsing(const std::string& name) {
    TCBusSerializeHelper helper;
    TCBusSerializeHelper::Parts parts;
    const bool isBusName = helper.ParseSegmentName(name.c_str());
    fuzz::Require(TCBusSerializeHelper::SplitSegmentName(name.c_str(), parts) == isBusName,
                  "both ways know a bus name");
    if (!isBusName) return;
    fuzz::Require(helper.PortIdx() == parts.portIdx && View(helper.GetSegmentName()) == parts.segmentName &&
                      View(helper.CompCheck()) == parts.compCheck &&
                      View(helper.GetValidation()) == parts.validation,
                  "and find the same in it");
}

void CheckComparison(const char* a, const char* b) {
    fuzz::Require(Sign(TCBusSerializeHelper::CompareSegmentNames(a, b)) ==
                      -Sign(TCBusSerializeHelper::CompareSegmentNames(b, a)),
                  "the order of two names is one");
    fuzz::Require(TCBusSerializeHelper::CompareSegmentNames(a, a) == 0, "a name is equal to itself");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Parts parts(data, size);
    const std::string first = parts.Next();
    const std::string second = parts.Next();
    CheckParsing(first);
    CheckComparison(first.c_str(), second.c_str());
    const unsigned long code = std::strtoul(parts.Next().c_str(), nullptr, 16) & 0xFFFFFFFF;
    const std::string typeString = parts.Next();
    const int items = parts.NextInt(INT32_MIN, INT32_MAX);
    const int port = parts.NextInt(INT32_MIN, INT32_MAX);
    const auto generate = [&](unsigned long dataType) {
        return TCBusSerializeHelper::GenSegmentName(dataType, typeString.c_str(), items, port, first.c_str(),
                                                    second.c_str());
    };
    const TCString name = generate(code);
    CheckParsing(std::string(View(name)));
    fuzz::Require(TCBusSerializeHelper::CompareSegmentNames(name, generate(0x40)) == 0,
                  "a channel stays the same when its type changes");
    TCBusSerializeHelper::Parts split;
    fuzz::Require(TCBusSerializeHelper::SplitSegmentName(name, split), "what is generated is a bus name");
    if ((first + typeString + second).find("\r\n") != std::string::npos) return 0;
    fuzz::Require(split.portIdx == port && split.segmentName == first && split.compCheck == second,
                  "with the parts that were given");
    return 0;
}
