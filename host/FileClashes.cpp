#include "host/FileClashes.h"

#include <filesystem>

#include "sigweave/platform/ReplacedFile.h"
#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

namespace fs = std::filesystem;
using tc::Bilingual;

// One name for a file however it is written; empty for what is no ordinary file.
std::string OrdinaryFile(const std::string& path) {
    std::error_code failed;
    const auto status = fs::status(path, failed);
    if (path.empty() || (exists(status) && !is_regular_file(status))) return {};
    return fs::weakly_canonical(fs::absolute(tc::FollowLinks(path), failed), failed).string();
}

bool HasFurtherNames(const std::string& file) {
    std::error_code isNotThere;
    const auto names = fs::hard_link_count(file, isNotThere);
    return !isNotThere && names > 1;
}

bool Writes(const FileUse& use) {
    return use.use != TCModuleFile::READS;
}

// How one user clashes with another one about a file.
const Bilingual& Wording(bool writes, bool otherWrites) {
    static constexpr Bilingual BOTH_WRITE(
        "%1 writes '%2', which %3 writes too; give one of them another file",
        "%1 schreibt '%2', die auch %3 schreibt; geben Sie einem von beiden eine andere Datei");
    static constexpr Bilingual WRITES(
        "%1 writes '%2', which %3 reads too; give one of them another file",
        "%1 schreibt '%2', die %3 liest; geben Sie einem von beiden eine andere Datei");
    static constexpr Bilingual READS(
        "%1 reads '%2', which %3 writes too; give one of them another file",
        "%1 liest '%2', die %3 schreibt; geben Sie einem von beiden eine andere Datei");
    if (!writes) return READS;
    return otherWrites ? BOTH_WRITE : WRITES;
}

}  // namespace

bool FileClashes::IsSameFile(const Known& a, const Known& b) const {
    const bool anyNumber =
        a.use.use == TCModuleFile::WRITES_NUMBERED || b.use.use == TCModuleFile::WRITES_NUMBERED;
    return a.file == b.file || (anyNumber && a.stem == b.stem);
}

void FileClashes::Add(const FileUse& use) {
    Known now{use, OrdinaryFile(use.path), {}};
    if (now.file.empty()) return;
    now.stem = now.file.substr(0, now.file.find_last_not_of("0123456789") + 1);
    const auto [first, last] = byStem.equal_range(now.stem);
    for (auto found = first; found != last; ++found)
        if (IsSameFile(now, all[found->second])) Report(now, all[found->second]);
    if (HasFurtherNames(now.file)) {
        std::error_code ignored;
        for (const std::size_t index : withFurtherNames)
            if (fs::equivalent(now.file, all[index].file, ignored)) Report(now, all[index]);
        withFurtherNames.push_back(all.size());
    }
    byStem.emplace(now.stem, all.size());
    all.push_back(std::move(now));
}

void FileClashes::Report(const Known& now, const Known& before) {
    const bool isLost = Writes(now.use) || Writes(before.use);
    const bool isItself = now.use.user == before.use.user && now.use.place.line == before.use.place.line &&
                          now.use.place.source == before.use.place.source;
    if (!isLost || isItself || !reported.emplace(now.use.user, before.use.user).second) return;
    mistakes.Add(
        now.use.place,
        Wording(Writes(now.use), Writes(before.use)).With({now.use.user, now.use.path, before.use.user}));
}

}  // namespace host
