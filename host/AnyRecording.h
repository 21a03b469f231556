#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "sigweave/recording/RecordingReader.h"
#include "sigweave/signal/forms/StreamRecord.h"

namespace host {

// Why a file is no packed recording: the reason given, unless it is one of the other kind.
std::string WhyNotPacked(const std::string& file, const std::string& reason);

// A recording of either kind: XML documents have one signal, which has no name of its own.
class AnyRecording {
 public:
    // False with the reason in `GetError`, which names the file.
    bool Open(const std::string& file);
    int CountSignals() const;
    std::string SignalName(int signal) const;
    // The type string of the recorded port, and its number of items; empty and 0 when they are not known.
    std::string TypeString(int signal) const;
    int CountItems(int signal) const;

    // The next block of any signal: 1 when there was one, 0 at the end, -1 when something is lost there.
    int Next();
    // That block of the signal, counted from 1. Quick when it is the next one.
    int Find(int signal, std::int64_t number);
    int GetSignal() const { return packed != nullptr ? packed->GetSignal() : 0; }
    std::int64_t GetBlockNumber() const;
    TCIOStream::Block& GetBlock() { return packed != nullptr ? packed->GetBlock() : xml->GetBlock(); }
    // The number of the signal's last block; -1 when that is not known before the end.
    std::int64_t CountBlocks(int signal) const;
    const std::string& GetError() const { return error; }

 private:
    const tc::RecordingSignal& Signal(int signal) const {
        return packed->GetSignals()[static_cast<std::size_t>(signal)];
    }

    std::unique_ptr<tc::RecordingReader> packed;  // one of these
    std::unique_ptr<tc::StreamRecordReader> xml;
    std::string error;
};

}  // namespace host
