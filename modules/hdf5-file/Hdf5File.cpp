#include "modules/hdf5-file/Hdf5File.h"

#include "modules/hdf5-file/Hdf5Reader.h"
#include "sigweave/module/ModuleLibrary.h"

namespace {

constexpr auto PARAMETERS = tc::ArrayFileParameters("*.h5|*.hdf5|*.he5", "dataset", {"Dataset", "Datensatz"});

constexpr ArrayFileKind KIND = {
    .id = Hdf5File::ID,
    .description = {"Reads a dataset of an HDF5 file", "Liest einen Datensatz einer HDF5-Datei"},
    .parameters = PARAMETERS,
    .name = "dataset",
    .open = OpenHdf5};

}  // namespace

Hdf5File::Hdf5File(int instance) : ArrayFile(instance, KIND) {}

TC_MODULE_LIBRARY(Hdf5File);
