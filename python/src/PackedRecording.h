#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "python/src/Frame.h"
#include "python/src/Samples.h"
#include "sigweave/recording/RecordingReader.h"

namespace python {

// One array of one block, where it lies in the file.
struct Place {
    std::int64_t first = 0;  // element, or row where all blocks are rows
    std::int64_t frame = 0;  // in bytes from the beginning of the file
    std::int32_t frameSize = 0;
    std::int32_t dataAt = 0;  // in bytes from the beginning of the frame
    std::int32_t infoAt = -1;
    std::int32_t count = 0;  // elements
    std::int32_t rows = 0;
    std::int32_t columns = 0;
    bool isAfterLoss = false;  // something between this and the one before is lost
};

// What is in a recording under one name: a signal, or a channel of a bus.
struct RecordedPart {
    int signal = 0;       // by its index in the reader
    std::string channel;  // of a bus; else empty
    std::string segment;  // its name as it is stored
    Kind kind = Kind::Empty;
    int dimensions = 1;
    bool isSpectrum = false;
    bool isAlone = false;    // a signal of plain arrays, so that the reader's numbers of samples are its own
    bool hasPlaces = false;  // those of all blocks
    bool isByBlock = false;  // with those: each block is a row, or a matrix, of the same size
    std::vector<Place> places;
    TCTypeInfo info;  // of the first block
};

// The values of some of its blocks.
struct RecordedSlice {
    std::vector<Place> places;  // in order; those of damaged blocks are taken out when they are read
    std::int64_t skip = 0;      // elements of the first one that are not wanted
    std::int64_t count = 0;     // elements
    bool isLossy = false;
};

// A recording whose blocks stay in its file, which is mapped into memory. Any thread; none of the operations
// needs Python.
class PackedRecording {
 public:
    // Null with the reason, which names the file, when it is no recording.
    static std::shared_ptr<PackedRecording> Open(const std::string& path, std::string& error);

    // In the order of the file; only added to.
    std::size_t PartCount() const;
    RecordedPart Part(std::size_t part) const;  // without its places
    tc::RecordingSignal SignalOf(const RecordedPart& part) const;
    const tc::RecordingFacts& Facts() const { return reader.GetFacts(); }
    // Elements, or rows.
    std::int64_t Length(std::size_t part);
    // The shape of each row; 0 and 0 where values are not by rows.
    std::pair<int, int> RowShape(std::size_t part);

    // The values from `begin` up to `end`, elements or rows. Both are within the length.
    RecordedSlice Find(std::size_t part, std::int64_t begin, std::int64_t end);
    // Copies them. Blocks that are damaged are left out.
    void Copy(const RecordedPart& part, RecordedSlice& slice, char* to);
    // Where they lie in one piece; null when they do not. Their block is checked.
    const char* View(const RecordedPart& part, RecordedSlice& slice) const;
    // All blocks of the part.
    std::vector<Place> Places(std::size_t part);
    // The first element or row at or after that many seconds behind the start.
    std::int64_t Locate(std::size_t part, double seconds);

    FrameTime TimeOf(const Place& place) const;
    TCTypeInfo InfoAt(const Place& place) const;
    std::shared_ptr<const char> File() const { return file; }
    // What the end of the file lacks, and what was found lost so far; empty: nothing.
    std::string Missing() const;
    bool IsBeingWritten() const;
    // Throws std::length_error, in words, when the file has become shorter than it was.
    void CheckIsThere() const;
    std::int64_t BlockCount() const;

 private:
    PackedRecording() = default;
    bool Begin(const std::string& path, std::string& error);
    void FindParts();
    void FindPartsAt(std::size_t signal);
    void AddParts(int signal, const std::vector<FrameArray>& arrays, std::string_view frame);
    RecordedPart& PartFor(int signal, const FrameArray& array, std::string_view frame);
    void FindAllPlaces();
    void AddPlaces(std::vector<bool>& isAfterLoss);
    static void Number(RecordedPart& part);
    std::int64_t LengthOf(RecordedPart& part);
    void FindFew(const RecordedPart& part, std::int64_t begin, std::int64_t end, RecordedSlice& slice);
    void Lose(const std::string& what);
    void LoseBlock();
    std::string_view Frame(std::int64_t offset, std::int64_t size) const {
        return {file.get() + offset, static_cast<std::size_t>(size)};
    }
    std::string_view Frame(const Place& place) const { return Frame(place.frame, place.frameSize); }

    mutable std::mutex mutex;
    mutable tc::RecordingReader reader;
    std::shared_ptr<const char> file;
    std::string path;
    std::vector<RecordedPart> parts;
    std::vector<FrameArray> arrays;
    std::vector<std::string> lost;
    std::int64_t passed = 0;  // blocks on the way to those that were asked for
};

// Every block of a recording, read and compared with its checksum: what is lost or damaged, a line each.
std::vector<std::string> CheckRecording(const std::string& path, std::string& error);
// The blocks of one signal, decoded.
Track DecodeSignal(const std::string& path, int signal, std::string& error);

}  // namespace python
