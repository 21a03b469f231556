#include <gtest/gtest.h>

#include "sigweave/platform/Language.h"
#include "sigweave/services/StringResources.h"

namespace {

constexpr _TC_StrResource TABLE[] = {{1, "one", "eins"},
                                     {2, "two", nullptr},
                                     {3, nullptr, "drei"},
                                     {1, "again", "nochmals"},
                                     {4, nullptr, nullptr}};
constexpr int COUNT = 5;

// Before any test has set a language, for what is set stays for the whole process.
const int languageAtStart = TCGetResourceLanguage();
const int settingAtStart = TCSetLoadStrResLanguage(-1);

TEST(StringResources, FallsBackToLanguage0AndThenToTheEmptyText) {
    const struct {
        int id, language, count;
        const char* text;
    } rows[] = {{1, 0, COUNT, "one"}, {1, 1, COUNT, "eins"}, {1, 9, COUNT, "eins"}, {1, -9, COUNT, "one"},
                {2, 1, COUNT, "two"}, {3, 0, COUNT, ""},     {3, 1, COUNT, "drei"}, {4, 1, COUNT, ""},
                {5, 0, COUNT, ""},    {1, 0, 0, ""},         {1, 0, -1, ""}};
    for (const auto& row : rows) EXPECT_STREQ(LoadStrRes(row.id, row.language, row.count, TABLE), row.text);
    EXPECT_STREQ(LoadStrRes(1, 0, 1, nullptr), "");
}

TEST(StringResources, NeverGoesBackToTheAutomaticLanguage) {
    EXPECT_EQ(languageAtStart, 0);
    EXPECT_EQ(settingAtStart, -1);
    TCSetLoadStrResLanguage(-1);
    EXPECT_EQ(TCSetLoadStrResLanguage(9), 0);
    EXPECT_EQ(TCGetResourceLanguage(), 1);
    EXPECT_STREQ(LoadStrRes(1, COUNT, TABLE), "eins");
    EXPECT_EQ(TCSetLoadStrResLanguage(0), 1);
    EXPECT_STREQ(LoadStrRes(1, COUNT, TABLE), "one");
}

TEST(StringResources, TellsGermanByTheNameOfTheLocale) {
    for (const char* name : {"de", "de_DE", "de_AT.UTF-8", "de@euro", "German_Germany"}) {
        EXPECT_TRUE(tc::IsGermanLocaleName(name)) << name;
    }
    for (const char* name : {"", "C", "C.UTF-8", "den_CA", "en_DE", "POSIX"}) {
        EXPECT_FALSE(tc::IsGermanLocaleName(name)) << name;
    }
}

TEST(StringResources, LoadsFromAModuleLibrary) {
    std::string error;
    const HINSTANCE module = TCLoadModuleLibrary(STRING_MODULE, error);
    ASSERT_NE(module, nullptr) << error;
    TCSetLoadStrResLanguage(1);
    EXPECT_EQ(LoadStrRes(7U, module), "Kanal");
    EXPECT_EQ(LoadStrRes(8U, module), "only one");
    EXPECT_EQ(LoadStrRes(9U, module), "");
    EXPECT_EQ(LoadStrRes(7U, static_cast<HINSTANCE>(nullptr)), "");
    EXPECT_EQ(TCSetResourceModule(module), nullptr);
    EXPECT_EQ(LoadStrRes(7U, static_cast<HINSTANCE>(nullptr)), "Kanal");
    EXPECT_EQ(TCSetResourceModule(nullptr), module);
    TCFreeModuleLibrary(module);
    TCSetLoadStrResLanguage(0);
}

}  // namespace
