#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <limits>
#include <random>
#include <string>

#include "sigweave/services/TCLogFile.h"

// What a log line says must be what printf says, whichever way it was printed.

namespace {

std::string Printf(const char* format, ...) {
    char text[2048];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

class PrintText : public testing::Test {
 protected:
    void SetUp() override { ASSERT_TRUE(log.Open(0, 0x7F, FILE_NAME, false, false, 0)); }
    ~PrintText() override {
        if (file != nullptr) std::fclose(file);
        std::remove(FILE_NAME);
    }

    template <typename... Arguments>
    void Expect(const char* format, Arguments... arguments) {
        ASSERT_TRUE(log.Log(0, TCLogFile::DATA, "s", format, arguments...));
        EXPECT_EQ(LastText(), Printf(format, arguments...)) << format;
    }
    std::string LastText() {
        if (file == nullptr) file = std::fopen(FILE_NAME, "rb");
        std::string text;
        char part[2048];
        std::clearerr(file);
        while (std::fgets(part, sizeof part, file) != nullptr) text = part;
        const std::size_t at = text.find(", s, ");
        return at == std::string::npos ? "" : text.substr(at + 5, text.size() - at - 7);
    }

    static constexpr const char* FILE_NAME = "print-test.log";
    TCLogFile log;
    std::FILE* file = nullptr;
};

TEST_F(PrintText, WritesIntegersAndTexts) {
    for (const char* format : {"%d", "%i", "[%5d]", "[%-5d]", "%05d", "%u", "%x", "%08x", "%X", "%+d", "% d",
                               "%.3d", "%#x", "%hd", "%hhu", "%c", "%-05d|", "%120d"})
        for (const int value : {0, 7, -42, 99999, INT_MAX, INT_MIN}) Expect(format, value ? value : 65);
    for (const char* format : {"%ld", "%lu", "%lx", "%lld", "%zu", "%020ld", "%p"})
        for (const long value : {0L, -1L, LONG_MAX, LONG_MIN}) Expect(format, value);
    for (const char* format : {"%s", "[%6s]", "[%-6s]", "%.2s", "%%%s%%"})
        for (const char* value : {"", "a", "seven77", "caf\xe9"}) Expect(format, value);
    Expect("%s|%*d|%s", "a", 5, 42, std::string(1500, 'x').c_str());
    Expect("100%% %d %ld %s %.1f %u", 1, 2L, "three", 4.0, 5U);
}

TEST_F(PrintText, WritesNumbersAsExactlyAsPrintf) {
    const double values[] = {0.0,
                             -0.0,
                             0.5,
                             1.5,
                             2.5,
                             0.125,
                             0.375,
                             1.005,
                             -2.675,
                             0.0005,
                             999.9995,
                             1e15,
                             1e16,
                             950000000000000.125,
                             123456789.125,
                             1e300,
                             DBL_MIN,
                             DBL_MAX,
                             -DBL_EPSILON,
                             std::numeric_limits<double>::infinity(),
                             std::numeric_limits<double>::quiet_NaN()};
    for (const char* format : {"%f", "%.0f", "%.1f", "%.2f", "%.3f", "%9.2f", "%-9.2f|", "%09.3f", "%.9f",
                               "%.12f", "%.250f", "%g", "%.3g", "%e", "%.0e", "%G", "%a"})
        for (const double value : values) Expect(format, value);
}

TEST_F(PrintText, RoundsRandomNumbersAsPrintf) {
    std::mt19937_64 random(1);
    std::uniform_int_distribution<int> numerator(-4'000'000, 4'000'000);
    for (int i = 0; i < 2000; ++i) {
        Expect("%.2f %.3f", numerator(random) / 1000.0, numerator(random) / 4096.0);
        if (HasFailure()) return;
    }
}

}  // namespace
