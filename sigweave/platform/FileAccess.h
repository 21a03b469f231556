#pragma once

#include "sigweave/platform/Export.h"

// How a file is to be written: over what is in it, or as a new one next to it that then takes its name.
enum class FileWriting { InPlace, Beside };

// 0 when the file can be written, or made where there is none, as far as the system says without trying;
// else the system's error. Opens and makes nothing. Devices are written in place. Any thread.
TC_API int TCFileWriteError(const char* path, FileWriting how);
