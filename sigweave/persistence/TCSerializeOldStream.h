#pragma once

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"
#include "sigweave/platform/Framework.h"
#include "sigweave/signal/TCSI_Unit.h"
#include "sigweave/signal/TCTypeInfo.h"

// The tokens of the older text form of streams. They are stored (never change):
//
//   int       decimal text and a blank
//   double    byte FE, the 8 raw bytes, a blank
//   text      byte FF, 4-byte length, the bytes, a blank
//   pointer   byte FD, the low 4 bytes of the address, nothing after them
//   unit      the factor as a double, the seven exponents as ints
//   metadata  timestamp, samplerate, unit, range min, range max, then the name as text
//
// Reading moves `p` past the token and answers true. On a mismatch it answers false, `p` stays before the
// token that did not fit, and single values and metadata are unchanged. Tokens are zero-terminated as a
// whole; lengths inside them are trusted.
//
// Reading a text leaves the blank after it unread, unlike every other token. That is deliberate: a text is
// the last token of its group, and an int, which alone may follow it, passes over the blank. Stateless; for
// any thread.
class TC_API TCSerializeOldStream {
 public:
    static TCString Serialize(int value);
    static TCString Serialize(double value);
    static TCString Serialize(const CString& value);
    static TCString Serialize(const TCString& value);
    static TCString Serialize(const TCSI_Unit& value);
    // The address, not what it points at, also for a pointer to characters.
    static TCString Serialize(const void* value);
    static TCString SerializeWithoutStatus(const TCTypeInfo& value);
    // The state as an int, then the metadata.
    static TCString Serialize(TCBLOCKSTATUS state, const TCTypeInfo& value);
    // One token an element; the empty text for a count below 1, and for more doubles than a string can hold.
    static TCString Serialize(const double* values, int count);
    static TCString Serialize(const int* values, int count);

    // Numbers beyond the range of int become its nearest end.
    static bool DeSerialize(int& value, const char*& p);
    static bool DeSerialize(double& value, const char*& p);
    static bool DeSerialize(CString& value, const char*& p);
    static bool DeSerialize(TCString& value, const char*& p);
    // Exponents are stored as signed 8-bit values.
    static bool DeSerialize(TCSI_Unit& value, const char*& p);
    // The low half of the address; the high half is zero.
    static bool DeSerialize(const void*& value, const char*& p);
    static bool DeSerializeWithoutStatus(TCTypeInfo& value, const char*& p);
    // The state does not go into `value`.
    static bool DeSerialize(TCBLOCKSTATUS& state, TCTypeInfo& value, const char*& p);
    // The elements before the one that did not fit are set. A count below 1 succeeds at once.
    static bool DeSerialize(int* values, int count, const char*& p);
    static bool DeSerialize(double* values, int count, const char*& p);

    // Moves past exactly one white-space character; false when there is none at `p`, or for a null `p`.
    static bool EatOneWS(const char*& p);
};
