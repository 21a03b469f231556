#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace python {

// An array of a packed frame, where it lies. Places count bytes from the beginning of the frame.
struct FrameArray {
    std::string_view name;  // of its segment
    int type = 0;           // as in TCIOStream::DATATYPE; 0: the block has no segment
    int dimensions = 0;
    int rows = 0;
    int columns = 0;
    std::int32_t count = 0;
    std::int32_t dataAt = 0;   // of numbers; a multiple of 8
    std::int32_t infoAt = -1;  // the packed record of its metadata, all of it in the frame; -1: none
};

// What a record of metadata says of the time of its block.
struct FrameTime {
    double start = 0.0;  // seconds since 1970
    double rate = 0.0;
    int state = -1;
};

// The arrays of a frame, of nested blocks the first of each, under the name of the segment that holds them.
// False when the bytes are no frame; nothing in them is trusted. The checksum is not looked at.
bool ReadFrame(std::string_view frame, std::vector<FrameArray>& arrays);
FrameTime ReadTime(const char* record);

// Whether the frame is what its checksum says.
bool IsWhole(std::string_view frame);
// The same, and copies the bytes of an array on the way, which are there in any case afterwards.
bool CopyWhole(std::string_view frame, std::int32_t dataAt, char* to, std::int64_t bytes);

}  // namespace python
