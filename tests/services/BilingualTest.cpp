#include <gtest/gtest.h>

#include "sigweave/services/Bilingual.h"
#include "sigweave/services/StringResources.h"

TEST(Bilingual, SpeaksTheLanguageInUseWithItsInsertsInAnyOrder) {
    static constexpr tc::Bilingual MESSAGE("100% of %1 lies in '%2'", "In '%2' liegen 100% von %1");
    TCSetLoadStrResLanguage(0);
    EXPECT_EQ(MESSAGE.With({"x%2", "b"}), "100% of x%2 lies in 'b'") << "inserts are not read for inserts";
    EXPECT_EQ(MESSAGE.With({"a"}), "100% of a lies in ''");
    TCSetLoadStrResLanguage(1);
    EXPECT_EQ(MESSAGE.With({"a", "b"}), "In 'b' liegen 100% von a");
    TCSetLoadStrResLanguage(0);
}
