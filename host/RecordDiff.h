#pragma once

#include <string>

namespace host {

// The numbers are exit codes.
enum class RecordVerdict : int { Equal = 0, Different = 1, Unreadable = 2 };

struct RecordComparison {
    RecordVerdict verdict = RecordVerdict::Equal;
    // Where the first difference is and what is there in each, or why a document cannot be read.
    std::string text;
};

// Compares two recordings, of either kind, by what they mean: type, metadata, segments, and every value bit
// by bit. How a document is laid out and spelled does not count, nor the facts of a run and the order of
// different signals, nor does the part of a channel's name that every run makes anew. Reads them side by
// side, one block at a time, up to the first difference. Everything is counted from 1. `nameOfB` is how the
// text calls the second; empty: by its path.
RecordComparison CompareRecords(const std::string& a, const std::string& b, const std::string& nameOfB = "");

}  // namespace host
