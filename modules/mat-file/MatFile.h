#pragma once

#include "modules/common/ArrayFile.h"

// An array of a MAT file (see MatReader.h).
class MatFile final : public ArrayFile {
 public:
    static constexpr const char* ID = "MatFile";

    explicit MatFile(int instance);
};
