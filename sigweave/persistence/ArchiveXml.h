#pragma once

#include <string_view>

#include "sigweave/persistence/ArchiveTree.h"
#include "sigweave/platform/Export.h"

class TCXML;

// The XML form of an archive, for people and other programs: docs/archives.md describes it.
namespace tc {

// Makes `document` the archive. False with the document's error.
TC_API bool WriteXmlArchive(const ArchiveTree& archive, TCXML& document);
// False when the document is no archive, one of a newer version, or has an item that cannot be read: the
// document's error then says which and in which line, and the archive is as before.
TC_API bool ReadXmlArchive(TCXML& document, ArchiveTree& archive);

// Whether a text can be put inside an element as it is.
bool IsXmlFragment(std::string_view text);

}  // namespace tc
