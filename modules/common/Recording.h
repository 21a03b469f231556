#pragma once

#include <string>

#include "sigweave/module/TCPortHelper.h"
#include "sigweave/signal/TCIOStream.h"

// What the recorders and players of all forms have in common.
namespace tc {

// Why a recorder refuses what is wired to the input, empty when it does not.
std::string WhyNotRecorded(TCPortHelper& ports, unsigned input);
// Why a recorder refuses its file, in the words of its parameter "file".
std::string WhyNotRecordFile(const std::string& file, bool mayReplace);

// Makes a block the last of its signal, with all that is nested in it.
void EndSignal(TCIOStream::Block& block);
// Whether more of its signal, or of one that is nested in it, was to follow.
bool BreaksOff(const TCIOStream::Block& block);

// Declares an output of a type that was recorded.
void DeclareRecordedOutput(TCPortHelper& ports, unsigned output, const TCString& name,
                           const std::string& type, int items);

}  // namespace tc
