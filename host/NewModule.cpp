#include "host/NewModule.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string_view>
#include <system_error>
#include <vector>

#include "host/Commands.h"
#include "host/Console.h"
#include "host/ModuleCatalogue.h"
#include "host/ModuleTemplate.h"
#include "sigweave/foundation/Ascii.h"
#include "sigweave/platform/OwnedFolder.h"
#include "sigweave/platform/Process.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/FileMessages.h"

namespace host {
namespace {

namespace fs = std::filesystem;
using tc::Bilingual;

constexpr std::size_t LONGEST_NAME = 64;

// Words of C++ that the example does not use, and the target names that CMake keeps for itself.
constexpr std::string_view RESERVED[] = {"alignas",
                                         "alignof",
                                         "all",
                                         "and",
                                         "and_eq",
                                         "asm",
                                         "auto",
                                         "bitand",
                                         "bitor",
                                         "bool",
                                         "break",
                                         "case",
                                         "catch",
                                         "char",
                                         "char16_t",
                                         "char32_t",
                                         "char8_t",
                                         "clean",
                                         "co_await",
                                         "co_return",
                                         "co_yield",
                                         "compl",
                                         "concept",
                                         "consteval",
                                         "constinit",
                                         "const_cast",
                                         "continue",
                                         "decltype",
                                         "default",
                                         "delete",
                                         "do",
                                         "dynamic_cast",
                                         "else",
                                         "enum",
                                         "export",
                                         "extern",
                                         "false",
                                         "float",
                                         "friend",
                                         "goto",
                                         "help",
                                         "inline",
                                         "install",
                                         "long",
                                         "mutable",
                                         "new",
                                         "noexcept",
                                         "not",
                                         "not_eq",
                                         "nullptr",
                                         "operator",
                                         "or",
                                         "or_eq",
                                         "package",
                                         "protected",
                                         "register",
                                         "requires",
                                         "short",
                                         "signed",
                                         "sizeof",
                                         "static_assert",
                                         "static_cast",
                                         "std",
                                         "struct",
                                         "switch",
                                         "tc",
                                         "template",
                                         "test",
                                         "this",
                                         "thread_local",
                                         "throw",
                                         "try",
                                         "typedef",
                                         "typeid",
                                         "typename",
                                         "union",
                                         "unsigned",
                                         "using",
                                         "virtual",
                                         "void",
                                         "volatile",
                                         "wchar_t",
                                         "while",
                                         "xor",
                                         "xor_eq",
                                         "reinterpret_cast"};

bool IsWordCharacter(char c) {
    return tc::IsLetter(c) || tc::IsDigit(c) || c == '_';
}

bool IsIdentifier(const std::string& name) {
    return !name.empty() && name.size() <= LONGEST_NAME && tc::IsLetter(name[0]) &&
           std::ranges::all_of(name, IsWordCharacter);
}

// The text with each word replaced by what `replace` answers for it.
template <class Replace>
std::string ReplaceWords(std::string_view text, const Replace& replace) {
    std::string result;
    while (!text.empty()) {
        const auto word = std::ranges::find_if_not(text, IsWordCharacter);
        result += replace(text.substr(0, static_cast<std::size_t>(word - text.begin())));
        const auto next = std::find_if(word, text.end(), IsWordCharacter);
        result.append(word, next);
        text.remove_prefix(static_cast<std::size_t>(next - text.begin()));
    }
    return result;
}

std::string Rename(std::string_view text, const std::string& name) {
    return ReplaceWords(
        text, [&](std::string_view word) { return word == TEMPLATE_NAME ? std::string_view(name) : word; });
}

// Words that mean something else in the module's source.
bool IsTaken(const std::string& name) {
    if (name.starts_with("TC") || std::ranges::find(RESERVED, name) != std::end(RESERVED)) return true;
    bool found = false;
    for (const TemplateFile& file : ModuleTemplate())
        ReplaceWords(std::string_view(file.name).ends_with(".cpp") ? file.text : "",
                     [&](std::string_view word) {
                         found = found || (word == name && word != TEMPLATE_NAME);
                         return word;
                     });
    return found;
}

// Why a module cannot be called so; empty when it can.
std::string WhyNoModuleName(const std::string& name) {
    if (!IsIdentifier(name))
        return Bilingual(
                   "'%1' cannot be a module's name; it takes a letter, then letters, digits and '_', at "
                   "most %2 in all, as LowPass2",
                   "'%1' kann kein Modul heißen; der Name besteht aus einem Buchstaben, dann Buchstaben, "
                   "Ziffern und '_', höchstens %2 zusammen, wie LowPass2")
            .With({name, std::to_string(LONGEST_NAME)});
    if (IsTaken(name))
        return Bilingual(
                   "'%1' means something else in a module's source or build file; choose another name",
                   "'%1' bedeutet im Quelltext oder der Baudatei eines Moduls etwas anderes; wählen Sie "
                   "einen anderen Namen")
            .With({name});
    const ModuleCatalogue catalogue(ModuleCatalogue::SplitPath(""));
    const CatalogueEntry* known = catalogue.Find(name);
    if (known == nullptr) return "";
    return Bilingual("there is a module '%1' already, in %2; choose another name",
                     "ein Modul '%1' gibt es schon, in %2; wählen Sie einen anderen Namen")
        .With({name, ModuleCatalogue::FileOf(*known)});
}

bool WriteFile(const fs::path& path, const std::string& text, std::string& error) {
    errno = 0;
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    if (!file) error = tc::WhyNotWritten(path.string(), errno);
    return !file.fail();
}

// Names each file in `written` before it is there.
bool WriteFiles(const fs::path& folder, const std::string& name, std::vector<std::string>& written,
                std::string& error) {
    for (const TemplateFile& file : ModuleTemplate()) {
        written.push_back(Rename(file.name, name));
        if (!WriteFile(folder / written.back(), Rename(file.text, name), error)) return false;
    }
    return true;
}

// As a shell reads it back.
std::string Quote(const std::string& word) {
    const auto isPlain = [](char c) {
        return IsWordCharacter(c) || std::string_view("./-+:").find(c) != std::string_view::npos;
    };
    if (std::ranges::all_of(word, isPlain)) return word;
    std::string quoted = "'";
    for (const char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// How CMake finds the installation of this program, where it does not look by itself.
std::string PrefixOption() {
    const std::string prefix = fs::path(TCGetProgramFolder()).parent_path().string();
    if (prefix.empty() || prefix == "/" || prefix == "/usr" || prefix == "/usr/local") return "";
    return " -DCMAKE_PREFIX_PATH=" + Quote(prefix);
}

// As a shell finds it: by its name where it is installed, else by its path.
std::string ThisProgram() {
    return PrefixOption().empty() ? "sigweave"
                                  : Quote((fs::path(TCGetProgramFolder()) / "sigweave").string());
}

int ShowNextSteps(const fs::path& folder, const std::string& name) {
    const std::string source = Quote(folder.string());
    const std::string build = Quote((folder / "build").string());
    const std::string commands[] = {
        "cmake -S " + source + " -B " + build + PrefixOption(),
        "cmake --build " + build,
        "ctest --test-dir " + build,
        ThisProgram() + " run " + Quote((folder / (name + ".graph")).string()) + " --module-path " +
            Quote((folder / "build:").string()),
    };
    std::string text = Bilingual("The module %1 is in %2. Build, test and run it with\n",
                                 "Das Modul %1 liegt in %2. Bauen, prüfen und ausführen:\n")
                           .With({name, folder.string()});
    for (const std::string& command : commands) text += "  " + command + "\n";
    return console::Print(text) ? EXIT_COMPLETE : EXIT_INCOMPLETE;
}

int Refuse(const std::string& why, ExitCode code) {
    console::Error(why);
    return code;
}

}  // namespace

int WriteNewModule(const NewModuleOptions& options) {
    const std::string why = WhyNoModuleName(options.name);
    if (!why.empty()) return Refuse(why, EXIT_WRONG_INPUT);
    const fs::path folder = options.folder.empty() ? options.name : options.folder;
    std::error_code failed;
    if (fs::exists(fs::symlink_status(folder, failed)))
        return Refuse(
            Bilingual("%1 is there already; nothing was written; choose another place with --folder",
                      "%1 gibt es schon; nichts wurde geschrieben; wählen Sie mit --folder einen "
                      "anderen Ort")
                .With({folder.string()}),
            EXIT_WRONG_INPUT);
    const std::unique_ptr<tc::OwnedFolder> made = tc::OwnedFolder::Make(folder, failed);
    if (made == nullptr)
        return Refuse(
            Bilingual("the folder %1 cannot be made: %2; choose another place with --folder",
                      "der Ordner %1 lässt sich nicht anlegen: %2; wählen Sie mit --folder einen anderen Ort")
                .With({folder.string(), failed.message()}),
            EXIT_INCOMPLETE);
    std::vector<std::string> written;
    std::string error;
    if (!WriteFiles(folder, options.name, written, error)) {
        made->RemoveFiles(written);
        return Refuse(error, EXIT_INCOMPLETE);
    }
    made->Keep();
    return ShowNextSteps(folder, options.name);
}

}  // namespace host
