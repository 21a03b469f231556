#include "modules/filter/SectionCascade.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace tc {

namespace {

// What rings out for long ends in numbers below 1e-308, with which processors calculate a hundred times
// slower. So it becomes silence, at samples that are counted from the signal's start: no result depends on
// the blocks.
constexpr double SILENCE = 1e-300;
constexpr int SILENCED_EVERY = 512;  // even: between pairs

double WithoutRest(double state) {
    return std::fabs(state) < SILENCE ? 0.0 : state;
}

// The states after a sample.
void Advance(const Section& section, double* states, double x) {
    const double s1 = states[0];
    const double s2 = states[1];
    states[0] = (s1 + section.drive * x) - (section.drive * s2 + section.damping * s1);
    states[1] = (s2 + section.pull * x) + (section.drive * s1 - section.pull * s2);
}

// What one of states and inputs, set to 1 while the others are 0, adds to the change of the states by a step
// of two samples, and to the outputs. The change is small where corners are low; it keeps all its digits.
void FillColumn(const Section& section, long double s1, long double s2, long double x0, long double x1,
                double (&column)[4]) {
    const auto change = [&](long double a, long double b, long double x, long double& da, long double& db) {
        da = section.drive * (x - b) - section.damping * a;
        db = section.drive * a + section.pull * (x - b);
    };
    const auto output = [&](long double a, long double b, long double da, long double db, long double x) {
        return section.direct * x + section.band * (2 * a + da) + section.low * (2 * b + db);
    };
    long double first[2];
    long double second[2];
    change(s1, s2, x0, first[0], first[1]);
    change(s1 + first[0], s2 + first[1], x1, second[0], second[1]);
    column[0] = static_cast<double>(first[0] + second[0]);
    column[1] = static_cast<double>(first[1] + second[1]);
    column[2] = static_cast<double>(output(s1, s2, first[0], first[1], x0));
    column[3] = static_cast<double>(output(s1 + first[0], s2 + first[1], second[0], second[1], x1));
}

// The states and the two inputs or outputs of a pair, in one register where the processor has such wide ones,
// else in two: every machine calculates the same.
using Four [[gnu::vector_size(32)]] = double;
using Mask [[gnu::vector_size(32)]] = long long;

}  // namespace

// Runs a few stages at once, which keeps the processor busy while each waits for its own last step.
struct SectionCascade::Kernel {
    using Work = void (*)(Stage* stages, int underWay, const double* input, double* output, int count);

    static constexpr std::size_t MOST_STAGES = 4;

    // Of a stage.
    struct Registers {
        Four ofInputs[2];
        Four ofStates[2];
        Four states;
    };

    template <std::size_t COUNT>
    [[gnu::always_inline]] static inline void Load(const Stage* stages, Registers (&registers)[COUNT]) {
#pragma GCC unroll 4
        for (std::size_t k = 0; k < COUNT; ++k) {
            for (int j = 0; j < 2; ++j) {
                std::memcpy(&registers[k].ofInputs[j], stages[k].step.ofInputs[j], sizeof(Four));
                std::memcpy(&registers[k].ofStates[j], stages[k].step.ofStates[j], sizeof(Four));
            }
            registers[k].states = Four{stages[k].states[0], stages[k].states[1]};
        }
    }

    // The states and outputs after a pair, whose inputs are the upper half of `inputs`. The first output has
    // nothing of the second input, not even where that is not finite.
    [[gnu::always_inline]] static inline void Step(const Registers& stage, const Four& inputs, Four& after) {
        constexpr Mask STATES = {-1, -1, 0, 0};
        constexpr Mask ALL_BUT_THE_FIRST_OUTPUT = {-1, -1, 0, -1};
        const Four& states = stage.states;
        const Four x0 = __builtin_shufflevector(inputs, inputs, 2, 2, 2, 2);
        const Four x1 = reinterpret_cast<Four>(
            reinterpret_cast<Mask>(__builtin_shufflevector(inputs, inputs, 3, 3, 3, 3)) &
            ALL_BUT_THE_FIRST_OUTPUT);
        const Four s1 = __builtin_shufflevector(states, states, 0, 0, 0, 0);
        const Four s2 = __builtin_shufflevector(states, states, 1, 1, 1, 1);
        const Four before = reinterpret_cast<Four>(reinterpret_cast<Mask>(states) & STATES);
        after = ((before + stage.ofInputs[0] * x0) + stage.ofInputs[1] * x1) +
                (stage.ofStates[0] * s1 + stage.ofStates[1] * s2);
    }

    // The second sample of the pair that is under way; answers the last stage's.
    template <std::size_t COUNT>
    [[gnu::always_inline]] static inline double RunSecond(Stage* stages, const Registers (&registers)[COUNT],
                                                          double x) {
        for (std::size_t k = 0; k < COUNT; ++k) {
            stages[k].inputs[1] = x;
            Four pair = {0.0, 0.0, stages[k].inputs[0], x};
            Step(registers[k], pair, pair);
            x = pair[3];
        }
        return x;
    }

    // One or two samples, with which a pair is under way: before and after in the upper half of `pair`.
    template <std::size_t COUNT>
    [[gnu::always_inline]] static inline void RunPair(Stage* stages, const Registers (&registers)[COUNT],
                                                      Four& pair) {
        for (std::size_t k = 0; k < COUNT; ++k) {
            for (int j = 0; j < 2; ++j) {
                stages[k].states[j] = registers[k].states[j];
                stages[k].inputs[j] = pair[j + 2];
            }
            Step(registers[k], pair, pair);
        }
    }

    template <std::size_t COUNT>
    [[gnu::always_inline]] static inline void Run(Stage* stages, int underWay, const double* input,
                                                  double* output, int count) {
        Registers registers[COUNT];
        Load(stages, registers);
        int i = 0;
        if (underWay == 1) output[i++] = RunSecond(stages, registers, input[0]);
        if (i == count) return;
        for (std::size_t k = 0; k < COUNT && underWay > 0; ++k) {
            const Four pair = {0.0, 0.0, stages[k].inputs[0], stages[k].inputs[1]};
            Step(registers[k], pair, registers[k].states);
        }
        for (; i + 2 < count; i += 2) {
            Four pair = {0.0, 0.0, input[i], input[i + 1]};
#pragma GCC unroll 4
            for (Registers& stage : registers) {
                Step(stage, pair, pair);
                stage.states = pair;
            }
            output[i] = pair[2];
            output[i + 1] = pair[3];
        }
        const bool whole = i + 1 < count;
        Four last = {0.0, 0.0, input[i], whole ? input[i + 1] : 0.0};
        RunPair(stages, registers, last);
        output[i] = last[2];
        if (whole) output[i + 1] = last[3];
    }

    template <std::size_t COUNT>
    static void RunNarrow(Stage* stages, int underWay, const double* input, double* output, int count) {
        Run<COUNT>(stages, underWay, input, output, count);
    }

    template <std::size_t COUNT>
    [[gnu::target("avx2")]] static void RunWide(Stage* stages, int underWay, const double* input,
                                                double* output, int count) {
        Run<COUNT>(stages, underWay, input, output, count);
    }

    // By the number of stages less one.
    static constexpr Work NARROW[MOST_STAGES] = {RunNarrow<1>, RunNarrow<2>, RunNarrow<3>, RunNarrow<4>};
    static constexpr Work WIDE[MOST_STAGES] = {RunWide<1>, RunWide<2>, RunWide<3>, RunWide<4>};
};

SectionCascade::Stage::Stage(const Section& wanted) : section(wanted) {
    FillColumn(section, 0.0L, 0.0L, 1.0L, 0.0L, step.ofInputs[0]);
    FillColumn(section, 0.0L, 0.0L, 0.0L, 1.0L, step.ofInputs[1]);
    FillColumn(section, 1.0L, 0.0L, 0.0L, 0.0L, step.ofStates[0]);
    FillColumn(section, 0.0L, 1.0L, 0.0L, 0.0L, step.ofStates[1]);
}

SectionCascade::SectionCascade(const std::vector<Section>& sections)
    : stages(sections.begin(), sections.end()) {}

void SectionCascade::Redesign(const std::vector<Section>& sections) {
    const std::size_t count = std::min(stages.size(), sections.size());
    if (std::equal(sections.begin(), sections.begin() + static_cast<std::ptrdiff_t>(count), stages.begin(),
                   [](const Section& section, const Stage& stage) { return section == stage.section; }))
        return;
    for (Stage& stage : stages) EndPair(stage);
    underWay = untilSilenced = 0;
    for (std::size_t i = 0; i < count; ++i)
        if (stages[i].section != sections[i]) Redesign(stages[i], sections[i]);
}

// A state is what its integrator holds and half a step more at the present slope.
void SectionCascade::Redesign(Stage& stage, const Section& section) {
    const bool hasOneIntegrator = section.drive == 0.0;
    const double halfStep =
        hasOneIntegrator ? section.pull / (2.0 - section.pull) : section.pull / section.drive;
    const double damping = hasOneIntegrator ? 0.0 : section.damping / section.drive - halfStep;
    Stage redesigned(section);
    redesigned.x = stage.x;
    std::copy_n(stage.held, 2, redesigned.held);
    redesigned.states[0] = stage.held[0] + halfStep * (stage.x - stage.held[1] - damping * stage.held[0]);
    redesigned.states[1] =
        stage.held[1] + halfStep * (hasOneIntegrator ? stage.x - stage.held[1] : stage.held[0]);
    stage = redesigned;
}

void SectionCascade::EndPair(Stage& stage) const {
    for (int i = 0; i < underWay; ++i) {
        const double before[] = {stage.states[0], stage.states[1]};
        stage.x = stage.inputs[i];
        Advance(stage.section, stage.states, stage.x);
        for (int j = 0; j < 2; ++j) stage.held[j] = (before[j] + stage.states[j]) / 2;
    }
}

void SectionCascade::Reset() {
    for (Stage& stage : stages) {
        std::fill_n(stage.states, 2, 0.0);
        std::fill_n(stage.held, 2, 0.0);
        stage.x = 0.0;
    }
    underWay = untilSilenced = 0;
}

void SectionCascade::Settle(double value) {
    Reset();
    for (Stage& stage : stages) {
        stage.states[1] = stage.x = stage.held[1] = value;
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
    for (Stage& stage : stages) {
        EndPair(stage);
        for (double& state : stage.states) state = WithoutRest(state);
    }
    underWay = 0;
    untilSilenced = SILENCED_EVERY;
}

void SectionCascade::RunAll(const double* input, double* output, int count) {
    static const auto& work = __builtin_cpu_supports("avx2") ? Kernel::WIDE : Kernel::NARROW;
    for (std::size_t i = 0; i < stages.size(); i += Kernel::MOST_STAGES, input = output)
        work[std::min(stages.size() - i, Kernel::MOST_STAGES) - 1](&stages[i], underWay, input, output,
                                                                   count);
    underWay = 2 - (count + underWay % 2) % 2;
}

bool SectionCascade::IsFinite() const {
    return std::all_of(stages.begin(), stages.end(), [&](Stage stage) {
        EndPair(stage);
        return std::isfinite(stage.states[0]) && std::isfinite(stage.states[1]);
    });
}

}  // namespace tc
