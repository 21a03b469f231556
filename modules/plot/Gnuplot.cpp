#include "modules/plot/Gnuplot.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <sstream>
#include <system_error>

#include "sigweave/platform/Program.h"
#include "sigweave/platform/ReplacedFile.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/FileMessages.h"

namespace tc {

namespace {

// What a program said last that is no warning.
std::string LastComplaint(const std::string& text) {
    std::istringstream lines(text);
    std::string complaint;
    for (std::string line; std::getline(lines, line);) {
        if (line.find_first_not_of(" ^") != std::string::npos && line.rfind("Warning", 0) != 0)
            complaint = line;
    }
    return complaint;
}

bool IsWhole(const std::string& picture) {
    const std::string end = picture.substr(picture.size() - std::min<std::size_t>(picture.size(), 12));
    return end.find("</svg>") != std::string::npos || end.find("IEND") != std::string::npos;
}

// The end of a section, which no XML document may have outside of one; gnuplot lets it pass.
void EscapeSectionEnds(std::string& picture) {
    constexpr std::string_view END = "]]>";
    if (!picture.starts_with("<?xml")) return;
    for (std::size_t at = 0; (at = picture.find(END, at)) != std::string::npos;)
        picture.replace(at, END.size(), "]]&gt;");
}

bool PutInPlace(const std::string& picture, const std::string& path, std::string& error) {
    errno = 0;
    const auto file = ReplacedFile::Open(path);
    if (file != nullptr && std::fwrite(picture.data(), 1, picture.size(), file->Get()) == picture.size() &&
        file->Commit())
        return true;
    error = WhyNotWritten(path, errno);
    return false;
}

}  // namespace

bool HasGnuplot() {
    return !FindProgram("gnuplot").empty();
}

// gnuplot writes to a pipe, because it does not say when the disk is full, and may go on after a gap.
bool RunGnuplot(const std::string& script, const std::string& path, std::string& error) {
    ProgramEnd end = RunProgram(FindProgram("gnuplot"), {"-d", "-"}, script);
    if (end.started && end.code == 0 && IsWhole(end.output)) {
        EscapeSectionEnds(end.output);
        return PutInPlace(end.output, path, error);
    }
    std::string reason =
        end.started ? LastComplaint(end.complaint) : std::generic_category().message(end.code);
    if (reason.empty()) reason = Bilingual("it gave no reason", "es nannte keinen Grund").Text();
    error = Bilingual("gnuplot made no picture: %1", "gnuplot erzeugte kein Bild: %1").With({reason});
    return false;
}

std::string WhyNotReplaceable(const std::string& path) {
    errno = 0;
    return ReplacedFile::Open(path) != nullptr ? "" : WhyNotWritten(path, errno);
}

}  // namespace tc
