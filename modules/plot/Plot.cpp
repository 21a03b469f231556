#include "modules/plot/Plot.h"

#include <algorithm>
#include <cstring>

#include "modules/plot/Gnuplot.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"

namespace {

using tc::Bilingual;

// More stretches than a picture has columns show nothing more.
constexpr std::size_t MOST_STRETCHES = 4096;
constexpr std::size_t MOST_COLUMNS = 1024;
constexpr std::size_t MOST_ROWS = 512;

// Groups of parameters.
constexpr Bilingual PICTURE("Picture", "Bild");
constexpr Bilingual SPECTRA("Spectra", "Spektren");

enum class Layout { STACKED, OVERLAY };

constexpr tc::Choice<Layout> LAYOUTS[] = {{"stacked", Layout::STACKED}, {"overlay", Layout::OVERLAY}};

enum class Spectra { AUTO, LAST, OVER_TIME };
constexpr tc::Choice<Spectra> SPECTRA_DRAWN[] = {
    {"auto", Spectra::AUTO}, {"last", Spectra::LAST}, {"over_time", Spectra::OVER_TIME}};

enum class Quantity { FIELD, POWER };
constexpr tc::Choice<Quantity> QUANTITIES[] = {{"field", Quantity::FIELD}, {"power", Quantity::POWER}};

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "file",
     .kind = TCModuleParameter::OUTPUT_FILE,
     .defaultValue = nullptr,
     .help = {"the picture, *.svg or *.png; an older one is replaced",
              "das Bild, *.svg oder *.png; ein älteres wird ersetzt"},
     .label = {"File", "Datei"},
     .group = PICTURE,
     .fileFilter = "*.svg|*.png"},
    {.name = "title",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help = {"written above the picture, before the start time of the first signal",
              "steht über dem Bild, vor der Startzeit des ersten Signals"},
     .label = {"Title", "Titel"},
     .group = PICTURE},
    {.name = "layout",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "stacked",
     .help = {"a panel for each signal, or one for all waveforms and one for all spectra",
              "ein Feld je Signal, oder eins für alle Zeitverläufe und eins für alle Spektren"},
     .choices = tc::CHOICE_WORDS<LAYOUTS>,
     .label = {"Layout", "Anordnung"},
     .group = PICTURE},
    {.name = "width",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "1000",
     .help = {"in pixels", "in Pixeln"},
     .minimum = 200.0,
     .maximum = 20000.0,
     .label = {"Width", "Breite"},
     .group = PICTURE},
    {.name = "height",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "0",
     .help = {"in pixels; 0: by the number of panels", "in Pixeln; 0: nach der Zahl der Felder"},
     .minimum = 0.0,
     .maximum = 20000.0,
     .label = {"Height", "Höhe"},
     .group = PICTURE},
    {.name = "decibels",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "120",
     .help = {"from the top to the bottom of a spectrum", "vom oberen bis zum unteren Rand eines Spektrums"},
     .minimum = 10.0,
     .maximum = 400.0,
     .label = {"Range in decibels", "Bereich in Dezibel"},
     .group = SPECTRA},
    {.name = "log_frequency",
     .kind = TCModuleParameter::SWITCH,
     .defaultValue = "no",
     .help = {"logarithmic frequency axis", "logarithmische Frequenzachse"},
     .label = {"Logarithmic frequency", "Logarithmische Frequenz"},
     .group = SPECTRA},
    {.name = "spectra",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "auto",
     .help = {"the last one as a curve, or all over time, in colour; auto: over time if a signal has several",
              "das letzte als Kurve, oder alle über der Zeit, in Farbe; auto: über der Zeit, wenn ein Signal "
              "mehrere hat"},
     .choices = tc::CHOICE_WORDS<SPECTRA_DRAWN>,
     .label = {"Spectra drawn", "Gezeichnete Spektren"},
     .group = SPECTRA},
    {.name = "quantity",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "field",
     .help =
         {"what a spectrum's values are: amplitudes or root mean squares (20 lg), or powers (10 lg)",
          "was die Werte eines Spektrums sind: Amplituden oder Effektivwerte (20 lg), oder Leistungen (10 "
          "lg)"},
     .choices = tc::CHOICE_WORDS<QUANTITIES>,
     .label = {"Quantity", "Größe"},
     .group = SPECTRA},
};

bool EndsWith(const std::string& text, const char* end) {
    const std::size_t length = std::strlen(end);
    return text.size() > length && text.compare(text.size() - length, length, end) == 0;
}

}  // namespace

Plot::Plot(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclarePlacement(ANY_THREAD);
    UseAnyNumberOfInputs("", "");
}

bool Plot::OnSettingsChanged(TCString& error) {
    const std::string& file = ParamText("file");
    const bool known = EndsWith(file, ".svg") || EndsWith(file, ".png");
    if (!known)
        error = tc::NotValid(
                    "file", file,
                    Bilingual("a name that ends in .svg or .png", "ein Name mit der Endung .svg oder .png")
                        .Text())
                    .c_str();
    return known;
}

void Plot::GetFiles(TCArray<TCModuleFile>& files) const {
    AddReplacedFile(files, ParamStr("file"), "file");
}

void Plot::CheckStart(TCStartCheck& check) {
    tc::CheckDoubleInputs(*portHelper, check);
    tc::CheckRates(*portHelper, check);
    const std::string room = WhyNoRoom();
    if (!room.empty()) check.Refuse(room);
    const std::string unwritable = tc::WhyNotWritable(ParamText("file"), FileWriting::Beside);
    if (!unwritable.empty()) check.Refuse("file: " + unwritable);
    if (!tc::HasGnuplot())
        check.Refuse(
            Bilingual("the program gnuplot is not in the PATH; it comes with the package gnuplot-nox",
                      "das Programm gnuplot ist nicht im PATH; es ist im Paket gnuplot-nox enthalten")
                .Text());
    bool anySpectrum = false;
    for (unsigned input = 0; input < static_cast<unsigned>(GetNoInput()); ++input)
        anySpectrum = anySpectrum || IsSpectrum(input);
    for (const char* parameter : {"decibels", "log_frequency", "spectra", "quantity"})
        if (!anySpectrum && IsGiven(parameter))
            check.Warn(Bilingual("%1: has no effect, because no spectrum is wired to it",
                                 "%1: hat keine Wirkung, weil mit dem Modul kein Spektrum verbunden ist")
                           .With({parameter}));
}

bool Plot::IsSpectrum(unsigned input) const {
    const char* type = portHelper->GetPortType(INPUT, input, nullptr);
    return type != nullptr && std::strstr(type, "{FREQ_DOMAIN}") != nullptr;
}

int Plot::Init() {
    TCStartCheck check;
    ready = false;
    CheckStart(check);
    if (!check.mistakes.IsEmpty()) return Fail(tc::MODULE_FAILED, check.mistakes);
    const std::string error = tc::WhyNotReplaceable(ParamText("file"));
    if (!error.empty()) return Fail(tc::MODULE_FAILED, error);
    curves.assign(static_cast<std::size_t>(GetNoInput()),
                  Curve{Envelope(MOST_STRETCHES), Heatmap(MOST_COLUMNS, MOST_ROWS), {}});
    for (unsigned input = 0; input < curves.size(); ++input) curves[input].spectrum = IsSpectrum(input);
    const int code = TCBaseModuleEx::Init();
    ready = code >= 0;
    return code;
}

// As many as there will be, as far as is known.
int Plot::Panels() const {
    const int signals = portHelper->GetPortCnt(INPUT);
    if (ParamChoice<LAYOUTS>("layout") == Layout::STACKED) return signals;
    if (ParamChoice<SPECTRA_DRAWN>("spectra") != Spectra::OVER_TIME) return std::min(signals, 2);
    int spectra = 0;
    for (int input = 0; input < signals; ++input) spectra += IsSpectrum(static_cast<unsigned>(input)) ? 1 : 0;
    return spectra + (spectra < signals ? 1 : 0);
}

std::string Plot::WhyNoRoom() const {
    const int signals = portHelper->GetPortCnt(INPUT);
    const int least = tc::LeastHeight(Panels());
    const int height = ParamInt("height");
    if (height == 0 || height >= least) return "";
    return tc::NotValid(
        "height", std::to_string(height),
        Bilingual("0 or at least %1 pixels", "0, oder mindestens %1 Pixel").With({std::to_string(least)}),
        Bilingual("for %1 signals", "für %1 Signale").With({std::to_string(signals)}));
}

int Plot::Execute() {
    for (unsigned input = 0; input < curves.size(); ++input) {
        const int taken = portHelper->TakeBlock(input);
        const int code = taken > 0 ? Take(input) : taken;
        if (code < 0) return code;
    }
    return 0;
}

int Plot::Take(unsigned input) {
    Curve& curve = curves[input];
    const TCTypeInfo* metadata = portHelper->LastTypeInfo(input);
    if ((curve.spectrum || !curve.begun) && metadata != nullptr) curve.metadata = *metadata;
    curve.begun = true;
    std::string error;
    ready = tc::CheckRate(*portHelper, input, curve.metadata, error);
    if (!ready) return Fail(tc::MODULE_FAILED, error);
    int count = 0;
    const double* values = portHelper->AccessDblData(input, count);
    if (!curve.spectrum) {
        curve.envelope.Add(values, static_cast<std::size_t>(count));
    } else if (count > 0 && !TakeSpectrum(curve, values, count)) {
        ready = false;
        return Fail(
            tc::MODULE_FAILED,
            Bilingual("%1: a spectrum has %2 values, the first one %3; over time only spectra of one "
                      "length can be drawn",
                      "%1: ein Spektrum hat %2 Werte, das erste %3; über der Zeit lassen sich nur "
                      "Spektren einer Länge zeichnen"),
            {tc::InputName(*portHelper, input), std::to_string(count), std::to_string(curve.heatmap.Bins())});
    }
    return 0;
}

// False when it cannot be drawn with the ones before. Where these need not be drawn, it is the first again.
bool Plot::TakeSpectrum(Curve& curve, const double* values, int count) const {
    const auto bins = static_cast<std::size_t>(count);
    const Spectra drawn = ParamChoice<SPECTRA_DRAWN>("spectra");
    curve.envelope.Clear();
    curve.envelope.Add(values, bins);
    if (drawn == Spectra::LAST) return true;
    curve.inSignal = tc::BeginsSignal(curve.metadata.GetState()) ? 1 : curve.inSignal + 1;
    curve.overTime = curve.overTime || drawn == Spectra::OVER_TIME || curve.inSignal > 1;
    const double time = curve.metadata.GetTimestamp();
    if (curve.heatmap.Add(values, bins, time)) return true;
    if (curve.overTime) return false;
    curve.heatmap = Heatmap(MOST_COLUMNS, MOST_ROWS);
    return curve.heatmap.Add(values, bins, time);
}

int Plot::Done() {
    const int drawn = ready ? Draw() : 0;
    ready = false;
    const int code = TCBaseModuleEx::Done();
    return drawn < 0 ? drawn : code;
}

std::vector<tc::PictureSignal> Plot::Signals() const {
    std::vector<tc::PictureSignal> signals;
    for (unsigned input = 0; input < curves.size(); ++input) {
        const Curve& curve = curves[input];
        if (curve.overTime ? curve.heatmap.IsEmpty() : curve.envelope.Extremes().IsEmpty()) continue;
        signals.push_back({tc::SignalName(*portHelper, input, curve.metadata), curve.metadata,
                           curve.overTime   ? tc::PictureSignal::SPECTROGRAM
                           : curve.spectrum ? tc::PictureSignal::SPECTRUM
                                            : tc::PictureSignal::WAVE,
                           &curve.envelope, &curve.heatmap});
    }
    return signals;
}

void Plot::WarnOfGaps() {
    for (unsigned input = 0; input < curves.size(); ++input) {
        const std::int64_t gaps =
            curves[input].overTime ? curves[input].heatmap.NotFinite() : curves[input].envelope.NotFinite();
        if (gaps == 0) continue;
        Warn(Bilingual("%1: %2 values that are not finite are not drawn",
                       "%1: %2 nicht endliche Werte sind nicht gezeichnet"),
             {tc::SignalName(*portHelper, input, curves[input].metadata), std::to_string(gaps)});
    }
}

int Plot::Draw() {
    WarnOfGaps();
    const std::vector<tc::PictureSignal> signals = Signals();
    if (signals.empty()) {
        Warn(Bilingual("nothing to draw arrived, so there is no picture",
                       "es kam nichts zu zeichnen an, daher gibt es kein Bild"));
        return 0;
    }
    const std::string& file = ParamText("file");
    tc::PictureOptions options;
    options.png = EndsWith(file, ".png");
    options.overlay = ParamChoice<LAYOUTS>("layout") == Layout::OVERLAY;
    options.logarithmic = ParamBool("log_frequency");
    options.width = ParamInt("width");
    options.height = ParamInt("height");
    options.decibels = ParamDbl("decibels");
    options.ofPower = ParamChoice<QUANTITIES>("quantity") == Quantity::POWER;
    options.title = ParamText("title");
    std::string error;
    return tc::RunGnuplot(tc::PictureScript(signals, options), file, error) ? 0
                                                                            : Fail(tc::MODULE_FAILED, error);
}

TC_MODULE_LIBRARY(Plot);
