// Test support for the DMAPI layer: a sandbox with its own system root, the
// message catalogue and an error log to read messages back from, and an
// access object of the test's choosing installed as the process's one.
#ifndef QMX_HSM_DMAPI_TESTING_DMI_TESTING_H_
#define QMX_HSM_DMAPI_TESTING_DMI_TESTING_H_

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "diag/logfile.h"
#include "diag/nl.h"
#include "hsm/dmapi/dmapi_binding.h"
#include "hsm/dmapi/dmi_log.h"
#include "hsm/dmapi/dmi_session.h"
#include "hsm/dmapi/rxdsmapi.h"
#include "hsm/dmapi/xdsmapi.h"
#include "options/optobj.h"

namespace dmitest {

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

inline void writeFile(const std::string& path, const std::string& content) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

// The sandbox.  |needsRoot| tests skip themselves for other users: the
// provider keeps DM attributes in the trusted namespace.
class Sandbox : public ::testing::Test {
 protected:
  explicit Sandbox(bool needsRoot = true) : needsRoot_(needsRoot) {}

  void SetUp() override {
    if (needsRoot_ && geteuid() != 0)
      GTEST_SKIP() << "DM attributes live in the trusted namespace: needs root";
    char tmpl[] = "/tmp/qmxdmi-test-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    root_ = tmpl;
    sysroot_ = root_ + "/sysroot";
    ASSERT_EQ(setenv("QMX_SYSROOT", sysroot_.c_str(), 1), 0);
    std::filesystem::create_directories(root_ + "/fs");
    fs_ = root_ + "/fs";
    // Messages: the catalogue of the build tree, shown nowhere, logged to
    // an error log of the sandbox.
    newNlsGlobalObject(nullptr, 0);
    const char* build = getenv("QMX_BUILD_DIR");
    std::string bin = std::string(build != nullptr ? build : ".") + "/client/ba/bin";
    nlinit("AMENG", 50, bin.c_str(), 5, 1, 1, 1, nullptr, nullptr);
    errorLog_ = root_ + "/qmxerror.log";
    DLogFile::InitializeLogFile(DLogFile::errorLogFile, 0, "", 0, 'D', 0, 0);
    DLogFile::errorLogFile.utOpenOutputFile(errorLog_.c_str());
    SetMsgLoggingMode(1);
    opts_ = std::make_unique<clientOptions>(ctCLSpaceMGT);
    optSetThreadOptionP(opts_.get());
    dmiSetProgName("dmitest");
    previous_ = XDSMAPI::setXDSMAPI(nullptr);
  }

  void TearDown() override {
    XDSMAPI* mine = XDSMAPI::setXDSMAPI(previous_);
    if (mine != previous_) delete mine;
    dmiSetProgName(nullptr);
    optSetThreadOptionP(nullptr);
    opts_.reset();
    DLogFile::errorLogFile.utCloseOutputFile();
    for (char* n : {QMXDMRECALLD, QMXDMMONITORD, QMXDMSCOUTD, QMXDMROOTD, QMXDMWATCHD}) n[0] = '\0';
    unsetenv("QMX_SYSROOT");
    if (!root_.empty()) std::filesystem::remove_all(root_);
  }

  // Installs an RXDSMAPI over |dm| (null: the built-in provider) as the
  // process's access object and initialises it.
  XDSMAPI* useRoot(const dmapiBinding_t* dm = nullptr) {
    if (dm == nullptr) {
      dmBindBuiltIn(&builtIn_);
      dm = &builtIn_;
    }
    RXDSMAPI* x = new RXDSMAPI(DM_TRUE, dm);
    x->init();
    delete XDSMAPI::setXDSMAPI(x);
    return x;
  }

  // The error log so far.
  std::string logged() {
    std::fflush(nullptr);
    return readFile(errorLog_);
  }

  // Lists |fs| in the managed file-system table and sets the instance.
  void manage(const std::string& fs, int instance = 1) {
    writeFile(sysroot_ + "/etc/zpln/SpaceMan/config/dmiFSTable", fs + "\n");
    writeFile(sysroot_ + "/etc/zpln/SpaceMan/config/dmiInstanceNo", std::to_string(instance));
  }

  std::string makeFile(const std::string& name, const std::string& content = "data") {
    std::string p = fs_ + "/" + name;
    writeFile(p, content);
    return p;
  }

  bool needsRoot_;
  std::string root_, sysroot_, fs_, errorLog_;
  std::unique_ptr<clientOptions> opts_;
  XDSMAPI* previous_ = nullptr;
  dmapiBinding_t builtIn_{};
};

// The sandbox with its file system managed and root's access object in
// place, with a session of its own (named |sessionName|) for the test.
class RootSessionSandbox : public Sandbox {
 protected:
  explicit RootSessionSandbox(const char* sessionName) : sessionName_(sessionName) {}
  void SetUp() override {
    Sandbox::SetUp();
    if (IsSkipped()) return;
    manage(fs_);
    x_ = useRoot();
    ASSERT_EQ(x_->initService(), 1);
    sid_ = x_->createSession(0, sessionName_, 0);
    ASSERT_NE(sid_, 0u);
  }
  void TearDown() override {
    if (x_ != nullptr && sid_ != 0) x_->destroySession(sid_, 0);
    Sandbox::TearDown();
  }

  const char* sessionName_;
  XDSMAPI* x_ = nullptr;
  dm_sessid_t sid_ = 0;
};

}  // namespace dmitest

#endif  // QMX_HSM_DMAPI_TESTING_DMI_TESTING_H_
