// What does the wrapper with its stack and its limits cost over the engine that it wraps, on a log of 100 KB?
// And, for the record, how long do other engines take?
#include <benchmark/benchmark.h>
#include <re2/re2.h>

#include <cstdio>
#include <iterator>
#include <random>
#include <regex>
#include <string>
#include <vector>

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include "sigweave/services/TCRegExp.h"

namespace {

// None occurs in the log because of its end: a search has to go through all of it.
const std::string PATTERNS[] = {"error: channel [0-9]+ info",
                                "([0-9]{2}):([0-9]{2}):([0-9]{2})\\.([0-9]+) info",
                                "name=([a-z]+[0-9]*) value=(-?[0-9]+\\.[0-9]+) info"};
const std::string VALUE = "name=([a-z]+[0-9]*) value=(-?[0-9]+\\.[0-9]+)";

std::vector<std::string> MakeLines() {
    std::mt19937 random(1);
    std::vector<std::string> lines;
    for (unsigned i = 0; i < 870; ++i) {
        char line[200];
        std::snprintf(
            line, sizeof(line),
            "2026-11-21 01:%02u:%02u.%06u [%u] %s: channel %u name=amp%u value=%.4f, block %u done\n",
            i / 60 % 60, i % 60, static_cast<unsigned>(random() % 1000000), 4000 + i % 4,
            i % 50 == 7 ? "error" : "info", i & 7, i % 13,
            static_cast<double>(random() % 16777216) / 1e4 - 800.0, i);
        lines.emplace_back(line);
    }
    return lines;
}

const std::vector<std::string>& Lines() {
    static const std::vector<std::string> lines = MakeLines();
    return lines;
}

std::string JoinLines() {
    std::string log;
    for (const std::string& line : Lines()) log += line;
    return log;
}

const std::string& Log() {
    static const std::string log = JoinLines();
    return log;
}

void CountBytes(benchmark::State& state) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(Log().size()));
}

const std::string& Pattern(const benchmark::State& state) {
    return PATTERNS[state.range(0)];
}

void BM_Regex_Search(benchmark::State& state) {
    TCRegExp expression(Pattern(state).c_str(), TCRegExp::ECMASCRIPT);
    const TCString text = Log().c_str();
    for (auto _ : state) benchmark::DoNotOptimize(expression.Find(text, TCRegExp::MATCH_DEFAULT));
    CountBytes(state);
}
void BM_Regex_SearchStd(benchmark::State& state) {
    const std::regex expression(Pattern(state));
    std::smatch match;
    for (auto _ : state) benchmark::DoNotOptimize(std::regex_search(Log(), match, expression));
    CountBytes(state);
}
void BM_Regex_SearchRe2(benchmark::State& state) {
    const RE2 expression(Pattern(state));
    for (auto _ : state) benchmark::DoNotOptimize(RE2::PartialMatch(Log(), expression));
    CountBytes(state);
}
void SearchPcre2(benchmark::State& state, bool compiled) {
    int error = 0;
    std::size_t offset = 0;
    pcre2_code* code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(Pattern(state).c_str()),
                                     PCRE2_ZERO_TERMINATED, 0, &error, &offset, nullptr);
    if (compiled) pcre2_jit_compile(code, PCRE2_JIT_COMPLETE);
    pcre2_match_data* match = pcre2_match_data_create_from_pattern(code, nullptr);
    const auto* text = reinterpret_cast<PCRE2_SPTR>(Log().data());
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            pcre2_match(code, text, Log().size(), 0, compiled ? 0 : PCRE2_NO_JIT, match, nullptr));
    }
    pcre2_match_data_free(match);
    pcre2_code_free(code);
    CountBytes(state);
}
void BM_Regex_SearchPcre2(benchmark::State& state) {
    SearchPcre2(state, false);
}
void BM_Regex_SearchPcre2Jit(benchmark::State& state) {
    SearchPcre2(state, true);
}

// A call for each line.
void BM_Regex_Lines(benchmark::State& state) {
    TCRegExp expression(VALUE.c_str(), TCRegExp::ECMASCRIPT);
    std::vector<TCString> lines;
    for (const std::string& line : Lines()) lines.emplace_back(line.c_str());
    for (auto _ : state) {
        int found = 0;
        for (const TCString& line : lines) found += expression.Find(line, TCRegExp::MATCH_DEFAULT);
        benchmark::DoNotOptimize(found);
    }
    CountBytes(state);
}
void BM_Regex_LinesStd(benchmark::State& state) {
    const std::regex expression(VALUE);
    std::smatch match;
    for (auto _ : state) {
        int found = 0;
        for (const std::string& line : Lines()) found += std::regex_search(line, match, expression);
        benchmark::DoNotOptimize(found);
    }
    CountBytes(state);
}

// Copies of all matches with what is around them.
void BM_Regex_Results(benchmark::State& state) {
    TCRegExp expression(VALUE.c_str(), TCRegExp::ECMASCRIPT);
    expression.SetStoreResults(true);
    const TCString text = Log().c_str();
    for (auto _ : state) benchmark::DoNotOptimize(expression.Find(text, TCRegExp::MATCH_DEFAULT));
    CountBytes(state);
}
void BM_Regex_ResultsStd(benchmark::State& state) {
    struct Result {
        std::string prefix, suffix, match;
        std::vector<std::string> groups;
    };
    const std::regex expression(VALUE);
    for (auto _ : state) {
        std::vector<Result> results;
        for (std::sregex_iterator i(Log().begin(), Log().end(), expression), end; i != end; ++i) {
            results.push_back({i->prefix(), i->suffix(), (*i)[0], {}});
            for (std::size_t k = 1; k < i->size(); ++k) results.back().groups.push_back((*i)[k]);
        }
        benchmark::DoNotOptimize(results.data());
    }
    CountBytes(state);
}

void BM_Regex_Replace(benchmark::State& state) {
    TCRegExp expression(VALUE.c_str(), TCRegExp::ECMASCRIPT);
    const TCString text = Log().c_str();
    TCString result;
    for (auto _ : state) {
        benchmark::DoNotOptimize(expression.Replace(result, text, "$2=$1", TCRegExp::MATCH_DEFAULT));
    }
    CountBytes(state);
}
void BM_Regex_ReplaceStd(benchmark::State& state) {
    const std::regex expression(VALUE);
    for (auto _ : state) benchmark::DoNotOptimize(std::regex_replace(Log(), expression, "$2=$1").data());
    CountBytes(state);
}

BENCHMARK(BM_Regex_Search)->DenseRange(0, 2);
BENCHMARK(BM_Regex_SearchStd)->DenseRange(0, 2);
BENCHMARK(BM_Regex_SearchRe2)->DenseRange(0, 2);
BENCHMARK(BM_Regex_SearchPcre2)->DenseRange(0, 2);
BENCHMARK(BM_Regex_SearchPcre2Jit)->DenseRange(0, 2);
BENCHMARK(BM_Regex_Lines);
BENCHMARK(BM_Regex_LinesStd);
BENCHMARK(BM_Regex_Results);
BENCHMARK(BM_Regex_ResultsStd);
BENCHMARK(BM_Regex_Replace);
BENCHMARK(BM_Regex_ReplaceStd);

}  // namespace
