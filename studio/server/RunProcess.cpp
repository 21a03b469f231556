#include "studio/server/RunProcess.h"

#include <cstdint>
#include <nlohmann/json.hpp>

namespace studio {
namespace {

constexpr std::size_t HEAD = 5;
constexpr std::uint32_t MOST_FRAME = 256U << 20;

std::uint32_t Number(const char* bytes) {
    std::uint32_t number = 0;
    for (unsigned i = 0; i < 4; ++i) number |= std::uint32_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
    return number;
}

// -1 when there is none.
int KeyOf(const std::string& picture) {
    if (picture.size() < 4) return -1;
    const std::uint32_t length = Number(picture.data());
    if (length > picture.size() - 4) return -1;
    const auto header =
        nlohmann::json::parse(picture.begin() + 4, picture.begin() + 4 + length, nullptr, false);
    return header.is_object() && header.contains("key") && header["key"].is_number_integer()
               ? header["key"].get<int>()
               : -1;
}

}  // namespace

std::unique_ptr<RunProcess> RunProcess::Start(const std::string& program, const std::string& part,
                                              const std::string& order, Handlers handlers) {
    std::unique_ptr<RunProcess> process(new RunProcess);
    process->program = tc::PipedProgram::Start(program, {part});
    if (process->program == nullptr) return nullptr;
    process->handlers = std::move(handlers);
    process->program->Write(order + "\n");
    process->reader = std::make_unique<tc::Thread>("run", [at = process.get()] { at->Read(); });
    return process;
}

// Without a reader nothing is called any more.
RunProcess::~RunProcess() {
    if (program != nullptr) program->Kill();
    reader.reset();
}

bool RunProcess::Send(const std::string& line) {
    return program->Write(line + "\n");
}

void RunProcess::End(std::chrono::milliseconds patience) {
    program->CloseInput();
    std::unique_lock lock(mutex);
    if (!ends.wait_for(lock, patience, [this] { return hasEnded; })) program->Kill();
}

void RunProcess::Read() {
    std::string bytes;
    std::string piece(1 << 18, '\0');
    while (const std::size_t count = program->Read(piece.data(), piece.size())) {
        bytes.append(piece, 0, count);
        std::size_t at = 0;
        while (bytes.size() - at >= HEAD) {
            const std::uint32_t length = Number(bytes.data() + at);
            if (length > MOST_FRAME) program->Kill();  // it does not speak our language
            if (bytes.size() - at - HEAD < length) break;
            Take(bytes[at + 4], bytes.substr(at + HEAD, length));
            at += HEAD + length;
        }
        bytes.erase(0, at);
    }
    const int code = program->Wait();
    {
        const std::lock_guard lock(mutex);
        hasEnded = true;
        ends.notify_all();
    }
    handlers.onEnd(code);
}

void RunProcess::Take(char kind, std::string content) {
    if (kind == 'T') return handlers.onText(std::move(content));
    if (kind == 'P') {
        const int key = KeyOf(content);
        const std::lock_guard lock(mutex);
        pictures[key] = std::make_shared<const std::string>(std::move(content));
        return;
    }
    {
        const std::lock_guard lock(mutex);
        if (pictures.empty() || std::exchange(isTold, true)) return;
    }
    handlers.onPictures();
}

RunProcess::Pictures RunProcess::TakePictures() {
    const std::lock_guard lock(mutex);
    isTold = false;
    return std::exchange(pictures, {});
}

}  // namespace studio
