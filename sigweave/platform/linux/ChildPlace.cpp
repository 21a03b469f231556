#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sigweave/platform/ChildProcess.h"

namespace tc {
namespace {

constexpr mode_t OWNER_ALONE = 0700;
constexpr int AS_FOLDER = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

std::string WorkingDirectory() {
    char path[PATH_MAX];
    return getcwd(path, sizeof path) != nullptr ? path : "";
}

}  // namespace

bool ChildPlace::Identify(int descriptor, Identity& identity) {
    struct stat status;
    if (fstat(descriptor, &status) != 0) return false;
    identity = {status.st_dev, status.st_ino};
    return true;
}

ChildPlace::ChildPlace() : work(open(".", AS_FOLDER)) {
    Identify(work, workIdentity);
    for (int stream = 0; stream < 3; ++stream) Identify(stream, streams[stream]);
}

bool ChildPlace::EnterFresh() {
    Identity found;
    if (!Identify(work, found) || found != workIdentity) return false;
    name = std::to_string(++made);
    if (mkdirat(work, name.c_str(), OWNER_ALONE) != 0) return false;
    const int entered = openat(work, name.c_str(), AS_FOLDER);
    const bool isThere = entered >= 0 && Identify(entered, folder) && fchdir(entered) == 0;
    if (entered >= 0) close(entered);
    return isThere;
}

ChildPlace::Finding ChildPlace::WhatChanged() const {
    Identity now;
    for (int stream = 0; stream < 3; ++stream) {
        if (!Identify(stream, now)) return {Change::Closed, std::to_string(stream)};
        if (now != streams[stream]) return {Change::Redirected, std::to_string(stream)};
    }
    if (!Identify(work, now) || now != workIdentity) return {Change::Closed, std::to_string(work)};
    struct stat status;
    if (stat(".", &status) != 0 || Identity{status.st_dev, status.st_ino} != folder)
        return {Change::Elsewhere, WorkingDirectory()};
    if (fstatat(work, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
        Identity{status.st_dev, status.st_ino} != folder)
        return {Change::Replaced, {}};
    return {};
}

}  // namespace tc
