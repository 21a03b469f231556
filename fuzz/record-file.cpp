// A recording: what can be read of it can be recorded again and comes back the same, and XmlPlayer plays it.
#include <vector>

#include "fuzz/ModuleRun.h"
#include "fuzz/Scratch.h"
#include "fuzz/StreamLine.h"
#include "modules/xml-player/XmlPlayer.h"
#include "sigweave/signal/forms/StreamRecord.h"

namespace {

struct Recording {
    bool isOpen = false;
    bool isWhole = false;
    std::string type;
    int items = 0;
    std::vector<std::string> frames;
};

void Send(TCIOStream::Block& block, fuzz::Line& line) {
    fuzz::Require(line.writer.WriteCopy(&block) >= 0, "a block that was read can be sent on");
}

Recording Read(const std::string& path) {
    Recording recording;
    tc::StreamRecordReader reader;
    recording.isOpen = reader.Open(path.c_str());
    recording.type = reader.GetTypeString();
    recording.items = reader.GetItemCount();
    int read = 0;
    while (recording.isOpen && (read = reader.Next()) > 0) {
        fuzz::Line line;
        Send(reader.GetBlock(), line);
        fuzz::Show(line.input);
        recording.frames.push_back(fuzz::TakeFrame(line.input));
        fuzz::Require(reader.GetBlockNumber() == std::ssize(recording.frames), "blocks are counted from 1");
    }
    recording.isWhole = recording.isOpen && read == 0;
    fuzz::Require(recording.isWhole || reader.GetError().find(path) != std::string::npos,
                  "a recording is refused by its name");
    return recording;
}

std::string Record(const Recording& recording) {
    const std::string path = fuzz::ScratchFile("again.xml");
    tc::StreamRecordWriter writer;
    bool isWritten = writer.Open(path.c_str(), recording.type.c_str(), recording.items);
    for (const std::string& frame : recording.frames) {
        fuzz::Line line;
        fuzz::Require(line.writer.DeSerializeBlock(frame.data(), static_cast<int>(frame.size())) == 1,
                      "a frame can be read");
        isWritten = isWritten && writer.Append(line.input);
    }
    fuzz::Require(isWritten && writer.Close(), "blocks that were read can be recorded");
    return path;
}

void Play(const std::string& path, const Recording& recording) {
    fuzz::ModuleRun<XmlPlayer> run;
    const bool isSet = run.Set("file=" + path + "\r\n");
    fuzz::Require(isSet == (recording.isOpen && recording.items > 0), "the player takes what can be read");
    if (!isSet) return;
    run.WireOutputs(1);
    run.Play(1 << 20);
    fuzz::Require(run.Blocks() <= std::ssize(recording.frames), "and plays its blocks");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string path = fuzz::WriteScratch("record.xml", {reinterpret_cast<const char*>(data), size});
    const Recording recording = Read(path);
    Play(path, recording);
    if (recording.frames.empty()) return 0;
    const Recording again = Read(Record(recording));
    fuzz::Require(again.isWhole && again.frames == recording.frames, "a recording comes back bit for bit");
    fuzz::RequireSame(again.type, recording.type, "with its type");
    return 0;
}
