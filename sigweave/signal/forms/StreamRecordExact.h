#pragma once

#include "sigweave/persistence/TCXML.h"
#include "sigweave/signal/TCIOStream.h"

// What the XML form of a block alone does not restore, kept in attributes next to it (see StreamRecord.h).
namespace tc {

// Whether the block, or one nested in it, holds an address.
bool HoldsAddress(const TCIOStream::Block& block);
// `node` is the element of the block. False with the reason in `xml`.
bool KeepExactly(TCXML& xml, const TCXMLNode& node, const TCIOStream::Block& block);
bool RestoreExactly(TCXML& xml, const TCXMLNode& node, TCIOStream::Block& block);

}  // namespace tc
