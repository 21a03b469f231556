#include "tests/host/RandomGraph.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace {

constexpr int ROOM = 16;  // of a line, as a run has it

struct Signal {
    std::string port;  // instance.Output
    std::string name;
    double rate = 0.0;
    int samples = 0;
    int blocks = 0;     // 0: not known
    double held = 0.0;  // s, that modules before it may hold back
    int uses = 0;
};

class Maker {
 public:
    explicit Maker(std::uint64_t seed, const std::string& folderOfFiles = "")
        : random(seed), folder(folderOfFiles) {}

    RandomGraph Make() {
        MakeSources();
        const int wanted = folder.empty() ? Between(2, 18) : Between(3, 32);
        while (instances < wanted) AddModule();
        // A source always leads somewhere; other outputs may be left alone.
        for (std::size_t i = 0; i < signals.size(); ++i)
            if (signals[i].uses == 0 && (i < sources || Chance(70))) AddSink({i});
        double held = 0.0;
        for (const Signal& signal : signals) held = std::max(held, signal.held);
        const double most = 2 * ROOM + 2 + std::ceil((held + 2 * longestBlock) / shortestBlock);
        return {sections + "[lines]\n" + lines, instances, static_cast<int>(most)};
    }

 private:
    int Between(int least, int most) { return least + static_cast<int>(random() % (most - least + 1U)); }
    bool Chance(int percent) { return Between(1, 100) <= percent; }
    int BlockSize() { return 1 << Between(4, 10); }

    void MakeSources() {
        const double rates[] = {8000.0, Chance(70) ? 8000.0 : 3000.0};
        const double duration = Chance(50) || !folder.empty() ? Between(1, 300) / 1000.0 : Between(1, 4);
        const int block = BlockSize();
        sources = static_cast<std::size_t>(Between(folder.empty() || Chance(60) ? 2 : 1, 5));
        if (!folder.empty() && Chance(40)) sources = 1;
        for (std::size_t i = 0; i < sources; ++i) {
            Signal signal;
            signal.rate = rates[Between(0, 1)];
            const double own = Chance(75) ? duration : Between(1, folder.empty() ? 2000 : 600) / 1000.0;
            const int size = Chance(60) ? block : BlockSize();
            const std::string instance = Add("Generator");
            signal.samples = std::max(1, static_cast<int>(std::lround(own * signal.rate)));
            signal.name = instance;
            sections += "form=noise\nseed=" + std::to_string(i) + "\nname=" + instance +
                        "\nrate=" + std::to_string(signal.rate) +
                        "\nduration=" + std::to_string(signal.samples / signal.rate) +
                        "\nblock=" + std::to_string(size) + "\nstart=2026-01-01\n";
            signal.port = instance + ".Signal";
            Cut(signal, size);
            signals.push_back(signal);
        }
    }

    std::string Add(const std::string& module) {
        const std::string name = "m" + std::to_string(++instances);
        sections += "[" + name + "]\nmodule=" + module + "\n";
        return name;
    }

    void Cut(Signal& signal, int size) {
        signal.blocks = (signal.samples + size - 1) / size;
        longestBlock = std::max(longestBlock, size / signal.rate);
        shortestBlock = std::min(shortestBlock, size / signal.rate);
    }

    void Wire(std::size_t from, const std::string& instance, const std::string& input) {
        ++signals[from].uses;
        lines += signals[from].port + "=" + instance + "." + input + "\n";
    }

    // Some signals that agree with one of them, which is among them.
    template <class Agree>
    std::vector<std::size_t> Choose(int most, Agree agree) {
        const auto first = static_cast<std::size_t>(Between(0, static_cast<int>(signals.size()) - 1));
        std::vector<std::size_t> chosen{first};
        for (std::size_t i = 0; i < signals.size() && static_cast<int>(chosen.size()) < most; ++i)
            if (i != first && Chance(60) && agree(signals[first], signals[i])) chosen.push_back(i);
        return chosen;
    }

    static bool SameRate(const Signal& a, const Signal& b) { return a.rate == b.rate; }

    void AddModule() {
        if (!folder.empty() && Chance(20)) return AddMeasurement();
        switch (Between(0, 6)) {
            case 0:
                return AddParallel("Filter", "corner=200\n", 0, Choose(4, [](auto&, auto&) { return true; }));
            case 1: {
                const int size = BlockSize();
                return AddParallel("Reblock", "size=" + std::to_string(size) + "\n", size,
                                   Choose(4, [](auto&, auto&) { return true; }));
            }
            case 2:
                return AddAlign();
            case 3:
                return AddMath();
            case 4:
            case 5:
                return AddBus();
            default:
                return AddSink(Choose(3, [](auto&, auto&) { return true; }));
        }
    }

    // One output for each input.
    void AddParallel(const std::string& module, const std::string& settings, int size,
                     const std::vector<std::size_t>& inputs) {
        const std::string instance = Add(module);
        sections += settings;
        for (std::size_t i = 0; i < inputs.size(); ++i) {
            const std::string port = "Signal " + std::to_string(i + 1);
            Wire(inputs[i], instance, port);
            Signal made = signals[inputs[i]];
            if (size > 0) {
                Cut(made, size);
                made.held += size / made.rate;
            }
            AddSignal(made, instance + "." + port);
        }
    }

    void AddSignal(Signal signal, const std::string& port) {
        signal.port = port;
        signal.uses = 0;
        signals.push_back(signal);
    }

    void AddAlign() {
        const bool pads = Chance(30);
        const std::vector<std::size_t> inputs = Choose(4, SameRate);
        int samples = signals[inputs.front()].samples;
        double held = 0.0;
        for (const std::size_t input : inputs) {
            samples =
                pads ? std::max(samples, signals[input].samples) : std::min(samples, signals[input].samples);
            held = std::max(held, signals[input].held);
        }
        const std::size_t first = signals.size();
        AddParallel("Align", pads ? "mode=pad\n" : "mode=drop\n", 0, inputs);
        for (std::size_t i = first; i < signals.size(); ++i) {
            signals[i].samples = samples;
            signals[i].blocks = 0;
            signals[i].held = held + longestBlock;
        }
    }

    void AddMath() {
        const std::vector<std::size_t> inputs = Choose(3, SameRate);
        const std::string instance = Add("Math");
        sections += "name=" + instance + "\n";
        Signal made = signals[inputs.front()];
        for (std::size_t i = 0; i < inputs.size(); ++i) {
            Wire(inputs[i], instance, "Signal " + std::to_string(i + 1));
            made.samples = std::min(made.samples, signals[inputs[i]].samples);
            made.held = std::max(made.held, signals[inputs[i]].held);
        }
        made.blocks = 0;
        made.name = instance;
        AddSignal(made, instance + ".Signal");
    }

    // What it makes is as long as nobody knows beforehand: a recorder takes it.
    void AddMeasurement() {
        static constexpr struct {
            const char* module;
            const char* settings;
            const char* outputs[2];
        } ROWS[] = {{"Delay", "by=samples\nsamples=700\n", {"Signal"}},
                    {"Delay", "time=0.1\nend=cut\n", {"Signal"}},
                    {"Histogram", "", {"Histogram", "Edges"}},
                    {"Level", "interval=0.001\n", {"Signal"}},
                    {"Peaks", "height=0.5\n", {"Signal"}},
                    {"Spectrogram", "length=16\noverlap=0.75\n", {"Signal"}},
                    {"Trigger", "level=0.9\nbefore=0\nafter=0.002\n", {"Signal"}}};
        const auto& [module, settings, outputs] = ROWS[Between(0, std::size(ROWS) - 1)];
        const std::vector<std::size_t> inputs = Choose(3, [](auto&, auto&) { return true; });
        const std::string instance = Add(module);
        sections += settings;
        const std::string recorder = Add("Recorder");
        sections += "file=" + folder + "/" + recorder + ".mcap\noverwrite=yes\n";
        int taken = 0;
        for (std::size_t i = 0; i < inputs.size(); ++i) {
            const std::string number = inputs.size() > 1 ? " " + std::to_string(i + 1) : "";
            Wire(inputs[i], instance, "Signal" + number);
            for (const char* output : outputs)
                if (output != nullptr)
                    lines += instance + "." + output + number + "=" + recorder + ".Signal " +
                             std::to_string(++taken) + "\n";
        }
    }

    // A join, and sometimes what takes it apart again.
    void AddBus() {
        std::vector<std::size_t> inputs = Choose(4, [](const Signal& a, const Signal& b) {
            return a.blocks > 0 && a.blocks == b.blocks && a.samples == b.samples && SameRate(a, b);
        });
        std::vector<std::size_t> named;
        for (const std::size_t input : inputs)
            if (std::ranges::none_of(named, [&](auto i) { return signals[i].name == signals[input].name; }))
                named.push_back(input);
        const std::string join = Add("BusJoin");
        for (std::size_t i = 0; i < named.size(); ++i)
            Wire(named[i], join, "Signal " + std::to_string(i + 1));
        const std::string select = Add("BusSelect");
        sections += "expression=.\nsignals=" + std::to_string(named.size()) + "\n";
        lines += join + ".Bus=" + select + ".Bus\n";
        for (std::size_t i = 0; i < named.size(); ++i)
            AddSignal(signals[named[i]], select + ".Channel " + std::to_string(i + 1));
    }

    void AddSink(const std::vector<std::size_t>& inputs) {
        if (!folder.empty() && Chance(50)) return AddFile(inputs);
        const bool isSpectrum = Chance(15);
        const std::string instance = Add(isSpectrum ? "Spectrum" : "Statistics");
        if (isSpectrum) sections += "length=64\n";
        for (std::size_t i = 0; i < inputs.size(); ++i)
            Wire(inputs[i], instance, "Signal " + std::to_string(i + 1));
    }

    void AddFile(std::vector<std::size_t> inputs) {
        static constexpr const char* MODULES[][2] = {
            {"Recorder", ".mcap"}, {"XmlRecorder", ".xml"}, {"CsvWriter", ".csv"}};
        const auto& [module, ending] = MODULES[Between(0, 2)];
        if (module != std::string("Recorder")) inputs.resize(1);
        const std::string instance = Add(module);
        sections += "file=" + folder + "/" + instance + ending + "\noverwrite=yes\n";
        for (std::size_t i = 0; i < inputs.size(); ++i)
            Wire(inputs[i], instance, "Signal " + std::to_string(i + 1));
    }

    std::mt19937_64 random;
    const std::string folder;
    std::string sections;
    std::string lines;
    int instances = 0;
    std::size_t sources = 0;
    std::vector<Signal> signals;
    double longestBlock = 0.0;  // s
    double shortestBlock = 1e9;
};

}  // namespace

RandomGraph MakeRandomGraph(std::uint64_t seed) {
    return Maker(seed).Make();
}

RandomGraph MakeRandomGraphWithFiles(std::uint64_t seed, const std::string& folder) {
    return Maker(seed, folder).Make();
}
