#include "host/RecordInfo.h"

#include <cstdint>
#include <string>
#include <vector>

#include "host/AnyRecording.h"
#include "host/Commands.h"
#include "host/Console.h"
#include "host/Table.h"
#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/recording/RecordingReader.h"
#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

using tc::Bilingual;
using tc::RecordingReader;

constexpr std::int64_t BLOCKS_BETWEEN_PROGRESS = 4096;

// With a mark between groups of three digits, in the language in use.
std::string Grouped(std::int64_t number) {
    static constexpr Bilingual MARK(",", ".");
    std::string text = std::to_string(number);
    for (auto at = static_cast<std::ptrdiff_t>(text.size()) - 3; at > 0; at -= 3)
        text.insert(static_cast<std::size_t>(at), MARK.Text());
    return text;
}

std::int64_t CountBlocks(const RecordingReader& reader) {
    std::int64_t blocks = 0;
    for (const tc::RecordingSignal& signal : reader.GetSignals()) blocks += signal.blocks;
    return blocks;
}

std::string WriteSignals(const RecordingReader& reader) {
    std::vector<std::vector<std::string>> rows = {
        {Bilingual("signal", "Signal").Text(), Bilingual("input", "Eingang").Text(),
         Bilingual("blocks", "Blöcke").Text(), Bilingual("samples", "Werte").Text(),
         Bilingual("rate", "Rate").Text(), Bilingual("unit", "Einheit").Text(),
         Bilingual("type", "Typ").Text()}};
    for (const tc::RecordingSignal& signal : reader.GetSignals())
        rows.push_back({signal.name, signal.port, Grouped(signal.blocks), Grouped(signal.samples),
                        signal.rate > 0.0 ? tc::ShortestText(signal.rate) : "", signal.unit, signal.type});
    return LayOut(rows, -1, "  ");
}

// Texts of several lines by their length; `--fact` shows them.
std::string WriteFacts(const RecordingReader& reader) {
    std::vector<std::vector<std::string>> rows;
    for (const auto& [name, value] : reader.GetFacts()) {
        const auto lines = std::count(value.begin(), value.end(), '\n');
        rows.push_back({name, lines == 0 ? value
                                         : Bilingual("%1 lines (--fact %2)", "%1 Zeilen (--fact %2)")
                                               .With({std::to_string(lines), name})});
    }
    return rows.empty() ? "" : LayOut(rows, -1, "  ");
}

struct Checked {
    std::int64_t whole = 0;
    std::string text;  // a line for each place where something is lost
};

// What is whole after a place is said when the next block comes.
Checked ReadAll(RecordingReader& reader) {
    Checked checked;
    bool isLost = false;
    for (int read = 0; (read = reader.Next()) != 0;) {
        if (read < 0) {
            isLost = true;
            checked.text += "  " + reader.Describe(reader.GetDamages().back()) + "\n";
            continue;
        }
        if (isLost)
            checked.text +=
                Bilingual("    whole from byte %1 on, with block %2 of '%3'\n",
                          "    heil ab Byte %1, mit Block %2 von '%3'\n")
                    .With({Grouped(reader.GetFrameOffset()), Grouped(reader.GetBlockNumber()),
                           reader.GetSignals()[static_cast<std::size_t>(reader.GetSignal())].name});
        isLost = false;
        if (++checked.whole % BLOCKS_BETWEEN_PROGRESS == 0)
            console::ShowProgress(
                Bilingual("checked: %1 of %2 bytes", "geprüft: %1 von %2 Byte")
                    .With({Grouped(reader.GetFrameOffset()), Grouped(reader.GetFileSize())}));
    }
    console::ShowProgress("");
    return checked;
}

// How the file ends.
std::string WriteEnd(const RecordingReader& reader, std::int64_t blocks, bool isBeingWritten) {
    static constexpr Bilingual CLOSED("ends with block %1, and was closed",
                                      "endet mit Block %1 und wurde abgeschlossen");
    static constexpr Bilingual GROWS("has %1 blocks, and is being written",
                                     "hat %1 Blöcke und wird gerade geschrieben");
    static constexpr Bilingual UNCLOSED("ends after block %1; it was not closed",
                                        "endet nach Block %1; sie wurde nicht abgeschlossen");
    static constexpr Bilingual REMAINS("ends after block %1; %2 bytes behind it are no block",
                                       "endet nach Block %1; %2 Byte dahinter sind kein Block");
    const std::int64_t behind = reader.GetBytesBehind();
    const Bilingual& text = isBeingWritten      ? GROWS
                            : behind > 0        ? REMAINS
                            : reader.IsClosed() ? CLOSED
                                                : UNCLOSED;
    return text.With({Grouped(blocks), Grouped(behind)});
}

int PrintFact(const RecordingReader& reader, const InfoOptions& options) {
    for (const auto& [name, value] : reader.GetFacts())
        if (name == options.fact)
            return console::Print(value + (value.ends_with('\n') ? "" : "\n")) ? EXIT_COMPLETE
                                                                               : EXIT_INCOMPLETE;
    console::Error(Bilingual("%1 has no fact '%2'; sigweave info lists them",
                             "%1 hat keine Angabe '%2'; sigweave info führt sie auf")
                       .With({options.file, options.fact}));
    return EXIT_INCOMPLETE;
}

}  // namespace

int ShowRecording(const InfoOptions& options) {
    RecordingReader reader;
    using Opening = RecordingReader::Opening;
    if (!reader.Open(options.file.c_str(), options.check ? Opening::BY_SCAN : Opening::BY_INDEX)) {
        console::Error(WhyNotPacked(options.file, reader.GetError()));
        return EXIT_WRONG_INPUT;
    }
    if (!options.fact.empty()) return PrintFact(reader, options);
    Checked checked;
    if (options.check) checked = ReadAll(reader);
    const std::int64_t blocks = options.check ? checked.whole : CountBlocks(reader);
    const bool isBeingWritten = !reader.IsClosed() && reader.IsBeingWritten();
    std::string text = options.file + ": " + WriteEnd(reader, blocks, isBeingWritten) + "\n" +
                       WriteSignals(reader) + WriteFacts(reader);
    const bool isWhole =
        checked.text.empty() && (isBeingWritten || (reader.IsClosed() && reader.GetBytesBehind() == 0));
    if (!checked.text.empty())
        text += Bilingual("damaged:\n", "beschädigt:\n").Text() + checked.text;
    else if (options.check && isWhole)
        text += Bilingual("every block is whole\n", "jeder Block ist heil\n").Text();
    return console::Print(text) && isWhole ? EXIT_COMPLETE : EXIT_INCOMPLETE;
}

}  // namespace host
