#pragma once

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"
#include "sigweave/platform/Framework.h"
#include "sigweave/signal/TCSI_Unit.h"
#include "sigweave/signal/TCTypeInfo.h"

// Packed binary items, for values that travel as raw memory: little-endian, no alignment, no padding. The
// sizes and the order of the fields are stored (never change).
//
//   bool 1, int 4, double 8 (binary64), pointer 4 (the low half of the address), unit 15 (the factor, then
//   the seven exponents), text and counted bytes 4 + length, metadata with its state 59 + length of the name.
//
// Writing answers the number of bytes; with a null `dst` it writes nothing and only answers the size, so that
// callers measure first. Reading answers the address after the item and trusts the data: the caller
// guarantees that all of it is there. Stateless; for any thread.
class TC_API TCSerializeHelper {
 public:
    static int Serialize(char* dst, bool value);
    static int Serialize(char* dst, int value);
    static int Serialize(char* dst, double value);
    static int Serialize(char* dst, const TCString& value);
    static int Serialize(char* dst, const CString& value);
    static int Serialize(char* dst, const TCSI_Unit& value);
    // The address, not what it points at, also for a pointer to characters.
    static int Serialize(char* dst, const void* value);
    // `count` bytes, after their 4-byte length when `withLength` is not 0.
    static int Serialize(char* dst, const unsigned char* bytes, int count, int withLength);
    // All fields and the state, after the 4-byte length of the rest.
    static int SerializeWithStatus(char* dst, const TCTypeInfo& value);

    static const char* DeSerialize(bool& value, const char* src);
    static const char* DeSerialize(int& value, const char* src);
    static const char* DeSerialize(unsigned int& value, const char* src);
    // 4 bytes in the record.
    static const char* DeSerialize(unsigned long& value, const char* src);
    static const char* DeSerialize(double& value, const char* src);
    static const char* DeSerialize(TCString& value, const char* src);
    static const char* DeSerialize(CString& value, const char* src);
    static const char* DeSerialize(TCSI_Unit& value, const char* src);
    // The low half of the address; the high half is zero.
    static const char* DeSerialize(const void*& value, const char* src);
    // Without a length `count` bytes are read. With one, `count` is the room at `bytes`: of a longer block
    // the first `count` bytes are copied and all of it is passed over.
    static const char* DeSerialize(unsigned char* bytes, int count, const char* src, int withLength);
    // The length word decides where the record ends.
    static const char* DeSerializeWithStatus(TCTypeInfo& value, const char* src);
};
