#pragma once

#include <cstdint>
#include <cstdio>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>

namespace studio {

// The pipe of a process of the studio to its server: frames of the length in four bytes, a letter and the
// content: T a text, P a picture, E the end of pictures of the same time. Any thread; waits when the server
// does.
class Frames {
 public:
    explicit Frames(std::FILE* openPipe) : pipe(openPipe) {}
    void Send(char kind, const std::string& content) {
        const std::lock_guard lock(mutex);
        const auto length = static_cast<std::uint32_t>(content.size());
        char head[5];
        for (unsigned i = 0; i < 4; ++i) head[i] = static_cast<char>(length >> (8 * i) & 0xFFU);
        head[4] = kind;
        std::fwrite(head, 1, sizeof head, pipe);
        std::fwrite(content.data(), 1, content.size(), pipe);
        std::fflush(pipe);
    }
    void Send(const nlohmann::ordered_json& json) {
        Send('T', json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
    }

 private:
    std::mutex mutex;
    std::FILE* pipe;
};

}  // namespace studio
