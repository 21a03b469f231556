#include <gmock/gmock.h>

#include "studio/server/Command.h"

namespace {

using studio::Command;
using studio::Edit;
using studio::Wish;

TEST(Command, IsReadWithAllItsParts) {
    Command command;
    std::string error;
    ASSERT_TRUE(ReadCommand(R"({"do":"change","id":7,"force":true,"edits":[
        {"kind":"place","other":"Filter","positions":[{"instance":"","x":-5,"y":40}]},
        {"kind":"remove","names":["a","b"]},
        {"kind":"set","name":"a","settings":[{"name":"x","value":"1"}]}]})",
                            command, error));
    EXPECT_EQ(command.kind, Command::Change);
    EXPECT_EQ(command.id, 7);
    EXPECT_TRUE(command.force);
    ASSERT_EQ(command.edits.size(), 3u);
    EXPECT_EQ(command.edits[0].kind, Edit::Place);
    EXPECT_EQ(command.edits[0].positions[0].x, -5);
    EXPECT_THAT(command.edits[1].names, testing::ElementsAre("a", "b"));
    EXPECT_EQ(command.edits[2].settings[0].second, "1");
    ASSERT_TRUE(ReadCommand(R"({"do":"watch","wishes":[
        {"trace":3,"port":"a.Signal","kind":"samples","samples":4096},
        {"trace":4,"port":"a.Signal","seconds":0.5,"triggers":true,"level":-1e3},{}]})",
                            command, error));
    EXPECT_EQ(command.wishes[0].kind, Wish::Samples);
    EXPECT_EQ(command.wishes[1].level, -1000.0);
    EXPECT_EQ(command.wishes[2].trace, 0);
    EXPECT_TRUE(command.edits.empty());
    ASSERT_TRUE(
        ReadCommand(R"({"do":"recording","name":"r","number":3,"first":1000,"count":200})", command, error));
    EXPECT_EQ(command.name, "r");
    EXPECT_EQ(command.number, 3);
    EXPECT_EQ(command.first, 1000);
    EXPECT_EQ(command.count, 200);
}

TEST(Command, IsRefusedWhenAnyPartIsWrong) {
    const std::string deep(100000, '[');
    const std::string longName(1001, 'a');
    const std::string messages[] = {
        "",
        "null",
        "[]",
        "{}",
        deep,
        "{\"do\":" + deep,
        "\xff\xfe",
        R"({"do":"shutdown"})",
        R"({"do":["run"]})",
        R"({"do":"run","id":-1})",
        R"({"do":"run","id":18446744073709551615})",
        R"({"do":"run","id":1.5})",
        R"({"do":"run","realtime":"yes"})",
        R"({"do":"form","name":")" + longName + R"("})",
        R"({"do":"form","name":"a\u0000b"})",
        R"({"do":"change","edits":{}})",
        R"({"do":"change","edits":[{"kind":"format"}]})",
        R"({"do":"change","edits":[{"kind":"move","positions":[{"instance":"a","x":1e300,"y":0}]}]})",
        R"({"do":"change","edits":[{"kind":"move","positions":[{"instance":"a","x":2000000,"y":0}]}]})",
        R"({"do":"change","edits":[{"kind":"remove","names":[1]}]})",
        R"({"do":"watch","wishes":[{"kind":"video"}]})",
        R"({"do":"watch","wishes":[{"seconds":0}]})",
        R"({"do":"watch","wishes":[{"seconds":null}]})",
        R"({"do":"watch","wishes":[{"kind":"samples","samples":100000000}]})",
        R"({"do":"watch","wishes":[)" +
            [] {
                std::string many = "{}";
                for (int i = 0; i < 64; ++i) many += ",{}";
                return many;
            }() +
            "]}",
    };
    for (const std::string& message : messages) {
        Command command;
        std::string error;
        EXPECT_FALSE(ReadCommand(message, command, error)) << message.substr(0, 100);
        EXPECT_FALSE(error.empty());
    }
}

}  // namespace
