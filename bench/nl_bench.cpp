// Composing messages from the cache: the per-file path of a command issues
// one message per file, so a cached message must compose quickly.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <string>

#include "diag/globalrc.h"
#include "diag/nl.h"

namespace {

// The catalogues of the build tree: <build>/client/ba/bin beside bench/.
std::string CatalogueDir() {
  if (const char* d = getenv("QMX_BUILD_DIR")) return std::string(d) + "/client/ba/bin";
  char exe[PATH_MAX] = {};
  ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
  std::string p(exe, n > 0 ? static_cast<size_t>(n) : 0);
  p = p.substr(0, p.find_last_of('/'));
  return p + "/../client/ba/bin";
}

void Discard(const char*) {}

class MessageSystem {
 public:
  MessageSystem() {
    const nlOutputFn_t quiet[nlNumOutputFns] = {Discard, Discard, Discard, Discard, Discard,
                                                Discard, Discard, Discard, Discard};
    newNlsGlobalObject(quiet, 0);
    newGlobalRC();
    ok = nlinit("AMENG", 50, CatalogueDir().c_str(), 5, 1, 1, 1, nullptr, nullptr) == 0;
  }
  ~MessageSystem() {
    nlterm();
    destroyNlsGlobalObject();
    deleteGlobalRC();
  }
  bool ok = false;
};

// Two string inserts, composed into a new string (nlsprintf).
void BM_ComposeCachedTwoInserts(benchmark::State& state) {
  MessageSystem ms;
  if (!ms.ok) {
    state.SkipWithError("catalogue not found; build the qmx_catalogues target");
    return;
  }
  for (auto _ : state) {
    char* s = nullptr;
    benchmark::DoNotOptimize(nlsprintf(&s, 9085, "qmxattr", "/hsmfs/fs1"));
    free(s);
  }
}
BENCHMARK(BM_ComposeCachedTwoInserts);

// The same routed through an output function, as nlprintf does per file.
void BM_PrintCachedTwoInserts(benchmark::State& state) {
  MessageSystem ms;
  if (!ms.ok) {
    state.SkipWithError("catalogue not found; build the qmx_catalogues target");
    return;
  }
  for (auto _ : state) benchmark::DoNotOptimize(nlprintf(9085, "qmxattr", "/hsmfs/fs1"));
}
BENCHMARK(BM_PrintCachedTwoInserts);

// A message that misses a cache of 10 every time (12 messages in turn).
void BM_ComposeCacheMiss(benchmark::State& state) {
  MessageSystem ms;
  nlinit("AMENG", 10, CatalogueDir().c_str(), 5, 1, 1, 1, nullptr, nullptr);
  const unsigned nums[] = {9030, 9031, 9032, 9033, 1081, 5184, 9205, 1107, 9117, 9106, 1824, 1191};
  unsigned i = 0;
  for (auto _ : state) {
    char* s = nullptr;
    benchmark::DoNotOptimize(nlsprintf(&s, nums[i++ % 12], "x"));
    free(s);
  }
}
BENCHMARK(BM_ComposeCacheMiss);

}  // namespace

BENCHMARK_MAIN();
