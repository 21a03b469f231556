#include "python/src/Recording.h"

#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/forms/StreamRecord.h"

namespace python {
namespace {

using tc::Bilingual;

bool Ends(const TCTypeInfo* info) {
    return info == nullptr || info->GetState() == STOP || info->GetState() == COMPLETE ||
           info->GetState() == INVALID;
}

}  // namespace

Recording ReadRecording(const std::string& path) {
    Recording recording;
    recording.track.byName = true;
    tc::StreamRecordReader reader;
    if (!reader.Open(path.c_str())) {
        recording.error = reader.GetError();
        return recording;
    }
    recording.track.SetSpectrum(reader.GetTypeString().find("{FREQ_DOMAIN}") != std::string::npos);
    bool ended = true;
    int code = 0;
    while ((code = reader.Next()) > 0) {
        ended = Ends(reader.GetBlock().GetTI());
        recording.track.Append(reader.GetBlock());
        ++recording.blocks;
    }
    if (code < 0)
        recording.missing = reader.GetError();
    else if (!ended)
        recording.missing =
            Bilingual(
                "%1: the signal goes on after its last block (%2): the recording was ended before its "
                "signal, or is still being written",
                "%1: das Signal geht nach dem letzten Block (%2) weiter: die Aufzeichnung endete vor "
                "ihrem Signal, oder sie wird noch geschrieben")
                .With({path, std::to_string(recording.blocks)});
    return recording;
}

}  // namespace python
