// The built program as a page meets it: one connection, commands and what they are answered.
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/support/OwnFolder.h"

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace fs = std::filesystem;
using asio::ip::tcp;
using nlohmann::json;
using testing::HasSubstr;

const std::string GRAPH =
    "[tone]\nmodule=Generator\nduration=1000000\n[levels]\nmodule=Statistics\n"
    "[lines]\ntone.Signal=levels.Signal\n";

class StudioProgram : public testing::Test {
 protected:
    StudioProgram() : own(MakeOwnFolder()), folder(own->Path()) {
        fs::create_directory(folder / "page");
        Write("page/index.html", "<p>page</p>");
        Write("test.graph", GRAPH);
    }
    ~StudioProgram() override {
        if (process > 0) kill(process, SIGKILL);
        if (output != nullptr) pclose(output);
    }

    void Write(const std::string& name, const std::string& text) const {
        std::ofstream(folder / name, std::ios::binary) << text;
    }
    std::string Read(const std::string& name) const {
        std::ostringstream text;
        text << std::ifstream(folder / name, std::ios::binary).rdbuf();
        return text.str();
    }
    std::string Line() const {
        char line[1000] = "";
        return std::fgets(line, sizeof line, output) != nullptr ? line : "";
    }
    void Begin(const std::string& arguments) {
        const std::string command = "cd '" + folder.string() +
                                    "' && echo $$ && exec '" SIGWEAVE_STUDIO_PROGRAM
                                    "' --language en --module-path '" SIGWEAVE_MODULE_DIR "' " +
                                    arguments + " 2>err";
        output = popen(command.c_str(), "r");
        process = std::stoi(Line());
    }
    // The code that it ends with.
    int End(int signal) {
        if (signal != 0) kill(process, signal);
        process = 0;
        const int status = pclose(std::exchange(output, nullptr));
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    void Start(const std::string& arguments) {
        Begin("--page page " + arguments + " test.graph");
        const std::string address = Line();  // http://127.0.0.1:PORT/?token=TOKEN
        const std::size_t at = address.find('/', 7);
        ASSERT_THAT(address, testing::MatchesRegex("http://127.0.0.1:[0-9]+/[?]token=[0-9a-f]+\n"));
        host = address.substr(7, at - 7);
        port = host.substr(host.find(':') + 1);
        const std::string token = address.substr(at + 8, address.size() - at - 9);
        socket.next_layer().connect(
            {asio::ip::make_address("127.0.0.1"), static_cast<unsigned short>(std::stoi(port))});
        socket.set_option(
            beast::websocket::stream_base::decorator([&](beast::websocket::request_type& request) {
                request.set(beast::http::field::origin, "http://" + host);
                request.set(beast::http::field::cookie, "sigweave-" + port + "=" + token);
            }));
        socket.handshake(host, "/live");
        Tell({{"do", "hello"}, {"name", "me"}});
        Await("run");
    }
    void Tell(const json& command) { socket.write(asio::buffer(command.dump())); }
    // The next message with this member; the last one with each is kept.
    json Await(const std::string& member) {
        for (;;) {
            beast::flat_buffer buffer;
            socket.read(buffer);
            if (socket.got_binary()) {
                ++pictures;
                continue;
            }
            const json message = json::parse(beast::buffers_to_string(buffer.data()));
            for (const auto& [name, value] : message.items()) told[name] = message;
            if (message.contains(member)) return message;
        }
    }
    json Ask(json command) {
        command["id"] = ++id;
        Tell(command);
        for (;;)
            if (json answer = Await("answer"); answer["answer"] == id) return answer;
    }
    void Refuses(const json& command, const std::string& reason) {
        const json answer = Ask(command);
        EXPECT_EQ(answer["ok"], false) << command;
        EXPECT_THAT(answer.value("text", ""), HasSubstr(reason)) << command;
    }
    // All edits, and the text that the graph has then.
    std::string Edited(const json& edits, json* answer = nullptr) {
        const json said = Ask({{"do", "change"}, {"edits", edits}});
        EXPECT_EQ(said["ok"], true) << said;
        if (answer != nullptr) *answer = said;
        return told["state"]["text"];
    }

    std::unique_ptr<tc::OwnedFolder> own;
    fs::path folder;
    std::FILE* output = nullptr;
    pid_t process = 0;
    asio::io_context io;
    beast::websocket::stream<tcp::socket> socket{io};
    std::string host, port;
    std::map<std::string, json> told;
    int id = 0;
    int pictures = 0;
};

TEST_F(StudioProgram, ShowsAGraphWithItsPortsWiresAndMistakes) {
    Start("");
    EXPECT_EQ(told["hello"]["readOnly"], false);
    const json state = told["state"];
    EXPECT_EQ(state["path"], "test.graph");
    EXPECT_EQ(state["folder"], fs::canonical(folder).string());
    EXPECT_EQ(state["instances"][0], json::parse(R"({"name":"tone","module":"Generator","line":1,"inputs":[],
        "settings":[{"name":"duration","value":"1000000","line":3}],"source":true,"grows":false,
        "outputs":[{"name":"Signal","type":"TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}"}]})"));
    EXPECT_EQ(state["instances"][1]["grows"], true);
    EXPECT_EQ(state["wires"],
              json::parse(R"([{"from":["tone","Signal"],"to":["levels","Signal"],"line":7}])"));
    EXPECT_EQ(state["mistakes"], json::array());
    Ask({{"do", "text"},
         {"version", state["state"]},
         {"text",
          "[studio.positions]\ntone=3,4\n[tone]\nmodule=Generator\nfrequency=x\n[lines]\na.b=tone.c\n"}});
    EXPECT_EQ(told["state"]["instances"][0]["at"], json::parse("[3,4]"));
    json places;
    for (json mistake : told["state"]["mistakes"]) places.push_back((mistake.erase("text"), mistake));
    EXPECT_THAT(places,
                testing::IsSupersetOf({json::parse(R"({"line":5,"instance":"tone","parameter":"frequency"})"),
                                       json::parse(R"({"line":7,"wire":0})")}));
    EXPECT_EQ(End(SIGINT), 0);
}

TEST_F(StudioProgram, ChangesAGraphStepByStep) {
    Start("");
    const json first = told["state"];
    Refuses({{"do", "text"}, {"version", -1}, {"text", "x"}}, "has changed meanwhile");
    EXPECT_EQ(told["state"]["text"], GRAPH);
    const json typed = Ask({{"do", "text"}, {"version", first["state"]}, {"text", GRAPH + "# typed\n"}});
    EXPECT_EQ(typed["ok"], true);
    EXPECT_EQ(typed["version"], first["state"].get<int>() + 1);
    const auto expect = [this](const std::string& text, bool changed, bool canUndo, bool canRedo) {
        const json& state = told["state"];
        EXPECT_EQ(state["text"], text);
        EXPECT_EQ(state["changed"], changed);
        EXPECT_EQ(state["canUndo"], canUndo);
        EXPECT_EQ(state["canRedo"], canRedo);
    };
    expect(GRAPH + "# typed\n", true, true, false);
    Ask({{"do", "undo"}});
    expect(GRAPH, false, false, true);
    Ask({{"do", "redo"}});
    expect(GRAPH + "# typed\n", true, true, false);
    json answer;
    const json place = {{"kind", "place"}, {"other", "Filter"}, {"positions", {{{"x", 3}, {"y", 4}}}}};
    EXPECT_THAT(Edited(json::array({place}), &answer), HasSubstr("[filter]\nmodule=Filter\n"));
    EXPECT_EQ(answer["name"], "filter");
    EXPECT_THAT(Edited(json::array({place}), &answer), HasSubstr("filter=3,4\nfilter 2=3,4\n"));
    const json wrong = {{"kind", "connect"}, {"name", "tone.Signal"}, {"other", "tone.Signal"}};
    Refuses({{"do", "change"}, {"edits", {wrong}}}, "'tone'");
    EXPECT_EQ(Ask({{"do", "change"}, {"force", true}, {"edits", {wrong}}})["ok"], true);
    Ask({{"do", "undo"}});
    Refuses({{"do", "try"}, {"name", "tone.Signal"}, {"other", "levels.Signal"}}, "there is a line");
    EXPECT_EQ(Ask({{"do", "try"}, {"name", "tone.Signal"}, {"other", "filter.Signal"}})["ok"], true);
    EXPECT_EQ(Ask({{"do", "form"}, {"name", "tone"}})["parameters"]["frequency"]["live"], true);
    EXPECT_EQ(Ask({{"do", "set"}, {"name", "tone"}, {"text", R"({"set":{"frequency":"60"}})"}})["ok"], true);
    EXPECT_THAT(told["state"]["text"].get<std::string>(), HasSubstr("\nfrequency=60\n"));
    Refuses({{"do", "form"}, {"name", "tune"}}, "did you mean 'tone'");
    Refuses({{"do", "recording"}, {"name", "tone"}}, "'tone' has no setting 'file'");
    Refuses({{"do", "stop"}}, "nothing is running");
    EXPECT_EQ(Ask({{"do", "files"}})["entries"][0]["name"], fs::canonical(folder).string());
    socket.write(asio::buffer(std::string("x")));
    Await("refused");
    Ask({{"do", "language"}, {"name", "de"}});
    EXPECT_EQ(told["language"]["language"], "de");
    Refuses({{"do", "stop"}}, "es läuft nichts");
    EXPECT_EQ(End(SIGINT), 0);
}

TEST_F(StudioProgram, SavesAndSeesChangesOfOthers) {
    Start("");
    Edited(json::array({{{"kind", "remove"}, {"names", {"levels"}}}}));
    const std::string text = told["state"]["text"];
    EXPECT_EQ(Ask({{"do", "save"}})["ok"], true);
    EXPECT_EQ(Read("test.graph"), text);
    EXPECT_EQ(told["state"]["changed"], false);
    Write("test.graph", GRAPH);
    Await("outside");
    const json refused = Ask({{"do", "save"}});
    EXPECT_EQ(refused["ok"], false);
    EXPECT_EQ(refused["outside"], true);
    EXPECT_EQ(Ask({{"do", "reload"}})["ok"], true);
    EXPECT_EQ(told["state"]["text"], GRAPH);
    EXPECT_EQ(Ask({{"do", "save"}, {"name", "other.graph"}})["ok"], true);
    EXPECT_EQ(Read("other.graph"), GRAPH);
    EXPECT_THAT(told["state"]["path"].get<std::string>(), HasSubstr("other.graph"));
    Write("other.graph", "[gone]\n");
    Await("outside");  // which is said anew after each saving
    EXPECT_EQ(End(SIGINT), 0);
}

TEST_F(StudioProgram, RunsAndShowsPicturesAsTheyAreConfirmed) {
    Start("");
    const auto wish = [](int trace, double seconds) {
        return json{{"trace", trace}, {"port", "tone.Signal"}, {"seconds", seconds}};
    };
    Tell({{"do", "watch"}, {"wishes", {wish(1, 0.5), wish(2, 0.5), wish(3, 0.25)}}});
    const json watching = Await("watching")["watching"];
    EXPECT_EQ(watching[0]["key"], watching[1]["key"]);
    EXPECT_NE(watching[0]["key"], watching[2]["key"]);
    EXPECT_EQ(Ask({{"do", "run"}, {"realtime", true}})["ok"], true);
    EXPECT_EQ(told["run"]["run"],
              json::parse(R"({"running":true,"stopping":false,"number":1,"realtime":true})"));
    Refuses({{"do", "run"}}, "is running already");
    Ask({{"do", "set"}, {"name", "tone"}, {"text", R"({"set":{"frequency":"60"}})"}});
    while (!told.contains("set")) Await("set");
    EXPECT_EQ(told["set"]["set"]["refusal"], "");
    const auto frame = [this] { return told.contains("frame") ? told["frame"]["frame"].get<int>() : 0; };
    while (frame() < 2) Await("frame");
    Tell({{"do", "got"}, {"number", 2}});
    while (frame() < 3) Await("frame");
    EXPECT_GE(pictures, 3);
    EXPECT_EQ(Ask({{"do", "stop"}})["ok"], true);
    EXPECT_EQ(told["run"]["run"]["stopping"], true);
    EXPECT_EQ(Await("report")["report"]["verdict"], "interrupted");
    EXPECT_EQ(Await("run")["run"]["running"], false);
    EXPECT_EQ(End(SIGINT), 0);
}

TEST_F(StudioProgram, OnlyShowsWhenThatIsAskedFor) {
    Start("--watch");
    EXPECT_EQ(told["hello"]["readOnly"], true);
    for (const char* command : {"text", "change", "undo", "run", "stop", "save", "set", "keep", "language"})
        Refuses({{"do", command}}, "--watch");
    EXPECT_EQ(Ask({{"do", "form"}, {"name", "tone"}})["ok"], true);
    EXPECT_EQ(Read("test.graph"), GRAPH);
}

TEST_F(StudioProgram, RefusesWhatWouldBeUnsafeOrIsNotThere) {
    Start("");
    Write("short", "eight cha\n");
    Write("open", "long enough for a password\n");
    fs::permissions(folder / "short", fs::perms::owner_read);
    fs::permissions(folder / "open", fs::perms::owner_read | fs::perms::others_read);
    const std::tuple<std::string, int, const char*> rows[] = {
        {"--page missing", 2, "missing"},
        {"--folder missing", 2, "there is no folder 'missing'"},
        {"--listen 0.0.0.0", 2, "others could read along and take over at 0.0.0.0"},
        {"--certificate short", 2, "a certificate needs its key"},
        {"--password-file missing", 2, "'missing' with the password cannot be read"},
        {"--password-file short", 2, "too short; it needs at least 12"},
        {"--password-file open", 2, "run: chmod 600 'open'"},
        {"--port 65536", 2, ""},
        {"--port " + port, 1, "cannot be opened"},
        {"--language fr", 2, "there is no language 'fr'"}};
    const pid_t first = process;
    std::FILE* const firstOutput = output;
    for (const auto& [arguments, code, reason] : rows) {
        Begin((arguments.starts_with("--page") ? "" : "--page page ") + arguments + " test.graph");
        EXPECT_EQ(End(0), code) << arguments;
        EXPECT_THAT(Read("err"), HasSubstr(reason)) << arguments;
    }
    process = first;
    output = firstOutput;
    EXPECT_EQ(End(SIGTERM), 0);
}

}  // namespace
