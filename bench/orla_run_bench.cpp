// Cost of one request through the plug-in frame: form read, table lookup, a
// trivial handler, the reply written back through the in-memory request.

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "plugin/lifecycle.h"
#include "tests/support/scratch_root.h"

namespace {
std::atomic<uint64_t> gAllocations{0};
}  // namespace

// Counting replacement of the global allocator; delete pairs with this new.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

void* operator new(size_t size) {
  gAllocations.fetch_add(1, std::memory_order_relaxed);
  if (void* memory = std::malloc(size ? size : 1)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { std::free(memory); }

namespace {

int32_t Trivial(const KeyValuePairList&, uint32_t, std::string& output, int32_t&, bool&) {
  output = "<?xml version=\"1.0\"?>\n<Trivial Result=\"0\"/>";
  return 0;
}

void BM_OrlaRunTrivialHandler(benchmark::State& state) {
  kx::test::ScratchRoot root;
  kx::plugin::PluginInit();
  kx::plugin::MethodTable().Insert("Trivial", Trivial);
  kx::webruntime::MemoryRequest request;
  request.form = {{"ActionID", "A1"}, {"Options", "0"}};
  kx::webruntime::WebRequest object("/swinstall/Trivial", "Trivial");
  kx::webruntime::RequestRegistration registration(request);

  const uint64_t before = gAllocations.load();
  for (auto _ : state) {
    request.output.clear();
    kx::plugin::PluginRun(&object, registration.Handle());
    benchmark::DoNotOptimize(request.output.data());
  }
  state.counters["allocs/request"] =
      static_cast<double>(gAllocations.load() - before) / static_cast<double>(state.iterations());
  kx::plugin::PluginFinalize();
}
BENCHMARK(BM_OrlaRunTrivialHandler);

}  // namespace

BENCHMARK_MAIN();
