#pragma once

#include <string>
#include <string_view>

#include "sigweave/persistence/ArchiveTree.h"
#include "sigweave/platform/Export.h"

// The binary form of an archive: docs/archives.md describes its bytes.
namespace tc {

// Empty when an item of the archive, with everything in it, has more than 4 GB.
TC_API std::string WriteBinaryArchive(const ArchiveTree& archive);
// False when the bytes are cut, changed, of a newer version or no archive: `error` then says which and where,
// in bytes counted from 0, and the archive is as before. Lengths are never trusted: no more memory is taken
// than the bytes justify.
TC_API bool ReadBinaryArchive(std::string_view bytes, ArchiveTree& archive, CString& error);

}  // namespace tc
