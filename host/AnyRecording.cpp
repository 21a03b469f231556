#include "host/AnyRecording.h"

#include <filesystem>
#include <fstream>

#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

// Whether it begins as an XML document does. What can be read once only counts as one.
bool IsDocument(const std::string& file) {
    std::error_code ignored;
    const auto type = std::filesystem::status(file, ignored).type();
    if (type == std::filesystem::file_type::directory || type == std::filesystem::file_type::not_found)
        return false;
    if (type != std::filesystem::file_type::regular) return true;
    std::ifstream input(file, std::ios::binary);
    constexpr int BYTE_ORDER_MARK = 0xEF;
    char first = ' ';
    if (input.peek() == BYTE_ORDER_MARK) input.ignore(3);
    input >> first;
    return first == '<';
}

}  // namespace

std::string WhyNotPacked(const std::string& file, const std::string& reason) {
    std::error_code ignored;
    tc::StreamRecordReader reader;
    if (!std::filesystem::is_regular_file(file, ignored) || !IsDocument(file) || !reader.Open(file.c_str()))
        return reason;
    return tc::Bilingual(
               "%1 is an XML recording, and this command takes those of the module Recorder; XmlPlayer plays "
               "it, also into a Recorder",
               "%1 ist eine XML-Aufzeichnung, und dieser Befehl nimmt die des Moduls Recorder; XmlPlayer "
               "spielt sie ab, auch in einen Recorder")
        .With({file});
}

bool AnyRecording::Open(const std::string& file) {
    packed = nullptr;
    xml = std::make_unique<tc::StreamRecordReader>();
    if (xml->Open(file.c_str())) return true;
    auto reader = std::make_unique<tc::RecordingReader>();
    if (!reader->Open(file.c_str())) {
        error = IsDocument(file) ? xml->GetError() : reader->GetError();
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
