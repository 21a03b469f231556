#pragma once

#include <cstdint>
#include <string_view>

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"
#include "sigweave/platform/Framework.h"
#include "sigweave/signal/TCSI_Unit.h"

class CArchive;

// The place of a block in its signal (the values are stored; never change, only append).
enum TCBLOCKSTATUS : std::int32_t { INVALID = -1, START = 0, BUSY = 1, STOP = 2, COMPLETE = 3 };

// The metadata that travels with every block: the signal's name, the time of the block's first sample in
// milliseconds since 1970-01-01 00:00 UTC, the samplerate in samples per second, the value range, the
// physical unit and the block's state. A plain value class without invariants.
class TC_API TCTypeInfo {
 public:
    // Name empty, timestamp 0, samplerate 1, range 0 to 1, no unit, state INVALID.
    TCTypeInfo() = default;
    void Init();

    TCBLOCKSTATUS GetState() const { return state; }
    void SetState(TCBLOCKSTATUS newState) { state = newState; }
    // Valid until the name changes.
    const char* GetSignalname() const { return signalname.c_str(); }
    // A null text sets an empty name.
    void SetSignalname(const char* name) { signalname.assign(name != nullptr ? name : ""); }
    // Any bytes; allocates nothing where the name before was as long.
    void SetSignalname(std::string_view bytes) { signalname.assign(bytes); }
    const CString& GetSignalnameString() const { return signalname; }
    void SetSignalnameString(const CString& name) { signalname = name; }
    double GetTimestamp() const { return timestamp; }
    void SetTimestamp(double milliseconds) { timestamp = milliseconds; }
    double GetSamplerate() const { return samplerate; }
    void SetSamplerate(double perSecond) { samplerate = perSecond; }
    double GetRangeMin() const { return rangeMin; }
    void SetRangeMin(double minimum) { rangeMin = minimum; }
    double GetRangeMax() const { return rangeMax; }
    void SetRangeMax(double maximum) { rangeMax = maximum; }
    const TCSI_Unit& GetUnit() const { return unit; }
    TCSI_Unit& GetUnit() { return unit; }
    void SetUnit(const TCSI_Unit& newUnit) { unit = newUnit; }

    // "UNKNOWN" for a number that is no state.
    static const char* BlockStateToString(TCBLOCKSTATUS state);
    // Without regard to case; -2 when the text names no state.
    static TCBLOCKSTATUS StringToBlockState(const char* text);

    // One readable line, ended by carriage return and line feed, cut to `maxLength` characters (-1: not cut).
    TCString ConvertToString(int maxLength) const;
    // Seven text lines, without the state. Loading throws CArchiveException (endOfFile) when a number line
    // holds no number; the fields before it are then already set.
    void Serialize(CArchive& archive);
    // The packed record with the state: name length + 59 bytes. A null buffer only answers the size.
    int SerializeWithStatus(char* buffer) const;
    // Trusts the record: the caller guarantees that the whole of it is there.
    void DeSerializeWithStatus(const TCString& record);

 private:
    TC_LOCAL void Store(CArchive& archive) const;
    TC_LOCAL void Load(CArchive& archive);

    CString signalname;
    double timestamp = 0.0;
    double samplerate = 1.0;
    TCSI_Unit unit;
    double rangeMin = 0.0;
    double rangeMax = 1.0;
    TCBLOCKSTATUS state = INVALID;
};
