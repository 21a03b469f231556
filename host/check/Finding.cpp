#include "host/check/Finding.h"

namespace host::check {

const char* ToText(Finding::Status status) {
    constexpr const char* WORDS[] = {"passed", "failed", "not applicable", "warning"};
    return WORDS[status];
}

Finding Passed(const std::string& what) {
    return {Finding::PASSED, what, {}};
}

Finding Warned(const std::string& reason, const std::string& remedy) {
    return {Finding::WARNING, reason, remedy};
}

void Fail(const std::string& reason, const std::string& remedy) {
    throw Finding{Finding::FAILED, reason, remedy};
}

void DoesNotApply(const std::string& reason, const std::string& remedy) {
    throw Finding{Finding::NOT_APPLICABLE, reason, remedy};
}

}  // namespace host::check
