#pragma once

#include "sigweave/module/TCPortHelper.h"

// What stands behind a port helper. For the library's own sources only.
class TCPortHelper::TCPortHelperImpl {
 public:
    class DATATYPE;
    struct PORT;
    struct BACKUPPORT;
};
