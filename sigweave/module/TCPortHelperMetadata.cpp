#include <cmath>
#include <limits>
#include <utility>

#include "sigweave/module/PortRecord.h"
#include "sigweave/services/SystemTime.h"

using Impl = TCPortHelper::TCPortHelperImpl;
using PORT = Impl::PORT;

namespace {

// Deliberate: an automatic timestamp or state that was given serves for one preparation, also when no block
// follows from it; modules count on the states that this makes.
constexpr tc::TypeInfoFlags USED_UP_WHEN_PREPARED(1u << tc::TIMESTAMP | 1u << tc::STATE);

void CopyRange(TCTypeInfo& to, const TCTypeInfo& from) {
    to.SetRangeMin(from.GetRangeMin());
    to.SetRangeMax(from.GetRangeMax());
}

void CopyExcept(const tc::TypeInfoFlags& kept, TCTypeInfo& to, const TCTypeInfo& from) {
    if (kept.none()) {  // the usual case, and much the faster one
        to = from;
        return;
    }
    if (!kept[tc::TIMESTAMP]) to.SetTimestamp(from.GetTimestamp());
    if (!kept[tc::STATE]) to.SetState(from.GetState());
    if (!kept[tc::NAME]) to.SetSignalnameString(from.GetSignalnameString());
    if (!kept[tc::RANGE]) CopyRange(to, from);
    if (!kept[tc::SAMPLERATE]) to.SetSamplerate(from.GetSamplerate());
    if (!kept[tc::UNIT]) to.SetUnit(from.GetUnit());
}

TCBLOCKSTATUS StateAfter(TCBLOCKSTATUS state) {
    switch (state) {
        case INVALID:
            return COMPLETE;
        case START:
            return BUSY;
        case STOP:
            return START;
        default:
            return state;
    }
}

bool IsPositive(double value) {
    return std::isfinite(value) && value > 0.0;
}

void RepairRange(TCTypeInfo& ti) {
    constexpr double LIMIT = std::numeric_limits<double>::max();
    double minimum = std::isfinite(ti.GetRangeMin()) ? ti.GetRangeMin() : -LIMIT;
    double maximum = std::isfinite(ti.GetRangeMax()) ? ti.GetRangeMax() : LIMIT;
    if (minimum > maximum) std::swap(minimum, maximum);
    ti.SetRangeMin(minimum);
    ti.SetRangeMax(maximum);
}

// What is no state becomes COMPLETE: a whole signal.
void RepairAsWhole(TCTypeInfo& ti) {
    if (ti.GetState() < START || ti.GetState() > COMPLETE) ti.SetState(COMPLETE);
    if (!IsPositive(ti.GetTimestamp())) ti.SetTimestamp(TCSystemTime());
    if (!IsPositive(ti.GetSamplerate())) ti.SetSamplerate(1.0);
    RepairRange(ti);
    if (!IsPositive(ti.GetUnit().GetFactor())) ti.GetUnit().SetFactor(1.0);
}

// The metadata of an output that may be given now: metadata without a receiver would be for nobody.
PORT* Settable(Impl& impl, unsigned output) {
    PORT* port = impl.Port(OUTPUT, output);
    return port != nullptr && port->CarriesTypeInfo() && port->IsConnected() ? port : nullptr;
}

}  // namespace

void PORT::KeepTypeInfo(const TCTypeInfo* ti) {
    previousState = typeInfo.GetState();
    if (ti != nullptr)
        typeInfo = *ti;
    else
        typeInfo.Init();
}

const PORT* Impl::LinkedInput(const PORT& output) const {
    const std::vector<unsigned>& linked = output.metadata.linkedInputs;
    for (const unsigned index : linked) {
        const PORT* input = Port(INPUT, index);
        if (input != nullptr && (linked.size() == 1 || input->IsConnected())) return input;
    }
    return nullptr;
}

void Impl::PrepareTypeInfo(PORT& port) {
    tc::OutputMetadata& meta = port.metadata;
    if (const PORT* input = LinkedInput(port)) {
        if (!input->CarriesTypeInfo()) return;
        const tc::TypeInfoFlags kept = meta.automatic | meta.given;
        CopyExcept(kept, port.typeInfo, input->typeInfo);
        if (!kept[tc::STATE]) port.previousState = input->typeInfo.GetState();
    }
    const tc::TypeInfoFlags made = meta.automatic & ~meta.given;
    if (made[tc::TIMESTAMP]) port.typeInfo.SetTimestamp(SyncTime());
    if (made[tc::STATE]) {
        port.previousState = StateAfter(port.previousState);
        port.typeInfo.SetState(port.previousState);
    }
    if (made[tc::NAME]) port.typeInfo.SetSignalname(port.name);
    meta.given &= ~(meta.automatic & USED_UP_WHEN_PREPARED);
}

int Impl::HandOverTypeInfo(PORT& port) {
    RepairAsWhole(port.typeInfo);
    port.previousState = port.typeInfo.GetState();
    return RecordConflict(port, port.stream->SetTI(&port.typeInfo, false));
}

int Impl::RecordConflict(PORT& port, int result) {
    tc::OutputMetadata& meta = port.metadata;
    const bool first = !std::exchange(meta.handedOverBefore, true);
    if (result >= 0) return result;
    const int code = Fail(port, result == STATE_CONFLICT && !first ? STATE_CONFLICT_AGAIN : result);
    meta.errorReceiver = error.otherIndex;
    return code;
}

int Impl::WriteTypeInfo(PORT& port) {
    if (!port.CarriesTypeInfo()) return 0;
    PrepareTypeInfo(port);
    return HandOverTypeInfo(port);
}

int Impl::FinishBlock(PORT& port, int result) {
    if (result < 0) return Fail(port, result);
    port.metadata.given &= tc::TypeInfoFlags(1u << tc::NAME);  // a name stays until it is given again
    return 0;
}

void TCPortHelper::UseAutoTypeInfo(unsigned output, bool timestamp, bool state, bool name, bool range,
                                   bool unit, bool samplerate) {
    PORT* port = impl->Port(OUTPUT, output);
    if (port == nullptr) return;
    tc::TypeInfoFlags& automatic = port->metadata.automatic;
    automatic[tc::TIMESTAMP] = timestamp;
    automatic[tc::STATE] = state;
    automatic[tc::NAME] = name;
    automatic[tc::RANGE] = range;
    automatic[tc::SAMPLERATE] = samplerate;
    automatic[tc::UNIT] = unit;
}

void TCPortHelper::UseTypeInfoFromInput(unsigned output, unsigned input) {
    UseTypeInfoFromInputs(output, &input, 1);
}

void TCPortHelper::UseTypeInfoFromInputs(unsigned output, const unsigned* inputs, unsigned count) {
    PORT* port = impl->Port(OUTPUT, output);
    if (port == nullptr) return;
    port->metadata.linkedInputs.clear();
    if (inputs != nullptr) port->metadata.linkedInputs.assign(inputs, inputs + count);
}

void TCPortHelper::SetTI_Timestamp(unsigned output, double milliseconds) {
    if (Settable(*impl, output) != nullptr)
        SetTypeInfo(output, &milliseconds, nullptr, nullptr, nullptr, nullptr, nullptr);
}

void TCPortHelper::SetTI_SignalName(unsigned output, const char* name) {
    if (Settable(*impl, output) != nullptr)
        SetTypeInfo(output, nullptr, nullptr, name, nullptr, nullptr, nullptr);
}

void TCPortHelper::SetTI_Samplerate(unsigned output, double perSecond) {
    if (Settable(*impl, output) != nullptr)
        SetTypeInfo(output, nullptr, nullptr, nullptr, nullptr, &perSecond, nullptr);
}

void TCPortHelper::SetTI_Range(unsigned output, double minimum, double maximum) {
    const double range[] = {minimum, maximum};
    if (Settable(*impl, output) != nullptr)
        SetTypeInfo(output, nullptr, nullptr, nullptr, range, nullptr, nullptr);
}

void TCPortHelper::SetTI_Unit(unsigned output, const TCSI_Unit& unit) {
    if (Settable(*impl, output) != nullptr)
        SetTypeInfo(output, nullptr, nullptr, nullptr, nullptr, nullptr, &unit);
}

void TCPortHelper::SetTI_Unit(unsigned output, const char* symbols, double factor) {
    TCSI_Unit unit;
    if (symbols == nullptr || !unit.FromString(symbols)) return;
    unit.SetFactor(factor);
    SetTI_Unit(output, unit);
}

void TCPortHelper::SetTypeInfo(unsigned output, const TCTypeInfo& ti) {
    const double timestamp = ti.GetTimestamp();
    const double samplerate = ti.GetSamplerate();
    const double range[] = {ti.GetRangeMin(), ti.GetRangeMax()};
    const TCBLOCKSTATUS state = ti.GetState();
    SetTypeInfo(output, &timestamp, &state, ti.GetSignalname(), range, &samplerate, &ti.GetUnit());
    // A record without a name gives none.
    PORT* port = impl->Port(OUTPUT, output);
    if (port != nullptr && port->typeInfo.GetSignalnameString().empty()) port->metadata.given.reset(tc::NAME);
}

void TCPortHelper::SetTypeInfo(unsigned output, const double* timestamp, const TCBLOCKSTATUS* state,
                               const char* name, const double* range, const double* samplerate,
                               const TCSI_Unit* unit) {
    PORT* port = impl->Port(OUTPUT, output);
    if (port == nullptr) return;
    TCTypeInfo& ti = port->typeInfo;
    if (timestamp != nullptr) ti.SetTimestamp(*timestamp);
    if (state != nullptr) ti.SetState(*state);
    if (name != nullptr) ti.SetSignalname(name);
    if (range != nullptr) {
        ti.SetRangeMin(range[0]);
        ti.SetRangeMax(range[1]);
    }
    if (samplerate != nullptr) ti.SetSamplerate(*samplerate);
    if (unit != nullptr) ti.SetUnit(*unit);
    tc::TypeInfoFlags& given = port->metadata.given;
    if (timestamp != nullptr) given.set(tc::TIMESTAMP);
    if (state != nullptr) given[tc::STATE] = *state != INVALID;
    if (name != nullptr) given.set(tc::NAME);
    if (range != nullptr) given.set(tc::RANGE);
    if (samplerate != nullptr) given.set(tc::SAMPLERATE);
    if (unit != nullptr) given.set(tc::UNIT);
}

int TCPortHelper::WriteTypeInfo(unsigned output) {
    PORT* port = impl->Port(OUTPUT, output);
    return port != nullptr ? impl->WriteTypeInfo(*port) : 0;
}
