// The string-keyed map beside std::unordered_map<std::string, ...>: inserting
// and looking up 1,000 and 1,000,000 keys, in the same run.
#include <benchmark/benchmark.h>

#include <stdio.h>

#include <string>
#include <unordered_map>
#include <vector>

#include <keel/keel.h>

#include <keel/strkeyed.h>

namespace {

using keel::StringC;

std::vector<std::string> makeKeys(size_t n) {
    std::vector<std::string> keys;
    keys.reserve(n);
    char buffer[48];
    for (size_t i = 0; i < n; ++i) {
        // Keys of realistic shape: a path-like prefix and a number.
        snprintf(buffer, sizeof buffer, "Software/Section%zu/value_%zu", i % 97,
                 i * 2654435761u % 1000003);
        keys.emplace_back(buffer);
    }
    return keys;
}

std::vector<StringC> toStrings(const std::vector<std::string>& keys) {
    std::vector<StringC> out;
    out.reserve(keys.size());
    for (const std::string& k : keys)
        out.emplace_back(k.data(), static_cast<uint32_t>(k.size()), "utf8");
    return out;
}

// A fixed visiting order that is not the insertion order.
std::vector<size_t> order(size_t n) {
    std::vector<size_t> out(n);
    for (size_t i = 0; i < n; ++i) out[i] = (i * 7919) % n;
    return out;
}

void insertKeel(benchmark::State& state) {
    std::vector<StringC> keys = toStrings(makeKeys(state.range(0)));
    for (auto _ : state) {
        keel::StringMapM<int32_t> map;
        for (size_t i = 0; i < keys.size(); ++i) map.add(keys[i], static_cast<int32_t>(i));
        benchmark::DoNotOptimize(map.size);
    }
    state.SetItemsProcessed(state.iterations() * keys.size());
}
BENCHMARK(insertKeel)
    ->Name("map_insert/keel")
    ->Arg(1000)
    ->Arg(1000000)
    ->Unit(benchmark::kMicrosecond);

void insertStd(benchmark::State& state) {
    std::vector<std::string> keys = makeKeys(state.range(0));
    for (auto _ : state) {
        std::unordered_map<std::string, int32_t> map;
        for (size_t i = 0; i < keys.size(); ++i) map.emplace(keys[i], static_cast<int32_t>(i));
        benchmark::DoNotOptimize(map.size());
    }
    state.SetItemsProcessed(state.iterations() * keys.size());
}
BENCHMARK(insertStd)
    ->Name("map_insert/std_unordered_map")
    ->Arg(1000)
    ->Arg(1000000)
    ->Unit(benchmark::kMicrosecond);

void lookupKeel(benchmark::State& state) {
    std::vector<StringC> keys = toStrings(makeKeys(state.range(0)));
    keel::StringMapM<int32_t> map;
    for (size_t i = 0; i < keys.size(); ++i) map.add(keys[i], static_cast<int32_t>(i));
    std::vector<size_t> visit = order(keys.size());
    for (auto _ : state) {
        int64_t sum = 0;
        for (size_t i : visit) sum += map.findElement(keys[i])->value;
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * keys.size());
}
BENCHMARK(lookupKeel)
    ->Name("map_lookup/keel")
    ->Arg(1000)
    ->Arg(1000000)
    ->Unit(benchmark::kMicrosecond);

void lookupStd(benchmark::State& state) {
    std::vector<std::string> keys = makeKeys(state.range(0));
    std::unordered_map<std::string, int32_t> map;
    for (size_t i = 0; i < keys.size(); ++i) map.emplace(keys[i], static_cast<int32_t>(i));
    std::vector<size_t> visit = order(keys.size());
    for (auto _ : state) {
        int64_t sum = 0;
        for (size_t i : visit) sum += map.find(keys[i])->second;
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * keys.size());
}
BENCHMARK(lookupStd)
    ->Name("map_lookup/std_unordered_map")
    ->Arg(1000)
    ->Arg(1000000)
    ->Unit(benchmark::kMicrosecond);

// Lookups with probe keys made apart from the stored ones, as a program that
// reads its keys from input has them: equal texts, separate representations.
void lookupFreshKeel(benchmark::State& state) {
    std::vector<std::string> texts = makeKeys(state.range(0));
    std::vector<StringC> keys = toStrings(texts);
    std::vector<StringC> probes = toStrings(texts);
    keel::StringMapM<int32_t> map;
    for (size_t i = 0; i < keys.size(); ++i) map.add(keys[i], static_cast<int32_t>(i));
    std::vector<size_t> visit = order(keys.size());
    for (auto _ : state) {
        int64_t sum = 0;
        for (size_t i : visit) sum += map.findElement(probes[i])->value;
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * keys.size());
}
BENCHMARK(lookupFreshKeel)
    ->Name("map_lookup_fresh_keys/keel")
    ->Arg(1000)
    ->Arg(1000000)
    ->Unit(benchmark::kMicrosecond);

void lookupFreshStd(benchmark::State& state) {
    std::vector<std::string> keys = makeKeys(state.range(0));
    std::vector<std::string> probes = makeKeys(state.range(0));
    std::unordered_map<std::string, int32_t> map;
    for (size_t i = 0; i < keys.size(); ++i) map.emplace(keys[i], static_cast<int32_t>(i));
    std::vector<size_t> visit = order(keys.size());
    for (auto _ : state) {
        int64_t sum = 0;
        for (size_t i : visit) sum += map.find(probes[i])->second;
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * keys.size());
}
BENCHMARK(lookupFreshStd)
    ->Name("map_lookup_fresh_keys/std_unordered_map")
    ->Arg(1000)
    ->Arg(1000000)
    ->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
