// The two forms of an archive: docs/archives.md quotes this file and what it prints.
#include <cstdio>

#include "sigweave/sigweave.h"

namespace {

struct Amplifier {
    std::int64_t gain = -2;

    bool Serialize(ArchiveParser& archive) { return archive.Integer(1, "gain", gain); }
};

}  // namespace

int main() {
    Amplifier amplifier;
    tc::ArchiveTree archive;  // is empty and stores
    amplifier.Serialize(archive);

    const std::string bytes = tc::WriteBinaryArchive(archive);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        std::printf("%02x%c", static_cast<unsigned>(static_cast<unsigned char>(bytes[i])),
                    i % 8 == 7 || i + 1 == bytes.size() ? '\n' : ' ');

    TCXML document;
    TCString xml;
    if (tc::WriteXmlArchive(archive, document) && document.GetNodeXML(document.GetDocument(), xml))
        std::printf("%s\n", static_cast<const char*>(xml));

    tc::ArchiveTree read;
    CString error;
    if (tc::ReadBinaryArchive(bytes, read, error)) amplifier.Serialize(read);  // loads
    return 0;
}
