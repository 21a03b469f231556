#include "modules/instrument/Inquirer.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/services/Bilingual.h"

namespace {

using tc::Bilingual;

constexpr std::size_t MOST_READINGS = 4096;
constexpr std::size_t MOST_VALUES = std::size_t{1} << 24;  // in all of them, beyond the last one
constexpr double QUIET = 100.0;                            // ms, after a block of open length
constexpr double OVER = -1.0;

std::span<const std::byte> Line(const std::string& text) {
    return {reinterpret_cast<const std::byte*>(text.data()), text.size()};
}

}  // namespace

Inquirer::Inquirer(std::unique_ptr<tc::ByteInput> connected, const InquirerPlan& inquirerPlan)
    : plan(inquirerPlan),
      clock(plan.clock != nullptr ? *plan.clock : tc::MachineClock()),
      instrument(std::move(connected)),
      answer(plan.blockFormat, plan.values) {
    if (plan.hasThread) thread = std::make_unique<tc::Thread>("instrument", [this] { Run(); });
}

Inquirer::~Inquirer() {
    stop.Set();
    thread.reset();
}

void Inquirer::Run() {
    for (double until = 0.0; (until = Turn()) >= 0.0;) {
        void* const handles[] = {stop.GetHandle(), instrument->Handle()};
        if (clock.WaitForAny(handles, until) == 0) return;
    }
}

double Inquirer::Turn() {
    if (phase == Phase::BEGINNING) {
        if (!plan.commands.empty() && !Send(plan.commands)) return OVER;
        due = clock.Milliseconds();
        phase = Phase::RESTING;
    }
    if (!Listen()) return OVER;
    const double now = clock.Milliseconds();
    if (phase == Phase::AWAITING && !CheckTimes(now)) return OVER;
    if (phase == Phase::RESTING && now >= due && !Ask(now)) return OVER;
    if (phase == Phase::RESTING) return due;
    return settled > 0.0 ? std::min(settled, deadline) : deadline;
}

// A query may be late by an interval. Those that are missing beyond that are lost, of numbers; a block of
// samples is a signal of its own.
bool Inquirer::Ask(double now) {
    const double late = now - due - plan.interval;
    if (late > 0.0 && answered > 0) {
        const double missed = std::ceil(late / plan.interval);
        due += missed * plan.interval;
        const std::lock_guard lock(mutex);
        if (plan.blockFormat == nullptr) lost += static_cast<long long>(missed);
    }
    due += plan.interval;
    answer.Forget();
    settled = 0.0;
    deadline = now + plan.patience;
    phase = Phase::AWAITING;
    return Send(plan.query) && Listen();
}

bool Inquirer::Send(const std::string& line) {
    const int error = instrument->Write(Line(line + "\n"));
    return error == 0 || Fail(std::strerror(error));
}

// Reads all that is there now. What comes without having been asked for is dropped.
bool Inquirer::Listen() {
    std::byte buffer[65536];
    while (true) {
        const tc::ByteInput::Reading reading = instrument->Read(buffer);
        if (reading.outcome == tc::ByteInput::NOTHING) return true;
        if (reading.outcome == tc::ByteInput::DATA && phase == Phase::RESTING) continue;
        if (reading.outcome == tc::ByteInput::DATA) {
            answer.Give({buffer, reading.bytes});
            if (!TakeAnswer(false)) return false;
            continue;
        }
        if (settled > 0.0 && !TakeAnswer(true)) return false;
        return Fail(reading.outcome == tc::ByteInput::FAILED
                        ? std::strerror(reading.error)
                        : Bilingual("it closed the connection", "es hat die Verbindung geschlossen").Text());
    }
}

bool Inquirer::TakeAnswer(bool isAll) {
    std::vector<double> values;
    std::string error;
    const ScpiAnswer::State state = answer.Take(values, error, isAll);
    settled = state == ScpiAnswer::PERHAPS ? clock.Milliseconds() + QUIET : 0.0;
    if (state == ScpiAnswer::WRONG) return Fail(error);
    if (state == ScpiAnswer::COMPLETE) Keep(std::move(values));
    return true;
}

bool Inquirer::CheckTimes(double now) {
    const bool isSettled = settled > 0.0 && now >= std::min(settled, deadline);
    const bool isLate = now >= deadline;
    if ((isSettled || (isLate && plan.blockFormat != nullptr)) && !TakeAnswer(true)) return false;
    if (phase == Phase::RESTING || !isLate) return true;
    return Fail(Bilingual("no answer to '%1' within %2 s; check the query and the timeout",
                          "keine Antwort auf '%1' innerhalb von %2 s; prüfen Sie Abfrage und Wartezeit")
                    .With({plan.query, tc::ShortestText(plan.patience / 1000.0)}));
}

void Inquirer::Keep(std::vector<double> values) {
    const double now = plan.wallClock();
    phase = Phase::RESTING;
    const std::lock_guard lock(mutex);
    meter.Add(clock.Milliseconds(), ++answered);
    if (readings.size() == MOST_READINGS || (!readings.empty() && heldValues + values.size() > MOST_VALUES)) {
        ++lost;
        return;
    }
    heldValues += values.size();
    readings.push_back({now, std::exchange(lost, 0), std::move(values)});
    hasSome.Set();
}

bool Inquirer::Fail(const std::string& reason) {
    const std::lock_guard lock(mutex);
    broken = plan.name + ": " + reason;
    isOver = true;
    hasSome.Set();
    return false;
}

bool Inquirer::HasSome() const {
    const std::lock_guard lock(mutex);
    return isOver || !readings.empty();
}

double Inquirer::MeasuredRate() const {
    const std::lock_guard lock(mutex);
    return meter.Rate();
}

bool Inquirer::Take(Reading& reading, std::string& failure) {
    const std::lock_guard lock(mutex);
    if (readings.empty()) {
        failure = broken;
        return false;
    }
    reading = std::move(readings.front());
    readings.pop_front();
    heldValues -= reading.values.size();
    if (readings.empty() && !isOver) hasSome.Reset();
    return true;
}
