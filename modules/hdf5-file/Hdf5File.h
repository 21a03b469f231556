#pragma once

#include "modules/common/ArrayFile.h"

// An array of an HDF5 file (see Hdf5Reader.h).
class Hdf5File final : public ArrayFile {
 public:
    static constexpr const char* ID = "Hdf5File";

    explicit Hdf5File(int instance);
};
