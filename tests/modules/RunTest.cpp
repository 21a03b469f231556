#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <numbers>
#include <sstream>

#include "tests/support/ModuleBench.h"
#include "tests/support/OwnFolder.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* RECORDING = "/usr/share/sounds/alsa/Front_Center.wav";  // 68545 samples

struct Outcome {
    int exitCode = -1;
    std::string verdict;
    // By quantity, and by the name of the signal or the instance and the quantity; blocks by the instance
    // that made them.
    std::map<std::string, double> results;
    std::map<std::string, int> blocks;
    std::string messages;
};

// Runs a copy of an example graph with the real program. Tests run side by side, so each has files of its
// own.
Outcome RunExample(const std::string& graph, const std::string& arguments, const std::string& feeder = "") {
    for (const char* file : {graph.c_str(), "steps.xml"})
        fs::copy_file(fs::path(SIGWEAVE_EXAMPLES) / file, fs::path(file).filename(),
                      fs::copy_options::overwrite_existing);
    const std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
    const std::string command = feeder + "LC_ALL=de_DE.UTF-8 " + SIGWEAVE_HOST + " run " +
                                fs::path(graph).filename().string() + " --report json " + arguments + " >" +
                                name + ".json 2>" + name + ".txt";
    Outcome outcome;
    outcome.exitCode = std::system(command.c_str()) >> 8;
    outcome.messages = ReadText(name + ".txt");
    const nlohmann::json report = nlohmann::json::parse(ReadText(name + ".json"));
    outcome.verdict = report["verdict"];
    for (const auto& module : report["modules"]) {
        outcome.blocks[module["instance"]] = module["blocks_out"];
        for (const auto& result : module["results"]) {
            const std::string quantity = result["quantity"];
            const std::string signal = result["signal"];
            const std::string instance = module["instance"];
            outcome.results[quantity] = outcome.results[signal + " " + quantity] =
                outcome.results[instance + " " + quantity] = result["value"];
        }
    }
    return outcome;
}

std::vector<double> ReadSamples(const char* path) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path, SFM_READ, &info);
    if (file == nullptr) return {};
    std::vector<short> samples(static_cast<std::size_t>(info.frames));
    sf_read_short(file, samples.data(), info.frames);
    sf_close(file);
    return {samples.begin(), samples.end()};
}

// |X[k]| of the first samples, by the definition: mean removed, periodic Hann window.
double Magnitude(const std::vector<double>& samples, int length, int bin) {
    long double mean = 0, real = 0, imaginary = 0;
    for (int i = 0; i < length; ++i)
        mean += static_cast<long double>(samples[static_cast<std::size_t>(i)]) / length;
    for (int i = 0; i < length; ++i) {
        const long double turn = 2 * std::numbers::pi_v<long double> * i / length;
        const long double value =
            (samples[static_cast<std::size_t>(i)] - mean) * (0.5L - 0.5L * std::cos(turn));
        real += value * std::cos(turn * bin);
        imaginary -= value * std::sin(turn * bin);
    }
    return static_cast<double>(std::hypot(real, imaginary));
}

TEST(Run, MeasuresARecordingRight) {
    const std::vector<double> samples = ReadSamples(RECORDING);
    if (samples.empty()) GTEST_SKIP() << RECORDING << " is not there";
    const std::string picture = FreshFile("voice.svg");
    Outcome run = RunExample("voice.graph", "--set spectrum.average=first --set spectrum.length=4000");
    ASSERT_EQ(run.exitCode, 0) << run.messages;
    EXPECT_EQ(run.verdict, "complete");
    long double sum = 0, squares = 0;
    for (const double value : samples) sum += value, squares += static_cast<long double>(value) * value;
    const auto count = static_cast<long double>(samples.size());
    EXPECT_EQ(run.results["samples"], static_cast<double>(count));
    EXPECT_EQ(run.results["min"], *std::min_element(samples.begin(), samples.end()));
    EXPECT_EQ(run.results["max"], *std::max_element(samples.begin(), samples.end()));
    EXPECT_DOUBLE_EQ(run.results["mean"], static_cast<double>(sum / count));
    EXPECT_DOUBLE_EQ(run.results["rms"], static_cast<double>(std::sqrt(squares / count)));
    EXPECT_DOUBLE_EQ(run.results["stddev"],
                     static_cast<double>(std::sqrt(count * squares - sum * sum) / count));
    const int bin = static_cast<int>(run.results["peak_bin"]);
    const double peak = Magnitude(samples, 4000, bin);
    EXPECT_NEAR(run.results["peak_magnitude"] / peak, 1.0, 1e-12);
    EXPECT_NEAR(run.results["peak_amplitude"] / (peak / 1000.0), 1.0, 1e-12);
    EXPECT_GT(peak, std::max(Magnitude(samples, 4000, bin - 1), Magnitude(samples, 4000, bin + 1)));
    EXPECT_NE(ReadText(picture).find("</svg>"), std::string::npos);
}

TEST(Run, ASoundFileThroughStandardInputGivesTheSameFigures) {
    const std::vector<double> samples = ReadSamples(RECORDING);
    if (samples.empty()) GTEST_SKIP() << RECORDING << " is not there";
    const std::string wave = ReadText(RECORDING);
    std::string endless = wave;  // as recorders write it before they know the length
    for (const std::size_t at : {std::size_t{4}, wave.find("data") + 4})
        endless.replace(at, 4, "\xFF\xFF\xFF\x7F");
    std::ofstream("endless.wav", std::ios::binary) << endless;
    std::ofstream("cut.wav", std::ios::binary) << wave.substr(0, wave.size() - 2000);
    SF_INFO info{};
    info.samplerate = 48000;
    info.channels = 1;
    info.format = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
    SNDFILE* const flac = sf_open("voice.flac", SFM_WRITE, &info);
    const std::vector<short> values(samples.begin(), samples.end());
    sf_write_short(flac, values.data(), static_cast<sf_count_t>(values.size()));
    sf_close(flac);
    const std::string settings = "--set voice.file=- --set picture.file=piped.svg ";
    Outcome file = RunExample("voice.graph", "--set picture.file=piped.svg");
    for (const std::string& name :
         {std::string(RECORDING), std::string("endless.wav"), std::string("voice.flac")}) {
        FreshFile("piped.svg");
        Outcome piped = RunExample("voice.graph", settings, "cat " + name + " | ");
        EXPECT_EQ(piped.exitCode, 0) << name << piped.messages;
        for (const char* const quantity : {"samples", "mean", "rms", "peak_frequency", "peak_magnitude"})
            EXPECT_EQ(piped.results[quantity], file.results[quantity]) << name << quantity;
    }
    Outcome cut = RunExample("voice.graph", settings + "< cut.wav");
    EXPECT_EQ(cut.verdict, "failed");
    EXPECT_EQ(cut.results["samples"], 67545.0) << "what was there";
    EXPECT_NE(cut.messages.find("versprochen sind 68545 Abtastwerte, enthalten 67545"), std::string::npos)
        << cut.messages;
    EXPECT_EQ(RunExample("voice.graph", settings + "< /dev/null").verdict, "mistakes");
}

TEST(Run, CapturesFromASoundDevice) {
    // A device that reads a file, and one that has one rate and one format.
    std::ofstream("asound.conf")
        << "pcm.nothing { type null }\n"
           "pcm.filein { type file\n slave.pcm nothing\n file /dev/null\n format raw\n infile "
           "\"captured.raw\"\n"
           " hint.description \"a file\" }\n"
           "pcm.fixed { type share\n slave { pcm nothing\n rate 44100\n format S16_LE\n channels 2 }\n"
           " bindings.0 0\n bindings.1 1 }\n";
    std::ofstream raw("captured.raw", std::ios::binary);
    for (int i = 0; i < 16000; ++i)
        for (const int value : {i % 1000, -3})
            raw.put(static_cast<char>(value)).put(static_cast<char>(value >> 8));
    raw.close();
    const std::string devices = "ALSA_CONFIG_PATH=$PWD/asound.conf ";
    const std::string first = "--set microphone.device=filein ";
    Outcome run =
        RunExample("capture.graph", first + "--set microphone.block=8000 --for 8000samples", devices);
    // Nothing paces this device: how much of what it gives is lost depends on the machine.
    EXPECT_TRUE(run.verdict == "complete" || run.verdict == "gaps") << run.messages;
    EXPECT_EQ(run.results["Channel 1 max"], 999.0 * 0.5);
    EXPECT_EQ(run.results["Channel 2 min"], -3.0);
    EXPECT_EQ(run.results["samples"], 8000.0);
    EXPECT_GT(run.results["calibration age"], 0.0);
    run = RunExample("capture.graph", "--set microphone.device=fixed", devices);
    EXPECT_EQ(run.verdict, "mistakes");
    EXPECT_NE(run.messages.find("microphone.rate: 8000 ist mit fixed nicht möglich; es hat 44100"),
              std::string::npos)
        << run.messages;
    for (const char* wrong :
         {"3: 1 Pa", "0: 1 Pa", "1 1 Pa", "1: x", "1: 0 Pa", "1: inf Pa", "1: 1 °C", "1: 1 Pa 2026-02-30"}) {
        run = RunExample("capture.graph", first + "--set 'microphone.calibration=" + wrong + "'", devices);
        EXPECT_EQ(run.verdict, "mistakes") << wrong;
    }
    run = RunExample("capture.graph", "--set microphone.device=none", devices);
    EXPECT_NE(run.messages.find("device: none kann nicht geöffnet werden"), std::string::npos)
        << run.messages;
    const std::string list = devices + SIGWEAVE_HOST " devices --json >devices.json";
    ASSERT_EQ(std::system(list.c_str()), 0);
    nlohmann::json found = nlohmann::json::parse(ReadText("devices.json"));
    std::erase_if(found.get_ref<nlohmann::json::array_t&>(),
                  [](const nlohmann::json& device) { return device["kind"] != "sound"; });
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0]["name"], "filein");
    EXPECT_EQ(found[0]["text"], "a file");
    EXPECT_EQ(found[0]["formats"][0]["range"], nlohmann::json({-32768, 32767}));
}

TEST(Run, ACheckSeesThatAPlaceIsNone) {
    fs::create_directory("folder");
    std::ofstream("no-socket") << "text";
    for (const char* const settings : {"--set microphone.from=file --set microphone.file=folder",
                                       "--set microphone.from=unix --set microphone.file=no-socket",
                                       "--set microphone.from=unix --set microphone.file=missing"}) {
        const Outcome run = RunExample("pipe.graph", settings);
        EXPECT_EQ(run.verdict, "mistakes") << settings;
        EXPECT_NE(run.messages.find("microphone.file: "), std::string::npos) << run.messages;
    }
}

// In a namespace in which the machine has one serial line and no sound device.
TEST(Run, SerialLinesAreDevices) {
    fs::create_directory("lines");
    std::error_code exists;
    fs::create_symlink("../../devices/platform/uart/tty/ttyUART7", "lines/ttyUART7", exists);
    const std::string inside = "unshare -Urm sh -c 'mount --bind lines /sys/class/tty";
    if (std::system((inside + "' 2>/dev/null").c_str()) != 0) GTEST_SKIP() << "no namespaces here";
    std::ofstream("silent.conf") << "";
    ASSERT_EQ(std::system((inside + " && ALSA_CONFIG_PATH=$PWD/silent.conf " SIGWEAVE_HOST
                                    " devices --json >lines.json'")
                              .c_str()),
              0);
    EXPECT_EQ(nlohmann::json::parse(ReadText("lines.json")),
              nlohmann::json::parse(R"([{"kind": "serial", "name": "/dev/ttyUART7", "text": "ttyUART7"}])"));
}

TEST(Run, RawSamplesThroughAPipe) {
    std::ofstream raw("samples.raw", std::ios::binary);
    for (int i = 0; i < 48000; ++i) {
        const auto left =
            static_cast<short>(std::lround(1000.0 * std::sin(2.0 * std::numbers::pi * 440.0 * i / 48000)));
        for (const short value : {left, static_cast<short>(-7)}) {
            raw.put(static_cast<char>(value & 0xFF));
            raw.put(static_cast<char>(value >> 8));
        }
    }
    raw.close();
    Outcome run = RunExample("pipe.graph", "", "cat samples.raw | ");
    EXPECT_EQ(run.exitCode, 0) << run.messages;
    EXPECT_EQ(run.verdict, "complete");
    EXPECT_EQ(run.results["samples"], 48000.0);
    EXPECT_EQ(run.results["peak_frequency"], 440.0);
    EXPECT_NEAR(run.results["peak_amplitude"], 1000.0, 0.1);
    EXPECT_EQ(run.results["Channel 2 mean"], -7.0);
    run = RunExample("pipe.graph", "--for 0.5s < samples.raw");
    EXPECT_EQ(run.verdict, "complete");
    EXPECT_EQ(run.results["samples"], 24000.0);
    run = RunExample("pipe.graph", "<&-");
    EXPECT_EQ(run.verdict, "failed") << "the program was started without standard input";
    run = RunExample("pipe.graph", "--set microphone.channels=7 < samples.raw");
    EXPECT_EQ(run.verdict, "failed") << "192,000 bytes are no whole number of 14";
    EXPECT_NE(run.messages.find("4 Bytes bleiben übrig"), std::string::npos) << run.messages;
}

TEST(Run, MeasuresWhatThereIsOfAFileThatBreaksOff) {
    if (!fs::exists(RECORDING)) GTEST_SKIP() << RECORDING << " is not there";
    const std::string path = FreshFile("cut-voice.wav");
    fs::copy_file(RECORDING, path);
    fs::resize_file(path, fs::file_size(path) - 2 * 1000);
    Outcome run = RunExample("voice.graph", "--set picture.file=cut-voice.svg --set voice.file=" + path);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.verdict, "failed");
    EXPECT_EQ(run.results["samples"], 67545.0);
    EXPECT_NE(run.messages.find("versprochen sind 68545 Abtastwerte, enthalten 67545"), std::string::npos)
        << run.messages;
}

TEST(Run, MeasuresAToneAsItWasMade) {
    Outcome run = RunExample("tone.graph", "");
    ASSERT_EQ(run.exitCode, 0) << run.messages;
    EXPECT_EQ(run.results["samples"], 441000.0);
    EXPECT_NEAR(run.results["rms"], std::numbers::sqrt2 / 2, 1e-12);
    EXPECT_NEAR(run.results["mean"], 0.0, 1e-12);
    EXPECT_EQ(run.results["peak_frequency"], 440.0);
    EXPECT_NEAR(run.results["peak_amplitude"], 1.0, 1e-12);
}

// Row 1003 is the sweep after t = 1000 / 16000 s: sin(2 pi (100 t + 4900 t t / 4)).
TEST(Run, WritesASweepAndNoiseAsColumnsAndAsAPicture) {
    const std::string picture = FreshFile("sweep.png");
    Outcome run = RunExample("sweep.graph", "");
    ASSERT_EQ(run.exitCode, 0) << run.messages;
    EXPECT_EQ(run.blocks["sweep"], 32);
    std::istringstream table(ReadText("sweep.csv"));
    std::vector<std::string> rows;
    for (std::string row; std::getline(table, row);) rows.push_back(row);
    ASSERT_EQ(rows.size(), 3u + 32000u);
    EXPECT_EQ(rows[0] + rows[1] + rows[2], "time,sweep,noises,V,Vsamplerate,16000,16000");
    EXPECT_TRUE(rows[1003].starts_with("0.0625,"));
    EXPECT_NEAR(std::stod(rows[1003].substr(7)), 0.21910124015686902, 1e-12);
    EXPECT_TRUE(ReadText(picture).starts_with("\x89PNG"));
}

// By SciPy: sosfilt(butter(6, [1000, 2000], "bandpass", fs=16000, output="sos"), sweep), and rfft with a Hann
// window.
TEST(Run, FiltersASweep) {
    Outcome run = RunExample("filter.graph", "");
    ASSERT_EQ(run.exitCode, 0) << run.messages;
    EXPECT_NEAR(run.results["rms"], 0.321077922202394, 1e-12);
    EXPECT_NEAR(run.results["max"], 1.0055275638999097, 1e-12);
    EXPECT_NEAR(run.results["min"], -1.0054696673891146, 1e-12);
    EXPECT_EQ(run.results["peak_frequency"], 1863.0);
    EXPECT_NEAR(run.results["peak_magnitude"], 129.28878032206717, 1e-9);
}

// By NumPy: v' = w (A v + B x) with A = [[-sqrt 2, -1], [1, 0]] and B = [1, 0], its second component, by the
// trapezoidal rule (linalg.solve at each sample), where w follows from the corner as tan(pi corner / 48000).
// For block b of 480 samples that is value b - 1 of the slow sine, for the first one the setting.
TEST(Run, ASlowSineMovesAFiltersCorner) {
    Outcome run = RunExample("wobble.graph", "");
    ASSERT_EQ(run.exitCode, 0) << run.messages;
    EXPECT_NEAR(run.results["rms"], 0.4811309473259305, 1e-12);
    EXPECT_NEAR(run.results["max"], 0.9641631389051998, 1e-12);
    EXPECT_NEAR(run.results["min"], -0.9641589240313033, 1e-12);
    EXPECT_EQ(run.results["driving values"], 199.0);
}

// By NumPy and SciPy: the spectrum of the whole recording times the formula of the A weighting, its
// exponential average by lfilter, and sosfilt(butter(4, edges, "bandpass", fs=48000, output="sos")) of each
// band.
TEST(Run, MeasuresSoundLevels) {
    if (!fs::exists(RECORDING)) GTEST_SKIP() << RECORDING << " is not there";
    const std::string picture = FreshFile("sound-level.svg");
    Outcome run = RunExample("sound-level.graph", "");
    ASSERT_EQ(run.exitCode, 0) << run.messages;
    EXPECT_NEAR(run.results["Leq_dB"], 70.3857, 0.02);
    EXPECT_NEAR(run.results["Lmax_dB"], 76.1382, 0.05) << "by a filter without delay";
    const std::pair<const char*, double> bands[] = {
        {"band_200_Hz_dB", 68.8773}, {"band_250_Hz_dB", 71.4569},  {"band_500_Hz_dB", 57.8176},
        {"band_800_Hz_dB", 64.5906}, {"band_1600_Hz_dB", 58.7762}, {"band_8000_Hz_dB", 60.1706}};
    for (const auto& [band, level] : bands)
        EXPECT_NEAR(run.results[std::string("thirds ") + band], level, 0.02) << band;
    EXPECT_NE(ReadText(picture).find("</svg>"), std::string::npos);
}

// What scipy.signal.find_peaks answers of its own recording, of which python3 makes a file.
TEST(Run, FindsHeartBeats) {
    std::ofstream("heart.py") << "import numpy, wave\n"
                                 "from scipy import misc\n"
                                 "file = wave.open('heart.wav', 'wb')\n"
                                 "file.setnchannels(1), file.setsampwidth(2), file.setframerate(360)\n"
                                 "steps = numpy.round(misc.electrocardiogram() / 0.005)\n"
                                 "file.writeframes(steps.astype('<i2').tobytes())\n";
    if (std::system("/usr/bin/python3 heart.py 2>heart.err") != 0)
        GTEST_SKIP() << "python3 with SciPy and its electrocardiogram is not there: "
                     << ReadText("heart.err");
    Outcome run = RunExample("heart.graph", "");
    ASSERT_EQ(run.exitCode, 0) << run.messages;
    EXPECT_EQ(run.results["peaks"], 479.0);
    EXPECT_NEAR(run.results["interval_mean"], 0.6261390051139004, 1e-12);
    EXPECT_NEAR(run.results["interval_min"], 0.25, 1e-12);
    EXPECT_NEAR(run.results["interval_max"], 7.972222222222222, 1e-12);
    EXPECT_NEAR(run.results["interval_stddev"], 0.4796729, 1e-5) << "one beat is one of two equal peaks";
    EXPECT_NEAR(run.results["prominence_mean"], 2.0875678496868475, 1e-12);
}

// By the formula, at the bins from 23 Hz to 10 kHz; 0 Hz has no noise, because the mean is removed.
TEST(Run, MeasuresTheTransferFunctionOfAFilter) {
    const std::string table = FreshFile("transfer.csv"), picture = FreshFile("transfer.svg");
    Outcome run = RunExample("transfer.graph", "");
    ASSERT_EQ(run.exitCode, 0) << run.messages;
    std::istringstream rows(ReadText(table));
    std::string row;
    for (int header = 0; header < 4; ++header) std::getline(rows, row);
    int bins = 0;
    for (double frequency = 0, magnitude = 0, coherence = 0; std::getline(rows, row) && frequency < 10000;
         ++bins) {
        ASSERT_EQ(std::sscanf(row.c_str(), "%lf,%lf,%lf", &frequency, &magnitude, &coherence), 3) << row;
        const double ratio =
            std::tan(std::numbers::pi * frequency / 48000) / std::tan(std::numbers::pi * 2000 / 48000);
        EXPECT_NEAR(magnitude, 1 / std::sqrt(1 + std::pow(ratio, 8)), 0.002) << frequency;
        EXPECT_GT(coherence, frequency < 6000 ? 0.99 : 0.0) << frequency;
    }
    EXPECT_GT(bins, 400);
    EXPECT_NE(ReadText(picture).find("</svg>"), std::string::npos);
}

TEST(Run, DrawsASpectrogram) {
    if (!fs::exists(RECORDING)) GTEST_SKIP() << RECORDING << " is not there";
    const std::string picture = FreshFile("spectrogram.svg");
    Outcome run = RunExample("spectrogram.graph", "");
    ASSERT_EQ(run.exitCode, 0) << run.messages;
    EXPECT_EQ(run.results["slices"], 264.0) << "one for each 256 of 68545 samples, the first after 1024";
    EXPECT_NE(ReadText(picture).find("data:image/png;base64,"), std::string::npos);
}

// As many as the recording was made of, as far apart.
TEST(Run, CountsSteps) {
    if (std::system(SIGWEAVE_EXAMPLES "/make-walk >walk.txt") != 0)
        GTEST_SKIP() << "python3, which makes the recording, is not there";
    double steps = 0, interval = 0;
    std::istringstream(ReadText("walk.txt")) >> steps >> interval;
    const std::string picture = FreshFile("walk.svg");
    Outcome run = RunExample("walk.graph", "");
    ASSERT_EQ(run.exitCode, 0) << run.messages;
    EXPECT_EQ(run.results["peaks"], steps);
    EXPECT_NEAR(run.results["interval_mean"], interval, 0.001);
    EXPECT_NE(ReadText(picture).find("</svg>"), std::string::npos);
}

// With the amplitudes U and I and the angle phi: U I / 2 cos(phi) in the mean, and U I / 2 to either side of
// it.
TEST(Run, ComputesThePowerOfALoad) {
    Outcome run = RunExample("power.graph", "");
    ASSERT_EQ(run.exitCode, 0) << run.messages;
    EXPECT_NEAR(run.results["mean"], 812.5, 1e-9);
    EXPECT_NEAR(run.results["max"], 2437.5, 1e-9);
    EXPECT_NEAR(run.results["min"], -812.5, 1e-9);
}

// The mean of |sin| at 960 equal steps of a period is cot(pi / 960) / 480. Both forms of the graph say the
// same.
TEST(Run, RectifiesASine) {
    for (const char* graph : {"rectify.graph", "rectify-graph.xml"}) {
        Outcome run = RunExample(graph, "--module-path " SIGWEAVE_EXAMPLE_MODULES ":" SIGWEAVE_MODULE_DIR);
        ASSERT_EQ(run.exitCode, 0) << run.messages;
        EXPECT_NEAR(run.results["mean"], 1.0 / std::tan(std::numbers::pi / 960) / 480, 1e-12) << graph;
    }
}

TEST(Run, AmplifiesInStages) {
    const std::string modules = "--module-path " SIGWEAVE_EXAMPLE_MODULES ":" SIGWEAVE_MODULE_DIR;
    Outcome run = RunExample("stages.graph", modules);
    ASSERT_EQ(run.exitCode, 0) << run.messages;
    EXPECT_NEAR(run.results["max"], 5.0, 1e-12);
    EXPECT_NEAR(run.results["rms"], 5.0 / std::numbers::sqrt2, 1e-12);
    run = RunExample("stages.graph", modules + " --set 'amplifier.stages=first'");
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_NE(run.messages.find("amplifier.stages: expected rows"), std::string::npos) << run.messages;
}

// Names and texts to the letter; numbers but for the last digits, which the system's sine may round
// otherwise.
TEST(Run, ReportsAsTheExampleSays) {
    RunExample("rectify.graph", "--module-path " SIGWEAVE_EXAMPLE_MODULES ":" SIGWEAVE_MODULE_DIR);
    const auto made = nlohmann::json::parse(ReadText("ReportsAsTheExampleSays.json")).flatten();
    const auto shown = nlohmann::json::parse(ReadText(SIGWEAVE_EXAMPLES "/rectify-report.json")).flatten();
    ASSERT_EQ(made.size(), shown.size());
    for (const auto& [name, value] : shown.items()) {
        ASSERT_TRUE(made.contains(name)) << name;
        if (name == "/seconds") continue;
        const bool isNumber = value.is_number() && made[name].is_number();
        EXPECT_TRUE(isNumber ? std::fabs(made[name].get<double>() - value.get<double>()) < 1e-12
                             : made[name] == value)
            << name;
    }
}

TEST(Run, RecordsAsTheExampleSays) {
    Outcome run = RunExample("record.graph", "--set 'record.file=example-{n}.xml'");
    ASSERT_EQ(run.exitCode, 0) << run.messages;
    EXPECT_EQ(run.results["blocks"], 12.0);  // 12000 samples of noise
    const std::string recording = ReadText("example-1.xml");
    EXPECT_NE(recording.find("<Samplerate>0x1.7700000000000p+15</Samplerate>"), std::string::npos);  // 48000
    EXPECT_NE(recording.find("<State Value=\"2\">STOP</State>"), std::string::npos);
}

// The values 1 to 4 and -1 to -4.
TEST(Run, PlaysARecording) {
    Outcome run = RunExample("play.graph", "");
    ASSERT_EQ(run.exitCode, 0) << run.messages;
    EXPECT_EQ(run.results["samples"], 8.0);
    EXPECT_EQ(run.results["min"], -4.0);
    EXPECT_EQ(run.results["mean"], 0.0);
    EXPECT_DOUBLE_EQ(run.results["rms"], std::sqrt(7.5));
}

TEST(Run, WritesTheSameFilesAndFiguresInEitherLanguage) {
    const auto run = [](const std::string& language) {
        return RunExample("record.graph", "--set 'record.file=same-{n}.xml' --language " + language);
    };
    const Outcome english = run("en");
    const std::string recordings = ReadText("same-1.xml") + ReadText("same-2.xml");
    const Outcome german = run("de");
    ASSERT_EQ(english.exitCode, 0) << english.messages;
    EXPECT_EQ(german.exitCode, 0);
    EXPECT_TRUE(english.messages.starts_with("complete: ")) << english.messages;
    EXPECT_TRUE(german.messages.starts_with("vollständig: ")) << german.messages;
    EXPECT_EQ(german.verdict, "complete");
    EXPECT_EQ(german.results, english.results);
    EXPECT_EQ(ReadText("same-1.xml") + ReadText("same-2.xml"), recordings);
}

// Ten blocks of 0.1 s, instead of 47 of 1024 samples.
TEST(Run, CutsATone) {
    Outcome run = RunExample("reblock.graph", "");
    ASSERT_EQ(run.exitCode, 0) << run.messages;
    EXPECT_EQ(run.blocks["tone"], 47);
    EXPECT_EQ(run.blocks["tenths"], 10);
    EXPECT_EQ(run.results["samples"], 48000.0);
    EXPECT_DOUBLE_EQ(run.results["rms"], std::sqrt(0.5));
}

// Sines of 3 V and 1 V that are in phase only when the first one's first 0.25 s are left out.
TEST(Run, AlignsTwoRecordings) {
    Outcome run = RunExample("align.graph", "");
    ASSERT_EQ(run.exitCode, 0) << run.messages;
    EXPECT_EQ(run.results["Signal 1 passed"], 12000.0);
    EXPECT_EQ(run.results["Signal 1 dropped"], 4000.0);
    EXPECT_EQ(run.results["Signal 2 passed"], 12000.0);
    EXPECT_EQ(run.results["Signal 2 dropped"], 0.0);
    EXPECT_EQ(run.results["samples"], 12000.0);
    EXPECT_NEAR(run.results["rms"], std::numbers::sqrt2, 1e-12);
}

// Of three signals on a bus the two in volts are selected, and measured.
TEST(Run, SelectsChannels) {
    Outcome run = RunExample("channels.graph", "");
    ASSERT_EQ(run.exitCode, 0) << run.messages;
    EXPECT_EQ(run.results["mic left samples"], 8000.0);
    EXPECT_NEAR(run.results["mic left rms"], std::sqrt(0.5), 1e-12);
    EXPECT_NEAR(run.results["mic right rms"], std::sqrt(0.125), 1e-12);
    EXPECT_FALSE(run.results.contains("force rms"));
}

// Ctrl-C while the picture is drawn, by a program that goes on when it is told to.
TEST(Run, DrawsThePictureOfAnInterruptedRun) {
    fs::create_directories("fake");
    std::ofstream("fake/gnuplot")
        << "#!/bin/sh\ntouch drawing\nwhile [ ! -e go ]; do :; done\necho '<svg></svg>'\n";
    fs::permissions("fake/gnuplot", fs::perms::owner_all);
    std::ofstream("drawn.graph")
        << "[a]\nmodule=Generator\nduration=0.01\n[p]\nmodule=Plot\nfile=drawn.svg\n[lines]\n"
           "a.Signal=p.Signal\n";
    for (const char* file : {"drawing", "go", "drawn.svg"}) fs::remove(ProgramFolder() / file);
    const pid_t host = fork();
    if (host == 0) {
        setpgid(0, 0);
        setenv("PATH", (fs::absolute("fake").string() + ":" + std::getenv("PATH")).c_str(), 1);
        execl(SIGWEAVE_HOST, SIGWEAVE_HOST, "run", "drawn.graph", nullptr);
        _exit(127);
    }
    while (!fs::exists("drawing") && waitpid(host, nullptr, WNOHANG) == 0) continue;
    kill(-host, SIGINT);
    std::ofstream("go").close();
    int status = 0;
    ASSERT_EQ(waitpid(host, &status, 0), host);
    EXPECT_TRUE(WIFEXITED(status)) << status;
    EXPECT_EQ(ReadText("drawn.svg"), "<svg></svg>\n");
}

TEST(Run, ReportsAFileThatGetsLargerThanItMay) {
    std::ofstream("large.graph")
        << "[a]\nmodule=Generator\nduration=10\n[t]\nmodule=CsvWriter\nfile=large.csv\n[lines]\n"
           "a.Signal=t.Signal\n";
    const int code =
        std::system("ulimit -f 64; LC_ALL=C " SIGWEAVE_HOST " run large.graph >large.out 2>&1") >> 8;
    EXPECT_EQ(code, 1);
    EXPECT_NE(ReadText("large.out").find("large.csv cannot be written: File too large"), std::string::npos)
        << ReadText("large.out");
    EXPECT_FALSE(fs::exists("large.csv"));
}

TEST(Run, LoadsTheExampleModule) {
    Outcome run =
        RunExample("gain/Gain.graph", std::string("--module-path ") + SIGWEAVE_EXAMPLE_MODULES + ":");
    ASSERT_EQ(run.exitCode, 0) << run.messages;
    EXPECT_DOUBLE_EQ(run.results["rms"], 5.0 / std::numbers::sqrt2);
}

}  // namespace
