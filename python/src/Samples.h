#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sigweave/signal/TCIOStream.h"

namespace python {

// The metadata of a block.
struct Info {
    std::string name;
    double start = 0.0;  // seconds since 1970-01-01 00:00 UTC
    double rate = 0.0;   // values a second; of spectra, values a hertz; 0: not known
    double low = 0.0;
    double high = 0.0;
    std::string unit;        // as people write it: mV
    std::string storedUnit;  // as it is stored: V * 1e-003
    int state = INVALID;
};

Info InfoOf(const TCTypeInfo* info);
// Of a segment; of one of a bus, the name of its channel.
std::string NameOf(const TCString& name);

// The name, or "name 2", "name 3" where `isUsed` says that of those before: channels of a bus may have the
// same name.
template <class IsUsed>
std::string Distinct(const std::string& name, IsUsed isUsed) {
    std::string tried = name;
    for (int i = 2; isUsed(tried); ++i) tried = name + " " + std::to_string(i);
    return tried;
}

// Values in memory of their own, which grows in place where the system can do that.
class Memory {
 public:
    Memory() = default;
    ~Memory();
    Memory(const Memory&) = delete;
    Memory& operator=(const Memory&) = delete;

    // Room for that many bytes more, to be filled. Throws std::bad_alloc.
    void* Append(std::size_t bytes);
    void Clear() { size = 0; }
    const void* Data() const { return data; }
    std::size_t Size() const { return size; }

 private:
    void* data = nullptr;
    std::size_t size = 0;
    std::size_t capacity = 0;
};

enum class Kind { Empty, Doubles, Ints, Texts };

// Values of one or several blocks, one behind the other, and of each block its metadata and its place.
struct Samples {
    struct Mark {
        std::int64_t first = 0;  // value
        std::int64_t count = 0;
        double start = 0.0;  // seconds since 1970
        double rate = 0.0;
        int state = INVALID;
        int rows = 0;
        int columns = 0;
    };

    // False when its values are of another kind than those before, or of a kind that has no array; the block
    // is then marked as empty.
    bool Append(const TCIOStream::DataSegment* segment, const TCTypeInfo* info);
    void Clear();

    Kind kind = Kind::Empty;
    int dimensions = 1;
    bool isSpectrum = false;  // the blocks do not follow each other in time
    Memory memory;
    std::vector<std::string> texts;
    Info info;  // of the first block
    std::vector<Mark> marks;
    std::int64_t refused = 0;  // blocks
};

// The blocks of one output or recording: its signal, or the channels of its bus or the parts of its blocks by
// their names.
struct Track {
    struct Part {
        std::string name;
        std::shared_ptr<Samples> samples = std::make_shared<Samples>();
    };

    void Append(const TCIOStream::Block& block);
    // Made where it is not there yet.
    Samples& Find(const std::string& name);
    void Clear();
    void SetSpectrum(bool is);

    bool isSpectrum = false;
    bool byName = false;      // plain blocks go to the part of their signal's name
    std::vector<Part> parts;  // in the order in which they came first; of a plain output the name is empty
};

}  // namespace python
