#pragma once

#include <bitset>
#include <map>
#include <memory>
#include <variant>
#include <vector>

#include "sigweave/module/PortDataType.h"
#include "sigweave/module/TCPortHelperImpl.h"

namespace tc {

// The fields of the metadata that can be made automatically or given explicitly, one flag each.
enum TypeInfoField { TIMESTAMP, STATE, NAME, RANGE, SAMPLERATE, UNIT, TYPE_INFO_FIELDS };
using TypeInfoFlags = std::bitset<TYPE_INFO_FIELDS>;

// How an output makes the metadata of its blocks; the fields themselves are the port's `typeInfo`.
struct OutputMetadata {
    TypeInfoFlags automatic;
    TypeInfoFlags given;                 // explicitly, for the next block
    bool handedOverBefore = false;       // distinguishes the first state conflict from those after it
    int errorReceiver = -1;              // the receiver that refused the metadata last
    std::vector<unsigned> linkedInputs;  // the first that is connected is copied from
};

// The segment name of a bus channel that was written; made anew only when the channel changes.
struct ChannelName {
    TCPortHelper::TYPE code = 0;
    TCString signal;
    TCString segment;
};

// Values that a port owns for its module. `rows` is 0 for a vector.
struct InternalData {
    std::variant<std::monostate, std::vector<int>, std::vector<double>, std::vector<TCString>> values;
    int rows = 0;
    int cols = 0;
};

// Gives back all waiting blocks. The block being read is forgotten too: its writer may be deleted next.
inline void DropBlocks(TCIOStream& stream) {
    stream.RemoveContents(true);
    stream.StartReadSegments();
}

}  // namespace tc

// One port: what was declared, its stream, and how far reading or writing has got.
struct TCPortHelper::TCPortHelperImpl::PORT {
    // Input: the state before the last one read. Output: the state of the last block written.
    TCBLOCKSTATUS previousState = INVALID;
    // Input: of the last block read. Output: for the next block to write.
    TCTypeInfo typeInfo;
    tc::OutputMetadata metadata;
    PORTTYPE kind = INPUT;
    TCString name;
    unsigned typeIndex = 0;
    unsigned lines = 0;  // drawn by the user
    std::unique_ptr<TCIOStream> stream = std::make_unique<TCIOStream>();
    const TCArray<DATATYPE>* types = nullptr;  // null until the port is attached
    bool obligatory = false;
    bool multipleBlocksInChannel = false;
    bool refused = false;  // the parts of the block being written are of one that could not be sent
    std::map<int, tc::ChannelName> channelNames;  // by channel index
    tc::InternalData internalData;

    bool IsConnected() const { return stream->GetFanCnt() != 0; }
    bool HoldsBlock() const { return stream->GetBlockCnt(nullptr) != 0; }
    // 0 for a port that is not attached.
    TYPE Code() const {
        return types != nullptr ? static_cast<TYPE>((*types)[static_cast<int>(typeIndex)]) : 0;
    }
    bool CarriesTypeInfo() const { return (Code() & TYPE_TYPEINFO) != 0; }
    bool IsSingleValue() const { return (Code() & SINGLE_VALUES) != 0; }
    // Of the next block.
    int ValuesWaiting() const {
        const int values = stream->GetBlockLen(0, 0);
        return IsSingleValue() && values > 1 ? 1 : values;
    }
    // Sets the metadata of the last block read; null: the block has none.
    void KeepTypeInfo(const TCTypeInfo* ti);
};

inline TCPortHelper::TCPortHelperImpl::PORT* TCPortHelper::TCPortHelperImpl::Port(PORTTYPE kind,
                                                                                  unsigned index) {
    std::vector<PORT>& ports = Ports(kind);
    return index < ports.size() ? &ports[index] : nullptr;
}

inline const TCPortHelper::TCPortHelperImpl::PORT* TCPortHelper::TCPortHelperImpl::Port(
    PORTTYPE kind, unsigned index) const {
    const std::vector<PORT>& ports = Ports(kind);
    return index < ports.size() ? &ports[index] : nullptr;
}
