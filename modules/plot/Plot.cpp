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

// Groups of parameters.
constexpr Bilingual PICTURE("Picture", "Bild");
constexpr Bilingual SPECTRA("Spectra", "Spektren");

enum class Layout { STACKED, OVERLAY };

constexpr tc::Choice<Layout> LAYOUTS[] = {{"stacked", Layout::STACKED}, {"overlay", Layout::OVERLAY}};

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
};

bool EndsWith(const std::string& text, const char* end) {
    const std::size_t length = std::strlen(end);
    return text.size() > length && text.compare(text.size() - length, length, end) == 0;
}

}  // namespace

Plot::Plot(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
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
    for (const char* parameter : {"decibels", "log_frequency"})
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
    curves.assign(static_cast<std::size_t>(GetNoInput()), Curve{Envelope(MOST_STRETCHES), {}, false, false});
    for (unsigned input = 0; input < curves.size(); ++input) curves[input].spectrum = IsSpectrum(input);
    const int code = TCBaseModuleEx::Init();
    ready = code >= 0;
    return code;
}

std::string Plot::WhyNoRoom() const {
    const int signals = portHelper->GetPortCnt(INPUT);
    const bool stacked = ParamChoice<LAYOUTS>("layout") == Layout::STACKED;
    const int least = tc::LeastHeight(stacked ? signals : std::min(signals, 2));
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
    const bool anew = curve.spectrum && metadata != nullptr && tc::BeginsSignal(metadata->GetState());
    if (anew) curve.envelope.Clear();
    if ((anew || !curve.begun) && metadata != nullptr) curve.metadata = *metadata;
    curve.begun = true;
    std::string error;
    ready = tc::CheckRate(*portHelper, input, curve.metadata, error);
    if (!ready) return Fail(tc::MODULE_FAILED, error);
    int count = 0;
    const double* values = portHelper->AccessDblData(input, count);
    curve.envelope.Add(values, static_cast<std::size_t>(count));
    return 0;
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
        if (curve.envelope.Extremes().IsEmpty()) continue;
        signals.push_back({tc::SignalName(*portHelper, input, curve.metadata), curve.metadata,
                           &curve.envelope, curve.spectrum});
    }
    return signals;
}

void Plot::WarnOfGaps() {
    for (unsigned input = 0; input < curves.size(); ++input) {
        const std::int64_t gaps = curves[input].envelope.NotFinite();
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
    options.title = ParamText("title");
    std::string error;
    return tc::RunGnuplot(tc::PictureScript(signals, options), file, error) ? 0
                                                                            : Fail(tc::MODULE_FAILED, error);
}

TC_MODULE_LIBRARY(Plot);
