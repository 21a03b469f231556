#include <algorithm>
#include <array>
#include <climits>

#include "sigweave/module/PortRecord.h"
#include "sigweave/signal/BlockState.h"

using Impl = TCPortHelper::TCPortHelperImpl;
using PORT = Impl::PORT;

namespace {

constexpr TCPortHelper::TYPE METADATA_FLAGS = TCPortHelper::TYPE_ADOPT | TCPortHelper::TYPE_TYPEINFO;

bool MayCarryTypeInfo(const PORT& port) {
    return (port.Code() & METADATA_FLAGS) != 0;
}

TCBLOCKSTATUS CopyTypeInfo(const TCTypeInfo* from, TCTypeInfo* to) {
    if (from == nullptr) {
        if (to != nullptr) to->Init();
        return INVALID;
    }
    if (to != nullptr) *to = *from;
    return from->GetState();
}

bool AnyHoldsBlock(const std::vector<PORT>& inputs) {
    return std::ranges::any_of(inputs, &PORT::HoldsBlock);
}

// A group has work when every member that is connected holds a block, and at least one is connected.
bool GroupHasWork(const std::vector<PORT>& inputs, const std::vector<unsigned>& group) {
    bool connected = false;
    for (const unsigned index : group) {
        if (index >= inputs.size() || !inputs[index].IsConnected()) continue;
        if (!inputs[index].HoldsBlock()) return false;
        connected = true;
    }
    return connected;
}

bool UngroupedHoldsBlock(const Impl& impl) {
    for (unsigned i = 0; i < impl.inputs.size(); ++i) {
        const auto hasMember = [i](const auto& group) { return std::ranges::find(group, i) != group.end(); };
        if (impl.inputs[i].HoldsBlock() && std::ranges::none_of(impl.triggerGroups, hasMember)) return true;
    }
    return false;
}

// What waits on one input, as far as SynchronousDataAvail compares it.
struct Waiting {
    TCBLOCKSTATUS state = INVALID;
    int blocks = 0;
    int values = 0;
    const TCTypeInfo* typeInfo = nullptr;
};

struct SyncCheck {
    unsigned bit;
    int code;
    bool (*differ)(const Waiting& a, const Waiting& b);
};

template <class Get>
bool MetadataDiffer(const Waiting& a, const Waiting& b, Get get) {
    const TCTypeInfo none;
    return get(a.typeInfo != nullptr ? *a.typeInfo : none) != get(b.typeInfo != nullptr ? *b.typeInfo : none);
}

// In the order in which they are tested.
constexpr std::array<SyncCheck, 5> SYNC_CHECKS{{
    {TCPortHelper::CHECK_VALUE_COUNTS, TCPortHelper::VALUE_COUNTS_DIFFER,
     [](const Waiting& a, const Waiting& b) { return a.values != b.values; }},
    {TCPortHelper::CHECK_STATES, TCPortHelper::STATES_DIFFER,
     [](const Waiting& a, const Waiting& b) { return a.state != b.state; }},
    {TCPortHelper::CHECK_BLOCK_COUNTS, TCPortHelper::BLOCK_COUNTS_DIFFER,
     [](const Waiting& a, const Waiting& b) { return a.blocks != b.blocks; }},
    {TCPortHelper::CHECK_SAMPLERATES, TCPortHelper::SAMPLERATES_DIFFER,
     [](const Waiting& a, const Waiting& b) {
         return MetadataDiffer(a, b, [](const TCTypeInfo& ti) { return ti.GetSamplerate(); });
     }},
    {TCPortHelper::CHECK_UNITS, TCPortHelper::UNITS_DIFFER,
     [](const Waiting& a, const Waiting& b) {
         return MetadataDiffer(a, b, [](const TCTypeInfo& ti) { return ti.GetUnit(); });
     }},
}};

int FirstDifference(const Waiting& reference, const Waiting& other, unsigned checks) {
    for (const SyncCheck& check : SYNC_CHECKS)
        if ((checks & check.bit) != 0 && check.differ(reference, other)) return check.code;
    return 0;
}

}  // namespace

bool TCPortHelper::DataAvail(unsigned input, TCBLOCKSTATUS& state, int& blocks, int& values,
                             int& elementSize) const {
    state = INVALID;
    blocks = values = elementSize = 0;
    const PORT* port = impl->Port(INPUT, input);
    if (port == nullptr) return false;
    blocks = port->stream->GetBlockCnt(nullptr);
    if (const TCTypeInfo* ti = port->stream->PeekTI()) state = ti->GetState();
    if (blocks == 0) return false;
    values = port->ValuesWaiting();
    if (const Impl::DATATYPE* type = impl->Type(INPUT, input)) elementSize = type->ElemSize();
    return true;
}

bool TCPortHelper::AnyDataAvail() const {
    return AnyHoldsBlock(impl->inputs);
}

int TCPortHelper::BlocksOnStream(PORTTYPE kind, unsigned index) const {
    const PORT* port = kind == INPUT || kind == OUTPUT ? impl->Port(kind, index) : nullptr;
    return port != nullptr ? port->stream->GetBlockCnt(nullptr) : 0;
}

std::int64_t TCPortHelper::GetBufferSize(unsigned input) const {
    const Impl::DATATYPE* type = impl->Type(INPUT, input);
    if (type == nullptr) return 0;
    const TCIOStream& stream = *impl->inputs[input].stream;
    std::int64_t values = 0;
    for (int i = stream.GetBlockCnt(nullptr); i-- > 0;) values += stream.GetBlockLen(i, 0);
    return values * type->ElemSize();
}

TCBLOCKSTATUS TCPortHelper::GetTypeInfo(unsigned input, TCTypeInfo* ti) const {
    const TCTypeInfo* last = LastTypeInfo(input);
    return last != nullptr ? CopyTypeInfo(last, ti) : INVALID;
}

const TCTypeInfo* TCPortHelper::LastTypeInfo(unsigned input) const {
    const PORT* port = impl->Port(INPUT, input);
    return port != nullptr && port->CarriesTypeInfo() ? &port->typeInfo : nullptr;
}

TCBLOCKSTATUS TCPortHelper::PeekTypeInfo(unsigned input, TCTypeInfo* ti) const {
    const PORT* port = impl->Port(INPUT, input);
    if (port == nullptr || !MayCarryTypeInfo(*port) || !port->HoldsBlock()) return INVALID;
    return CopyTypeInfo(port->stream->PeekTI(), ti);
}

TCBLOCKSTATUS TCPortHelper::PeekStatus(unsigned input, bool combine, int* blocks) const {
    const PORT* port = impl->Port(INPUT, input);
    if (port == nullptr || !MayCarryTypeInfo(*port) || !port->HoldsBlock()) return INVALID;
    if (blocks != nullptr) *blocks = port->stream->GetBlockCnt(nullptr);
    return port->stream->PeekStatus(combine);
}

bool TCPortHelper::TriggerDataAvail() const {
    if (const auto input = impl->SelectedExtPort()) {
        const PORT* port = impl->Port(INPUT, *input);
        if (port != nullptr && port->HoldsBlock()) return true;
    }
    if (impl->triggerGroups.empty()) return AnyDataAvail();
    const auto hasWork = [this](const auto& group) { return GroupHasWork(impl->inputs, group); };
    return std::ranges::any_of(impl->triggerGroups, hasWork) || UngroupedHoldsBlock(*impl);
}

int TCPortHelper::SynchronousDataAvail(const unsigned* inputs, unsigned count, unsigned checks) {
    if (inputs == nullptr) return 0;
    Waiting reference;
    unsigned referenceInput = 0;
    int common = INT_MAX;
    for (unsigned i = 0; i < count; ++i) {
        const PORT* port = impl->Port(INPUT, inputs[i]);
        if (port == nullptr) return 0;
        if (!port->IsConnected()) continue;
        Waiting waiting;
        int elementSize = 0;
        if (!DataAvail(inputs[i], waiting.state, waiting.blocks, waiting.values, elementSize)) return 0;
        if (!MayCarryTypeInfo(*port)) return 0;
        waiting.typeInfo = port->stream->PeekTI();
        if (common == INT_MAX) {
            reference = waiting;
            referenceInput = inputs[i];
        } else if (const int code = FirstDifference(reference, waiting, checks); code != 0) {
            return SetErrMsg(code, INPUT, referenceInput, static_cast<int>(inputs[i]));
        }
        common = std::min(common, waiting.blocks);
    }
    return common == INT_MAX ? 0 : common;
}

int TCPortHelper::SynchronousDataAvail(unsigned a, unsigned b, unsigned checks) {
    const unsigned inputs[] = {a, b};
    return SynchronousDataAvail(inputs, 2, checks);
}

bool TCPortHelper::IsPacketStart(unsigned input, bool peek) const {
    const PORT* port = impl->Port(INPUT, input);
    if (port == nullptr) return false;
    const TCBLOCKSTATUS last = port->typeInfo.GetState();
    const TCBLOCKSTATUS here = peek ? port->stream->PeekStatus(false) : last;
    const TCBLOCKSTATUS before = peek ? last : port->previousState;
    return tc::MarksBegin(here) || before == INVALID || tc::MarksEnd(before);
}

bool TCPortHelper::IsPacketStop(unsigned input) const {
    const PORT* port = impl->Port(INPUT, input);
    return port != nullptr && tc::MarksEnd(port->typeInfo.GetState());
}

TCBLOCKSTATUS TCPortHelper::ConvBlockState(TCBLOCKSTATUS state, unsigned parts, unsigned index,
                                           unsigned count) {
    const std::uint64_t end = std::uint64_t{index} + count;
    if (parts == 0 || end > parts) return INVALID;
    if (parts == 1) return state;
    if (index == 0) return tc::MarksBegin(state) ? START : BUSY;
    if (end < parts) return BUSY;
    return tc::MarksEnd(state) ? STOP : BUSY;
}

int TCPortHelper::RemoveContents(unsigned input, bool all) {
    PORT* port = impl->Port(INPUT, input);
    if (port == nullptr) return 0;
    int removed = 0;
    do {
        if (port->stream->RemoveContents(false) != 1) break;
        ++removed;
        if (port->CarriesTypeInfo()) port->KeepTypeInfo(port->stream->GetTI());
    } while (all && port->HoldsBlock());
    return removed;
}
