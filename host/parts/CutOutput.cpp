#include "host/parts/CutOutput.h"

namespace host {
namespace {

constexpr int TEXT_DIGITS = 9;  // as of other lines; no text form is made here

}  // namespace

CutOutput::Feed::Feed() {
    writer.AddOutputStream(relay.SetInputStream(TEXT_DIGITS));
}

// The receivers get the block as it is, whatever waits at them: the states were checked where it was written.
bool CutOutput::Feed::Give(const char* frame, int size) {
    if (writer.DeSerializeBlock(frame, size) != 1) return false;
    const bool all = Share(relay);
    relay.RemoveContents(true);
    return all;
}

bool CutOutput::Feed::Share(const TCIOStream& source) {
    const int count = source.GetBlockCnt(nullptr);
    bool all = true;
    for (TCIOStream* receiver : receivers) {
        const int before = receiver->GetBlockCnt(nullptr);
        all = receiver->CopyBlockRefs(source) == before + count && all;
    }
    return all;
}

CutOutput::CutOutput() {
    sink.SetInputStream(TEXT_DIGITS);
}

bool CutOutput::Take(std::vector<char>& frame) {
    const int size = sink.SerializeBlock(nullptr);
    if (size <= 0) return false;
    frame.resize(static_cast<std::size_t>(size));
    return sink.SerializeBlock(frame.data()) == size;
}

}  // namespace host
