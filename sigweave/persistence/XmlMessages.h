#pragma once

#include <cstdarg>

#include "sigweave/foundation/TCString.h"

// What an operation on a document says when it failed, in the language in use.
namespace tc {

struct XmlParseError;

// Which message; the numbers stay.
enum XmlMessage {
    NOT_CREATED = 0,
    NOT_OPENED = 5,
    NOT_PARSED = 6,
    NOT_LOADED = 7,
    NO_SINGLE_NODE = 8,
    NO_NODES = 9,
    NO_NEXT_NODE = 10,
    NO_TYPE = 11,
    NO_NAME = 12,
    NO_VALUE = 13,
    NO_TEXT = 14,
    NO_XML = 15,
    NO_ELEMENT = 16,
    NOT_APPENDED = 17,
    TEXT_NOT_SET = 18,
    NOT_SAVED = 19,
    ATTRIBUTE_NOT_SET = 20
};

// With the inserts that the message has.
TCString FormatXmlMessageV(int message, va_list inserts);
TCString FormatXmlMessage(int message, ...);
// The message `NOT_PARSED`.
TCString FormatXmlMessage(const XmlParseError& error);

}  // namespace tc
