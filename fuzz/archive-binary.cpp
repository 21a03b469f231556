// The binary form of an archive: as it comes, and with its checksums made right, so that the items are
// reached.
#include <array>
#include <cstring>

#include "fuzz/Fuzz.h"
#include "sigweave/persistence/ArchiveBinary.h"

namespace {

std::uint32_t Checksum(std::string_view bytes) {
    std::uint32_t sum = ~0u;
    for (const char byte : bytes) {
        sum ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit) sum = (sum >> 1) ^ ((sum & 1) != 0 ? 0xEDB88320u : 0);
    }
    return ~sum;
}

void Put(std::string& bytes, std::size_t at, std::uint32_t value) {
    std::memcpy(bytes.data() + at, &value, sizeof value);
}

// One record, whose item is the input.
std::string Wrap(const std::string& item) {
    std::string bytes = "SWARCHIV";
    bytes.resize(32);
    Put(bytes, 8, 1);
    Put(bytes, 12, 1);
    Put(bytes, 16, Checksum(bytes.substr(0, 16)));
    Put(bytes, 20, static_cast<std::uint32_t>(item.size()));
    Put(bytes, 24, Checksum(bytes.substr(20, 4)));
    Put(bytes, 28, Checksum(item));
    return bytes + item;
}

void Read(const std::string& bytes) {
    tc::ArchiveTree archive;
    CString error;
    if (!tc::ReadBinaryArchive(bytes, archive, error))
        return fuzz::Require(!error.empty(), "a failure has a message");
    const std::string written = tc::WriteBinaryArchive(archive);
    tc::ArchiveTree again;
    fuzz::Require(tc::ReadBinaryArchive(written, again, error), "what was written can be read");
    fuzz::RequireSame(tc::WriteBinaryArchive(again), written, "and is written the same again");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    Read(bytes);
    Read(Wrap(bytes));
    return 0;
}
