#include "sigweave/platform/FileIdentity.h"

#include <sys/stat.h>

namespace tc {

FileIdentity IdentifyFile(const char* path) {
    struct stat status {};
    if (stat(path, &status) != 0) return {};
    return {status.st_dev, status.st_ino};
}

}  // namespace tc
