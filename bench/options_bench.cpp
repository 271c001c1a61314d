// Start-up cost of the options: construct the object, take the environment
// and read a typical qmx.opt and the server stanza of a typical qmx.sys.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "options/optobj.h"
#include "platform/services.h"
#include "testing/scoped_env.h"
#include "testing/temp_dir.h"

namespace {

const char kUserOpt[] =
    "* qmx.opt of a space-managed node\n"
    "OPTIONFORMAT    STANDARD\n"
    "DATEFORMAT      3\n"
    "TIMEFORMAT      1\n"
    "LANGUAGE        EN_US\n"
    "SUBDIR          NO\n"
    "DOMAIN          /hsmfs/fs1 /hsmfs/fs2\n"
    "LOGO            NO\n"
    "HSMPROGRESSIVEDAEMONSTART YES\n"
    "TXNBYTELIMIT    2G\n";

const char kSysOpt[] =
    "* qmx.sys\n"
    "DEFAULTSERVER      SRV1\n"
    "MIGRATESERVER      SRV1\n"
    "CHECKTHRESHOLDS    5\n"
    "MAXRECALLDAEMONS   20\n"
    "\n"
    "SERVERNAME SRV0\n"
    "   COMMMETHOD         TCPIP\n"
    "   TCPPORT            1500\n"
    "   TCPSERVERADDRESS   srv0.example.net\n"
    "SERVERNAME SRV1\n"
    "   COMMMETHOD         TCPIP\n"
    "   TCPPORT            1500\n"
    "   TCPSERVERADDRESS   srv1.example.net\n"
    "   TCPBUFFSIZE        256\n"
    "   TCPWINDOWSIZE      1024\n"
    "   TCPNODELAY         YES\n"
    "   PASSWORDACCESS     GENERATE\n"
    "   NODENAME           node1\n"
    "   ERRORLOGRETENTION  30 D\n"
    "   VIRTUALMOUNTPOINT  /hsmfs/fs1/projects\n"
    "   INCLUDE            /hsmfs/fs1/*\n"
    "   EXCLUDE.DIR        /hsmfs/fs1/tmp\n"
    "SERVERNAME SRV2\n"
    "   TCPPORT            1600\n";

void BM_ConstructAndReadOptionFiles(benchmark::State& state) {
  qmxtest::TempDir dir("qmxbench");
  dir.write("qmx.opt", kUserOpt);
  dir.write("qmx.sys", kSysOpt);
  qmxtest::ScopedEnv qmxDir("QMX_DIR", dir.path().c_str());
  euGetEnvironment(1);
  optError err;
  for (auto _ : state) {
    clientOptions o(ctCLSpaceMGT);
    o.optEnvVarInit();
    int rc = o.optProcessOptions(optStoreUser, "", 0, &err);
    rc |= o.optProcessOptions(optStoreSystem, "", 0, &err);
    rc |= o.optPostProcessOptions(&err);
    if (rc != 0 || o.tcpPort != 1500 || o.virtualMountPoints == nullptr)
      state.SkipWithError("option files were not read");
    benchmark::DoNotOptimize(o.tcpBuffSize);
  }
  qmxDir.restore();
  euGetEnvironment(1);
}
BENCHMARK(BM_ConstructAndReadOptionFiles)->Unit(benchmark::kMicrosecond);

void BM_Lookup(benchmark::State& state) {
  optSharedTable names;
  for (auto _ : state) {
    benchmark::DoNotOptimize(names.optSTStringToId("VIRTUALMOUNTPOINT"));
    benchmark::DoNotOptimize(names.optSTStringToId("ZZZ"));
  }
}
BENCHMARK(BM_Lookup);

}  // namespace

BENCHMARK_MAIN();
