#include "host/ProgressLine.h"

#include <cstdio>

#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

using tc::Bilingual;

template <class... Values>
void Append(std::string& text, const char* format, Values... values) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, format, values...);
    text += (text.empty() ? "" : ", ") + std::string(buffer);
}

}  // namespace

std::string WriteProgress(const RunProgress& progress) {
    std::string text;
    if (progress.signalSeconds >= 0.0)
        Append(text, Bilingual("%.1f s of signal", "%.1f s Signal").Text(), progress.signalSeconds);
    if (progress.share >= 0.0) Append(text, "%.0f %%", 100.0 * progress.share);
    if (progress.bytes > 0.0 && progress.seconds > 0.0)
        Append(text, "%.0f MB/s", progress.bytes / progress.seconds / 1e6);
    return text;
}

}  // namespace host
