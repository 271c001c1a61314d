// Cost of reading one file's migration record through our DMAPI provider,
// the per-file path of a query: handle from the path, two reads of the
// record (state, then the record itself), handle freed.
//
// Needs root (DM attributes are in the trusted namespace).  The system
// calls per query are counted with
//   strace -f -e trace=%file,%desc bench/dmapi_query_bench --benchmark_filter=Query/1
// and are one statx (handle) and one getxattr per read: 3 for the query.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "hsm/dmapi/dmapi_binding.h"
#include "testing/sandbox.h"

namespace {

// A stub carrying a record in a test sandbox (its own system root), with a
// session.
struct Sandbox {
  qmxtest::Sandbox box{{.prefix = "qmxdm-bench-"}};  // throws when it can't be made
  std::string file = box.write("stub", "stub");
  dmapiBinding_t dm{};
  dm_sessid_t sid = DM_NO_SESSION;

  bool init() {
    dmBindBuiltIn(&dm);
    char info[] = "dmapi_query_bench";
    if (dm.create_session(DM_NO_SESSION, info, &sid) != 0) return false;
    void* h;
    size_t hl;
    if (dm.path_to_handle(file.data(), &h, &hl) != 0) return false;
    dm_attrname_t an{};
    std::memcpy(an.an_chars, "KVRObj", 6);
    char record[124] = {};
    int rc = dm.set_dmattr(sid, h, hl, DM_NO_TOKEN, &an, 0, sizeof record, record);
    dm.handle_free(h, hl);
    return rc == 0;
  }
  ~Sandbox() {
    if (sid != DM_NO_SESSION) dm.destroy_session(sid);
  }
};

void BM_Query(benchmark::State& state) {
  if (geteuid() != 0) {
    state.SkipWithError("needs root");
    return;
  }
  Sandbox sb;
  if (!sb.init()) {
    state.SkipWithError("sandbox set-up failed");
    return;
  }
  dm_attrname_t an{};
  std::memcpy(an.an_chars, "KVRObj", 6);
  char buf[124];
  for (auto _ : state) {
    void* h;
    size_t hl, rlen;
    sb.dm.path_to_handle(sb.file.data(), &h, &hl);
    sb.dm.get_dmattr(sb.sid, h, hl, DM_NO_TOKEN, &an, sizeof buf, buf, &rlen);
    sb.dm.get_dmattr(sb.sid, h, hl, DM_NO_TOKEN, &an, sizeof buf, buf, &rlen);
    sb.dm.handle_free(h, hl);
    benchmark::DoNotOptimize(buf);
  }
}
BENCHMARK(BM_Query)->Iterations(1)->Name("Query/1");
BENCHMARK(BM_Query);

}  // namespace

BENCHMARK_MAIN();
