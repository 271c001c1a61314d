// Cost of tracing: a disabled class must cost a byte load and a branch.
#include <benchmark/benchmark.h>

#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "diag/memory.h"
#include "diag/mempool.h"
#include "diag/trace.h"
#include "testing/temp_dir.h"

namespace {

void setUpTrace() {
  new_TraceObject(ctCLSpaceMGT, 0, trTIDProc);
  trEnable("GENERAL", 1);
  TR_SM = 0;
}

// The hot-path pattern: a disabled class through the function object.
void BM_DisabledTraceFkt(benchmark::State& state) {
  setUpTrace();
  int value = 42;
  const char* name = "file1";
  for (auto _ : state) {
    benchmark::ClobberMemory();  // the flag is reloaded every time, as in real code
    TRACE_Fkt(__FILE__, __LINE__)(TR_SM, "candidate %s rc=%d\n", name, value);
  }
  delete_TraceObject();
}
BENCHMARK(BM_DisabledTraceFkt);

// The classic pattern: test the flag, then call trPrintf.
void BM_DisabledFlagTest(benchmark::State& state) {
  setUpTrace();
  int value = 42;
  for (auto _ : state) {
    benchmark::ClobberMemory();
    if (TR_SM) trPrintf(__FILE__, __LINE__, "rc=%d\n", value);
  }
  delete_TraceObject();
}
BENCHMARK(BM_DisabledFlagTest);

void tracedFunction() {
  TRACE_ENTER_EXIT("bench::tracedFunction");
}

void BM_DisabledEnterExit(benchmark::State& state) {
  setUpTrace();
  for (auto _ : state) {
    benchmark::ClobberMemory();
    tracedFunction();
  }
  delete_TraceObject();
}
BENCHMARK(BM_DisabledEnterExit);

// An enabled class writing to a plain file, with the full line head.
void BM_EnabledLineToFile(benchmark::State& state) {
  setUpTrace();
  qmxtest::TempDir dir("qmxbench");
  trBegin(dir.write("plain.trc", "").c_str(), 0);
  trEnable("SM PID TID", 1);
  int value = 42;
  for (auto _ : state) TRACE_Fkt(__FILE__, __LINE__)(TR_SM, "candidate rc=%d\n", value);
  delete_TraceObject();
}
BENCHMARK(BM_EnabledLineToFile);

// An enabled class writing to a wrapping file (position bookkeeping per line).
void BM_EnabledLineToWrappingFile(benchmark::State& state) {
  setUpTrace();
  qmxtest::TempDir dir("qmxbench");
  trSetMaxTraceSize(4);
  trBegin(dir.path("wrapping.trc").c_str(), 0);
  trEnable("SM", 1);
  int value = 42;
  for (auto _ : state) TRACE_Fkt(__FILE__, __LINE__)(TR_SM, "candidate rc=%d\n", value);
  delete_TraceObject();
}
BENCHMARK(BM_EnabledLineToWrappingFile);

void BM_TrackedMallocFree(benchmark::State& state) {
  for (auto _ : state) {
    void* p = qmxMalloc(64);
    benchmark::DoNotOptimize(p);
    qmxFree(p);
  }
}
BENCHMARK(BM_TrackedMallocFree);

void BM_PoolAlloc(benchmark::State& state) {
  mpHandle_t pool = qmxpCreate(64);
  size_t n = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(qmxpAlloc(pool, 48));
    if (++n % 100000 == 0) {  // keep the pool's footprint bounded
      qmxpDestroy(pool);
      pool = qmxpCreate(64);
    }
  }
  qmxpDestroy(pool);
}
BENCHMARK(BM_PoolAlloc);

}  // namespace

BENCHMARK_MAIN();
