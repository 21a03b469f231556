#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

#include "sigweave/persistence/XmlTree.h"

namespace tc {

// What is wrong with a document, and where: line and column count from 1, the position is in bytes.
struct XmlParseError {
    int code = 0;
    std::string reason;
    int line = 0;
    int column = 0;
    long position = 0;
    std::string source;  // the line, at most the 60 characters around the column
};

// Builds a tree from a text that comes in pieces. Nothing outside the text is ever opened, and the tree
// cannot grow beyond it: a document that refers to entities of its own is refused, default values of
// attributes are not filled in. Elements nested deeper than `MOST_LEVELS` or with more than `MOST_ATTRIBUTES`
// attributes are refused, and document types of over 64 KB. Texts may have any length up to 2 GB.
class XmlBuilder {
 public:
    // Without `keepBlanks`, text that is nothing but white space is left out; with `keepWholeBlanks` not
    // where it is all that an element holds. What is below an xml:space="preserve" is always kept.
    explicit XmlBuilder(bool keepBlanks, bool keepWholeBlanks = true);
    ~XmlBuilder();
    XmlBuilder(const XmlBuilder&) = delete;
    XmlBuilder& operator=(const XmlBuilder&) = delete;

    // False once the text is wrong; `GetError` then says why.
    bool Feed(std::string_view piece);
    // Feeds the next piece of the file. False at its end or when reading failed, too.
    bool FeedFrom(std::FILE& file);
    // After the last piece: the finished tree, or null.
    xmlDoc* Finish();
    const XmlParseError& GetError() const { return error; }
    // Empty before its start tag came.
    std::string_view RootName() const;

    // Called with each child element of the root when it is complete. The handler may take it out of the
    // tree.
    std::function<void(xmlNode*)> onChild;

 private:
    struct Events;
    void Parse(std::string_view piece, bool last);
    void RefuseSlow(std::string_view pending);
    void FailAttributes();
    void Fail(int code, std::string reason);
    void Note(const xmlError& record);
    void FlushText(bool atElementEnd);

    xmlParserCtxt* context;
    bool keepBlanks;
    bool keepWholeBlanks;
    bool keepsSomeBlanks = false;
    bool failed = false;
    std::string undecoded;  // why a text could not be decoded, until the engine has its input in order
    int level = 0;
    std::string filePiece;
    std::string text;
    bool textIsSection = false;
    XmlParseError error;
};

}  // namespace tc
