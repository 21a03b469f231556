#include "host/AnyRecording.h"

namespace host {

// What is neither is a damaged document, as far as its message goes.
bool AnyRecording::Open(const std::string& file) {
    packed = nullptr;
    xml = std::make_unique<tc::StreamRecordReader>();
    if (xml->Open(file.c_str())) return true;
    auto reader = std::make_unique<tc::RecordingReader>();
    if (!reader->Open(file.c_str())) {
        error = xml->GetError();
        return false;
    }
    xml = nullptr;
    packed = std::move(reader);
    return true;
}

int AnyRecording::CountSignals() const {
    return packed != nullptr ? static_cast<int>(packed->GetSignals().size()) : 1;
}

std::string AnyRecording::SignalName(int signal) const {
    return packed != nullptr ? Signal(signal).name : "";
}

std::string AnyRecording::TypeString(int signal) const {
    return packed != nullptr ? Signal(signal).type : xml->GetTypeString();
}

int AnyRecording::CountItems(int signal) const {
    return packed != nullptr ? Signal(signal).items : xml->GetItemCount();
}

std::int64_t AnyRecording::CountBlocks(int signal) const {
    return packed != nullptr ? Signal(signal).blocks : -1;
}

int AnyRecording::Next() {
    const int read = packed != nullptr ? packed->Next() : xml->Next();
    if (read < 0) error = packed != nullptr ? packed->GetError() : xml->GetError();
    return read;
}

int AnyRecording::Find(int signal, std::int64_t number) {
    if (packed == nullptr) return Next();
    if (number > CountBlocks(signal)) return 0;
    const int read = Next();
    if (read < 0 || (read > 0 && GetSignal() == signal && GetBlockNumber() == number)) return read;
    if (!packed->Seek(signal, number)) return 0;
    return Next();
}

std::int64_t AnyRecording::GetBlockNumber() const {
    return packed != nullptr ? packed->GetBlockNumber() : xml->GetBlockNumber();
}

}  // namespace host
