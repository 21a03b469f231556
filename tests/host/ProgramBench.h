#pragma once

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/OwnFolder.h"

inline std::string ReadAll(const std::filesystem::path& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

struct Answer {
    int code;
    std::string out;
    std::string err;
};

// The built program, in an empty folder of its own.
class Program : public testing::Test {
 protected:
    void SetUp() override {
        own = MakeOwnFolder();
        folder = own->Path();
    }

    void Write(const std::string& name, const std::string& text) {
        std::ofstream(folder / name, std::ios::binary) << text;
    }

    Answer Run(const std::string& arguments, const std::string& modulePath = TEST_LIBRARIES "/good",
               const std::string& output = "out") {
        const std::string command = "cd '" + folder.string() + "' && " + locale + " SIGWEAVE_MODULE_PATH='" +
                                    modulePath + "' '" SIGWEAVE_PROGRAM "' " + arguments + " <" + input +
                                    " >" + output + " 2>err; echo $? >code";
        EXPECT_EQ(std::system(command.c_str()), 0);
        return {std::stoi(ReadAll(folder / "code")), ReadAll(folder / "out"), ReadAll(folder / "err")};
    }

    Answer RunGraph(const std::string& text, const std::string& arguments = "") {
        Write("test.graph", text);
        return Run("run test.graph " + arguments);
    }

    std::unique_ptr<tc::OwnedFolder> own;
    std::filesystem::path folder;
    std::string locale = "LC_ALL=C";
    std::string input = "/dev/null";
};
