// Throughput of the verb checksum.  A session with checksums on computes it
// over every byte it sends and receives, so it must keep up with the
// network: the goal is 400 MB/s or more.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "session/crc32.h"

static void BM_Crc32(benchmark::State& state) {
  std::vector<unsigned char> buf(static_cast<size_t>(state.range(0)));
  for (size_t i = 0; i < buf.size(); ++i) buf[i] = static_cast<unsigned char>(i * 131 + 7);
  uint32_t v = 0;
  for (auto _ : state) {
    nqb_crc_32(buf.data(), static_cast<int32_t>(buf.size()), &v);
    benchmark::DoNotOptimize(v);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_Crc32)->Arg(21)->Arg(4096)->Arg(32768)->Arg(1048576);

BENCHMARK_MAIN();
