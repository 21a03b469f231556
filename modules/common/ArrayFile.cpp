#include "modules/common/ArrayFile.h"

#include "modules/common/SharedSettings.h"
#include "sigweave/module/ModuleSignals.h"

ArrayFile::ArrayFile(int instance, const ArrayFileKind& fileKind)
    : TCBaseModuleEx(instance, fileKind.parameters), kind(fileKind) {
    DeclareSource();
    source.Declare(*portHelper);
}

std::unique_ptr<tc::ArrayReader> ArrayFile::Open(std::string& error) const {
    return kind.open(ParamText("file"), ParamText(kind.name), ParamChoice<tc::ARRAY_LAYOUTS>("channels"),
                     error);
}

bool ArrayFile::OnSettingsChanged(TCString& error) {
    std::string reason;
    const std::unique_ptr<tc::ArrayReader> probe = Open(reason);
    if (probe != nullptr)
        source.Set(*portHelper, probe->Facts(),
                   {ParamDbl("rate"), ParamText("unit"), ParamText("start"), ParamInt("block")}, reason);
    error = reason.c_str();
    return reason.empty();
}

void ArrayFile::CheckStart(TCStartCheck& check) {
    if (!source.Remark().empty()) check.Warn(source.Remark());
}

TCForetoldSignal ArrayFile::ForetellOutput(int output, std::span<const TCForetoldSignal>) {
    return source.Foretell(output);
}

int ArrayFile::Init() {
    std::string error;
    std::unique_ptr<tc::ArrayReader> opened = Open(error);
    if (opened == nullptr) return Fail(tc::MODULE_FAILED, error);
    if (!source.Fits(opened->Facts())) return Fail(tc::MODULE_FAILED, tc::HAS_CHANGED, {ParamText("file")});
    source.Begin(std::move(opened));
    failure.clear();
    return TCBaseModuleEx::Init();
}

// A failure has a step of its own after the last block: by then that has reached its receivers.
int ArrayFile::Execute() {
    if (!source.IsOver()) {
        const int code = source.Step(*portHelper, IsInterrupted(), failure);
        return failure.empty() ? code : 0;
    }
    portHelper->SetReadyFlag(false);
    return failure.empty() ? 0 : Fail(tc::MODULE_FAILED, failure);
}

int ArrayFile::Done() {
    source.End();
    return TCBaseModuleEx::Done();
}
