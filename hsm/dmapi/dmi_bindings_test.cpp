// The attribute command's requests through each way of reaching our
// provider: linked in, loaded from its shared library, and its cost per
// file counted under a system-call tracer.
#include <errno.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "hsm/dmapi/dmi_fileattr.h"
#include "hsm/dmapi/dmi_fsstate.h"
#include "hsm/dmapi/testing/dmi_testing.h"

namespace {

enum class Binding { kBuiltIn, kLibrary };

class BindingsTest : public dmitest::Sandbox, public ::testing::WithParamInterface<Binding> {
 protected:
  void SetUp() override {
    Sandbox::SetUp();
    if (IsSkipped()) return;
    if (GetParam() == Binding::kLibrary) {
      std::string error;
      ASSERT_EQ(dmBindLibrary(QMX_TEST_PROVIDER_SO, &table_, &error), 0) << error;
    } else {
      dmBindBuiltIn(&table_);
    }
    manage(fs_);
    x_ = useRoot(&table_);
    ASSERT_EQ(dmiInit(0), 0);
    sid_ = x_->createSession(0, "bindings-test", 0);
    ASSERT_NE(sid_, 0u);
  }
  void TearDown() override {
    if (x_ != nullptr && sid_ != 0) x_->destroySession(sid_, 0);
    Sandbox::TearDown();
  }
  int request(const std::string& path, int op, uint32_t value, uint32_t* word) {
    migAttrRequest req{};
    req.operation = op;
    req.mask = op == migAttrSet ? 255 : 0;
    req.value = value;
    std::strncpy(req.path, path.c_str(), sizeof req.path - 1);
    req.fd = open(path.c_str(), O_RDONLY);
    int rc = dmiEntryFileAttributes(0, &req);
    int err = errno;
    close(req.fd);
    if (word != nullptr) *word = req.value;
    errno = err;
    return rc;
  }
  dmapiBinding_t table_{};
  XDSMAPI* x_ = nullptr;
  dm_sessid_t sid_ = 0;
};

TEST_P(BindingsTest, ManagedFileSystemWithStubsAnswersQueriesAndSets) {
  ASSERT_EQ(dmiCreateFSState(sid_, fs_.c_str()), 0);
  fsmState st{};
  std::strncpy(st.fsName, fs_.c_str(), sizeof st.fsName - 1);
  ASSERT_EQ(dmiEntryGetFSState(sid_, &st), 0);
  EXPECT_EQ(st.flags, fsmRecallOn | fsmMigrateOn);

  std::string a = makeFile("a"), b = makeFile("b");
  xdsm_handle_t h;
  for (const std::string& p : {a, b}) {
    ASSERT_EQ(handleSetWithPath(&h, p.c_str()), 0);
    dmiInfo info{};
    info.attr = (p == a ? 0x200u : 0x300u) | dmiRecallStreaming;
    info.migState = dmiStateMigrated;
    ASSERT_EQ(dmiSetDMAttrib(sid_, h, DM_NO_TOKEN, info, 0), 0);
    handleFree(&h);
  }
  uint32_t word = 0;
  ASSERT_EQ(request(a, migAttrQuery, 0, &word), 0);
  EXPECT_EQ(word & 0xFF, dmiRecallStreaming);
  ASSERT_EQ(request(a, migAttrSet, dmiRecallPartial, nullptr), 0);
  ASSERT_EQ(request(a, migAttrQuery, 0, &word), 0);
  EXPECT_EQ(word & 0xFF, dmiRecallPartial);
  EXPECT_EQ(request(b, migAttrSet, dmiRecallPartial, nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  ASSERT_EQ(request(b, migAttrSet, dmiRecallNormal, nullptr), 0);
  ASSERT_EQ(request(b, migAttrQuery, 0, &word), 0);
  EXPECT_EQ(word, 0x300u);
}

INSTANTIATE_TEST_SUITE_P(Providers, BindingsTest,
                         ::testing::Values(Binding::kBuiltIn, Binding::kLibrary),
                         [](const ::testing::TestParamInfo<Binding>& i) {
                           return i.param == Binding::kBuiltIn ? std::string("BuiltIn")
                                                               : std::string("QmxDmapiLib");
                         });

// The system calls of one query, beyond the file's own open and close.
class QueryCostTest : public dmitest::Sandbox {};

TEST_F(QueryCostTest, OneQueryCostsAtMostFourSystemCallsBeyondOpenAndClose) {
  if (system("strace -V >/dev/null 2>&1") != 0) GTEST_SKIP() << "strace is not installed";
  manage(fs_);
  useRoot();
  ASSERT_EQ(dmiInit(0), 0);
  dm_sessid_t sid = XDSMAPI::getXDSMAPI()->createSession(0, "stub-maker", 0);
  std::string stub = makeFile("stub");
  xdsm_handle_t h;
  ASSERT_EQ(handleSetWithPath(&h, stub.c_str()), 0);
  dmiInfo info{};
  info.attr = 0x204;
  info.migState = dmiStateMigrated;
  ASSERT_EQ(dmiSetDMAttrib(sid, h, DM_NO_TOKEN, info, 0), 0);
  handleFree(&h);
  XDSMAPI::getXDSMAPI()->destroySession(sid, 0);

  std::string out = root_ + "/strace.out";
  // Leak checking can't run under a tracer; the count is the same without.
  std::string cmd =
      "ASAN_OPTIONS=detect_leaks=0 strace -qq -o " + out + " " + QMX_TEST_QUERY_PROBE + " " + stub;
  ASSERT_EQ(system(cmd.c_str()), 0) << cmd;
  std::ifstream in(out);
  std::string line;
  // Calls between each pair of markers, without the file's open and close.
  std::vector<std::vector<std::string>> rounds;
  bool inside = false;
  while (std::getline(in, line)) {
    if (line.find("QMX-BEGIN") != std::string::npos) {
      rounds.emplace_back();
      inside = true;
      continue;
    }
    if (line.find("QMX-END") != std::string::npos) {
      inside = false;
      continue;
    }
    if (!inside) continue;
    bool ownOpen = line.compare(0, 6, "openat") == 0 && line.find(stub) != std::string::npos;
    bool ownClose = line.compare(0, 5, "close") == 0;
    if (!ownOpen && !ownClose) rounds.back().push_back(line);
  }
  ASSERT_EQ(rounds.size(), 2u);
  std::string listing;
  for (const std::string& l : rounds[1]) listing += l + "\n";
  // fstat of the descriptor, the handle, one read of the record.
  EXPECT_LE(rounds[1].size(), 4u) << listing;
  EXPECT_GE(rounds[1].size(), 1u) << "the markers did not frame the query";
  RecordProperty("first_query_calls", static_cast<int>(rounds[0].size()));
  RecordProperty("later_query_calls", static_cast<int>(rounds[1].size()));
}

}  // namespace
