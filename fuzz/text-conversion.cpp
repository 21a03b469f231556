// Escapes, URL texts, name=value lines, lists and code pages. Parts of an input: a separator or name, a code
// page, and the text, which may hold zero bytes.
#include <algorithm>

#include "fuzz/Fuzz.h"
#include "sigweave/foundation/StringConversion.h"

namespace {

void Escape(const std::string& bytes) {
    TCString text = fuzz::Text(bytes);
    TCString escaped;
    QuoteControlChar(escaped, text);
    TCString restored;
    fuzz::Require(UnQuoteEscapeChar(restored, escaped), "what is escaped has no wrong escapes");
    fuzz::RequireSame(fuzz::Bytes(restored), bytes, "and is restored");
    TCString resolved;
    const bool isRight = UnQuoteEscapeChar(resolved, text);
    fuzz::Require(UnQuoteEscapeChar(text, text) == isRight && fuzz::Bytes(text) == fuzz::Bytes(resolved),
                  "a text can be resolved in its place");
}

void EncodeUrl(const std::string& text) {
    TCString encoded;
    URLEncode(encoded, text.c_str());
    TCString decoded;
    URLDecode(decoded, encoded);
    fuzz::RequireSame(fuzz::Bytes(decoded), text.c_str(), "a URL text is restored");
    TCString direct;
    URLDecode(direct, text.c_str());
    TCString inPlace(text.c_str());
    URLDecode(inPlace, inPlace);
    fuzz::RequireSame(fuzz::Bytes(inPlace), fuzz::Bytes(direct), "a text can be decoded in its place");
}

void Split(const std::string& text, const std::string& separator) {
    TCArray<TCString, const TCString&> kept;
    CStringArray cut;
    const int count = ConvertStringToStrArray(text.c_str(), kept, separator.c_str(), true);
    fuzz::Require(count == ConvertStringToStrArray(text.c_str(), cut, separator.c_str(), false),
                  "separators that are kept make no elements");
    std::string joined;
    for (int i = 0; i < count; ++i) {
        joined += fuzz::Bytes(kept[i]);
        const std::string& element = cut[static_cast<std::size_t>(i)];
        fuzz::Require(fuzz::Bytes(kept[i]) == element || fuzz::Bytes(kept[i]) == element + separator,
                      "an element may have its separator");
    }
    fuzz::RequireSame(joined, text.c_str(), "the elements are the text");
}

void Look(const std::string& text, const std::string& name) {
    TCString value;
    CString same;
    int integer = 0;
    double number = 0.0;
    const bool isThere = ParseParam(text.c_str(), name.c_str(), value);
    fuzz::Require(isThere == ParseParam(text.c_str(), name.c_str(), same) &&
                      isThere == ParseParam(text.c_str(), name.c_str(), integer) &&
                      isThere == ParseParam(text.c_str(), name.c_str(), number) && fuzz::Bytes(value) == same,
                  "all ways find a parameter");
    ParseParam(text.c_str(), name.c_str(), value, static_cast<int>(name.size()));
    for (const char* line = text.c_str(); line != nullptr; line = GetLine(line))
        fuzz::Require(line <= text.c_str() + text.size(), "lines end with the text");
}

void ConvertCodePage(const std::string& text, unsigned codePage) {
    TCString unicode;
    unicode.ToUnicode(text.data(), static_cast<int>(text.size()), codePage);
    const std::string units = fuzz::Bytes(unicode);
    fuzz::Require(units.size() % 2 == 0, "UTF-16 has two bytes a unit");
    TCString back;
    back.ToMultibyte(reinterpret_cast<const char16_t*>(static_cast<const char*>(unicode)),
                     static_cast<int>(units.size() / 2), codePage);
    TCString again;
    again.ToUnicode(back, back.GetLength(), codePage);
    // U+FFFD replaces what has no character, and most code pages lack it.
    const bool isLossy = codePage != 0 && codePage != 65001 && units.find("\xFD\xFF") != std::string::npos;
    fuzz::Require(fuzz::Bytes(again) == units || isLossy,
                  "Unicode survives the way through a code page that made it");
    TCString xml;
    fuzz::Require(XMLToUnicode(xml, text.c_str()) != nullptr, "every text is some Unicode");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr unsigned CODE_PAGES[] = {0, 65001, 1252, 932};
    fuzz::Parts parts(data, size);
    const std::string name = parts.Next();
    const unsigned codePage = CODE_PAGES[parts.NextInt(0, 3)];
    const std::string text = parts.Rest();
    Escape(text);
    EncodeUrl(text);
    Split(text, name);
    Look(text, name);
    ConvertCodePage(text, codePage);
    return 0;
}
