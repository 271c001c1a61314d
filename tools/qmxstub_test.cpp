#include "tools/qmxstub.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "hsm/dmapi/dmi_fileattr.h"
#include "hsm/dmapi/dmi_fsstate.h"
#include "hsm/dmapi/fs_config.h"
#include "hsm/dmapi/testing/dmi_testing.h"

namespace {

class QmxstubTest : public dmitest::Sandbox {
 protected:
  void SetUp() override {
    Sandbox::SetUp();
    if (IsSkipped()) return;
    useRoot();
  }

  // Runs qmxstub with |args|; out_ and err_ receive what it printed.
  int run(const std::vector<std::string>& args) {
    std::vector<std::string> words = {"qmxstub"};
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& w : words) argv.push_back(w.data());
    argv.push_back(nullptr);
    char* outBuf = nullptr;
    char* errBuf = nullptr;
    size_t outLen = 0, errLen = 0;
    FILE* out = open_memstream(&outBuf, &outLen);
    FILE* err = open_memstream(&errBuf, &errLen);
    int rc = qmxstubRun(static_cast<int>(words.size()), argv.data(), out, err);
    std::fclose(out);
    std::fclose(err);
    out_.assign(outBuf, outLen);
    err_.assign(errBuf, errLen);
    std::free(outBuf);
    std::free(errBuf);
    return rc;
  }

  // The attribute command's query of |path|: 0 with the word, or -1.
  int query(const std::string& path, uint32_t* word) {
    migAttrRequest req{};
    req.operation = migAttrQuery;
    std::strncpy(req.path, path.c_str(), sizeof req.path - 1);
    req.fd = open(path.c_str(), O_RDONLY);
    XDSMAPI* x = XDSMAPI::getXDSMAPI();
    EXPECT_EQ(x->initService(), 1);
    dm_sessid_t sid = x->createSession(0, "query", 1);
    int rc = dmiEntryFileAttributes(sid, &req);
    int e = errno;
    x->destroySession(sid, 0);
    close(req.fd);
    *word = req.value;
    errno = e;
    return rc;
  }

  std::string out_, err_;
};

TEST_F(QmxstubTest, MakesAManagedFileSystemWithStubsTheLayerReads) {
  ASSERT_EQ(run({"fs-add", fs_}), qmxstubOk) << err_;
  EXPECT_EQ(out_, fs_ + ": recall on, migrate on\n");
  ASSERT_EQ(run({"fs-add", fs_ + "/"}), qmxstubOk) << err_;
  std::vector<std::string> table;
  std::string error;
  ASSERT_EQ(dmiReadFSTable(&table, &error), 0);
  EXPECT_EQ(table, std::vector<std::string>{fs_}) << "listed once";

  std::string a = makeFile("a"), b = makeFile("b"), c = makeFile("c");
  ASSERT_EQ(run({"migrate", "--mode", "s", a, "--compression=yes", b}), qmxstubOk) << err_;
  uint32_t word = 0;
  ASSERT_EQ(query(a, &word), 0);
  EXPECT_EQ(word, 0x100u | dmiRecallStreaming);
  ASSERT_EQ(query(b, &word), 0);
  EXPECT_EQ(word, 0x100u | dmiRecallStreaming);

  ASSERT_EQ(run({"migrate", "--mode", "p", "--size", "5368709120", c}), qmxstubOk) << err_;
  ASSERT_EQ(run({"show", c}), qmxstubOk) << err_;
  EXPECT_NE(out_.find("  state         2 (migrated)\n"), std::string::npos) << out_;
  EXPECT_NE(out_.find("  recall mode   p (8)\n"), std::string::npos) << out_;
  EXPECT_NE(out_.find("  compression   none (0x200)\n"), std::string::npos) << out_;
  EXPECT_NE(out_.find("  data size     5368709120\n"), std::string::npos) << out_;

  ASSERT_EQ(run({"premigrate", a}), qmxstubOk) << err_;
  EXPECT_EQ(query(a, &word), -1);
  EXPECT_EQ(errno, EPERM);
  ASSERT_EQ(run({"show", a}), qmxstubOk);
  EXPECT_NE(out_.find("1 (premigrated)"), std::string::npos) << out_;
  ASSERT_EQ(run({"resident", a, c}), qmxstubOk) << err_;
  ASSERT_EQ(run({"show", a, c}), qmxstubOk);
  EXPECT_EQ(out_, a + "\n  state         3 (resident)\n" + c + "\n  state         3 (resident)\n");
}

TEST_F(QmxstubTest, TransitionAndStoredStatesAreWrittenAsAsked) {
  std::string a = makeFile("a"), b = makeFile("b");
  ASSERT_EQ(run({"migrate", "--transition", a}), qmxstubOk) << err_;
  ASSERT_EQ(run({"migrate", "--transition", "--state", "12", b}), qmxstubOk) << err_;
  ASSERT_EQ(run({"show", a, b}), qmxstubOk);
  EXPECT_NE(out_.find("10 (in transition)"), std::string::npos) << out_;
  EXPECT_NE(out_.find("12 (in transition)"), std::string::npos) << out_;
  uint32_t word = 0;
  EXPECT_EQ(query(a, &word), 0) << "a file in transition can be queried";
}

TEST_F(QmxstubTest, StateSwitchesPersist) {
  ASSERT_EQ(run({"fs-add", fs_}), qmxstubOk);
  ASSERT_EQ(run({"fs-state", fs_, "--migrate", "off"}), qmxstubOk) << err_;
  EXPECT_EQ(out_, fs_ + ": recall on, migrate off\n");
  fsmState st{};
  std::strncpy(st.fsName, fs_.c_str(), sizeof st.fsName - 1);
  XDSMAPI* x = XDSMAPI::getXDSMAPI();
  dm_sessid_t sid = x->createSession(0, "reader", 1);
  ASSERT_EQ(dmiEntryGetFSState(sid, &st), 0);
  x->destroySession(sid, 0);
  EXPECT_EQ(st.flags, fsmRecallOn);

  ASSERT_EQ(run({"global", "--recall=off", "--migrate", "off"}), qmxstubOk) << err_;
  EXPECT_EQ(out_, "global: recall off, migrate off\n");
  fsmState g{};
  ASSERT_EQ(dmiEntryGetGlobalState(0, &g), 0);
  EXPECT_EQ(g.flags, 0);
  ASSERT_EQ(run({"global"}), qmxstubOk);
  EXPECT_EQ(out_, "global: recall off, migrate off\n");
}

TEST_F(QmxstubTest, BadArgumentsChangeNothingAndSayWhy) {
  std::string a = makeFile("a");
  struct Case {
    std::vector<std::string> args;
    const char* message;
  };
  const Case cases[] = {
      {{}, "Usage: qmxstub"},
      {{"frobnicate", a}, "ANS1107E"},
      {{"migrate", "--mode", "x", a}, "ANS9561E"},
      {{"migrate", a, "--mode"}, "ANS9561E"},
      {{"migrate", "--size", "12k", a}, "ANS9561E"},
      {{"migrate", "--state", "4294967296", a}, "ANS9561E"},
      {{"migrate", "--recall", "on", a}, "ANS1107E"},
      {{"migrate", "--transition=1", a}, "ANS1107E"},
      {{"fs-state", fs_, "--recall", "maybe"}, "ANS9561E"},
      {{"global", fs_}, "ANS1107E"},
      {{"show"}, "ANS9562E"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(run(c.args), qmxstubUsage) << c.message;
    EXPECT_NE(err_.find(c.message), std::string::npos) << err_;
  }
  ASSERT_EQ(run({"show", a}), qmxstubOk);
  EXPECT_NE(out_.find("3 (resident)"), std::string::npos) << out_;
  EXPECT_NE(access(dmiGlobalStatePath().c_str(), F_OK), 0);
}

TEST_F(QmxstubTest, UnreachableNamesFailTheRunButNotTheOthers) {
  std::string a = makeFile("a");
  EXPECT_EQ(run({"migrate", fs_ + "/missing", a, fs_}), qmxstubFailed);
  EXPECT_NE(err_.find("ANS9178E"), std::string::npos) << err_;
  EXPECT_NE(err_.find(fs_ + "/missing"), std::string::npos) << err_;
  EXPECT_EQ(out_, "migrated   " + a + "\n");
  EXPECT_EQ(run({"fs-add", a}), qmxstubFailed) << "a file is no file system";
  EXPECT_NE(err_.find("ANS9178E"), std::string::npos) << err_;
}

TEST_F(QmxstubTest, ProgramWorksWithTheProviderLoadedFromItsLibrary) {
  std::string a = makeFile("a");
  std::string cmd = std::string("QMX_DMAPI_LIB=") + QMX_TEST_PROVIDER_SO + " " + QMX_TEST_QMXSTUB +
                    " migrate --mode s " + a + " >" + root_ + "/out 2>&1";
  ASSERT_EQ(system(cmd.c_str()), 0) << qmxtest::readFile(root_ + "/out");
  EXPECT_EQ(qmxtest::readFile(root_ + "/out"), "migrated   " + a + "\n");
  // Read back through the library as well as through the built-in copy.
  static dmapiBinding_t library;
  std::string error;
  ASSERT_EQ(dmBindLibrary(QMX_TEST_PROVIDER_SO, &library, &error), 0) << error;
  uint32_t word = 0;
  ASSERT_EQ(query(a, &word), 0);
  EXPECT_EQ(word & 0xFF, dmiRecallStreaming);
  useRoot(&library);
  ASSERT_EQ(query(a, &word), 0);
  EXPECT_EQ(word & 0xFF, dmiRecallStreaming);

  // A library that can't be loaded is a clear failure, and nothing is done.
  std::string b = makeFile("b");
  cmd = std::string("QMX_DMAPI_LIB=/nonexistent/libx.so ") + QMX_TEST_QMXSTUB + " migrate " + b +
        " >" + root_ + "/out 2>&1";
  EXPECT_NE(system(cmd.c_str()), 0);
  EXPECT_NE(qmxtest::readFile(root_ + "/out").find("ANS9505E"), std::string::npos)
      << qmxtest::readFile(root_ + "/out");
  EXPECT_EQ(query(b, &word), -1);
}

}  // namespace
