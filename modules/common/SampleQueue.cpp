#include "modules/common/SampleQueue.h"

#include <algorithm>
#include <limits>

namespace {

constexpr std::size_t MOST_IN_MEMORY = 1 << 16;

bool Seek(std::FILE* file, std::int64_t sample) {
    return std::fseek(file, static_cast<long>(sample) * static_cast<long>(sizeof(double)), SEEK_SET) == 0;
}

}  // namespace

bool SampleQueue::Add(const double* values, std::size_t count) {
    const bool inMemory = fileBegin == fileEnd;
    if (inMemory && (next == memory.size() || memory.size() + count > MOST_IN_MEMORY)) {
        memory.erase(memory.begin(), memory.begin() + static_cast<std::ptrdiff_t>(next));
        next = 0;
    }
    const bool fits = inMemory && memory.size() + count <= MOST_IN_MEMORY;
    if (fits) memory.insert(memory.end(), values, values + count);
    if (!fits && !Spill(values, count)) return false;
    waiting += static_cast<std::int64_t>(count);
    return true;
}

double SampleQueue::Take() {
    if (next == memory.size()) Fetch();
    --waiting;
    return memory[next++];
}

void SampleQueue::Take(double* values, std::size_t count) {
    waiting -= static_cast<std::int64_t>(count);
    while (count > 0) {
        if (next == memory.size()) Fetch();
        const std::size_t part = std::min(count, memory.size() - next);
        values = std::copy_n(memory.data() + next, part, values);
        next += part;
        count -= part;
    }
}

bool SampleQueue::Spill(const double* values, std::size_t count) {
    if (file == nullptr) file.reset(std::tmpfile());
    if (file == nullptr || !Seek(file.get(), fileEnd)) return false;
    fileEnd += static_cast<std::int64_t>(count);
    return std::fwrite(values, sizeof(double), count, file.get()) == count && std::fflush(file.get()) == 0;
}

void SampleQueue::Fetch() {
    const auto count = std::min<std::int64_t>(fileEnd - fileBegin, MOST_IN_MEMORY);
    memory.resize(static_cast<std::size_t>(count));
    next = 0;
    if (!Seek(file.get(), fileBegin) ||
        std::fread(memory.data(), sizeof(double), memory.size(), file.get()) != memory.size()) {
        memory.assign(memory.size(), std::numeric_limits<double>::quiet_NaN());
        broken = true;
    }
    fileBegin += count;
    if (fileBegin == fileEnd) fileBegin = fileEnd = 0;
}
