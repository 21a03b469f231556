#include "modules/filter/SectionCascade.h"

#include <algorithm>
#include <cmath>

namespace tc {

namespace {

// What rings out for long ends in numbers below 1e-308, with which processors calculate a hundred times
// slower. So it becomes silence, at samples that are counted from the signal's start: no result depends on
// the blocks.
constexpr double SILENCE = 1e-300;
constexpr int SILENCED_EVERY = 512;

double WithoutRest(double state) {
    return std::fabs(state) < SILENCE ? 0.0 : state;
}

}  // namespace

SectionCascade::SectionCascade(const std::vector<Section>& sections) {
    for (const Section& section : sections) stages.push_back({section});
}

void SectionCascade::Redesign(const std::vector<Section>& sections) {
    for (std::size_t i = 0; i < stages.size() && i < sections.size(); ++i)
        if (stages[i].section != sections[i]) Redesign(stages[i], sections[i]);
}

// A state is what its integrator holds and half a step more at the present slope.
void SectionCascade::Redesign(Stage& stage, const Section& section) {
    const bool hasOneIntegrator = section.drive == 0.0;
    const double halfStep =
        hasOneIntegrator ? section.pull / (2.0 - section.pull) : section.pull / section.drive;
    const double damping = hasOneIntegrator ? 0.0 : section.damping / section.drive - halfStep;
    stage.section = section;
    stage.s1 = stage.held1 + halfStep * (stage.x - stage.held2 - damping * stage.held1);
    stage.s2 = stage.held2 + halfStep * (hasOneIntegrator ? stage.x - stage.held2 : stage.held1);
}

void SectionCascade::Reset() {
    for (Stage& stage : stages) stage = {stage.section};
    untilSilenced = 0;
}

void SectionCascade::Settle(double value) {
    Reset();
    for (Stage& stage : stages) {
        stage.s2 = stage.x = stage.held2 = value;
        value *= stage.section.direct + 2 * stage.section.low;
    }
}

void SectionCascade::Run(const double* input, double* output, int count) {
    while (count > 0) {
        if (untilSilenced == 0) Silence();
        const int part = std::min(count, untilSilenced);
        RunAll(input, output, part);
        untilSilenced -= part;
        input += part;
        output += part;
        count -= part;
    }
}

void SectionCascade::Silence() {
    for (Stage& stage : stages) stage.s1 = WithoutRest(stage.s1), stage.s2 = WithoutRest(stage.s2);
    untilSilenced = SILENCED_EVERY;
}

void SectionCascade::RunAll(const double* input, double* output, int count) {
    const std::size_t paired = stages.size() / 2 * 2;
    for (std::size_t i = 0; i < paired; i += 2, input = output)
        RunStages<2>(&stages[i], input, output, count);
    if (paired < stages.size()) RunStages<1>(&stages[paired], input, output, count);
}

bool SectionCascade::IsFinite() const {
    return std::all_of(stages.begin(), stages.end(),
                       [](const Stage& stage) { return std::isfinite(stage.s1) && std::isfinite(stage.s2); });
}

// Two stages at once, and what waits for the last sample added last, keep the processor busy.
template <int COUNT>
void SectionCascade::RunStages(Stage* first, const double* input, double* output, int count) {
    Stage local[COUNT];
    std::copy_n(first, COUNT, local);
    const auto run = [&](int begin, int end) {
        for (int i = begin; i < end; ++i) {
            double x = input[i];
            for (Stage& stage : local) {
                const Section& a = stage.section;
                const double s1 = stage.s1;
                const double s2 = stage.s2;
                stage.s1 = (s1 + a.drive * x) - (a.drive * s2 + a.damping * s1);
                stage.s2 = (s2 + a.pull * x) + (a.drive * s1 - a.pull * s2);
                x = a.direct * x + (a.band * (s1 + stage.s1) + a.low * (s2 + stage.s2));
            }
            output[i] = x;
        }
    };
    run(0, count - 1);
    Stage before[COUNT];
    std::copy_n(local, COUNT, before);
    double x = input[count - 1];
    run(count - 1, count);
    for (int i = 0; i < COUNT; ++i) {
        Stage& stage = local[i];
        const double sum1 = before[i].s1 + stage.s1;
        const double sum2 = before[i].s2 + stage.s2;
        stage.x = x;
        stage.held1 = sum1 / 2;
        stage.held2 = sum2 / 2;
        x = stage.section.direct * x + (stage.section.band * sum1 + stage.section.low * sum2);
    }
    std::copy_n(local, COUNT, first);
}

}  // namespace tc
