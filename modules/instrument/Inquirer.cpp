#include "modules/instrument/Inquirer.h"

#include <cstring>
#include <utility>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/platform/Clock.h"
#include "sigweave/services/Bilingual.h"

namespace {

using tc::Bilingual;

constexpr std::size_t MOST_READINGS = 4096;
constexpr std::size_t MOST_VALUES = std::size_t{1} << 24;  // in all of them, beyond the last one

std::span<const std::byte> Line(const std::string& text) {
    return {reinterpret_cast<const std::byte*>(text.data()), text.size()};
}

double Now() {
    return tc::MachineClock().Milliseconds();
}

}  // namespace

Inquirer::Inquirer(std::unique_ptr<tc::ByteInput> connected, const InquirerPlan& inquirerPlan)
    : plan(inquirerPlan), instrument(std::move(connected)), answer(plan.blockFormat, plan.values) {
    thread = std::make_unique<tc::Thread>("instrument", [this] { Run(); });
}

Inquirer::~Inquirer() {
    stop.Set();
    thread.reset();
}

void Inquirer::Run() {
    if (!plan.commands.empty()) {
        const int error = instrument->Write(Line(plan.commands + "\n"));
        if (error != 0) {
            Fail(std::strerror(error));
            return;
        }
    }
    for (double due = Now(); Ask();) {
        due = std::max(due + plan.interval, Now() - plan.interval);
        if (!tc::MachineClock().WaitUntil(due, stop.GetHandle())) return;
    }
}

bool Inquirer::Ask() {
    answer.Forget();
    const int error = instrument->Write(Line(plan.query + "\n"));
    if (error != 0) return Fail(std::strerror(error));
    std::vector<double> values;
    if (!Await(values)) return false;
    Keep(std::move(values));
    return true;
}

// False when it failed, or was asked to stop.
bool Inquirer::Await(std::vector<double>& values) {
    std::byte buffer[65536];
    std::string error;
    const double due = Now() + plan.patience;
    while (true) {
        const tc::ByteInput::Reading reading = instrument->Read(buffer);
        if (reading.outcome == tc::ByteInput::END)
            return Fail(Bilingual("it closed the connection", "es hat die Verbindung geschlossen").Text());
        if (reading.outcome == tc::ByteInput::FAILED) return Fail(std::strerror(reading.error));
        if (reading.outcome == tc::ByteInput::DATA) {
            answer.Give({buffer, reading.bytes});
            const ScpiAnswer::State state = answer.Take(values, error);
            if (state == ScpiAnswer::COMPLETE) return true;
            if (state == ScpiAnswer::WRONG) return Fail(error);
            continue;
        }
        void* const handles[] = {stop.GetHandle(), instrument->Handle()};
        if (tc::WaitForAnyHandle(handles, due - Now()) == 0) return false;
        if (Now() >= due)
            return Fail(
                Bilingual("no answer to '%1' within %2 s; check the query and the timeout",
                          "keine Antwort auf '%1' innerhalb von %2 s; prüfen Sie Abfrage und Wartezeit")
                    .With({plan.query, tc::ShortestText(plan.patience / 1000.0)}));
    }
}

void Inquirer::Keep(std::vector<double> values) {
    const double now = tc::WallClockMilliseconds();
    const std::lock_guard lock(mutex);
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
