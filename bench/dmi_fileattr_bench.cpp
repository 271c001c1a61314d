// Cost of the attribute command's per-file request through the DMAPI layer
// (dmiEntryFileAttributes on a stub, with our provider linked in): the
// file's open and close, then fstat, handle and one read of the record.
// A query costs 3 system calls beyond open and close (counted by the test
// QueryCostTest under strace); a set adds the record write and, for modes
// 0 and 4, the managed-region write.
//
// Needs root (DM attributes are in the trusted namespace).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "hsm/dmapi/dmi_fileattr.h"
#include "hsm/dmapi/dmi_log.h"
#include "hsm/dmapi/dmi_session.h"
#include "testing/sandbox.h"

namespace {

// A stub in a test sandbox (its own system root), with a session.
struct Sandbox {
  qmxtest::Sandbox box{{.prefix = "qmxdmi-bench-"}};  // throws when it can't be made
  std::string file = box.write("stub", "stub");
  dm_sessid_t sid = DM_NO_SESSION;

  bool init() {
    dmiSetProgName("dmi_fileattr_bench");
    if (dmiInit(1) != 0) return false;
    sid = XDSMAPI::getXDSMAPI()->createSession(0, "dmi_fileattr_bench", 0);
    xdsm_handle_t h;
    if (sid == DM_NO_SESSION || handleSetWithPath(&h, file.c_str()) != 0) return false;
    dmiInfo info{};
    info.attr = 0x200;
    info.migState = dmiStateMigrated;
    int rc = dmiSetDMAttrib(sid, h, DM_NO_TOKEN, info, 0);
    handleFree(&h);
    return rc == 0;
  }
  ~Sandbox() {
    if (sid != DM_NO_SESSION) XDSMAPI::getXDSMAPI()->destroySession(sid, 0);
  }
};

void run(benchmark::State& state, int op, uint32_t value) {
  if (geteuid() != 0) {
    state.SkipWithError("needs root");
    return;
  }
  Sandbox sb;
  if (!sb.init()) {
    state.SkipWithError("sandbox set-up failed");
    return;
  }
  migAttrRequest req;
  for (auto _ : state) {
    std::memset(&req, 0, sizeof req);
    req.operation = op;
    req.mask = op == migAttrSet ? 255 : 0;
    req.value = value;
    std::strncpy(req.path, sb.file.c_str(), sizeof req.path - 1);
    req.fd = open(sb.file.c_str(), O_RDONLY);
    int rc = dmiEntryFileAttributes(sb.sid, &req);
    close(req.fd);
    if (rc != 0) {
      state.SkipWithError("request failed");
      break;
    }
    benchmark::DoNotOptimize(req.value);
  }
}

void BM_Query(benchmark::State& state) {
  run(state, migAttrQuery, 0);
}
void BM_SetPartial(benchmark::State& state) {
  run(state, migAttrSet, dmiRecallPartial);
}
void BM_SetStreaming(benchmark::State& state) {
  run(state, migAttrSet, dmiRecallStreaming);
}
BENCHMARK(BM_Query);
BENCHMARK(BM_SetPartial);
BENCHMARK(BM_SetStreaming);

}  // namespace

BENCHMARK_MAIN();
