#include "sigweave/signal/forms/StreamRecord.h"

#include <charconv>

#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/forms/BlockType.h"
#include "sigweave/signal/forms/StreamRecordExact.h"

namespace tc {
namespace {

using Block = TCIOStream::Block;

constexpr const char* ROOT = "Stream";
constexpr const char* BLOCK_PATH = "Stream/Block";
constexpr const char* TYPE_PATH = "Stream/Port/Type";
constexpr const char* ITEMS = "Items";

constexpr tc::Bilingual HOLDS_ADDRESSES(
    "the block holds addresses, which mean nothing outside the program",
    "der Block enthält Adressen, die außerhalb des Programms nichts bedeuten");
constexpr tc::Bilingual WRONG_TYPE(
    "Error interpreting Type in Port: its text is the type string, its attribute Items the number of items",
    "Error interpreting Type in Port: Sein Text ist der Typ, sein Attribut Items die Zahl der Elemente");
constexpr tc::Bilingual CANNOT_BE_MADE(
    "a segment's Length or DataType is none or does not fit its values, or its name is not the only one",
    "Length oder DataType eines Segments ist keiner oder passt nicht zu den Werten, oder der Name kommt "
    "zweimal "
    "vor");

// The message of a segment that cannot be made does not say why.
std::string Explain(const std::string& message) {
    if (!message.ends_with("Error at SetData")) return message;
    return message + ": " + CANNOT_BE_MADE.Text();
}

}  // namespace

// --- Writing

bool StreamRecordWriter::Open(const char* newPath, const char* typeString, int itemCount) {
    return Prepare(newPath, true) && Begin(typeString, itemCount);
}

bool StreamRecordWriter::Prepare(const char* newPath, bool mayReplace) {
    path = newPath;
    return file.Prepare(newPath, ROOT, mayReplace) || Fail(file.GetError());
}

bool StreamRecordWriter::Begin(const char* typeString, int itemCount) {
    if (!file.Begin()) return Fail(file.GetError());
    return typeString == nullptr || itemCount <= 0 || AppendType(typeString, itemCount);
}

bool StreamRecordWriter::AppendType(const char* typeString, int itemCount) {
    if (!xml.LoadXML("<Stream/>")) return Fail(std::string(xml.GetError()));
    const TCXMLNode port = xml.CreateElement("Port", xml.SelectSingleNode("/*"));
    const TCXMLNode type = xml.CreateElement("Type", port);
    if (!type || !xml.SetAttribute(type, ITEMS, std::to_string(itemCount).c_str()) ||
        !xml.SetNodeText(type, TCXML::QuoteNodeTextString(TCString(typeString))))
        return Fail(std::string(xml.GetError()));
    return file.Append(xml) || Fail(file.GetError());
}

// The document is made before the block is taken, because the stream then lets go of it.
bool StreamRecordWriter::Append(TCIOStream& input) {
    Block* block = nullptr;
    const bool made = input.StreamToXML(xml, true, 0);
    if (input.ExchangeBinary(&block, true) != 1)
        return Fail(tc::Bilingual("no block is waiting", "es wartet kein Block").Text());
    std::string reason;
    if (HoldsAddress(*block))
        reason = HOLDS_ADDRESSES.Text();
    else if (!made || !KeepExactly(xml, xml.SelectSingleNode(BLOCK_PATH), *block))
        reason = std::string(xml.GetError());
    else if (!file.Append(xml))
        reason = file.GetError();
    input.ExchangeBinary(&block, false);
    return reason.empty() || Fail(reason);
}

bool StreamRecordWriter::Close() {
    return file.Close() || Fail(file.GetError());
}

bool StreamRecordWriter::Fail(const std::string& reason) {
    error = path + ": " + reason;
    return false;
}

// --- Reading

StreamRecordReader::StreamRecordReader() {
    writer.AddOutputStream(queue.SetInputStream(0));
}

StreamRecordReader::~StreamRecordReader() {
    queue.ExchangeBinary(&block, false);
}

bool StreamRecordReader::Open(const char* newPath) {
    path = newPath;
    number = 0;
    waiting = failed = false;
    typeString.clear();
    itemCount = 0;
    error.clear();
    if (!file.Open(newPath, ROOT)) return Fail(file.GetError()) > 0;
    const int read = Read();
    waiting = read == 1;
    if (waiting && typeString.empty()) {
        BlockType type = TypeOf(*block);
        typeString = std::move(type.text);
        itemCount = type.items;
    }
    return read >= 0;
}

int StreamRecordReader::Next() {
    if (failed) return -1;
    if (!waiting) return Read();
    waiting = false;
    return 1;
}

int StreamRecordReader::Read() {
    for (;;) {
        const int part = file.Next(xml);
        if (part < 0) ++number;  // it is the block after the last one that cannot be read
        if (part <= 0) return part < 0 ? Fail(file.GetError()) : 0;
        const TCXMLNode node = xml.SelectSingleNode(BLOCK_PATH);
        if (node) {
            ++number;
            return Take();
        }
        if (!ReadType()) return -1;
    }
}

// Into a new block: one that is used again would keep the order and the names of its segments.
int StreamRecordReader::Take() {
    queue.ExchangeBinary(&block, false);
    writer.DeleteStreams();
    writer.AddOutputStream(&queue);
    const int result = writer.XMLToStream(xml);
    if (xml.IsError()) return Fail(Explain(std::string(xml.GetError())));
    if (result != 1 || queue.ExchangeBinary(&block, true) != 1)
        return Fail(tc::Bilingual("the block cannot be made (%1)", "der Block lässt sich nicht erzeugen (%1)")
                        .With({std::to_string(result)}));
    if (HoldsAddress(*block)) return Fail(HOLDS_ADDRESSES.Text());
    return RestoreExactly(xml, xml.SelectSingleNode(BLOCK_PATH), *block) ? 1
                                                                         : Fail(std::string(xml.GetError()));
}

// Of a part that is no block; others than the port are passed over.
bool StreamRecordReader::ReadType() {
    const TCXMLNode node = xml.SelectSingleNode(TYPE_PATH);
    const TCXMLNode items = xml.SelectSingleNode("Stream/Port/Type/@Items");
    if (!node || number > 0) return true;
    TCString text;
    TCString count;
    const bool read = xml.GetNodeText(node, text) && TCXML::UnquoteNodeTextString(text) && items &&
                      xml.GetNodeText(items, count);
    const std::string_view digitsText(count, static_cast<std::size_t>(count.GetLength()));
    const auto digits = std::from_chars(digitsText.data(), digitsText.data() + digitsText.size(), itemCount);
    const bool isNumber = digits.ec == std::errc() && digits.ptr == digitsText.data() + digitsText.size();
    if (!read || !isNumber || itemCount < 1 || itemCount > text.GetLength() / 2) {
        Fail(WRONG_TYPE.Text());
        return false;
    }
    typeString = std::string(text);
    return true;
}

int StreamRecordReader::Fail(const std::string& reason) {
    failed = true;
    error = (path.empty() ? "''" : path) + ": " +
            (number > 0 ? tc::Bilingual("block %1: ", "Block %1: ").With({std::to_string(number)}) : "") +
            reason;
    return -1;
}

}  // namespace tc
