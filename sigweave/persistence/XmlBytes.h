#pragma once

#include <string>
#include <string_view>

// The 8-bit texts of the library as texts of an XML document, and back. A document holds Unicode characters
// only, no control characters besides tab, line feed and carriage return, and nothing that is malformed. So a
// byte that it cannot hold becomes the private character U+10FE00 + byte; reading turns that into the
// byte again. Every text without zero bytes comes back the same.
namespace tc {

// The text, from the locale's character set, in the document's UTF-8. Answers `text` itself where nothing
// has to change, else a view of `buffer`.
std::string_view ToXmlText(std::string_view text, std::string& buffer);

// The way back. False, with what could be converted in `out`, when the locale's character set lacks a
// character.
bool FromXmlText(std::string_view text, std::string& out);

// The same for a whole document, where what cannot be held stays as it is: it is the document's mistake.
std::string_view ToUtf8(std::string_view text, std::string& buffer);

// Whether the way back would change nothing, because all bytes are plain ASCII.
bool IsPlainXmlText(std::string_view text);

}  // namespace tc
