// What the built program says about what is wrong, or only looks right: mistakes before a run, warnings after
// it, and the report of both. Graphs use the module libraries that come with it.
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <set>

#include "host/ProgressLine.h"
#include "tests/host/ProgramBench.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* MODULES = SIGWEAVE_MODULE_DIR ":" TEST_LIBRARIES "/good";

class NeverSilent : public Program {
 protected:
    Answer Use(const std::string& command, const std::string& graph, const std::string& arguments = "") {
        Write("g", graph);
        return Run(command + " g " + arguments, MODULES);
    }

    // Each text has a line of its own.
    void ExpectMistakes(const std::string& graph, const std::vector<const char*>& mistakes) {
        const Answer checked = Use("check", graph);
        EXPECT_EQ(checked.code, 2) << graph;
        for (const char* mistake : mistakes) EXPECT_THAT(checked.err, HasSubstr(std::string(mistake)));
        EXPECT_THAT(checked.err, HasSubstr("\n" + std::to_string(mistakes.size()) + " mistake"));
        EXPECT_EQ(Use("run", graph).err, checked.err);
    }

    std::set<std::string> Files() const {
        std::set<std::string> names;
        for (const auto& file : fs::directory_iterator(folder)) names.insert(file.path().filename());
        return names;
    }
};

// --- Before a run

TEST_F(NeverSilent, CheckFindsAllThatAStartWouldRefuseAndMakesNothing) {
    Write("there.csv", "precious");
    const std::string graph =
        "[tone]\nmodule=Generator\nrate=1000\nunit=V\n"
        "[fast]\nmodule=Generator\nrate=2000\nunit=m\nname=drum\n"
        "[low]\nmodule=Filter\ncorner=500\n"
        "[high]\nmodule=Filter\ntype=bandpass\ncorner=999\nupper_corner=1000\n"
        "[sum]\nmodule=Math\noperation=difference\n"
        "[line]\nmodule=Align\n"
        "[picture]\nmodule=Plot\nfile=missing/x.svg\nheight=30\n"
        "[table]\nmodule=CsvWriter\nfile=there.csv\n"
        "[record]\nmodule=XmlRecorder\nfile=.\n"
        "[again]\nmodule=XmlRecorder\nfile=there.csv\n"
        "[lines]\n"
        "tone.Signal=low.Signal\nfast.Signal=high.Signal\n"
        "low.Signal=sum.Signal 1\nfast.Signal=sum.Signal 2\ntone.Signal=sum.Signal 3\n"
        "tone.Signal=line.Signal 1\nhigh.Signal=line.Signal 2\n"
        "tone.Signal=picture.Signal\ntone.Signal=table.Signal\ntone.Signal=record.Signal\n"
        "tone.Signal=again.Signal\n";
    const std::vector<const char*> mistakes = {
        "g:12: low.corner: '500' is not valid for 'sine' at 1000 samples per second; expected more than 0 Hz "
        "and "
        "less than 500 Hz\n",
        "g:17: high.upper_corner: '1000' is not valid for 'drum' at 2000 samples per second; expected more "
        "than "
        "999 Hz and less than 1000 Hz\n",
        "g:20: sum.operation: 'difference' is not valid for 3 inputs; expected two inputs, or sum or "
        "product\n",
        "g:40: sum.Signal 2: the input \"Signal 1\" and the input \"Signal 2\" have different samplerates, "
        "1000 and "
        "2000",
        "g:40: sum.Signal 2: the input \"Signal 1\" (V) and the input \"Signal 2\" (m) have different units",
        "g:43: line.Signal 2: the input \"Signal 2\" has the samplerate 2000 and the input \"Signal 1\" 1000",
        "g:25: picture.file: missing/x.svg cannot be written: No such file or directory",
        "g:26: picture.height: '30' is not valid for 1 signals; expected 0 or at least ",
        "g:29: table.file: there.csv is there already; it is replaced only with overwrite=yes\n",
        "g:32: record.file: . is not an ordinary file",
        "g:35: again.file: there.csv is there already",
        "again writes 'there.csv', which table writes too"};
    Write("g", graph);
    Run("check g", MODULES);
    const std::set<std::string> before = Files();
    ExpectMistakes(graph, mistakes);
    EXPECT_EQ(Files(), before);
    EXPECT_EQ(ReadAll(folder / "there.csv"), "precious");
}

TEST_F(NeverSilent, KnowsWhatSourcesBringAsFarAsItFollows) {
    const std::string sources =
        "[v]\nmodule=Generator\nrate=1000\nunit=V\n[a]\nmodule=Generator\nrate=1000\nunit=A\n"
        "[power]\nmodule=Math\noperation=product\n[block]\nmodule=Reblock\nsize=10\n"
        "[join]\nmodule=BusJoin\n[part]\nmodule=BusSelect\nexpression=sine\n"
        "[sum]\nmodule=Math\n[s]\nmodule=Statistics\n[lines]\n"
        "v.Signal=power.Signal 1\na.Signal=power.Signal 2\nv.Signal=join.Signal 1\na.Signal=join.Signal 2\n"
        "join.Bus=part.Bus\nsum.Signal=s.Signal\n";
    ExpectMistakes(sources + "power.Signal=block.Signal\nblock.Signal=sum.Signal 1\na.Signal=sum.Signal 2\n",
                   {"g:33: sum.Signal 2: the input \"Signal 1\" (W) and the input \"Signal 2\" (A) have"});
    // What comes out of a bus is not known before a run.
    const Answer unknown = Use("check", sources +
                                            "part.Channel 1=sum.Signal 1\na.Signal=sum.Signal 2\n"
                                            "power.Signal=block.Signal\nblock.Signal=s.Signal 2\n");
    EXPECT_EQ(unknown.code, 0) << unknown.err;
}

TEST_F(NeverSilent, KnowsWhatFilesBring) {
    Write("x.wav", std::string("RIFF\x28\0\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x40\x1f\0\0\x40\x1f\0\0\1\0\x08\0"
                               "data\4\0\0\0\x80\x90\x80\x70",
                               48));
    ExpectMistakes(
        "[voice]\nmodule=SoundFile\nfile=x.wav\nunit=A\n[volts]\nmodule=XmlPlayer\nfile=" SIGWEAVE_EXAMPLES
        "/volts.xml\n[low]\nmodule=Filter\ncorner=5000\n[sum]\nmodule=Math\n[lines]\n"
        "voice.Channel 1=low.Signal 1\nvolts.Signal=low.Signal 2\nlow.Signal 1=sum.Signal 1\n"
        "low.Signal 2=sum.Signal 2\n",
        {"g:10: low.corner: '5000' is not valid for 'Channel 1' at 8000 samples per second; expected more "
         "than 0 Hz "
         "and less than 4000 Hz",
         "g:17: sum.Signal 2: the input \"Signal 1\" and the input \"Signal 2\" have different samplerates, "
         "8000 and "
         "48000",
         "g:17: sum.Signal 2: the input \"Signal 1\" (A) and the input \"Signal 2\" (V * 1e-003) have "
         "different"});
}

TEST_F(NeverSilent, TellsHowAMistakeIsMended) {
    const std::string source = "[a]\nmodule=Generator\n";
    const std::string join = source + "[j]\nmodule=BusJoin\n[s]\n";
    const std::pair<std::string, std::vector<const char*>> rows[] = {
        {join + "module=Filter\ncorner=1\n[lines]\na.Signal=j.Signal\nj.Bus=s.Signal\n",
         {"g:10: j.Bus=s.Signal: the input takes data of another type: it takes 'TYPEINFO{TypeInfo} "
          "DOUBLE[]{TIME_DOMAIN}', and the line brings 'STRUCT_BUS{BUS}'; a module BusSelect between them "
          "takes signals out of a bus\n"}},
        {join + "module=CsvWriter\nfile=x.csv\n[lines]\na.Signal=j.Signal\nj.Bus=s.Signal\n",
         {"g:10: s.Signal: takes double values (DOUBLE[]), but is wired to a bus (STRUCT_BUS{BUS}); a module "
          "BusSelect"}},
        {join + "module=BusSelect\nexpression=x\n[lines]\na.Signal=j.Signal\na.Signal=s.Bus\n",
         {"g:10: a.Signal=s.Bus: the input takes data of another type: it takes 'STRUCT_BUS{BUS}', and the "
          "line "
          "brings 'TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}'; a module BusJoin between them"}},
        {source + "amplitude=0,5\nblock=512 # samples\nform=sine; or noise\nunit=V # volts\n[s]\n"
                  "module=Statistics # all\n[lines]\na.Signal=s.Signal ; there\n",
         {"g:3: a.amplitude: '0,5' is not valid; expected a number; write a point: 0.5\n",
          "g:4: a.block: '512 # samples' is not valid; expected an integer from 1 to 1048576; the comment '# "
          "samples' must have a line of its own\n",
          "g:5: a.form: 'sine; or noise' is not valid; expected one of sine, square, sweep, noise, dc\n",
          "g:6: a.unit: 'V # volts' is not valid; expected a unit of SI symbols with exponents and a decimal "
          "factor, "
          "as V, m s^-2 or V * 1e-003; the comment '# volts' must have a line of its own\n",
          "g:8: there is no module 'Statistics # all'; "}},
        // What is meant for lines is no lack of them, also where nothing of it is right.
        {source + "[s]\nmodule=Statistics\n[lines]\na.Signal -> s.Signal\na.Signal=s\n",
         {"g:6: 'a.Signal -> s.Signal' is not a line; write instance.Output=instance.Input\n",
          "g:7: 'a.Signal=s' is not a line; "}},
        {source + "[s]\nmodule=Statistics\n[Lines]\na.Signal=s.Signal\n",
         {"g:5: the section 'Lines' holds lines, and theirs is called [lines]; rename it\n"}},
        {source + "[s]\nModule=Statistics\n[lines]\ns.Signal=a.Signal\n",
         {"g:4: the instance 's' does not say which module it is; write 'module' in place of 'Module'\n",
          "g:6: 'a' has no input"}},
        {source + "[s]\nmodule=Statistics\n[lines]\ns.Signal=a.Signal\n",
         {"g:6: the line leads from an input to an output; write a.Signal=s.Signal\n"}},
        {source + "[t]\nmodule=CsvWriter\nfile=~/x.csv\n[lines]\na.Signal=t.Signal\n",
         {"g:5: t.file: '~' is replaced by shells only; write %HOME%/x.csv\n"}},
        {source + "[s]\nmodule=Statistics\n[lines]\na.Signal=s.Signal ; there\n",
         {"; the comment '; there' must have a line of its own\n"}},
        {source + "block=\"1 # x\"\n[s]\nmodule=Statistics\n[lines]\na.Signal=s.Signal\n",
         {"g:3: a.block: '1 # x' is not valid; expected an integer from 1 to 1048576\n"}},
        // A default in place of what was meant says nothing.
        {source + "rate=x\n[low]\nmodule=Filter\ncorner=30000\n[lines]\na.Signal=low.Signal\n",
         {"g:3: a.rate: 'x' is not valid; expected a number"}},
        // Every mistake, also of an instance whose settings are wrong.
        {source +
             "[low]\nmodule=Filter\norder=x\ntype=bandpass\nupper_corner=-1\n[s]\nmodule=BusSelect\n"
             "expression=\"(\"\n[t]\nmodule=Statistics\n[lines]\na.Signal=low.Sgnal\nlow.Signl=t.Signal\n"
             "a.Signal=s.Bus\nt.x=t.Signal\ns.Channel 9=t.Signal 2\n",
         {"g:3: low.corner: must be given; expected a number (in Hz); add a line corner=...\n",
          "g:5: low.order: 'x' is not valid; expected an integer from 1 to 12\n",
          "g:7: low.upper_corner: '-1' is not valid; expected more than 0 Hz and less than half the "
          "samplerate\n",
          "g:10: s.expression: '(' is not valid (",
          "g:14: 'low' has no input 'Sgnal'; did you mean 'Signal'?",
          "g:15: 'low' has no output 'Signl'; did you mean 'Signal'?",
          "g:17: the line leads from 't' to itself"}}};
    for (const auto& [graph, mistakes] : rows) ExpectMistakes(graph, mistakes);
}

// --- After a run

TEST_F(NeverSilent, WarnsBelowTheTableAndInTheReport) {
    const std::string tone = "[a]\nmodule=Generator\nrate=4000\nduration=0.025\n[s]\nmodule=Statistics\n";
    const std::string lines = "[lines]\na.Signal=s.Signal\n";
    const struct {
        std::string graph;
        const char* instance;
        const char* warning;
        bool before;  // known without a run
    } rows[] = {
        {tone + "[b]\nmodule=Generator\nduration=0.1\n" + lines, "b",
         "g:7: the source 'b' is wired to nothing, so its signals go nowhere; draw a line from it, or remove "
         "it",
         true},
        {tone + "[f]\nmodule=Filter\ncorner=10\nupper_corner=20\n" + lines + "a.Signal=f.Signal\n", "f",
         "g:10: f.upper_corner: has no effect with type=lowpass, only with bandpass, bandstop", true},
        {tone + "[p]\nmodule=Plot\nfile=x.svg\ntitle=Take # 7\n" + lines + "a.Signal=p.Signal\n", "p",
         "g:10: p.title: '# 7' is a part of the value; a comment has a line of its own", true},
        {tone + "[p]\nmodule=Plot\nfile=x.svg\nlog_frequency=yes\n" + lines + "a.Signal=p.Signal\n", "p",
         "g:10: p.log_frequency: has no effect, because no spectrum is wired to it", true},
        {tone + "[f]\nmodule=Spectrum\nlength=101\n" + lines + "a.Signal=f.Signal\n", "f",
         "f: sine: no spectrum of 100 samples; one segment is 101 samples long", false},
        {tone + "[f]\nmodule=Spectrum\nlength=101\n[t]\nmodule=CsvWriter\nfile=x.csv\noverwrite=yes\n" +
             lines + "a.Signal=f.Signal\na.Signal=t.Signal 1\nf.Signal=t.Signal 2\n",
         "t", "t: no block came to 't.Signal 2' from 'f.Signal'", false},
        {tone + "[j]\nmodule=BusJoin\n[b]\nmodule=BusSelect\nexpression=drum\n" + lines +
             "a.Signal=j.Signal\nj.Bus=b.Bus\n",
         "b", "b: nothing is sent: no channel of the bus is selected by the expression \"drum\"", false},
        {tone + "[p]\nmodule=TestPass\ntalk_at=1\n" + lines + "a.Signal=p.Signal\n", "p", "p: the wire",
         false}};
    for (const auto& row : rows) {
        const std::string warning = "warning: " + std::string(row.warning);
        const Answer table = Use("run", row.graph);
        EXPECT_EQ(table.code, 0) << table.err;
        const std::size_t at = table.out.find("\n" + warning);
        ASSERT_NE(at, std::string::npos) << warning << "\nin\n" << table.out;
        EXPECT_LT(table.out.find("rms"), at);
        EXPECT_LT(at, table.out.find("\ncomplete: g, "));
        const json report = json::parse(Use("run", row.graph, "--report json").out);
        const std::string text = warning.substr(warning.find(": ", warning.find(": ") + 2) + 2);
        const json& told = report["warnings"].back();
        EXPECT_EQ(told["instance"], row.instance);
        EXPECT_THAT(told["text"].get<std::string>(), testing::StartsWith(text));
        EXPECT_EQ(told.contains("line"), row.before);
        const Answer strict = Use("run", row.graph, "--strict");
        EXPECT_EQ(strict.code, 1);
        EXPECT_THAT(strict.err, HasSubstr("error: --strict: warnings: "));
        EXPECT_EQ(Use("check", row.graph, "--strict").code, row.before ? 1 : 0);
        const Answer checked = Use("check", row.graph);
        EXPECT_EQ(checked.code, 0);
        EXPECT_THAT(checked.err, testing::StartsWith(row.before ? warning : ""));
    }
    const Answer silent =
        Use("run", tone + "[b]\nmodule=Generator\nname=\"a # b\"\n" + lines + "b.Signal=s.Signal 2\n",
            "--strict");
    EXPECT_EQ(silent.code, 0);
    EXPECT_THAT(silent.out + silent.err, Not(HasSubstr("warning")));
}

TEST_F(NeverSilent, CountsWhatIsToldAgainAndAgain) {
    const std::string graph =
        "[a]\nmodule=TestSource\n[p]\nmodule=TestPass\ntalk_always=yes\n[lines]\na.Signal=p.Signal\n";
    EXPECT_THAT(Use("run", graph).out, HasSubstr("\nwarning: p: it is cold (10 times)\n"));
    const json report = json::parse(Use("run", graph, "--report json").out);
    EXPECT_EQ(report["warnings"].dump(), R"([{"instance":"p","text":"it is cold","times":10}])");
    EXPECT_EQ(report["messages"].dump(),
              R"([{"instance":"p","severity":"note","text":"it is late","times":10}])");
}

// --- The report

// Whether the document has the shape that the schema asks for, as far as this one uses the language.
void ExpectShape(const json& document, const json& schema, const std::string& place) {
    if (schema.contains("enum")) {
        EXPECT_TRUE(std::ranges::count(schema["enum"], document) == 1) << place << document;
        return;
    }
    const std::string type = schema["type"].is_string() ? schema["type"] : "";
    const bool fits = type == "string"    ? document.is_string()
                      : type == "integer" ? document.is_number_integer() && document >= schema["minimum"]
                      : type == "boolean" ? document.is_boolean()
                      : type == "array"   ? document.is_array()
                      : type == "object"  ? document.is_object()
                                          : document.is_number() || (type.empty() && document.is_null());
    ASSERT_TRUE(fits) << place << document;
    if (type == "array")
        for (const json& item : document) ExpectShape(item, schema["items"], place + "/item");
    if (type != "object") return;
    for (const json& name : schema["required"]) EXPECT_TRUE(document.contains(name)) << place << name;
    for (const auto& [name, value] : document.items()) {
        ASSERT_TRUE(schema["properties"].contains(name)) << place << "/" << name;
        ExpectShape(value, schema["properties"][name], place + "/" + name);
    }
}

TEST_F(NeverSilent, EveryModuleDeclaresItselfInOneShape) {
    const json schema = json::parse(ReadAll(SIGWEAVE_DOCS "/modules.schema.json"));
    for (const char* id : {"Align", "CsvWriter", "Filter", "Generator", "Math", "SoundFile", "TestPass"}) {
        const Answer answer = Run(std::string("modules --json ") + id, MODULES);
        ASSERT_EQ(answer.code, 0) << answer.err;
        const json module = json::parse(answer.out);
        ExpectShape(module, schema, id);
        EXPECT_EQ(module["id"], id);
        const bool isOfAnyNumber = !module["inputs"].empty() && id != std::string("TestPass");
        EXPECT_EQ(module["any_number_of_inputs"], isOfAnyNumber) << id;
    }
    const json filter = json::parse(Run("modules Filter --json --language de", MODULES).out);
    EXPECT_EQ(filter["inputs"].size(), 1U);
    const json& corner = filter["parameters"][2];
    EXPECT_EQ(corner["name"], "corner");
    EXPECT_TRUE(corner["required"] == true && !corner.contains("default") && !corner.contains("minimum"));
    EXPECT_EQ(corner["help"],
              "wo ein Sinus 3 dB, die Welligkeit oder die Dämpfung verliert; bei einem Band die "
              "untere Grenze, bei notch die Mitte");
    EXPECT_EQ(filter["parameters"][3]["enabled_when"].dump(),
              R"({"parameter":"type","values":["bandpass","bandstop"]})");
    EXPECT_EQ(Run("modules --json").code, 2) << "of which module?";
}

TEST_F(NeverSilent, PresetsKeepSettingsAsTheyWereTyped) {
    locale += " XDG_DATA_HOME='" + folder.string() + "/data'";
    const Answer none = Run("preset list", MODULES);
    EXPECT_EQ(none.code, 0);
    EXPECT_EQ(none.out, "");
    EXPECT_THAT(none.err, HasSubstr("there are no presets yet; 'sigweave preset save MODULE NAME"));
    EXPECT_THAT(Run("preset list Filter", MODULES).err, HasSubstr("'sigweave preset save Filter NAME"));
    EXPECT_EQ(Run("preset save Filter 'low 2' type=bandpass", MODULES).code, 0) << "corners of the graph";
    ASSERT_EQ(Run("preset save Filter 'low 2' 'corner=3 kHz' type=highpass", MODULES).code, 0);
    const std::tuple<const char*, int, const char*> rows[] = {
        {"save Filter 'low 2' corner=x type=lowpass", 2, "corner: 'x' is not valid; expected a number"},
        {"save Filter 'low 2' corner=-1", 2, "corner: '-1' is not valid; expected more than 0 Hz"},
        {"save Filter 'low 2' corner", 2, "write PARAMETER=VALUE"},
        {"save Filter ../low corner=1", 2, "'../low' is no name for a preset"},
        {"save Filtr low", 2, "did you mean 'Filter'?"},
        {"lod Filter high", 2, "there is no command 'lod'; did you mean 'load'?"},
        {"load Filter low", 2, "there is no preset 'low' of the module 'Filter'; did you mean 'low 2'?"},
        {"load Math high", 2, "there are no presets of the module 'Math' yet"}};
    for (const auto& [arguments, code, error] : rows) {
        const Answer answer = Run(std::string("preset ") + arguments, MODULES);
        EXPECT_EQ(answer.code, code) << arguments;
        EXPECT_THAT(answer.err, HasSubstr(error));
    }
    EXPECT_EQ(Run("preset list", MODULES).out, "Filter low 2\n");
    EXPECT_EQ(Run("preset load Filter 'low 2'", MODULES).out, "type=highpass\ncorner=3 kHz\n");
    const std::string graph =
        "# kept\n[f]\nmodule=Filter\norder = 6\ncorner=1\n[g]\nmodule=Filter\ncorner=2\n";
    Write("a.graph", graph);
    EXPECT_THAT(Run("preset load Filter 'low 2' --graph a.graph", MODULES).err, HasSubstr("2 instances"));
    EXPECT_EQ(ReadAll(folder / "a.graph"), graph);
    EXPECT_EQ(Run("preset load Filter 'low 2' --graph a.graph --instance f", MODULES).code, 0);
    EXPECT_EQ(
        ReadAll(folder / "a.graph"),
        "# kept\n[f]\nmodule=Filter\norder = 4\ncorner=3 kHz\ntype=highpass\n[g]\nmodule=Filter\ncorner=2\n");
    std::string stored = ReadAll(folder / "data/sigweave/presets/Filter/low 2.xml");
    fs::create_directories(folder / "data/sigweave/presets/Generator");
    Write("data/sigweave/presets/Generator/a.xml", stored);
    EXPECT_THAT(Run("preset load Generator a", MODULES).err,
                HasSubstr("is no preset of the module 'Generator'"));
    stored.replace(stored.find("3 kHz"), 5, "3 V");
    Write("data/sigweave/presets/Filter/a.xml", stored);
    const Answer damaged = Run("preset load Filter a", MODULES);
    EXPECT_EQ(damaged.code, 1);
    EXPECT_THAT(damaged.err, HasSubstr("a.xml: corner: '3 V' is not valid"));
    EXPECT_EQ(damaged.out, "");
}

constexpr const char* PASS =
    "[a]\nmodule=TestSource\n[p]\nmodule=TestPass\n[s]\nmodule=TestJoin\n"
    "[lines]\na.Signal=p.Signal\np.Signal=s.Signal\n";

TEST_F(NeverSilent, EveryVerdictHasAReportOfOneShape) {
    const json schema = json::parse(ReadAll(SIGWEAVE_DOCS "/report.schema.json"));
    const std::tuple<const char*, int, const char*, const char*> rows[] = {
        {"--set p.talk_at=3", 0, "complete", ""},
        {"--set p.fail_at=0", 1, "failed", "p (Test pass) failed while running: the wire is broken"},
        {"--set p.hoard_from=2", 1, "stalled",
         "p did not take the blocks that wait for it: 8 blocks at p.Signal"},
        {"--set a.blocks=0 --set a.interrupt_at=5", 130, "interrupted", ""},
        {"--set a.blocks=x", 2, "mistakes", ""},
        {"--log .", 2, "mistakes", ""}};
    for (const auto& [arguments, code, verdict, reason] : rows) {
        const Answer answer = Use("run", PASS, std::string("--report json ") + arguments);
        EXPECT_EQ(answer.code, code) << arguments;
        const json report = json::parse(answer.out);
        ExpectShape(report, schema, "");
        EXPECT_EQ(report["verdict"], verdict);
        EXPECT_EQ(report["reason"], reason);
        EXPECT_EQ(report["mistakes"].empty(), code != 2);
        EXPECT_EQ(report["warnings"].empty(), std::string(arguments) != "--set p.talk_at=3") << arguments;
        EXPECT_EQ(report["modules"].empty(), code == 2);
    }
}

TEST_F(NeverSilent, TheReportHasTheMistakesWithTheirLines) {
    const json report =
        json::parse(Use("run", "[a]\nmodule=TestSource\nsize=0\n", "--report json --set b.x=1").out);
    EXPECT_EQ(report["mistakes"].size(), 3U);
    EXPECT_EQ(report["mistakes"][0].dump(),
              R"({"file":"--set b.x=1","line":0,"text":"the graph has no instance 'b'; known are a"})");
    EXPECT_EQ(report["mistakes"][2]["file"], "g");
    EXPECT_EQ(report["mistakes"][2]["line"], 3);
    EXPECT_THAT(report["mistakes"][2]["text"].get<std::string>(),
                HasSubstr("a.size: '0' is not valid; expected"));
    EXPECT_THAT(json::parse(Run("run missing --report json").out)["mistakes"].dump(),
                HasSubstr(R"({"file":"missing","line":0,"text":"there is no such file)"));
}

TEST_F(NeverSilent, WritesTheReportToAFileAsAWhole) {
    Write("r.json", "old");
    const Answer answer = Use("run", PASS, "--report-file r.json");
    EXPECT_EQ(answer.code, 0);
    EXPECT_THAT(answer.out, HasSubstr("\ncomplete: g, "));
    EXPECT_EQ(json::parse(ReadAll(folder / "r.json"))["verdict"], "complete");
    EXPECT_EQ(Use("run", PASS, "--report-file r.json --set a.size=0").code, 2);
    EXPECT_EQ(json::parse(ReadAll(folder / "r.json"))["mistakes"].size(), 1U);
    const Answer both = Use("run", PASS, "--report json --report-file r.json");
    EXPECT_EQ(both.out, ReadAll(folder / "r.json"));
    EXPECT_EQ(Files(), (std::set<std::string>{"code", "err", "g", "out", "r.json"})) << "no part is left";
    constexpr std::pair<const char*, const char*> REFUSED[] = {
        {"missing/r.json", "error: missing/r.json cannot be written: "},
        {"g", "--report-file g: the report writes 'g', which the host reads too; "}};
    for (const auto& [file, error] : REFUSED) {
        const Answer refused = Use("run", PASS, std::string("--log ran.log --report-file ") + file);
        EXPECT_EQ(refused.code, 2);
        EXPECT_THAT(refused.err, testing::StartsWith(error));
        EXPECT_THAT(refused.out, IsEmpty());
        EXPECT_FALSE(fs::exists(folder / "ran.log"));
    }
    EXPECT_EQ(ReadAll(folder / "g"), PASS);
    const Answer full = Use("run", PASS, "--report-file /dev/full");
    EXPECT_EQ(full.code, 1);
    EXPECT_THAT(full.err, HasSubstr("/dev/full cannot be written: No space left"));
}

TEST_F(NeverSilent, StandardOutputIsTheReportsOrTheModules) {
    const std::string graph =
        "[a]\nmodule=Generator\nform=dc\nduration=0.001\nrate=2000\n[t]\nmodule=CsvWriter\nfile=/dev/stdout\n"
        "[lines]\na.Signal=t.Signal\n";
    const Answer mixed = Use("run", graph, "--report json");
    EXPECT_EQ(mixed.code, 2);
    EXPECT_THAT(mixed.err,
                HasSubstr("g:8: t.file: standard output belongs to the report; name another file"));
    EXPECT_EQ(json::parse(mixed.out)["verdict"], "mistakes");
    const Answer table = Use("run", graph, "--report-file r.json");
    EXPECT_EQ(table.code, 0);
    EXPECT_EQ(table.out, "time,dc\ns,\nsamplerate,2000\n0,1\n0.0005,1\n");
    EXPECT_THAT(table.err, testing::StartsWith("complete: g, "));
    EXPECT_EQ(json::parse(ReadAll(folder / "r.json"))["verdict"], "complete");
    EXPECT_EQ(Use("check", graph).code, 0);
}

// --- On a terminal

struct Screen {
    std::string text;
    int code = -1;
};

// Runs the program in a pseudo terminal, where somebody types.
Screen RunOnTerminal(std::vector<std::string> arguments, const std::string& typed = "") {
    std::vector<char*> words;
    for (std::string& argument : arguments) words.push_back(argument.data());
    words.push_back(nullptr);
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        execv(words[0], words.data());
        _exit(127);
    }
    EXPECT_EQ(write(terminal, typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
    Screen screen;
    char part[4096];
    for (ssize_t count = 0; (count = read(terminal, part, sizeof part)) > 0;)
        screen.text.append(part, static_cast<std::size_t>(count));
    close(terminal);
    int status = 0;
    waitpid(child, &status, 0);
    screen.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return screen;
}

TEST_F(NeverSilent, ShowsOneLineOfProgressAndTakesItAway) {
    Write("g", PASS);
    setenv("SIGWEAVE_MODULE_PATH", TEST_LIBRARIES "/good", 1);
    const Screen screen =
        RunOnTerminal({SIGWEAVE_PROGRAM, "run", (folder / "g").string(), "--realtime", "--set", "a.blocks=9",
                       "--set", "a.rate=100", "--set", "p.talk_at=6", "--language", "en"});
    EXPECT_EQ(screen.code, 0);
    EXPECT_THAT(screen.text, testing::ContainsRegex("\r\033\\[K0\\.[12] s of signal"));
    EXPECT_THAT(screen.text,
                testing::ContainsRegex("\r\033\\[Kwarning: p \\(Test pass\\): the wire[^\033]*\n0\\.[12] s"))
        << "the line comes back below the message";
    const std::size_t cleared = screen.text.rfind("\r\033[K");
    ASSERT_NE(cleared, std::string::npos);
    EXPECT_EQ(screen.text.find("instance", cleared), cleared + 4) << "gone before the table";
}

TEST_F(NeverSilent, AsksAboutAnotherMeaningOnce) {
    Write("g",
          "[a]\nmodule=TestSource\nmeaning=FREQ_DOMAIN\n[s]\nmodule=TestJoin\n"
          "[lines]\na.Signal=s.Signal 1\na.Signal=s.Signal 2\n");
    setenv("SIGWEAVE_MODULE_PATH", TEST_LIBRARIES "/good", 1);
    const std::tuple<const char*, int, int> rows[] = {
        // the answers, the exit code, and how often it was asked
        {"y\n", 0, 1},
        {"ja\n", 0, 1},
        {"n\nn\n", 2, 2},
        {"\nyes\n", 2, 2},
        {"yo\n\n", 2, 2}};
    for (const auto& [typed, code, questions] : rows) {
        const Screen screen =
            RunOnTerminal({SIGWEAVE_PROGRAM, "check", (folder / "g").string(), "--language", "en"},
                          typed + std::string("\004"));
        EXPECT_EQ(screen.code, code) << typed << screen.text;
        const std::string question =
            "s.Signal 1: s (Test join) expects 'TIME_DOMAIN', and the line brings "
            "'FREQ_DOMAIN'. Wire it anyway? [y/N] ";
        EXPECT_THAT(screen.text, HasSubstr("a.Signal=" + question));
        int asked = 0;
        for (std::size_t at = 0; (at = screen.text.find("Wire it anyway?", at)) != std::string::npos; ++at)
            ++asked;
        EXPECT_EQ(asked, questions) << typed;
    }
}

TEST(ProgressLine, LeavesOutWhatIsNotKnown) {
    const std::pair<host::RunProgress, const char*> rows[] = {
        {{12.54, 0.404, 1.66e9, 2.0}, "12.5 s of signal, 40 %, 830 MB/s"},
        {{0.0, 0.0, 0.0, 2.0}, "0.0 s of signal, 0 %"},
        {{-1.0, -1.0, 0.0, 0.0}, ""},
        {{-1.0, 1.0, 2e6, 0.0}, "100 %"},
        {{-1.0, -1.0, 2e6, 1.0}, "2 MB/s"}};
    for (const auto& [progress, text] : rows) EXPECT_EQ(host::WriteProgress(progress), text);
}

}  // namespace
