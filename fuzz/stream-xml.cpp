// TCXML::LoadXML, and TCIOStream::XMLToStream of what it read.
#include "fuzz/StreamLine.h"
#include "sigweave/persistence/TCXML.h"

namespace {

// The text of a unit holds powers of ten only, so with a `factor` a block may come back with another one.
void ReadBlocks(TCXML& document, bool factor) {
    fuzz::Line line;
    const int result = line.writer.XMLToStream(document);
    fuzz::Require(result == line.input.GetBlockCnt(nullptr) || result < 0,
                  "the answer is the number of blocks");
    fuzz::Require(result >= 0 || result == -4 || document.IsError(), "a failure has a message");
    if (line.input.GetBlockCnt(nullptr) == 0) return;
    fuzz::Show(line.input);
    TCXML written;
    fuzz::Line again;
    if (!line.input.StreamToXML(written, true, 0)) return;
    fuzz::Require(again.writer.XMLToStream(written) == 1, "what was written can be read");
    if (line.input.SerializeBlock(nullptr) < 0) return;  // an address cannot be packed
    fuzz::Require(fuzz::TakeFrame(again.input) == fuzz::TakeFrame(line.input) || factor, "and is the same");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    TCXML document;
    if (document.LoadXML(input.c_str()))
        ReadBlocks(document, input.find('*') != std::string::npos);
    else
        fuzz::Require(document.IsError(), "a failure has a message");
    return 0;
}
