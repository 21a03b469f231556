// TCTypeInfo out of an archive, and the name of a state.
#include <sstream>

#include "fuzz/Fuzz.h"
#include "sigweave/platform/Archive.h"
#include "sigweave/signal/TCTypeInfo.h"

namespace {

bool Load(TCTypeInfo& ti, const std::string& text) {
    std::istringstream stream(text);
    CArchive archive(stream);
    try {
        ti.Serialize(archive);
        return true;
    } catch (const CArchiveException& failure) {
        fuzz::Require(failure.m_cause == CArchiveException::endOfFile, "a failure has its cause");
        return false;
    }
}

std::string Store(TCTypeInfo& ti) {
    std::ostringstream stream;
    CArchive archive(stream);
    ti.Serialize(archive);
    return stream.str();
}

void CheckPacked(const TCTypeInfo& ti) {
    const int size = ti.SerializeWithStatus(nullptr);
    TCString record;
    record.AllocCopy(std::string(static_cast<std::size_t>(size), '\0'));
    fuzz::Require(ti.SerializeWithStatus(record.GetBuffer(size)) == size, "a record has its size");
    record.ReleaseBuffer(size);
    TCTypeInfo read;
    read.DeSerializeWithStatus(record);
    std::string again(static_cast<std::size_t>(size), '\0');
    fuzz::Require(read.SerializeWithStatus(again.data()) == size && again == fuzz::Bytes(record),
                  "a record is written the same again");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    TCTypeInfo ti;
    const bool isRead = Load(ti, text);
    fuzz::Require(ti.ConvertToString(-1).GetLength() > 0, "metadata can be shown");
    fuzz::Require(ti.ConvertToString(10).GetLength() <= 12, "and cut");
    CheckPacked(ti);
    TCTypeInfo::StringToBlockState(text.c_str());
    if (!isRead) return 0;
    ti.GetUnit().clear();  // what comes back of a unit is a matter of unit-text
    const std::string stored = Store(ti);
    // A carriage return at the end of a name becomes a part of the line's end.
    if (stored.find("\r\n") != std::string::npos) return 0;
    TCTypeInfo again;
    fuzz::Require(Load(again, stored), "what is stored can be read");
    fuzz::RequireSame(Store(again), stored, "and is stored the same again");
    return 0;
}
