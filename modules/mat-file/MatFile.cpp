#include "modules/mat-file/MatFile.h"

#include "modules/mat-file/MatReader.h"
#include "sigweave/module/ModuleLibrary.h"

namespace {

constexpr auto PARAMETERS = tc::ArrayFileParameters("*.mat", "variable", {"Variable", "Variable"});

constexpr ArrayFileKind KIND = {
    .id = MatFile::ID,
    .description = {"Reads a variable of a MAT file", "Liest eine Variable einer MAT-Datei"},
    .parameters = PARAMETERS,
    .name = "variable",
    .open = OpenMat};

}  // namespace

MatFile::MatFile(int instance) : ArrayFile(instance, KIND) {}

TC_MODULE_LIBRARY(MatFile);
