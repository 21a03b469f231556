#include "modules/common/Recording.h"

#include <filesystem>

#include "sigweave/module/ModuleSignals.h"
#include "sigweave/module/TCValidateActualPortType.h"
#include "sigweave/platform/ReplacedFile.h"
#include "sigweave/services/Bilingual.h"

namespace tc {

std::string WhyNotRecorded(TCPortHelper& ports, unsigned input) {
    constexpr TCPortHelper::TYPE ADDRESSES = TCPortHelper::TYPE_POINTER | TCPortHelper::TYPE_POINTERARRAY;
    constexpr TCPortHelper::TYPE MATRICES = TCPortHelper::TYPE_SWORDMATRIX | TCPortHelper::TYPE_DOUBLEMATRIX;
    if (ports.DoesDataTypeMatch(INPUT, input, ADDRESSES) && !ports.DoesDataTypeMatch(INPUT, input, MATRICES))
        return Bilingual(
                   "%1: delivers addresses, which mean nothing in a file; wire it to values",
                   "%1: liefert Adressen, die in einer Datei nichts bedeuten; verbinden Sie den Eingang mit "
                   "Werten")
            .With({std::string(ports.GetPortName(INPUT, input))});
    return "";
}

std::string WhyNotRecordFile(const std::string& file, bool mayReplace) {
    std::error_code ignored;
    const std::filesystem::file_status status = std::filesystem::status(file, ignored);
    const bool exists = std::filesystem::exists(status);
    if (exists && (!std::filesystem::is_regular_file(status) || IsStandardStream(file)))
        return Bilingual(
                   "file: %1 is not an ordinary file, which a recording needs; name another one",
                   "file: %1 ist keine gewöhnliche Datei, eine Aufzeichnung braucht aber eine; nennen Sie "
                   "eine andere")
            .With({file});
    if (exists && !mayReplace) return "file: " + ThereAlready(file);
    const std::string unwritable = WhyNotWritable(file, FileWriting::InPlace);
    return unwritable.empty() ? "" : "file: " + unwritable;
}

void EndSignal(TCIOStream::Block& block) {
    if (block.GetTI() != nullptr) {
        TCTypeInfo ti = *block.GetTI();
        ti.SetState(BlockState(BeginsSignal(ti.GetState()), true));
        block.SetTI(&ti);
    }
    for (int i = 0; i < block.SegmentCnt(); ++i) {
        const TCIOStream::DataSegment& segment = *block.Segment(i);
        if (segment.GetBlocks() != nullptr && segment.GetElementCount() > 0)
            EndSignal(*segment.GetBlocks()[segment.GetElementCount() - 1]);
    }
}

bool BreaksOff(const TCIOStream::Block& block) {
    if (block.GetTI() != nullptr && !EndsSignal(block.GetTI()->GetState())) return true;
    for (int i = 0; i < block.SegmentCnt(); ++i) {
        const TCIOStream::DataSegment& segment = *block.Segment(i);
        if (segment.GetBlocks() != nullptr && segment.GetElementCount() > 0 &&
            BreaksOff(*segment.GetBlocks()[segment.GetElementCount() - 1]))
            return true;
    }
    return false;
}

void DeclareRecordedOutput(TCPortHelper& ports, unsigned output, const TCString& name,
                           const std::string& type, int itemCount) {
    TCValidateActualPortType items;
    items.FillValidation(itemCount, type.c_str());
    TCString token;
    TCString declarator;
    int item = 0;
    items.GetInternalToken(item, token, declarator);
    const bool withTypeInfo = token == "TYPEINFO" && itemCount > 1;
    if (withTypeInfo) items.GetInternalToken(++item, token, declarator);
    if (item + 1 == itemCount) {
        ports.SetPort(OUTPUT, output, name, token, declarator, withTypeInfo);
        return;
    }
    const unsigned multitype = ports.SetPort(OUTPUT, output, name, "MultiType", "", withTypeInfo);
    for (; items.GetInternalToken(item, token, declarator); ++item)
        ports.AddMultitype(multitype, token, declarator);
}

}  // namespace tc
