// The XML form of an archive, and from it the binary form.
#include "fuzz/Fuzz.h"
#include "sigweave/persistence/ArchiveBinary.h"
#include "sigweave/persistence/ArchiveXml.h"
#include "sigweave/persistence/TCXML.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    TCXML document;
    if (!document.LoadXML(std::string(reinterpret_cast<const char*>(data), size).c_str())) return 0;
    tc::ArchiveTree archive;
    if (!tc::ReadXmlArchive(document, archive)) {
        fuzz::Require(document.IsError(), "a failure has a message");
        return 0;
    }
    TCXML written;
    fuzz::Require(tc::WriteXmlArchive(archive, written), "an archive that was read can be written");
    tc::ArchiveTree again;
    fuzz::Require(tc::ReadXmlArchive(written, again), "and read again");
    const std::string binary = tc::WriteBinaryArchive(archive);
    fuzz::RequireSame(tc::WriteBinaryArchive(again), binary, "and is the same");
    CString error;
    fuzz::Require(tc::ReadBinaryArchive(binary, again, error), "in the other form too");
    return 0;
}
