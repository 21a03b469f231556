#include "modules/plot/Picture.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cmath>
#include <limits>
#include <string_view>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/signal/UnitText.h"

namespace tc {

namespace {

using Panel = std::vector<const PictureSignal*>;

constexpr const char* COLOURS[] = {"#1f5fa8", "#c8501e", "#2e8b57", "#8a4fa3",
                                   "#b8860b", "#3c8c9c", "#a83250"};

constexpr std::int64_t FEW_SAMPLES = 50;

// What gnuplot can still handle: a narrower axis is empty for it, and a longer one no number.
constexpr double NARROWEST = 1e-300;
constexpr double LONGEST = 1e300;

// Where things are in the picture, in pixels.
struct Layout {
    static constexpr int HEADLINE = 36;
    static constexpr int ABOVE_PANEL = 38;  // one row of names
    static constexpr int KEY_ROW = 19;

    int width;
    int panels;
    int height;
    int keyRows;

    Layout(const PictureOptions& options, const std::vector<Panel>& all)
        : width(options.width),
          panels(static_cast<int>(all.size())),
          height(options.height),
          keyRows(KeyRows(all, options.width)) {
        if (height > 0)
            height = std::max(height, LeastHeight(panels));
        else
            height = HEADLINE + panels * ((IsCompact() ? 160 : 330) + AbovePanel() - ABOVE_PANEL);
    }
    // Room for all names of the panel that has most.
    static int KeyRows(const std::vector<Panel>& all, int width) {
        int rows = 1;
        for (const Panel& panel : all) {
            std::size_t longest = 0;
            for (const PictureSignal* signal : panel) longest = std::max(longest, signal->name.size());
            const int columns = std::max(1, width * 8 / 10 / (70 + 8 * static_cast<int>(longest)));
            rows = std::max(rows, (static_cast<int>(panel.size()) + columns - 1) / columns);
        }
        return rows;
    }
    int AbovePanel() const { return ABOVE_PANEL + KEY_ROW * (keyRows - 1); }
    bool IsCompact() const { return panels > 3; }
    int BelowPanel() const { return IsCompact() ? 36 : 66; }  // the numbers of its axis, and a label
    // The edges of a panel's area, as gnuplot wants them: parts of the height, from the bottom.
    std::string Edges(int panel) const {
        const double cell = static_cast<double>(height - HEADLINE) / panels;
        const double top = HEADLINE + cell * panel + AbovePanel();
        const double bottom = HEADLINE + cell * (panel + 1) - BelowPanel();
        const double names = top - AbovePanel() / 2.0;
        return "set tmargin at screen " + ShortestText(1.0 - top / height) + "\nset bmargin at screen " +
               ShortestText(1.0 - bottom / height) + "\nset key center center at screen 0.55,screen " +
               ShortestText(1.0 - names / height) + " maxrows " + std::to_string(keyRows) + "\n";
    }
};

// How many bytes the UTF-8 character at the front of a text has that an XML document may hold; 0 when there
// is none.
std::size_t CharacterSize(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    const std::size_t size = first < 0x80 ? 1 : first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (size == 0 || size > text.size() || first > 0xF4) return 0;
    unsigned code = size == 1 ? first : first & (0x7FU >> size);
    for (std::size_t i = 1; i < size; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
        code = code << 6 | (byte(i) & 0x3F);
    }
    constexpr unsigned LEAST[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool isAllowed = code >= LEAST[size] && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF) &&
                           code != 0xFFFE && code != 0xFFFF;
    return isAllowed ? size : 0;
}

// Every byte by its number, save those that mean nothing in a script: some of the others do in any kind of
// quotation marks. What is not UTF-8 becomes the replacement character, a control character a blank.
std::string Quoted(std::string_view text) {
    constexpr std::string_view PLAIN = " #().,:;[]/_+-";
    std::string quoted = "\"";
    bool isAfterNumber = false;  // which a digit would go on
    const auto add = [&](std::string_view bytes) {
        for (const char byte : bytes) {
            const auto code = static_cast<unsigned char>(byte);
            const bool isDigit = byte >= '0' && byte <= '9';
            const bool isPlain = code < 0x80 && (std::isalnum(code) != 0 || PLAIN.find(byte) != PLAIN.npos) &&
                                 !(isDigit && isAfterNumber);
            quoted += isPlain ? std::string(1, byte) : std::string(TCString::FormatS("\\%03o", code));
            isAfterNumber = !isPlain;
        }
    };
    while (!text.empty()) {
        const std::size_t size = CharacterSize(text);
        const bool isControl = static_cast<unsigned char>(text[0]) < ' ' || text[0] == 0x7F;
        add(size == 0 ? "\xEF\xBF\xBD" : isControl ? " " : text.substr(0, size));
        text.remove_prefix(std::max<std::size_t>(size, 1));
    }
    return quoted + "\"";
}

std::string DateText(double milliseconds) {
    if (!(milliseconds > 0.0) || milliseconds > 253402300799999.0) return {};
    const auto whole = static_cast<std::int64_t>(milliseconds);
    const std::chrono::sys_days day{std::chrono::days{whole / 86400000}};
    const std::chrono::year_month_day date{day};
    const auto inDay = static_cast<int>(whole % 86400000);
    const TCString text =
        TCString::FormatS("%04d-%02u-%02u %02d:%02d:%02d.%03d UTC", static_cast<int>(date.year()),
                          static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                          inDay / 3600000, inDay / 60000 % 60, inDay / 1000 % 60, inDay % 1000);
    return std::string(text);
}

std::vector<Panel> ArrangePanels(const std::vector<PictureSignal>& signals, bool overlay) {
    std::vector<Panel> panels;
    for (const auto kind : {PictureSignal::WAVE, PictureSignal::SPECTRUM, PictureSignal::SPECTROGRAM}) {
        bool begun = false;
        for (const PictureSignal& signal : signals) {
            if (signal.kind != kind) continue;
            if (!overlay || !begun || kind == PictureSignal::SPECTROGRAM) panels.emplace_back();
            panels.back().push_back(&signal);
            begun = true;
        }
    }
    return panels;
}

double Decibels(double value, double floor, const PictureOptions& options) {
    return value > 0.0 ? std::max((options.ofPower ? 10.0 : 20.0) * std::log10(value), floor) : floor;
}

// The top of a spectrum's axis, at the next full 10 dB.
double TopDecibels(const Panel& panel, const PictureOptions& options) {
    double greatest = 0.0;
    for (const PictureSignal* signal : panel)
        greatest = std::max(greatest, signal->kind == PictureSignal::SPECTROGRAM
                                          ? signal->heatmap->Greatest()
                                          : signal->envelope->Extremes().maximum);
    const double tens = (options.ofPower ? 1.0 : 2.0) * std::log10(greatest);
    return greatest > 0.0 ? 10.0 * std::ceil(tens + 1e-9) : 0.0;
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
        const std::string x = ShortestText(step * index++);
        if (stretch.IsEmpty()) {
            text += "\n";
            continue;
        }
        text += x + " " + ShortestText(upwards ? stretch.minimum : stretch.maximum) + "\n";
        if (stretch.minimum == stretch.maximum) continue;
        text += x + " " + ShortestText(upwards ? stretch.maximum : stretch.minimum) + "\n";
        upwards = !upwards;
    }
    return text;
}

std::string SpectrumPoints(const PictureSignal& signal, double floor, const PictureOptions& options) {
    const double perHertz = signal.metadata.GetSamplerate();
    const auto perStretch = static_cast<double>(signal.envelope->SamplesPerStretch());
    std::string text;
    double index = 0.0;
    for (const Envelope::Stretch& stretch : signal.envelope->Stretches()) {
        text += ShortestText(index++ * perStretch / perHertz) + " " +
                ShortestText(Decibels(stretch.maximum, floor, options)) + "\n";
    }
    return text;
}

// Whether all curves of a panel have one unit, so that it can be written at the axis.
bool HasOneUnit(const Panel& panel) {
    const std::string first = DisplayUnit(panel.front()->metadata.GetUnit());
    return std::all_of(panel.begin(), panel.end(), [&](const PictureSignal* signal) {
        return DisplayUnit(signal->metadata.GetUnit()) == first;
    });
}

std::string AxisUnit(const Panel& panel) {
    return HasOneUnit(panel) ? DisplayUnit(panel.front()->metadata.GetUnit()) : std::string();
}

std::string NameInKey(const Panel& panel, const PictureSignal& signal) {
    const std::string unit = DisplayUnit(signal.metadata.GetUnit());
    return HasOneUnit(panel) || unit.empty() ? signal.name : signal.name + " [" + unit + "]";
}

// How a curve is drawn: those that share a colour differ in their dashes, and few samples are dots too.
std::string Style(const PictureSignal& signal, std::size_t index) {
    const bool few = signal.kind == PictureSignal::WAVE && signal.envelope->Samples() <= FEW_SAMPLES;
    return std::string(few ? "linespoints pt 7 ps 0.4" : "lines") + " lw 1 dt " +
           std::to_string(1 + index / std::size(COLOURS)) + " lc rgb " +
           Quoted(COLOURS[index % std::size(COLOURS)]);
}

double LastPosition(const Panel& panel) {
    double last = 0.0;
    for (const PictureSignal* signal : panel) {
        const auto samples = static_cast<double>(signal->envelope->Samples());
        last = std::max(last, std::max(samples - 1.0, 1.0) / signal->metadata.GetSamplerate());
    }
    return std::min(last, LONGEST);
}

// A step of 1, 2 or 5 times a power of ten that divides the span into no more parts than `most`.
double NiceStep(double span, int most) {
    if (!(span > NARROWEST) || !std::isfinite(span)) return 0.0;
    const double least = span / most;
    const double decade = std::pow(10.0, std::floor(std::log10(least)));
    for (const double step : {1.0, 2.0, 5.0}) {
        if (step * decade >= least) return step * decade;
    }
    return 10.0 * decade;
}

// Compact panels have their unit at the numbers of the axis instead of a label under it.
std::string HorizontalAxis(const char* quantity, const char* unit, bool compact) {
    if (compact) return "unset xlabel\nset format x " + Quoted(std::string("%g ") + unit) + "\n";
    return "set xlabel " + Quoted(std::string(quantity) + " [" + unit + "]") + "\nset format x \"%g\"\n";
}

std::string Range(const char* axis, const std::string& from, const std::string& to) {
    return std::string("set ") + axis + "range [" + from + ":" + to + "]\n";
}

std::string LevelLabel(const std::string& unit) {
    return unit.empty() ? "Level [dB]" : "Level [dB re 1 " + unit + "]";
}

std::string SpectrumAxes(const Panel& panel, const PictureOptions& options, bool compact) {
    const std::string unit = AxisUnit(panel);
    const double first = std::min(1.0 / panel.front()->metadata.GetSamplerate(), LONGEST / 2);
    const double last = LastPosition(panel);
    const double top = TopDecibels(panel, options);
    return HorizontalAxis("Frequency", "Hz", compact) + "set ylabel " + Quoted(LevelLabel(unit)) + "\n" +
           Range("y", ShortestText(top - options.decibels), ShortestText(top)) + "unset offsets\nset ytics " +
           ShortestText(NiceStep(options.decibels, compact ? 4 : 7)) + "\n" +
           (options.logarithmic ? "set logscale x\n" : "unset logscale x\n") +
           (options.logarithmic ? Range("x", ShortestText(first), ShortestText(std::max(last, 2 * first)))
                                : Range("x", "0", ShortestText(last)));
}

std::string WaveAxes(const Panel& panel, bool compact) {
    const std::string unit = AxisUnit(panel);
    Envelope::Stretch all;
    for (const PictureSignal* signal : panel) all.Add(signal->envelope->Extremes());
    const double step = NiceStep(all.maximum - all.minimum, compact ? 4 : 7);
    const double size = std::fabs(all.minimum);
    const double around = size > NARROWEST ? size / 2 : 1.0;  // of a constant signal
    constexpr double MOST = std::numeric_limits<double>::max();
    return HorizontalAxis("Time", "s", compact) + "set ylabel " +
           Quoted(unit.empty() ? "Value" : "Value [" + unit + "]") + "\nunset logscale x\n" +
           (step > 0.0 ? "set yrange [*:*] noextend\nset offsets 0,0,graph 0.06,graph 0.06\nset ytics " +
                             ShortestText(step) + "\n"
                       : Range("y", ShortestText(std::max(all.minimum - around, -MOST)),
                               ShortestText(std::min(all.maximum + around, MOST))) +
                             "unset offsets\nset ytics autofreq\n") +
           Range("x", "0", ShortestText(LastPosition(panel)));
}

// gnuplot wants two by two.
constexpr std::size_t LEAST_CELLS = 2;

double HertzPerBin(const PictureSignal& signal) {
    return std::clamp(1.0 / signal.metadata.GetSamplerate(), NARROWEST, LONGEST / 1e9);
}

// The edges in Hz of what is drawn one above the other: as the bins are, or for a logarithmic axis each as
// much higher than the one below it.
std::vector<double> RowEdges(const PictureSignal& signal, bool logarithmic) {
    constexpr std::size_t LOGARITHMIC_ROWS = 320;
    const Heatmap& map = *signal.heatmap;
    const double perBin = HertzPerBin(signal);
    std::vector<double> edges;
    for (std::size_t row = 0; row <= std::max(map.Rows(), LEAST_CELLS) && !logarithmic; ++row)
        edges.push_back((static_cast<double>(row * map.BinsPerRow()) - 0.5) * perBin);
    const double lowest = 0.5 * perBin * static_cast<double>(map.BinsPerRow());
    const double highest = (static_cast<double>(std::max(map.Bins(), LEAST_CELLS)) - 0.5) * perBin;
    for (std::size_t row = 0; row <= LOGARITHMIC_ROWS && logarithmic; ++row)
        edges.push_back(lowest * std::pow(highest / lowest, static_cast<double>(row) / LOGARITHMIC_ROWS));
    return edges;
}

// A line of numbers for each row, and in it one for each column. A row that is less than one of the map's
// takes that one's, a row that is more the greatest of those that begin in it.
std::string HeatmapCells(const PictureSignal& signal, const std::vector<double>& edges, double floor,
                         const PictureOptions& options) {
    const Heatmap& map = *signal.heatmap;
    const double rowsPerHertz = 1.0 / HertzPerBin(signal) / static_cast<double>(map.BinsPerRow());
    const auto last = static_cast<double>(map.Rows() - 1);
    const auto rowAt = [&](double frequency) {
        const double half = 0.5 / static_cast<double>(map.BinsPerRow());
        return static_cast<std::size_t>(std::clamp(frequency * rowsPerHertz + half, 0.0, last));
    };
    std::string text;
    for (std::size_t i = 0; i + 1 < edges.size(); ++i) {
        const std::size_t middle = rowAt((edges[i] + edges[i + 1]) / 2);
        const std::size_t from = std::min(rowAt(edges[i]) + 1, middle);
        const std::size_t to = options.logarithmic ? std::max(rowAt(edges[i + 1]), middle) : middle;
        for (std::size_t column = 0; column < std::max(map.Columns(), LEAST_CELLS); ++column) {
            double value = Heatmap::NOTHING;
            for (std::size_t row = options.logarithmic ? from : middle; row <= to; ++row)
                value = std::max(value, map.Cell(std::min(column, map.Columns() - 1), row));
            text += value == Heatmap::NOTHING
                        ? "nan "
                        : ShortestText(std::round(100.0 * Decibels(value, floor, options)) / 100.0) + " ";
        }
        text.back() = '\n';
    }
    return text;
}

// Full decades, 2 and 5 times them, for an axis that gnuplot sees as one of logarithms.
std::string LogarithmicTics(double from, double to) {
    std::string tics;
    for (double decade = std::floor(std::log10(from)); decade <= std::log10(to); ++decade)
        for (const double digit : {1.0, 2.0, 5.0}) {
            const double place = decade + std::log10(digit);
            if (place < std::log10(from) || place > std::log10(to)) continue;
            tics += (tics.empty() ? "" : ", ") + Quoted(ShortestText(digit * std::pow(10.0, decade))) + " " +
                    ShortestText(place);
        }
    return "set ytics (" + tics + ")\n";
}

// Colours of the map "viridis", in which equal steps of a value look equal, also in grey.
constexpr const char* PALETTE =
    "set palette defined (0 '#440154', 1 '#482878', 2 '#3e4a89', 3 '#31688e', 4 '#26838f', 5 '#1f9d8a', "
    "6 '#6cce5a', 7 '#b6de2b', 8 '#fee825')\n";

// Time to the right, frequency upwards, the level as a colour. The first column is at the middle of the first
// segment, half of one after the signal's beginning.
std::string SpectrogramScript(const PictureSignal& signal, const PictureOptions& options, bool compact) {
    const Heatmap& map = *signal.heatmap;
    const Panel panel = {&signal};
    const double top = TopDecibels(panel, options);
    const double floor = top - options.decibels;
    const std::vector<double> edges = RowEdges(signal, options.logarithmic);
    const auto place = [&](double frequency) {
        return options.logarithmic ? std::log10(frequency) : frequency;
    };
    const double bottom = place(edges.front());
    const double height = (place(edges.back()) - bottom) / static_cast<double>(edges.size() - 1);
    const double step = std::clamp(map.SecondsPerColumn(), NARROWEST, LONGEST / 1e9);
    const double first = std::clamp(signal.metadata.GetSamplerate() / 2.0, NARROWEST, LONGEST / 1e9);
    const double end = first + step * (static_cast<double>(map.Columns()) - 0.5);
    const double highest = static_cast<double>(std::max(map.Bins(), LEAST_CELLS) - 1) * HertzPerBin(signal);
    const double lowest = options.logarithmic ? bottom : 0.0;
    std::string script = "$map << EOD\n" + HeatmapCells(signal, edges, floor, options) + "EOD\n" + PALETTE;
    script += HorizontalAxis("Time", "s", compact) + "set ylabel " + Quoted("Frequency [Hz]") +
              "\nunset logscale x\nunset offsets\nset cbrange [" + ShortestText(floor) + ":" +
              ShortestText(top) + "]\nset cblabel " + Quoted(LevelLabel(AxisUnit(panel))) + "\nset cbtics " +
              ShortestText(NiceStep(options.decibels, compact ? 4 : 7)) + "\n";
    script += Range("x", "0", ShortestText(std::min(end, LONGEST))) +
              Range("y", ShortestText(lowest), ShortestText(std::max(place(highest), lowest + NARROWEST)));
    script += options.logarithmic ? LogarithmicTics(edges.front(), highest)
                                  : "set ytics " + ShortestText(NiceStep(highest, compact ? 4 : 7)) + "\n";
    script += "set title " + Quoted(signal.name) + "\nplot $map matrix using (" + ShortestText(first) +
              "+$1*" + ShortestText(step) + "):(" + ShortestText(bottom + height / 2) + "+$2*" +
              ShortestText(height) + "):3 with image notitle\n";
    return script + "set ytics autofreq\n";
}

// The names are above the panel: that of a single curve as its title, those of several as its key.
std::string PanelScript(const Panel& panel, const PictureOptions& options, bool compact) {
    if (panel.front()->kind == PictureSignal::SPECTROGRAM)
        return SpectrogramScript(*panel.front(), options, compact);
    const bool spectrum = panel.front()->kind == PictureSignal::SPECTRUM;
    const double floor = TopDecibels(panel, options) - options.decibels;
    const bool single = panel.size() == 1;
    std::string script;
    std::string curves;
    for (std::size_t i = 0; i < panel.size(); ++i) {
        const std::string data = "$d" + std::to_string(i);
        script += data + " << EOD\n" +
                  (spectrum ? SpectrumPoints(*panel[i], floor, options) : WavePoints(*panel[i])) + "EOD\n";
        curves += std::string(i == 0 ? "plot " : ", ") + data + " using 1:2 with " + Style(*panel[i], i) +
                  (single ? " notitle" : " title " + Quoted(NameInKey(panel, *panel[i])));
    }
    script += spectrum ? SpectrumAxes(panel, options, compact) : WaveAxes(panel, compact);
    return script + "set title " + Quoted(single ? panel.front()->name : "") + "\n" + curves + "\n";
}

// The time of a spectrum is not that at which its signal began, and neither is that of a signal that was
// under way when the run began.
std::string Headline(const std::vector<PictureSignal>& signals, const std::string& title) {
    const auto first = std::ranges::find_if(
        signals, [](const PictureSignal& signal) { return signal.kind == PictureSignal::WAVE; });
    const bool isKnown = first != signals.end() && BeginsSignal(first->metadata.GetState());
    const std::string date = isKnown ? DateText(first->metadata.GetTimestamp()) : std::string();
    return title + (title.empty() || date.empty() ? "" : ", ") + (date.empty() ? "" : "start " + date);
}

// `right`: where the panels end, a part of the width.
std::string Header(const Layout& layout, const std::string& title, bool png, const char* right) {
    const std::string size = std::to_string(layout.width) + "," + std::to_string(layout.height);
    return std::string("set encoding utf8\nset terminal ") + (png ? "pngcairo" : "svg") +
           " noenhanced size " + size +
           " font \"sans-serif,13\" background rgb \"white\"\n"
           "set border 3 lc rgb \"#606060\"\nset tics nomirror out scale 0.6 textcolor rgb \"#303030\"\n"
           "set title offset 0,-0.7\nset grid lc rgb \"#d8d8d8\" lt 1 lw 0.6\nset key horizontal samplen 1\n"
           "set lmargin at screen " +
           ShortestText(std::min(0.3, 120.0 / layout.width)) + "\nset rmargin at screen " + right +
           "\nset multiplot title " + Quoted(title) + "\n";
}

}  // namespace

std::string PictureScript(const std::vector<PictureSignal>& signals, const PictureOptions& options) {
    const std::vector<Panel> panels = ArrangePanels(signals, options.overlay);
    const Layout layout(options, panels);
    // Beside a spectrogram is its scale; all time axes end alike.
    const bool anyScale = panels.back().front()->kind == PictureSignal::SPECTROGRAM;
    std::string script =
        Header(layout, Headline(signals, options.title), options.png, anyScale ? "0.86" : "0.97");
    for (std::size_t i = 0; i < panels.size(); ++i) {
        script += layout.Edges(static_cast<int>(i)) + PanelScript(panels[i], options, layout.IsCompact());
    }
    return script + "unset multiplot\n";
}

int LeastHeight(int panels) {
    return Layout::HEADLINE + panels * (Layout::ABOVE_PANEL + 60);
}

}  // namespace tc
