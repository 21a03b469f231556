#include <gtest/gtest.h>

#include <memory>

#include "sigweave/services/StringResources.h"
#include "sigweave/ui/CTranslator.h"
#include "sigweave/ui/TCTranslatedFont.h"
#include "sigweave/ui/TCTranslatedString.h"

namespace {

class Translation : public testing::Test {
 protected:
    void SetUp() override { CTranslator::SetLanguage(0); }
    void TearDown() override { CTranslator::SetLanguage(0); }
};

TEST_F(Translation, FollowsTheLanguageAtOnce) {
    constexpr tc::Bilingual MESSAGE("line", "Verbindung");
    TCLogFont wide;
    wide.SetFontHeight(14);
    const TCTranslatedString own("file", "Datei");
    const TCTranslatedString bilingual(MESSAGE);
    const TCTranslatedString one("dB");
    const TCTranslatedFont font({}, wide);
    EXPECT_EQ(own.Get() + bilingual.Get() + one.Get(), "filelinedB");
    EXPECT_TRUE(IsEqual(font.Get(), TCLogFont()));
    EXPECT_EQ(CTranslator::GetMessageA(22, 1), 0);
    EXPECT_EQ(own.Get() + bilingual.Get() + one.Get(), "DateiVerbindungdB");
    EXPECT_TRUE(IsEqual(font.Get(), wide));
    EXPECT_EQ(CTranslator::GetMessageA(22, 0), 1);
    EXPECT_EQ(own.Get(), "file");
}

TEST_F(Translation, CallsWhoeverLives) {
    int calls = 0;
    auto second = std::make_unique<CTranslator>([&calls] { calls += 10; });
    {
        // Ends the other one while they are called.
        const CTranslator first([&calls, &second] { ++calls, second.reset(); });
        const CTranslator early([&calls] { calls += 100; });
        CTranslator::GetMessageA(22, 1);
        EXPECT_EQ(calls, 111);
        TCSetLoadStrResLanguage(0);
        EXPECT_EQ(CTranslator::GetMessageA(23, 0), 0);
        EXPECT_EQ(calls, 212);
        EXPECT_EQ(CTranslator::GetMessageA(24, 1), 0);
        EXPECT_EQ(calls, 212);
    }
    CTranslator::SetLanguage(1);
    EXPECT_EQ(calls, 212);
}

}  // namespace
