// A recording of packed frames: what can be read of it is found by index and by scan alike, can be sought,
// and is recorded again bit for bit; and Player plays it.
#include <vector>

#include "fuzz/ModuleRun.h"
#include "fuzz/Scratch.h"
#include "fuzz/StreamLine.h"
#include "modules/player/Player.h"
#include "sigweave/recording/RecordingReader.h"
#include "sigweave/recording/RecordingWriter.h"

namespace {

using tc::RecordingReader;

struct Content {
    bool isOpen = false;
    std::vector<std::string> frames;
};

Content Read(const std::string& path, RecordingReader::Opening opening) {
    Content content;
    RecordingReader reader;
    content.isOpen = reader.Open(path.c_str(), opening);
    if (!content.isOpen) {
        fuzz::Require(reader.GetError().find(path) != std::string::npos, "a file is refused by its name");
        return content;
    }
    for (int read = 0; (read = reader.Next()) != 0;) {
        if (read < 0) {
            fuzz::Require(!reader.Describe(reader.GetDamages().back()).empty(), "what is lost is said");
            continue;
        }
        fuzz::Line line;
        fuzz::Require(line.writer.WriteCopy(&reader.GetBlock()) >= 0, "a block that was read can be sent on");
        fuzz::Show(line.input);
        content.frames.push_back(fuzz::TakeFrame(line.input));
    }
    for (int signal = 0; signal < static_cast<int>(reader.GetSignals().size()); ++signal)
        for (const std::int64_t wanted : {1, 2, 1000})
            if (reader.Seek(signal, wanted) || reader.SeekSample(signal, wanted)) reader.Next();
    return content;
}

// What was read can be recorded, and is the same again.
void RecordAgain(const Content& content) {
    const std::string path = fuzz::ScratchFile("again.mcap");
    {
        tc::RecordingWriter writer;
        bool isWritten = writer.Prepare(path.c_str(), true);
        writer.AddSignal("Signal", nullptr, 0);
        isWritten = isWritten && writer.Begin({});
        for (const std::string& frame : content.frames) {
            fuzz::Line line;
            fuzz::Require(line.writer.DeSerializeBlock(frame.data(), static_cast<int>(frame.size())) == 1,
                          "a frame can be read");
            isWritten = isWritten && writer.Append(0, line.input);
        }
        fuzz::Require(isWritten && writer.Close(), "blocks that were read can be recorded");
    }
    const Content again = Read(path, RecordingReader::Opening::BY_INDEX);
    fuzz::Require(again.isOpen && again.frames == content.frames, "a recording comes back bit for bit");
}

void Play(const std::string& path) {
    fuzz::ModuleRun<Player> run;
    if (!run.Set("file=" + path + "\r\n")) return;
    run.WireOutputs(1);
    run.Play(1 << 20);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string path = fuzz::WriteScratch("take.mcap", {reinterpret_cast<const char*>(data), size});
    const Content byIndex = Read(path, RecordingReader::Opening::BY_INDEX);
    const Content byScan = Read(path, RecordingReader::Opening::BY_SCAN);
    fuzz::Require(byIndex.isOpen == byScan.isOpen && byIndex.frames == byScan.frames,
                  "an index changes nothing of what is read");
    if (byIndex.isOpen) Play(path);
    if (!byIndex.frames.empty()) RecordAgain(byIndex);
    return 0;
}
