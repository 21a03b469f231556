#include <gtest/gtest.h>

#include "sigweave/services/NearNames.h"

namespace {

TEST(NearNames, FindsWhatWasMeant) {
    const CStringArray names = {"block", "factor", "frequency", "offset", "start", "x"};
    const struct {
        const char* typed;
        const char* suggestion;
    } rows[] = {
        {"blok", "did you mean 'block'?"},
        {"BLOCK", "did you mean 'block'?"},
        {"blokc", "did you mean 'block'?"},
        {"freq", "did you mean 'frequency'?"},
        {"freuqnecy", "did you mean 'frequency'?"},
        {"stat", "did you mean 'start'?"},
        {"fxcto", "did you mean 'factor'?"},
        {"xyzkte", "known are block, factor, frequency, offset, start, x"},
        {"y", "known are block, factor, frequency, offset, start, x"},
        {"", "known are block, factor, frequency, offset, start, x"},
    };
    for (const auto& row : rows) EXPECT_EQ(tc::SuggestNames(row.typed, names), row.suggestion) << row.typed;
    EXPECT_EQ(tc::SuggestNames("a", {}), "there are none");
    EXPECT_EQ(tc::SuggestNames("gain1", {"gain2", "loss", "gain3"}), "did you mean 'gain2' or 'gain3'?");
    EXPECT_TRUE(tc::NearestNames(CString(50'000'000, 'a'), names).empty());
    EXPECT_EQ(tc::NearestNames("gains", {"gain", "trains", "gins", "gans", "gais", "gains"}),
              (CStringArray{"gains", "gain", "gins"}))
        << "nearest first, at most three";
}

}  // namespace
