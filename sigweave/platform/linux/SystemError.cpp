#include "sigweave/platform/SystemError.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace {

struct ErrorTwin {
    unsigned long number;
    int error;
    bool preferred;  // of several numbers of one errno, the one that is used for it
};

// Sorted by number.
// clang-format off
constexpr std::array<ErrorTwin, 136> TWINS = {{
    {1, ENOSYS, false}, {2, ENOENT, true}, {3, ENOENT, false}, {4, EMFILE, true}, {5, EACCES, true},
    {6, EBADF, true}, {7, ENOMEM, false}, {8, ENOMEM, true}, {9, ENOMEM, false}, {10, E2BIG, true},
    {11, ENOEXEC, false}, {12, EACCES, false}, {13, EINVAL, false}, {14, ENOMEM, false},
    {15, ENODEV, false}, {16, EACCES, false}, {17, EXDEV, true}, {18, ENOENT, false}, {19, EROFS, true},
    {20, ENODEV, false}, {21, EAGAIN, false}, {23, EIO, false}, {24, EINVAL, false}, {25, EIO, false},
    {29, EIO, false}, {30, EIO, false}, {31, EIO, false}, {32, EBUSY, false}, {33, ENOLCK, true},
    {39, ENOSPC, false}, {50, ENOTSUP, true}, {53, ENOENT, false}, {55, ENODEV, true},
    {64, ECONNRESET, false}, {65, EACCES, false}, {67, ENOENT, false}, {80, EEXIST, false},
    {82, EACCES, false}, {87, EINVAL, true}, {89, EAGAIN, false}, {105, EOWNERDEAD, true},
    {109, EPIPE, true}, {110, EIO, false}, {111, ENAMETOOLONG, false}, {112, ENOSPC, true},
    {113, ENFILE, true}, {114, EBADF, false}, {117, ENOTTY, true}, {120, ENOSYS, true},
    {121, ETIMEDOUT, false}, {122, ERANGE, true}, {123, ENOENT, false}, {128, ECHILD, true},
    {129, ECHILD, false}, {130, EBADF, false}, {131, EINVAL, false}, {132, ESPIPE, true},
    {142, EBUSY, false}, {145, ENOTEMPTY, true}, {161, ENOENT, false}, {164, EAGAIN, false},
    {170, EBUSY, true}, {183, EEXIST, true}, {193, ENOEXEC, true}, {206, ENAMETOOLONG, true},
    {212, ENOLCK, false}, {223, EFBIG, true}, {230, EPIPE, false}, {231, EBUSY, false}, {232, EPIPE, false},
    {258, ETIMEDOUT, false}, {267, ENOTDIR, true}, {288, EPERM, false}, {534, EOVERFLOW, true},
    {995, ECANCELED, true}, {998, EFAULT, true}, {1011, EIO, false}, {1012, EIO, false}, {1013, EIO, false},
    {1113, EILSEQ, true}, {1117, EIO, true}, {1131, EDEADLK, true}, {1142, EMLINK, true},
    {1167, ENXIO, true}, {1223, ECANCELED, false}, {1224, ETXTBSY, true}, {1225, ECONNREFUSED, false},
    {1231, ENETUNREACH, false}, {1232, EHOSTUNREACH, false}, {1236, ECONNABORTED, false},
    {1237, EAGAIN, false}, {1295, EDQUOT, true}, {1314, EPERM, true}, {1460, ETIMEDOUT, false},
    {1816, ENOMEM, false}, {1921, ELOOP, true}, {2401, EBUSY, false}, {2404, EBUSY, false},
    {4393, EINVAL, false}, {10004, EINTR, true}, {10009, EBADF, false}, {10013, EACCES, false},
    {10014, EFAULT, false}, {10022, EINVAL, false}, {10024, EMFILE, false}, {10035, EAGAIN, true},
    {10036, EINPROGRESS, true}, {10037, EALREADY, true}, {10038, ENOTSOCK, true},
    {10039, EDESTADDRREQ, true}, {10040, EMSGSIZE, true}, {10041, EPROTOTYPE, true},
    {10042, ENOPROTOOPT, true}, {10043, EPROTONOSUPPORT, true}, {10045, EOPNOTSUPP, false},
    {10047, EAFNOSUPPORT, true}, {10048, EADDRINUSE, true}, {10049, EADDRNOTAVAIL, true},
    {10050, ENETDOWN, true}, {10051, ENETUNREACH, true}, {10052, ENETRESET, true},
    {10053, ECONNABORTED, true}, {10054, ECONNRESET, true}, {10055, ENOBUFS, true}, {10056, EISCONN, true},
    {10057, ENOTCONN, true}, {10058, EPIPE, false}, {10060, ETIMEDOUT, true}, {10061, ECONNREFUSED, true},
    {10062, ELOOP, false}, {10063, ENAMETOOLONG, false}, {10064, EHOSTUNREACH, false},
    {10065, EHOSTUNREACH, true}, {10066, ENOTEMPTY, false}, {10069, EDQUOT, false}, {10070, ESTALE, true},
}};
// clang-format on

static_assert(std::ranges::adjacent_find(TWINS, std::ranges::greater_equal{}, &ErrorTwin::number) ==
              TWINS.end());

constexpr unsigned long ERROR_GEN_FAILURE = 31;

}  // namespace

unsigned long GetLastError() {
    const int error = errno;
    if (error == 0) return 0;
    const auto twin = std::ranges::find_if(
        TWINS, [error](const ErrorTwin& row) { return row.preferred && row.error == error; });
    return twin != TWINS.end() ? twin->number : ERROR_GEN_FAILURE;
}

namespace tc {

namespace {

std::string TextOf(int error) {
    char buffer[256];
    return strerror_r(error, buffer, sizeof buffer);
}

}  // namespace

std::string SystemErrorText(unsigned long number) {
    const auto twin = std::ranges::lower_bound(TWINS, number, {}, &ErrorTwin::number);
    return twin != TWINS.end() && twin->number == number ? TextOf(twin->error) : std::string();
}

std::string LastSystemErrorText() {
    return TextOf(errno);
}

}  // namespace tc
