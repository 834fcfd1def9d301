// Measures parsing a request of the maximum size that consists of real numbers.
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <random>

#include "foundation/HXJSON.h"

namespace {

constexpr std::size_t maximumPayload = 4'194'304;  // bytes
constexpr int seed = 618;

void parseNumbers(benchmark::State& state) {
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> numbers(-1e6, 1e6);
  std::string text = "[0";
  while (text.size() < maximumPayload - 32) text += fmt::format(",{}", numbers(random));
  text += "]";
  for ([[maybe_unused]] auto _ : state) {
    if (!HX_JSONObjectWithMutableContainers(text)) return state.SkipWithError("not parsed");
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(parseNumbers)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
