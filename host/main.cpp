#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <clocale>
#include <csignal>
#include <iostream>
#include <optional>
#include <sstream>

#include "host/CheckModuleCommand.h"
#include "host/CommandLineMistake.h"
#include "host/Commands.h"
#include "host/Console.h"
#include "host/DevicesCommand.h"
#include "host/FormCommand.h"
#include "host/Language.h"
#include "host/NewModule.h"
#include "host/PresetCommand.h"
#include "host/ProfileCommand.h"
#include "host/RecordExport.h"
#include "host/RecordInfo.h"
#include "host/SetCommand.h"
#include "host/StudioCommand.h"
#include "sigweave/platform/StandardStreams.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/NearNames.h"

namespace {

using tc::Bilingual;

constexpr const char* EXAMPLE = R"(Example:
  A graph file names modules, their settings and the lines between them:

    [voice]
    module=SoundFile
    file=Front_Center.wav
    [levels]
    module=Statistics
    [lines]
    voice.Channel 1=levels.Signal

  sigweave check voice.graph                     reports every mistake in it
  sigweave run voice.graph --set voice.block=512 runs it and prints the results
  sigweave modules SoundFile                     shows a module's ports and parameters
  sigweave set voice.graph voice block=512       changes a setting in the file
  sigweave set voice.graph voice                 shows a form of all its settings
  sigweave convert voice.graph voice.xml         writes it as an XML document, or such a document as text
  sigweave new-module LowPass                    writes a project for a module of your own
  sigweave studio voice.graph                    builds, runs and shows it in the browser
  sigweave profile list                          shows the user's settings profile
  sigweave diff a.xml b.xml                      compares two recordings
  sigweave info take.mcap --check                shows what a recording holds, and whether it is whole
  sigweave export take.mcap --to wav             writes its signals for other programs
  sigweave rerun take.mcap                       runs its graph again, and compares
  sigweave check-module Gain.so                  runs all checks on a module library

Exit codes: 0 complete, 1 failed or incomplete, 2 command line or graph wrong, 130 interrupted; of diff
0 equal, 1 different, 2 unreadable; of info 0 whole, 1 damaged, 2 no recording; of check-module 0 nothing failed, 1 a check failed, 2 unreadable.)";

void AddModulePath(CLI::App& command, host::CommandOptions& options) {
    command
        .add_option("--module-path", options.modulePath,
                    "Folders with module libraries, separated by colons; an empty entry means the "
                    "modules that came with the program. Default: SIGWEAVE_MODULE_PATH, else those modules")
        ->type_name("FOLDERS")
        ->allow_extra_args(false);
}

void AddGraph(CLI::App& command, host::CommandOptions& options) {
    command.add_option("GRAPH", options.graph, "The graph file")->required()->type_name("");
    command
        .add_option("--set", options.settings, "Sets a parameter, overriding the graph file; may be repeated")
        ->type_name("INSTANCE.PARAMETER=VALUE")
        ->allow_extra_args(false);
    AddModulePath(command, options);
}

void AddProfileAction(CLI::App& profile, host::ProfileOptions& options, const char* name, const char* help,
                      host::ProfileOptions::Action action) {
    using Action = host::ProfileOptions::Action;
    CLI::App* command = profile.add_subcommand(name, help);
    command->callback([&options, action] { options.action = action; });
    CLI::Option* section =
        command->add_option("SECTION", options.section, "A section, such as 'Plot' or 'Plot\\Colours'");
    section->type_name("")->required(action != Action::List);
    if (action != Action::List)
        command->add_option("ENTRY", options.entry, "The entry's name")->required()->type_name("");
    if (action == Action::Set) {
        command->add_option("VALUE", options.value, "The new value")->required()->type_name("");
        using Type = host::ProfileOptions::Type;
        command
            ->add_option_function<std::string>(
                "--type",
                [&options](const std::string& type) {
                    options.type = type == "text" ? Type::Text : Type::Integer;
                },
                "How the value is stored; default: as an integer when it reads as one of 32 bits")
            ->check(CLI::Validator(CLI::IsMember({"integer", "text"})).description(""))
            ->type_name("integer|text");
    }
    command->add_flag("--machine", options.machine, "The machine's profile instead of the user's")
        ->disable_flag_override();
}

CLI::App* AddProfile(CLI::App& app, host::ProfileOptions& options) {
    using Action = host::ProfileOptions::Action;
    CLI::App* profile = app.add_subcommand("profile", "Shows and changes the settings profile");
    profile->require_subcommand(1);
    AddProfileAction(*profile, options, "list", "Lists all sections, or the entries of one", Action::List);
    AddProfileAction(*profile, options, "get", "Prints the value of an entry", Action::Get);
    AddProfileAction(*profile, options, "set", "Stores a value under an entry", Action::Set);
    AddProfileAction(*profile, options, "delete", "Deletes an entry", Action::Delete);
    return profile;
}

void AddPresetTarget(CLI::App& command, host::PresetOptions& options) {
    CLI::Option* graph =
        command.add_option("--graph", options.graph,
                           "Writes them into this graph file, as 'sigweave set' does, and prints nothing");
    graph->type_name("FILE");
    command
        .add_option("--instance", options.instance,
                    "The instance in that graph; default: the only one of the module")
        ->type_name("NAME")
        ->needs(graph);
}

CLI::App* AddPreset(CLI::App& app, host::CommandOptions& common, host::PresetOptions& options) {
    using Action = host::PresetOptions::Action;
    const struct {
        const char* name;
        const char* help;
        Action action;
    } rows[] = {
        {"save", "Keeps settings of a module under a name, replacing older ones", Action::Save},
        {"load", "Prints such settings as lines of a graph file, or writes them into one", Action::Load},
        {"list", "Lists what was kept, of one module or all", Action::List}};
    CLI::App* preset = app.add_subcommand("preset", "Keeps settings of modules under names");
    preset->require_subcommand(1);
    for (const auto& row : rows) {
        CLI::App* command = preset->add_subcommand(row.name, row.help);
        command->callback([&options, action = row.action] { options.action = action; });
        CLI::Option* module = command->add_option("MODULE", options.module, "The module's id");
        module->type_name("")->required(row.action != Action::List);
        if (row.action != Action::List)
            command->add_option("NAME", options.name, "The preset's name")->required()->type_name("");
        if (row.action == Action::Save)
            command->add_option("SETTINGS", options.settings, "PARAMETER=VALUE; all others as by default")
                ->type_name("");
        if (row.action == Action::Load) AddPresetTarget(*command, options);
        AddModulePath(*command, common);
    }
    return preset;
}

CLI::App* AddNewModule(CLI::App& app, host::NewModuleOptions& options) {
    CLI::App* command =
        app.add_subcommand("new-module", "Writes a project for a module of your own, ready to build and run");
    command->add_option("NAME", options.name, "The module's name, such as LowPass2")
        ->required()
        ->type_name("");
    command
        ->add_option("--folder", options.folder, "The folder to create; default: one with the module's name")
        ->type_name("PATH");
    return command;
}

CLI::App* AddCheckModule(CLI::App& app, host::check::CheckOptions& options) {
    CLI::App* command =
        app.add_subcommand("check-module", "Runs checks on a module library, each in a process of its own");
    command->add_option("LIBRARY", options.library, "The library's file")->required()->type_name("");
    command->add_option("--module", options.module, "Checks only this module; default: all of the library")
        ->type_name("ID");
    command
        ->add_option("--set", options.settings,
                     "Sets a parameter, such as the file that a source reads; may be repeated")
        ->type_name("PARAMETER=VALUE")
        ->allow_extra_args(false);
    CLI::Option* seed =
        command->add_option("--seed", options.seed, "The first seed of the random calls; default: 1");
    seed->type_name("N");
    command
        ->add_option_function<std::uint64_t>(
            "--reproduce",
            [&options](std::uint64_t value) {
                options.seed = value;
                options.reproduce = true;
            },
            "Repeats only the random calls of this seed, and lists them")
        ->type_name("SEED")
        ->excludes(seed);
    constexpr double LONGEST = 86400.0;
    command->add_option("--time-limit", options.timeLimit, "The limit for each check; default: 20")
        ->check(CLI::Validator(CLI::Range(0.1, LONGEST)).description(""))
        ->type_name("SECONDS");
    return command;
}

// An option that no command here has, with those that may be meant; empty when there is none. What comes
// after it may be its value.
std::string UnknownOption(const CLI::App& app) {
    const std::vector<std::string> rest = app.remaining(true);
    const auto found = std::ranges::find_if(
        rest, [](const std::string& word) { return word.starts_with("--") && word.size() > 2; });
    if (found == rest.end() || app.get_subcommands().empty()) return "";
    const CLI::App* command = app.get_subcommands().front();
    if (!command->get_subcommands().empty()) command = command->get_subcommands().front();
    CStringArray names;
    for (const CLI::Option* option : command->get_options())
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    const std::string option = found->substr(0, found->find('='));
    return Bilingual("%1 has no option %2; %3", "%1 hat keine Option %2; %3")
        .With({command->get_name(), option, tc::SuggestNames(option, names)});
}

std::string WriteMistake(const CLI::App* app, const CLI::Error& error) {
    const bool isExtra = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr;
    const std::string unknown = isExtra ? UnknownOption(*app) : "";
    return (unknown.empty() ? host::ExplainCommandLine(error.what()) : unknown) +
           Bilingual("\nRun with --help for more information.\n", "\nWeitere Informationen gibt --help.\n")
               .Text();
}

// Suggests what else may have been meant if it is not one.
bool IsCommand(const std::string& word, const CStringArray& commands) {
    if (word.starts_with('-') || std::find(commands.begin(), commands.end(), word) != commands.end())
        return true;
    std::cerr << Bilingual("there is no command '%1'; %2", "es gibt keinen Befehl '%1'; %2")
                     .With({word, tc::SuggestNames(word, commands)})
              << "\n";
    return false;
}

void AddStrict(CLI::App& command, host::CommandOptions& options) {
    command.add_flag("--strict", options.strict, "With any warning the exit code is 1")
        ->disable_flag_override();
}

void AddReportFormat(CLI::App& command, std::string& format) {
    command
        .add_option("--report", format, "text: a table of the results; json: one document with all figures")
        ->check(CLI::Validator(CLI::IsMember({"text", "json"})).description(""))
        ->type_name("text|json");
}

std::string WhyNoFile(const std::string& name) {
    return name.empty() ? Bilingual("a file name is missing", "ein Dateiname fehlt").Text() : "";
}

std::string WhyNoPlace(const std::string& name) {
    return name.empty() ? Bilingual("the name of a place is missing", "der Name eines Orts fehlt").Text()
                        : "";
}

constexpr int MOST_THREADS = 256;

std::string WhyNoThreads(const std::string& text) {
    int number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isNumber = failure == std::errc() && end == text.data() + text.size();
    if (text == "auto" || (isNumber && number >= 1 && number <= MOST_THREADS)) return "";
    return Bilingual("'%1' is no number of threads; allowed are 1 to %2 and auto",
                     "'%1' ist keine Anzahl von Threads; erlaubt sind 1 bis %2 und auto")
        .With({text, std::to_string(MOST_THREADS)});
}

void AddRunOptions(CLI::App& command, host::CommandOptions& options) {
    const std::vector<std::string> levels(std::begin(host::runlog::LEVELS), std::end(host::runlog::LEVELS));
    constexpr int MOST_KILOBYTES = 2097151;  // 2 GB of bytes, the most that 32 bits can hold
    CLI::Option* log =
        command
            .add_option(
                "--log", options.log.pattern,
                "Appends the messages of modules and the host to this file; the name may contain tokens of "
                "the time, such as %yyyy-%MM-%dd; with a slash at its end it is a folder for the file")
            ->check(CLI::Validator(WhyNoFile, ""))
            ->type_name("PATTERN");
    command
        .add_option(
            "--log-level", options.log.level,
            "How serious a message must be to be logged: emergency, critical, error, warning, notice, "
            "trace (the default) or data (all)")
        ->check(CLI::Validator(CLI::IsMember(levels)).description(""))
        ->type_name("LEVEL")
        ->needs(log);
    command
        .add_option("--log-split", options.log.splitKilobytes,
                    "Starts a new log file when this size is reached")
        ->check(CLI::Validator(CLI::Range(0, MOST_KILOBYTES)).description(""))
        ->type_name("KB")
        ->needs(log);
    command
        .add_flag("--realtime", options.realtime,
                  "Makes sources send their blocks at the pace of the sample rate, and reports how regular "
                  "they were")
        ->disable_flag_override();
}

void AddLimit(CLI::App& command, host::RunLimit& limit) {
    const auto read = [&limit](const std::string& text) {
        std::string error;
        return host::RunLimit::Read(text, limit, error) ? std::string() : error;
    };
    command
        .add_option_function<std::string>(
            "--for", [](const std::string&) {},
            "Ends each source after this time, as 10s or 2min, or number, as 48000samples or 3signals")
        ->check(CLI::Validator(read, ""))
        ->type_name("LENGTH");
}

void AddLanguage(CLI::App& app, std::string& language) {
    app.add_option("--language", language,
                   "The language of messages; may also follow the command. Default: the profile's, else "
                   "the locale's")
        ->type_name("en|de");
}

CLI::Option* AddPlace(CLI::App& command, host::CommandOptions& options) {
    return command
        .add_option("--place", options.place,
                    "Only the instances at this place of the graph; those of others run where this command "
                    "is given with "
                    "theirs")
        ->check(CLI::Validator(WhyNoPlace, ""))
        ->type_name("NAME");
}

CLI::App* AddRun(CLI::App& app, host::CommandOptions& options, std::string& format) {
    CLI::App* const run = app.add_subcommand("run", "Checks a graph and runs it");
    AddGraph(*run, options);
    AddReportFormat(*run, format);
    run->add_option("--report-file", options.reportFile,
                    "Also writes the JSON report to this file, which is replaced as a whole")
        ->check(CLI::Validator(WhyNoFile, ""))
        ->type_name("FILE");
    run->add_option(
           "--changes", options.changes,
           "Changes live parameters in the run, as lines BLOCK INSTANCE.PARAMETER=VALUE of this file say")
        ->check(CLI::Validator(WhyNoFile, ""))
        ->type_name("FILE");
    run->add_option("--write-changes", options.writeChanges,
                    "Writes the changes of the run to this file, for --changes of another one")
        ->check(CLI::Validator(WhyNoFile, ""))
        ->type_name("FILE");
    run->add_option(
           "--threads", options.threads,
           "Runs parts of the graph on this many threads, with the same results; auto: as many as pay; "
           "default: 1")
        ->check(CLI::Validator(WhyNoThreads, ""))
        ->type_name("N|auto");
    CLI::Option* const place = AddPlace(*run, options);
    run->get_option("--threads")->excludes(place);
    run->add_option(
           "--engine", options.engine,
           "The server that joins the places, as nats://HOST:4222; default: the environment's or the graph's")
        ->type_name("URL")
        ->needs(place);
    run->add_flag("--new-run", options.newRun,
                  "Forgets what the engine has of an earlier run of the same name")
        ->disable_flag_override()
        ->needs(place);
    AddStrict(*run, options);
    AddRunOptions(*run, options);
    AddLimit(*run, options.limit);
    return run;
}

CLI::App* AddCheck(CLI::App& app, host::CommandOptions& options) {
    CLI::App* const check = app.add_subcommand("check", "Reports every mistake in a graph; runs nothing");
    AddGraph(*check, options);
    AddPlace(*check, options);
    AddStrict(*check, options);
    return check;
}

CLI::App* AddConvert(CLI::App& app, host::CommandOptions& options) {
    CLI::App* const convert = app.add_subcommand(
        "convert", "Writes a graph in its other form: parameter text as an XML document, and back");
    convert->add_option("IN", options.graph, "The graph file")->required()->type_name("");
    convert->add_option("OUT", options.target, "The file to write; replaced if it exists")
        ->required()
        ->type_name("");
    return convert;
}

CLI::App* AddDiff(CLI::App& app, host::CommandOptions& options) {
    CLI::App* const diff =
        app.add_subcommand("diff", "Compares the content of two recordings and reports the first difference");
    diff->add_option("A", options.records[0], "A recording")->required()->type_name("");
    diff->add_option("B", options.records[1], "Another one")->required()->type_name("");
    return diff;
}

CLI::App* AddInfo(CLI::App& app, host::InfoOptions& options) {
    CLI::App* const info = app.add_subcommand("info", "Shows what a recording of Recorder holds");
    info->add_option("RECORDING", options.file, "The recording")->required()->type_name("");
    info->add_flag("--check", options.check, "Reads every block, and reports where something is lost")
        ->disable_flag_override();
    info->add_option("--fact", options.fact, "Prints only this one of the facts of its run")
        ->type_name("NAME");
    return info;
}

CLI::App* AddExport(CLI::App& app, host::ExportOptions& options) {
    CLI::App* const command =
        app.add_subcommand("export", "Writes the signals of a recording in a format of other programs");
    command->add_option("RECORDING", options.recording, "The recording")->required()->type_name("");
    std::string words;
    for (const std::string& word : host::ExportFormats()) words += (words.empty() ? "" : "|") + word;
    command->add_option("--to", options.format, "The format; docs/recordings.md says what each keeps")
        ->required()
        ->check(CLI::Validator(CLI::IsMember(host::ExportFormats())).description(""))
        ->type_name(words);
    command
        ->add_option("--output", options.target,
                     "The file to write, or a folder; several signals have their number before its ending. "
                     "Default: the recording's name with the ending of the format")
        ->check(CLI::Validator(WhyNoFile, ""))
        ->type_name("FILE");
    command->add_flag("--overwrite", options.overwrite, "Replaces files that are there")
        ->disable_flag_override();
    return command;
}

CLI::App* AddRerun(CLI::App& app, host::CommandOptions& options) {
    CLI::App* const rerun = app.add_subcommand(
        "rerun", "Runs the graph of a recording again with the recorded sources, and compares the results");
    rerun->add_option("RECORDING", options.records[0], "The recording")->required()->type_name("");
    rerun->add_option("--graph", options.graph, "Another graph, with a Recorder of the same name")
        ->type_name("GRAPH");
    AddModulePath(*rerun, options);
    return rerun;
}

void AddModules(CLI::App& app, host::CommandOptions& options) {
    CLI::App* const modules =
        app.add_subcommand("modules", "Lists the modules, or shows one with its ports and parameters");
    CLI::Option* const id = modules->add_option("ID", options.moduleId, "The module to show");
    id->type_name("");
    modules->add_flag("--json", options.json, "Shows all of its declaration as a JSON document")
        ->disable_flag_override()
        ->needs(id);
    AddModulePath(*modules, options);
}

CLI::App* AddDevices(CLI::App& app, host::CommandOptions& options) {
    CLI::App* const command = app.add_subcommand("devices", "Lists the devices that give samples");
    command->add_flag("--json", options.json, "Lists them as a JSON document")->disable_flag_override();
    return command;
}

void AddInstance(CLI::App& command, host::SetOptions& set, host::CommandOptions& options) {
    command.add_option("GRAPH", set.graph, "The graph file")->required()->type_name("");
    command.add_option("INSTANCE", set.instance, "The instance whose settings they are")
        ->required()
        ->type_name("");
    AddModulePath(command, options);
}

CLI::App* AddSet(CLI::App& app, host::SetOptions& set, host::CommandOptions& options) {
    CLI::App* const command = app.add_subcommand(
        "set", "Changes settings in a graph file, when the graph has no new mistake through them");
    AddInstance(*command, set, options);
    command
        ->add_option("SETTINGS", set.settings,
                     "What is to be set; paths as in the graph file. Without any, a form asks for them")
        ->type_name("NAME=VALUE");
    return command;
}

CLI::App* AddForm(CLI::App& app, host::SetOptions& set, host::CommandOptions& options) {
    CLI::App* const command = app.add_subcommand(
        "form", "Speaks the settings dialog of an instance as lines of JSON, for other programs");
    AddInstance(*command, set, options);
    return command;
}

// Its options are those of the program that it becomes.
CLI::App* AddStudio(CLI::App& app) {
    CLI::App* const command = app.add_subcommand(
        "studio", "Builds, runs and shows a graph in the browser; 'studio --help' has its options");
    command->prefix_command();
    command->set_help_flag("");
    return command;
}

// If not, suggests similar names. 'help run' becomes 'run --help'.
bool BeginsWithCommand(std::vector<std::string>& arguments) {
    if (arguments[0] == "help") {
        std::rotate(arguments.begin(), arguments.begin() + 1, arguments.end());
        arguments.back() = "--help";
    }
    const CStringArray commands = {"run",     "check", "check-module", "convert", "devices",    "diff",
                                   "export",  "form",  "info",         "modules", "new-module", "preset",
                                   "profile", "rerun", "set",          "studio"};
    const std::pair<const char*, CStringArray> actions[] = {{"preset", {"save", "load", "list"}},
                                                            {"profile", {"list", "get", "set", "delete"}}};
    if (!IsCommand(arguments[0], commands)) return false;
    const auto found = std::ranges::find(actions, arguments[0], [](const auto& row) { return row.first; });
    return found == std::end(actions) || arguments.size() < 2 || IsCommand(arguments[1], found->second);
}

// Nothing when a command is to be done, else the exit code.
std::optional<int> Parse(CLI::App& app, std::vector<std::string> arguments) {
    try {
        std::reverse(arguments.begin(), arguments.end());  // the order that CLI11 wants them in
        app.parse(arguments);
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        std::ostringstream help;
        if (app.exit(error, help) != 0) return host::EXIT_WRONG_INPUT;
        return host::console::Print(help.str()) ? host::EXIT_COMPLETE : host::EXIT_INCOMPLETE;
    }
}

// Before anything else.
void PrepareProcess() {
    tc::KeepStandardStreams();
    std::setlocale(LC_CTYPE, "");   // texts are in the user's character set; numbers stay as they are
    std::signal(SIGPIPE, SIG_IGN);  // a reader that goes away is an error to report, not an end,
    std::signal(SIGXFSZ, SIG_IGN);  // and so is a file that gets larger than it may
}

}  // namespace

int main(int argc, char** argv) {
    PrepareProcess();
    std::vector<std::string> arguments(argv + 1, argv + argc);
    if (!host::ChooseLanguage(arguments)) return host::EXIT_WRONG_INPUT;
    CLI::App app("Runs graphs of signal-processing modules.", "sigweave");
    app.footer(EXAMPLE);
    app.set_version_flag("--version", SIGWEAVE_VERSION_TEXT);
    app.require_subcommand(1);
    app.failure_message(WriteMistake);
    std::string language;  // chosen already, for the messages about the rest; here for the help alone
    AddLanguage(app, language);
    host::CommandOptions options;
    std::string format = "text";
    const CLI::App* run = AddRun(app, options, format);
    const CLI::App* check = AddCheck(app, options);
    const CLI::App* convert = AddConvert(app, options);
    const CLI::App* diff = AddDiff(app, options);
    host::ExportOptions exportOptions;
    const CLI::App* exporting = AddExport(app, exportOptions);
    host::InfoOptions infoOptions;
    const CLI::App* info = AddInfo(app, infoOptions);
    const CLI::App* rerun = AddRerun(app, options);
    host::SetOptions setOptions;
    const CLI::App* set = AddSet(app, setOptions, options);
    const CLI::App* form = AddForm(app, setOptions, options);
    AddModules(app, options);
    const CLI::App* devices = AddDevices(app, options);
    host::NewModuleOptions newModuleOptions;
    const CLI::App* newModule = AddNewModule(app, newModuleOptions);
    host::check::CheckOptions checkOptions;
    CLI::App* checkModule = AddCheckModule(app, checkOptions);
    AddReportFormat(*checkModule, format);
    host::ProfileOptions profileOptions;
    const CLI::App* profile = AddProfile(app, profileOptions);
    host::PresetOptions presetOptions;
    const CLI::App* studio = AddStudio(app);
    const CLI::App* preset = AddPreset(app, options, presetOptions);
    if (arguments.empty()) {
        std::cerr << app.help();
        return host::EXIT_WRONG_INPUT;
    }
    if (!BeginsWithCommand(arguments)) return host::EXIT_WRONG_INPUT;
    if (const std::optional<int> ended = Parse(app, arguments)) return *ended;
    checkOptions.json = format == "json";
    options.json = options.json || checkOptions.json;
    if (*run) return host::RunGraph(options);
    if (*newModule) return host::WriteNewModule(newModuleOptions);
    if (*checkModule) return host::CheckModuleLibrary(checkOptions);
    if (*profile) return host::RunProfileCommand(profileOptions);
    if (*studio) return host::BeginStudio(studio->remaining());
    if (*preset) return host::UsePresets(options, presetOptions);
    if (*diff) return host::DiffRecords(options);
    if (*exporting) return host::ExportRecording(exportOptions);
    if (*info) return host::ShowRecording(infoOptions);
    if (*rerun) return host::RerunRecording(options);
    if (*form) return host::ShowForm(setOptions, options);
    if (*set) return host::SetInGraph(setOptions, options);
    if (*convert) return host::ConvertGraph(options);
    if (*devices) return host::ListDevices(options.json);
    return *check ? host::CheckGraph(options) : host::ShowModules(options);
}
