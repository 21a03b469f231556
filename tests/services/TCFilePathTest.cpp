#include <gmock/gmock.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "sigweave/platform/PathText.h"
#include "sigweave/services/PathArithmetic.h"
#include "sigweave/services/TCFilePath.h"
#include "sigweave/services/TCLogFile.h"
#include "tests/support/FakeWindow.h"
#include "tests/support/OwnFolder.h"

namespace {

namespace fs = std::filesystem;

struct Row {
    const char *base, *path, *expected;
};

TEST(PathArithmetic, MakesPathsAbsolute) {
    constexpr Row ROWS[] = {{"C:\\data", "..\\x\\.\\y.txt", "C:\\x\\y.txt"},
                            {"C:\\data", "D:\\z", "D:\\z"},
                            {"C:\\data\\", "c:/a//b", "c:\\a\\b"},
                            {"C:/data", ".", "C:\\data"},
                            {"C:\\data", "", ""},
                            {"C:\\data", "sub\\", "C:\\data\\sub"},
                            {"C:\\data", "..\\..\\..\\x", "C:\\..\\..\\x"},
                            {"C:\\data", "a\\b\\..\\..\\c\\..", "C:\\data"},
                            {"C:\\data", "...\\.x\\x.\\..y", "C:\\data\\...\\.x\\x.\\..y"},
                            {"", "..\\..\\x", "\\..\\..\\x"},
                            {nullptr, nullptr, ""},
                            {"C:\\data", "\\\\srv\\share", "\\\\srv\\share"},
                            {"\\\\srv\\share\\a", "..\\b", "\\\\srv\\share\\b"},
                            {"/home/x", "y.wav", "\\home\\x\\y.wav"},
                            {"", "x", "\\x"},
                            {nullptr, "x\\..\\..\\y", "\\..\\y"},
                            {"/", "x", "\\x"},
                            {"sub\\a", "..\\..\\x", "x"},
                            {"/home/x", "/", ""},
                            {"C:\\data", "C:.\\x", "C:.\\x"},
                            {"C:\\data", "C:.", "C:."},
                            {"C:\\data", "C:..", "C:.."},
                            {"C:", ".\\x", "C:\\x"},
                            {"C:\\data", "C:.\\.\\x\\..\\..\\y", "C:y"}};
    for (const Row& row : ROWS) EXPECT_STREQ(MakeAbsPath(row.base, row.path), row.expected) << row.path;
    EXPECT_EQ(MakeAbsPath(CString("C:\\data"), CString("x")), "C:\\data\\x");
    EXPECT_EQ(tc::NativePath(MakeAbsPath("", "/home/x/../y")), "/home/y");
}

TEST(PathArithmetic, MakesPathsRelative) {
    constexpr Row ROWS[] = {{"C:\\data", "C:\\DATA\\sub\\f.txt", ".\\sub\\f.txt"},
                            {"C:\\data", "C:\\data", "."},
                            {"C:\\data\\", "C:\\data\\", "."},
                            {"C:\\data", "C:\\other\\f.txt", "C:\\other\\f.txt"},
                            {"C:\\data", "C:\\database\\f.txt", "C:\\database\\f.txt"},
                            {"C:\\data", "sub/./f.txt", ".\\sub\\f.txt"},
                            {"C:\\data", "..\\f.txt", "C:\\f.txt"},
                            {"C:\\data", "%CSIDL_APPDATA%\\f.txt", "%CSIDL_APPDATA%\\f.txt"},
                            {"C:\\data", "", ""},
                            {".\\data", "f.txt", ".\\f.txt"},
                            {"", "f.txt", ".\\f.txt"},
                            {"", "a\\..", "."},
                            {"", "\\f.txt", "\\f.txt"},
                            {"/", "/home/x", ".\\home\\x"},
                            {"/", "\\\\srv\\x", "\\\\srv\\x"},
                            {"/home/x", "/home/x/f.wav", ".\\f.wav"}};
    for (const Row& row : ROWS) EXPECT_STREQ(MakeRelPath(row.base, row.path), row.expected) << row.path;
}

TEST(PathArithmetic, TellsRoots) {
    for (const char* path : {"\\\\srv\\share", "\\\\srv", "//srv", "c:", "Z:x", "/", "\\x"})
        EXPECT_TRUE(TCFilePath::IsAbsolute(path)) << path;
    for (const char* path : {"", "x", ".\\x", "..", "1:x", ":", "\xC3\xA4:x", "%HOME%\\x"})
        EXPECT_TRUE(TCFilePath::IsRelative(path)) << path;
    EXPECT_TRUE(TCFilePath::IsRelative(nullptr));
}

TEST(PathArithmetic, CutsBetweenCharactersAtTheBound) {
    std::string umlauts = "/";
    for (int i = 0; i < 5000; ++i) umlauts += "\xC3\xA4";
    EXPECT_EQ(MakeAbsPath("", umlauts.c_str()).GetLength(), 259);
    EXPECT_EQ(MakeAbsPath("", ("C:x" + umlauts).c_str()).GetLength(), 258);
    const std::string name(10'000, 'n');
    EXPECT_EQ(MakeAbsPath(name.c_str(), name.c_str()).GetLength(), 259);
    EXPECT_STREQ(MakeRelPath("C:", name.c_str()), (".\\" + name.substr(0, 256)).c_str());
    for (const char* piece : {"../", "./", "/", "\\", "%", "a/../", "\xFF", "\xE2\x82"}) {
        std::string path;
        while (path.size() < 10'000) path += piece;
        EXPECT_LE(MakeAbsPath(path.c_str(), path.c_str()).GetLength(), 259) << piece;
        EXPECT_LE(MakeRelPath(path.c_str(), path.c_str()).GetLength(), 259) << piece;
        EXPECT_LE(TCFilePath(path.c_str()).GetAbsPath().GetLength(), 259) << piece;
    }
}

// Character sets whose characters may end in a byte that looks like a backslash or a bar; made here where the
// system has their descriptions.
class CodePages : public testing::TestWithParam<const char*> {
 protected:
    void SetUp() override {
        const std::string charset = GetParam();
        const fs::path made = fs::absolute("ja_JP." + charset);
        const std::string command =
            "localedef -c -i ja_JP -f " + charset + " '" + made.string() + "' 2>/dev/null";
        if (!fs::exists(made) && std::system(command.c_str()) < 0) GTEST_SKIP() << "no localedef";
        setenv("LOCPATH", fs::current_path().c_str(), 1);
        if (std::setlocale(LC_ALL, made.filename().c_str()) == nullptr) GTEST_SKIP() << "no " << charset;
    }
    void TearDown() override {
        unsetenv("LOCPATH");
        std::setlocale(LC_ALL, "C");
    }
};

class OneAnswer : public TCPathChooser {
 public:
    bool Choose(const TCPathQuestion&, CString& path) override {
        path = "/\x83\x7C";
        return true;
    }
};

TEST_P(CodePages, KeepWholeCharacters) {
    EXPECT_STREQ(MakeAbsPath("/a\x95\x5C", "..\\\x95\x5Cx/\x95\x5C"), "\\\x95\x5Cx\\\x95\x5C");
    EXPECT_STREQ(MakeRelPath("/\x95\x5C", "/\x95\x5C\\x"), ".\\x");
    EXPECT_STREQ(MakeRelPath("/\x95", "/\x95\x5Cx"), "\\\x95\x5Cx");
    EXPECT_EQ(tc::NativePath("\\a\x95\x5C\\\x95\x5Cx"), "/a\x95\x5C/\x95\x5Cx");
    TCFilePath path("/");
    path.SetPath("a\x95\x5C");
    EXPECT_STREQ(path.GetFileName(), "a\x95\x5C");
    EXPECT_STREQ(path.GetDirectory(), "\\");
    OneAnswer chooser;
    TCSetPathChooser(&chooser);
    EXPECT_EQ(path.DoFolderDialog(""), TCFilePath::CHOSEN) << "the bar is half of a character";
    TCSetPathChooser(nullptr);
    const std::string long260 = "/" + std::string(257, 'x') + "\x95\x5C";
    EXPECT_EQ(MakeAbsPath("", long260.c_str()).GetLength(), 258) << "cut before the character";
    TCLogFile log;
    EXPECT_TRUE(log.Open(1, 0x7F, "log\x95\x5C", false, false, 0));
    EXPECT_TRUE(fs::exists("log\x95\x5C")) << "no folder";
}

INSTANTIATE_TEST_SUITE_P(Charsets, CodePages, testing::Values("SHIFT_JIS", "GBK"));

// With folders and variables of its own.
class PathTokens : public testing::Test {
 protected:
    PathTokens() : own(MakeOwnFolder()), home(own->Path()) {
        fs::create_directories(home / "config");
        setenv("HOME", home.c_str(), 1);
        setenv("XDG_CONFIG_HOME", (home / "config").c_str(), 1);
        setenv("XDG_DATA_HOME", "relative/is/ignored", 1);
    }
    static void Expect(const char* path, const std::string& expected, int count) {
        TCString resolved = path;
        EXPECT_EQ(TCFilePath::Resolve(resolved, true, true), count) << path;
        EXPECT_EQ(std::string(resolved), expected) << path;
    }
    std::string Home(const char* below) const { return home.string() + below; }

    std::unique_ptr<tc::OwnedFolder> own;
    fs::path home;
};

TEST_F(PathTokens, StandForFolders) {
    std::ofstream(home / "config/user-dirs.dirs") << "# a comment\nXDG_MUSIC_DIR=\"$HOME/Musik\"\n"
                                                     "XDG_VIDEOS_DIR=\"/films\"\nXDG_DESKTOP_DIR=broken\n"
                                                     "XDG_PICTURES_DIR=\"$HOME/\\\"my\\\" \\$\\\\\" # mine\n"
                                                     "XDG_DOCUMENTS_DIR=\"/unfinished\n";
    Expect("%CSIDL_APPDATA%\\x", Home("/config\\x"), 1);
    Expect("%CSIDL_LOCAL_APPDATA%", Home("/.local/share"), 1);
    Expect("%CSIDL_PROFILE%\\%CSIDL_PROFILE%", Home("\\") + Home(""), 2);
    Expect("%CSIDL_MYMUSIC%|%CSIDL_MYVIDEO%|%CSIDL_DESKTOP%", Home("/Musik|/films|") + Home("/Desktop"), 3);
    Expect("%CSIDL_MYPICTURES%|%CSIDL_PERSONAL%", Home("/\"my\" $\\|") + Home("/Documents"), 2);
    Expect("%CSIDL_WINDOWS%", "/usr", 1);
    Expect("%CSIDL_PRINTERS%\\x%CSIDL_NONE%%csidl_profile%", "\\x", 0);
    Expect("no token, 100 %", "no token, 100 %", 0);
    Expect("", "", 0);
    TCString path = "%CSIDL_PROFILE%%HOME%";
    EXPECT_EQ(TCFilePath::Resolve(path, false, false), 0);
    EXPECT_STREQ(path, "%CSIDL_PROFILE%%HOME%");
    EXPECT_EQ(TCFilePath::Resolve(path, false, true), 1);
    EXPECT_EQ(std::string(path), Home(""));
}

TEST_F(PathTokens, MakeFoldersWhenTheFlagFollowsTheName) {
    Expect("%CSIDL_STARTUP%", Home("/config/autostart"), 1);
    EXPECT_FALSE(fs::exists(home / "config/autostart"));
    Expect("%CSIDL_FLAG_CREATE|CSIDL_STARTUP%\\x", "\\x", 0);
    Expect("%CSIDL_FLAG_CREATE%x", "x", 0);
    EXPECT_FALSE(fs::exists(home / "config/autostart"));
    Expect("%CSIDL_STARTUP|CSIDL_FLAG_CREATE%\\x", Home("/config/autostart\\x"), 1);
    EXPECT_TRUE(fs::is_directory(home / "config/autostart"));
    Expect("%CSIDL_STARTUP&&CSIDL_FLAG_CREATE%%CSIDL_STARTUP%",
           Home("/config/autostart") + Home("/config/autostart"), 2);
}

TEST_F(PathTokens, EndWhateverTheVariablesHold) {
    setenv("A", "a", 1);
    setenv("B", "<%A%>", 1);
    setenv("SELF", "s%SELF%", 1);
    setenv("PING", "%PONG%!", 1);
    setenv("PONG", "%PING%?", 1);
    setenv("ODD", "50%", 1);
    unsetenv("NONE");
    Expect("%A%%B%\\%A%", "a<a>\\a", 4);
    Expect("%SELF%\\%SELF%%A%", "s\\sa", 3);
    Expect("%PING%", "?!", 2);
    Expect("%NONE%%%x", "x", 0);
    Expect("%ODD% of %A", "50A", 1);
    setenv("HOME", "/h/%CSIDL_PROFILE%", 1);
    Expect("%CSIDL_PROFILE%", "/h/", 1);
    for (char name = 'a'; name < 'z'; ++name) {
        const std::string next(1, static_cast<char>(name + 1));
        setenv(std::string(1, name).c_str(), ("%" + next + "%%" + next + "%").c_str(), 1);
    }
    setenv("z", "leaf", 1);
    CString grown = "%a%";
    TCFilePath::Resolve(grown, true, true);
    EXPECT_LE(grown.size(), 32'767U);
    EXPECT_EQ(grown.find('%'), CString::npos);
    grown = std::string(40'000, '%');
    EXPECT_EQ(TCFilePath::Resolve(grown, true, true), 0);
    EXPECT_EQ(grown.size(), 40'000U);
    setenv("z", "", 1);
    Expect("%a%", "", 1000);
}

TEST_F(PathTokens, AreKeptByAFilePathAndResolvedWhenAskedFor) {
    setenv("NAME", "take 1", 1);
    TCFilePath path("%CSIDL_PROFILE%\\data");
    EXPECT_TRUE(path.IsEmpty());
    path.SetPath("%CSIDL_APPDATA%/%NAME%.tar.gz");
    EXPECT_TRUE(path.HasChanged());
    EXPECT_FALSE(path.HasChanged());
    path.EnableResolveCSIDL(true);
    path.EnableResolveEnvironment(true);
    EXPECT_STREQ(path.GetRelPath(), "%CSIDL_APPDATA%\\%NAME%.tar.gz");
    EXPECT_EQ(tc::NativePath(path.GetAbsPath()), Home("/config/take 1.tar.gz"));
    EXPECT_EQ(tc::NativePath(path.GetDirectory()), Home("/config"));
    EXPECT_STREQ(path.GetFileName(), "take 1.tar.gz");
    EXPECT_STREQ(path.GetFileTitle(), "take 1.tar");
    EXPECT_STREQ(path.GetFileExt(), "gz");
    path.SetPath((home / "data/sub").c_str());
    EXPECT_STREQ(path.GetPathRef(), ".\\sub");
    EXPECT_TRUE(TCFilePath(path).HasChanged());
    EXPECT_FALSE(TCFilePath::CreateRecursiveDirectory("/proc/no/such/folder"));
    EXPECT_FALSE(TCFilePath::CreateRecursiveDirectory(std::string(10'000, 'x').c_str()));
    EXPECT_TRUE(path.CreateRecursiveDirectory());
    EXPECT_TRUE(fs::is_directory(home / "data/sub"));
}

TEST(TCFilePath, SplitsPathsWithoutFolderOrName) {
    const struct {
        const char *path, *folder, *title, *extension;
    } rows[] = {
        {"\\x.wav", "\\", "x", "wav"},  {"C:x", "C:", "x", ""}, {"/home/.profile", "\\home", ".profile", ""},
        {"\\\\srv", "\\\\srv", "", ""}, {"", "", "", ""},       {"/a.b/c", "\\a.b", "c", ""}};
    for (const auto& row : rows) {
        TCFilePath path;
        path.SetPath(row.path);
        EXPECT_STREQ(path.GetDirectory(), row.folder) << row.path;
        EXPECT_STREQ(path.GetFileTitle(), row.title) << row.path;
        EXPECT_STREQ(path.GetFileExt(), row.extension) << row.path;
    }
}

TEST(TCFilePath, KeepsThePlaceThatItWasGiven) {
    const struct {
        const char *base, *path, *kept, *place;
    } rows[] = {{"sub", "..\\x.wav", "..\\x.wav", "x.wav"},
                {"sub\\a", "../b/x.wav", "..\\b\\x.wav", "sub\\b\\x.wav"},
                {"sub", "a/../x.wav", ".\\x.wav", "sub\\x.wav"},
                {"/sub", "../x.wav", "\\x.wav", "\\x.wav"},
                {"", "../x.wav", "..\\x.wav", "..\\x.wav"},
                {"", "x.wav", ".\\x.wav", "x.wav"}};
    for (const auto& row : rows) {
        TCFilePath path(row.base);
        path.SetPath(row.path);
        EXPECT_STREQ(path.GetRelPath(), row.kept) << row.base;
        EXPECT_STREQ(path.GetAbsPath(), row.place) << row.base;
    }
}

class Chooser : public TCPathChooser {
 public:
    bool Choose(const TCPathQuestion& question, CString& path) override {
        asked = std::to_string(question.kind) + question.title + question.filter + question.proposal;
        path = answer;
        return !answer.empty();
    }
    std::string asked, answer;
};

TEST(TCFilePath, AsksThroughTheHost) {
    TCFilePath path("/data");
    EXPECT_EQ(path.DoFileOpenDialog("Open"), TCFilePath::NOT_AVAILABLE);
    Chooser chooser;
    TCSetPathChooser(&chooser);
    path.SetPath("a.wav");
    EXPECT_EQ(path.DoFileSaveDialog("Save", "*.wav"), TCFilePath::CANCELLED);
    EXPECT_EQ(chooser.asked, "1Save*.wav/data/a.wav");
    chooser.answer = "/data/what?.wav";
    EXPECT_EQ(path.DoFileOpenDialog(nullptr), TCFilePath::REFUSED_NAME);
    EXPECT_STREQ(path.GetPathRef(), ".\\a.wav");
    chooser.answer = "/data/sub";
    EXPECT_EQ(path.DoFolderDialog("Where"), TCFilePath::CHOSEN);
    EXPECT_STREQ(path.GetPathRef(), ".\\sub");
    TCSetPathChooser(nullptr);
}

TEST(TCFilePath, CompactsToTheWidthOfAWindow) {
    FakeWindow window;  // 96 pixels an inch: 8 a character
    const struct {
        int characters;
        const char* expected;
        bool fits;
    } rows[] = {{30, "C:\\data\\2026\\long name.wav", true},
                {26, "C:\\data\\2026\\long name.wav", true},
                {20, "C:\\...\\long name.wav", true},
                {17, "...\\long name.wav", true},
                {13, "long name.wav", true},
                {8, "long ...", true},
                {2, "...", false},
                {-1, "...", false}};
    for (const auto& row : rows) {
        TCString path = "C:/data/2026/long name.wav";
        EXPECT_EQ(TCFilePath::MakeCompactPath(path, row.characters * 8, &window), row.fits) << row.characters;
        EXPECT_STREQ(path, row.expected);
    }
    TCString folder = "C:/data/2026/takes/";
    EXPECT_TRUE(TCFilePath::MakeCompactPath(folder, 14 * 8, &window));
    EXPECT_STREQ(folder, "C:\\d...\\takes\\");
    TCString umlauts = "/\xC3\xA4\xC3\xA4 2026/\xC3\xA4\xC3\xA4";
    EXPECT_TRUE(TCFilePath::MakeCompactPath(umlauts, 7 * 8, nullptr));
    EXPECT_STREQ(umlauts, "\\...\\\xC3\xA4\xC3\xA4");
}

}  // namespace
