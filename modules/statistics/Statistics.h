#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include "modules/statistics/ExactSum.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// Measures every signal that is wired to it: number of samples, least and greatest value, mean, root mean
// square and standard deviation (divided by the number of samples), over everything that arrives in a run.
// The sums carry more than twice the digits of a double, so that neither a long signal nor a large offset
// costs any.
//
// Values that are no finite numbers are counted apart (results "nan" and "infinite", when there are any) and
// are part of no other figure. Values beyond 1e154 have no finite square: their rms and stddev are infinite.
class Statistics final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Statistics";

    explicit Statistics(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Measures level, mean and spread of signals",
                             "Misst Pegel, Mittelwert und Streuung von Signalen")
            .Text();
    }
    int Init() override;
    int Execute() override;
    int Done() override;

 private:
    struct Figures {
        std::int64_t samples = 0;
        std::int64_t nans = 0;
        std::int64_t infinite = 0;
        double minimum = std::numeric_limits<double>::infinity();
        double maximum = -std::numeric_limits<double>::infinity();
        tc::ExactSum sum;
        tc::ExactSum squares;
        bool begun = false;
        TCTypeInfo metadata;  // of the first block

        void Add(const double* values, int count);
        double StandardDeviation() const;
    };

    void Report(unsigned input, const Figures& figures);

    std::vector<Figures> signals;
};
