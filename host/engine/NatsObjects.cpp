#include "host/engine/NatsObjects.h"

#include <algorithm>
#include <iterator>

namespace host::engine {

std::string Reason(natsStatus status) {
    natsStatus last = NATS_OK;
    const char* const text = nats_GetLastError(&last);
    if (text == nullptr || *text == '\0' || last != status) return natsStatus_GetText(status);
    // "(conn.c:2088): No server available": the place in the library's source helps nobody here.
    const std::string_view reason(text);
    const std::size_t end = reason.starts_with("(") ? reason.find("): ") : std::string_view::npos;
    return std::string(end == std::string_view::npos ? reason : reason.substr(end + 3));
}

std::string_view Data(natsMsg* message) {
    const char* const data = natsMsg_GetData(message);
    return data != nullptr ? std::string_view(data, static_cast<std::size_t>(natsMsg_GetDataLength(message)))
                           : std::string_view();
}

bool IsLoss(natsStatus status) {
    constexpr natsStatus LOSSES[] = {
        NATS_TIMEOUT,          NATS_CONNECTION_DISCONNECTED, NATS_CONNECTION_CLOSED,   NATS_NO_RESPONDERS,
        NATS_IO_ERROR,         NATS_STALE_CONNECTION,        NATS_INSUFFICIENT_BUFFER, NATS_NO_SERVER,
        NATS_NOT_YET_CONNECTED};
    return std::ranges::find(LOSSES, status) != std::end(LOSSES);
}

bool IsElection(natsStatus status) {
    constexpr const char* WORDS[] = {"temporarily unavailable", "can not handle request"};
    if (status == NATS_OK) return false;
    const std::string reason = Reason(status);
    return std::ranges::any_of(WORDS,
                               [&](const char* word) { return reason.find(word) != std::string::npos; });
}

}  // namespace host::engine
