#pragma once

#include <cstdio>
#include <memory>

#include "sigweave/platform/PathText.h"

namespace tc {

struct CloseXmlFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using XmlFile = std::unique_ptr<std::FILE, CloseXmlFile>;

// Without a buffer, since documents are read and written in large pieces. Null when the system refuses.
inline XmlFile OpenXmlFile(const char* path, const char* mode) {
    XmlFile file(std::fopen(NativePath(path).c_str(), mode));
    if (file != nullptr) std::setbuf(file.get(), nullptr);
    return file;
}

}  // namespace tc
