#include "modules/mat-file/MatFile.h"

#include "modules/common/SharedSettings.h"
#include "modules/mat-file/MatReader.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"

namespace {

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "file",
     .kind = TCModuleParameter::FILE,
     .defaultValue = nullptr,
     .help = {"the file to read", "die zu lesende Datei"},
     .label = {"File", "Datei"},
     .group = tc::ARRAY_GROUP,
     .fileFilter = "*.mat"},
    {.name = "variable",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help = {"its name; empty: the only one, or samples", "Name; leer: der einzige Name, oder samples"},
     .label = {"Variable", "Variable"},
     .group = tc::ARRAY_GROUP},
    tc::ARRAY_LAYOUT_PARAMETER,
    tc::ARRAY_UNIT_PARAMETER,
    tc::ARRAY_RATE_PARAMETER,
    tc::BLOCK_PARAMETER,
    tc::ARRAY_START_PARAMETER,
};

}  // namespace

MatFile::MatFile(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclareSource();
    source.Declare(*portHelper);
}

std::unique_ptr<tc::ArrayReader> MatFile::Open(std::string& error) const {
    return OpenMat(ParamText("file"), ParamText("variable"), ParamChoice<tc::ARRAY_LAYOUTS>("channels"),
                   error);
}

bool MatFile::OnSettingsChanged(TCString& error) {
    std::string reason;
    const std::unique_ptr<tc::ArrayReader> probe = Open(reason);
    if (probe != nullptr)
        source.Set(*portHelper, probe->Facts(),
                   {ParamDbl("rate"), ParamText("unit"), ParamText("start"), ParamInt("block")}, reason);
    error = reason.c_str();
    return reason.empty();
}

void MatFile::CheckStart(TCStartCheck& check) {
    if (!source.Remark().empty()) check.Warn(source.Remark());
}

TCForetoldSignal MatFile::ForetellOutput(int output, std::span<const TCForetoldSignal>) {
    return source.Foretell(output);
}

int MatFile::Init() {
    std::string error;
    std::unique_ptr<tc::ArrayReader> opened = Open(error);
    if (opened == nullptr) return Fail(tc::MODULE_FAILED, error);
    if (!source.Fits(opened->Facts())) return Fail(tc::MODULE_FAILED, tc::HAS_CHANGED, {ParamText("file")});
    source.Begin(std::move(opened));
    failure.clear();
    return TCBaseModuleEx::Init();
}

// A step of its own after the last block: by then that has reached its receivers.
int MatFile::Execute() {
    if (!source.IsOver()) return Finish(source.Step(*portHelper, IsInterrupted(), failure));
    portHelper->SetReadyFlag(false);
    return failure.empty() ? 0 : Fail(tc::MODULE_FAILED, failure);
}

int MatFile::Finish(int code) {
    return failure.empty() ? code : 0;
}

int MatFile::Done() {
    source.End();
    return TCBaseModuleEx::Done();
}

TC_MODULE_LIBRARY(MatFile);
