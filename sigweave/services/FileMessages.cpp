#include "sigweave/services/FileMessages.h"

#include <system_error>

#include "sigweave/services/Bilingual.h"

std::string tc::WhyNotWritten(const std::string& path, const std::string& reason) {
    static constexpr Bilingual TEXT(
        "%1 cannot be written: %2; name another place, or see that you may write there and that there is "
        "room",
        "%1 ist nicht beschreibbar: %2; nennen Sie einen anderen Ort, oder prüfen Sie die Rechte und den "
        "Platz");
    return TEXT.With({path, reason});
}

std::string tc::WhyNotWritten(const std::string& path, int reason) {
    return WhyNotWritten(path, std::generic_category().message(reason));
}
