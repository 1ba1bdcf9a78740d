// Wrapping a chunk in an array, taking a slice or a component view copies no
// element: the cost must not depend on the chunk's length.
#include <benchmark/benchmark.h>

#include "pallion/array/MemArray.hpp"

using namespace Tessel;

static void wrapChunk(benchmark::State& state) {
    const auto n = static_cast<std::size_t>(state.range(0));
    Ravelin::ChunkPtr chunk(new Ravelin::Chunk<float>(n));
    for (auto _ : state) {
        MemBase::Array array(new MemArray<1, float>(chunk, {n}, CreatorPtr()));
        benchmark::DoNotOptimize(array->rawData());
    }
    state.counters["elements"] = static_cast<double>(n);
}
BENCHMARK(wrapChunk)->Arg(1000)->Arg(100000000);

static void componentView(benchmark::State& state) {
    const auto n = static_cast<std::size_t>(state.range(0));
    MemBase::Array points(new MemArray<1, Point>({n}, CreatorPtr()));
    for (auto _ : state) {
        MemBase::Array ys = points->component(1, CreatorPtr());
        benchmark::DoNotOptimize(ys->rawData());
    }
}
BENCHMARK(componentView)->Arg(1000)->Arg(100000000);

static void sliceView(benchmark::State& state) {
    const auto n = static_cast<std::uint64_t>(state.range(0));
    MemBase::Array table(new MemArray<2, float>({n / 10, 10}, CreatorPtr()));
    auto* t = dynamic_cast<MemArray<2, float>*>(table.get());
    for (auto _ : state) {
        MemBase::Array row = t->slice(5, CreatorPtr());
        benchmark::DoNotOptimize(row->rawData());
    }
}
BENCHMARK(sliceView)->Arg(1000)->Arg(100000000);

BENCHMARK_MAIN();
