#include "modules/hdf5-file/Hdf5File.h"

#include "modules/common/SharedSettings.h"
#include "modules/hdf5-file/Hdf5Reader.h"
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
     .fileFilter = "*.h5|*.hdf5|*.he5"},
    {.name = "dataset",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help = {"its name; empty: the only one, or samples", "Name; leer: der einzige Name, oder samples"},
     .label = {"Dataset", "Datensatz"},
     .group = tc::ARRAY_GROUP},
    tc::ARRAY_LAYOUT_PARAMETER,
    tc::ARRAY_UNIT_PARAMETER,
    tc::ARRAY_RATE_PARAMETER,
    tc::BLOCK_PARAMETER,
    tc::ARRAY_START_PARAMETER,
};

}  // namespace

Hdf5File::Hdf5File(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclareSource();
    source.Declare(*portHelper);
}

std::unique_ptr<tc::ArrayReader> Hdf5File::Open(std::string& error) const {
    return OpenHdf5(ParamText("file"), ParamText("dataset"), ParamChoice<tc::ARRAY_LAYOUTS>("channels"),
                    error);
}

bool Hdf5File::OnSettingsChanged(TCString& error) {
    std::string reason;
    const std::unique_ptr<tc::ArrayReader> probe = Open(reason);
    if (probe != nullptr)
        source.Set(*portHelper, probe->Facts(),
                   {ParamDbl("rate"), ParamText("unit"), ParamText("start"), ParamInt("block")}, reason);
    error = reason.c_str();
    return reason.empty();
}

void Hdf5File::CheckStart(TCStartCheck& check) {
    if (!source.Remark().empty()) check.Warn(source.Remark());
}

TCForetoldSignal Hdf5File::ForetellOutput(int output, std::span<const TCForetoldSignal>) {
    return source.Foretell(output);
}

int Hdf5File::Init() {
    std::string error;
    std::unique_ptr<tc::ArrayReader> opened = Open(error);
    if (opened == nullptr) return Fail(tc::MODULE_FAILED, error);
    if (!source.Fits(opened->Facts())) return Fail(tc::MODULE_FAILED, tc::HAS_CHANGED, {ParamText("file")});
    source.Begin(std::move(opened));
    failure.clear();
    return TCBaseModuleEx::Init();
}

// A step of its own after the last block: by then that has reached its receivers.
int Hdf5File::Execute() {
    if (!source.IsOver()) return Finish(source.Step(*portHelper, IsInterrupted(), failure));
    portHelper->SetReadyFlag(false);
    return failure.empty() ? 0 : Fail(tc::MODULE_FAILED, failure);
}

int Hdf5File::Finish(int code) {
    return failure.empty() ? code : 0;
}

int Hdf5File::Done() {
    source.End();
    return TCBaseModuleEx::Done();
}

TC_MODULE_LIBRARY(Hdf5File);
