#include "modules/plot/Picture.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "modules/common/SignalSettings.h"

namespace tc {

namespace {

using Panel = std::vector<const PictureSignal*>;

constexpr const char* COLOURS[] = {"#1f5fa8", "#c8501e", "#2e8b57", "#8a4fa3",
                                   "#b8860b", "#3c8c9c", "#a83250"};

// A text for the script, in double quotes.
std::string Quoted(const std::string& text) {
    std::string quoted = "\"";
    for (const char character : text) {
        const bool control = static_cast<unsigned char>(character) < ' ';
        if (character == '"' || character == '\\') quoted += '\\';
        quoted += control ? ' ' : character;
    }
    return quoted + "\"";
}

std::string DateText(double milliseconds) {
    if (!(milliseconds > 0.0) || milliseconds > 253402300799999.0) return {};
    const auto whole = static_cast<std::int64_t>(milliseconds);
    const std::chrono::sys_days day{std::chrono::days{whole / 86400000}};
    const std::chrono::year_month_day date{day};
    const auto inDay = static_cast<int>(whole % 86400000);
    return TCString::FormatS("%04d-%02u-%02u %02d:%02d:%02d.%03d UTC", static_cast<int>(date.year()),
                             static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                             inDay / 3600000, inDay / 60000 % 60, inDay / 1000 % 60, inDay % 1000)
        .
        operator const char*();
}

std::vector<Panel> ArrangePanels(const std::vector<PictureSignal>& signals, bool overlay) {
    std::vector<Panel> panels;
    for (const bool spectrum : {false, true}) {
        bool begun = false;
        for (const PictureSignal& signal : signals) {
            if (signal.spectrum != spectrum) continue;
            if (!overlay || !begun) panels.emplace_back();
            panels.back().push_back(&signal);
            begun = true;
        }
    }
    return panels;
}

double Decibels(double value, double floor) {
    return value > 0.0 ? std::max(20.0 * std::log10(value), floor) : floor;
}

// The top of a spectrum's axis, at the next full 10 dB.
double TopDecibels(const Panel& panel) {
    double greatest = 0.0;
    for (const PictureSignal* signal : panel)
        greatest = std::max(greatest, signal->envelope->Extremes().maximum);
    return greatest > 0.0 ? 10.0 * std::ceil(2.0 * std::log10(greatest) + 1e-9) : 0.0;
}

// The points of one curve. A stretch of several samples is drawn as a stroke from its one extreme to its
// other, every second one the other way round, so that the strokes join to a curve.
std::string WavePoints(const PictureSignal& signal) {
    const double rate = signal.metadata.GetSamplerate();
    const double step = static_cast<double>(signal.envelope->SamplesPerStretch()) / rate;
    std::string text;
    double index = 0.0;
    bool upwards = true;
    for (const Envelope::Stretch& stretch : signal.envelope->Stretches()) {
        const std::string x = NumberText(step * index++);
        if (stretch.IsEmpty()) {
            text += "\n";
            continue;
        }
        text += x + " " + NumberText(upwards ? stretch.minimum : stretch.maximum) + "\n";
        if (stretch.minimum == stretch.maximum) continue;
        text += x + " " + NumberText(upwards ? stretch.maximum : stretch.minimum) + "\n";
        upwards = !upwards;
    }
    return text;
}

std::string SpectrumPoints(const PictureSignal& signal, double floor) {
    const double perHertz = signal.metadata.GetSamplerate();
    const auto perStretch = static_cast<double>(signal.envelope->SamplesPerStretch());
    std::string text;
    double index = 0.0;
    for (const Envelope::Stretch& stretch : signal.envelope->Stretches()) {
        text += NumberText(index++ * perStretch / perHertz) + " " +
                NumberText(Decibels(stretch.maximum, floor)) + "\n";
    }
    return text;
}

double LastPosition(const Panel& panel) {
    double last = 0.0;
    for (const PictureSignal* signal : panel) {
        const auto samples = static_cast<double>(signal->envelope->Samples());
        last = std::max(last, std::max(samples - 1.0, 1.0) / signal->metadata.GetSamplerate());
    }
    return last;
}

std::string PanelTitle(const Panel& panel) {
    std::string title = panel.front()->name;
    for (std::size_t i = 1; i < panel.size() && i < 4; ++i) title += ", " + panel[i]->name;
    return panel.size() > 4 ? title + " ..." : title;
}

std::string SpectrumAxes(const Panel& panel, const PictureOptions& options) {
    const std::string unit = UnitText(panel.front()->metadata.GetUnit());
    const double top = TopDecibels(panel);
    const double first = 1.0 / panel.front()->metadata.GetSamplerate();
    std::string text = "set xlabel \"Frequency [Hz]\"\nset ylabel " +
                       Quoted(unit.empty() ? "Level [dB]" : "Level [dB re 1 " + unit + "]") + "\n";
    text += "set yrange [" + NumberText(top - options.decibels) + ":" + NumberText(top) + "]\n";
    text += options.logarithmic ? "set logscale x\n" : "unset logscale x\n";
    return text + "set xrange [" + (options.logarithmic ? NumberText(first) : "0") + ":" +
           NumberText(LastPosition(panel)) + "]\n";
}

std::string WaveAxes(const Panel& panel) {
    const std::string unit = UnitText(panel.front()->metadata.GetUnit());
    return "set xlabel \"Time [s]\"\nset ylabel " + Quoted(unit.empty() ? "Value" : "Value [" + unit + "]") +
           "\nset yrange [*:*]\nunset logscale x\nset xrange [0:" + NumberText(LastPosition(panel)) + "]\n";
}

std::string PanelScript(const Panel& panel, const PictureOptions& options) {
    const bool spectrum = panel.front()->spectrum;
    const double floor = TopDecibels(panel) - options.decibels;
    std::string script;
    std::string curves;
    for (std::size_t i = 0; i < panel.size(); ++i) {
        const std::string data = "$d" + std::to_string(i);
        script += data + " << EOD\n" + (spectrum ? SpectrumPoints(*panel[i], floor) : WavePoints(*panel[i])) +
                  "EOD\n";
        curves += std::string(i == 0 ? "plot " : ", ") + data + " using 1:2 with lines lw 1 lc rgb " +
                  Quoted(COLOURS[i % std::size(COLOURS)]) +
                  (panel.size() > 1 ? " title " + Quoted(panel[i]->name) : " notitle");
    }
    script += spectrum ? SpectrumAxes(panel, options) : WaveAxes(panel);
    return script + "set title " + Quoted(PanelTitle(panel)) + "\n" + curves + "\n";
}

std::string PictureTitle(const std::vector<PictureSignal>& signals, const PictureOptions& options) {
    if (!options.title.empty()) return options.title;
    const std::string date = DateText(signals.front().metadata.GetTimestamp());
    return date.empty() ? "" : "Start " + date;
}

std::string Header(std::size_t panels, const std::string& title, const PictureOptions& options) {
    const int perPanel = panels > 3 ? 220 : 320;
    const int height = options.height > 0 ? options.height : 60 + perPanel * static_cast<int>(panels);
    const std::string size = " size " + std::to_string(options.width) + "," + std::to_string(height);
    return std::string("set encoding utf8\nset terminal ") + (options.png ? "pngcairo" : "svg") +
           " noenhanced" + size +
           " font \"sans-serif,13\" background rgb \"white\"\nset output \"picture\"\n"
           "set border 3 lc rgb \"#606060\"\nset tics nomirror out scale 0.6 textcolor rgb \"#303030\"\n"
           "set grid lc rgb \"#d8d8d8\" lt 1 lw 0.6\nset key top right samplen 2\n"
           "set lmargin at screen " +
           NumberText(std::min(0.3, 95.0 / options.width)) +
           "\nset rmargin at screen 0.97\n"
           "set multiplot layout " +
           std::to_string(panels) + ",1 title " + Quoted(title) + "\n";
}

}  // namespace

std::string UnitText(const TCSI_Unit& unit) {
    constexpr const char* PREFIXES[] = {"p", "n", "µ", "m", "", "k", "M", "G", "T"};
    TCString symbols;
    unit.GetString(symbols);
    const std::string text(symbols);
    const double power = std::log10(unit.GetFactor()) / 3.0 + 4.0;
    const bool oneSymbol = !text.empty() && text.find_first_of(" ^") == std::string::npos && text != "kg";
    if (oneSymbol && std::fabs(power - std::round(power)) < 1e-9 && power > -0.5 && power < 8.5) {
        return PREFIXES[std::lround(power)] + text;
    }
    unit.ToString(symbols);
    return std::string(symbols);
}

std::string PictureScript(const std::vector<PictureSignal>& signals, const PictureOptions& options) {
    const std::vector<Panel> panels = ArrangePanels(signals, options.overlay);
    std::string script = Header(panels.size(), PictureTitle(signals, options), options);
    for (const Panel& panel : panels) script += PanelScript(panel, options);
    return script + "unset multiplot\nunset output\n";
}

}  // namespace tc
