// Test support for the DMAPI layer: the test sandbox (testing/) with a file
// system directory that tests make managed, the message catalogue and an
// error log to read messages back from, and an access object of the test's
// choosing installed as the process's one.
#ifndef QMX_HSM_DMAPI_TESTING_DMI_TESTING_H_
#define QMX_HSM_DMAPI_TESTING_DMI_TESTING_H_

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdio>
#include <memory>
#include <string>

#include "diag/logfile.h"
#include "diag/nl.h"
#include "hsm/dmapi/dmapi_binding.h"
#include "hsm/dmapi/dmi_log.h"
#include "hsm/dmapi/dmi_session.h"
#include "hsm/dmapi/rxdsmapi.h"
#include "hsm/dmapi/xdsmapi.h"
#include "options/optobj.h"
#include "testing/files.h"
#include "testing/sandbox_fixture.h"

namespace dmitest {

// The sandbox: root_ is its directory, sysroot_ the system root
// (root_/sysroot) and fs_ the directory for a file system (root_/fs).
// |needsRoot| tests skip themselves for other users: the provider keeps DM
// attributes in the trusted namespace.
class Sandbox : public qmxtest::SandboxFixture {
 protected:
  explicit Sandbox(bool needsRoot = true)
      : SandboxFixture(
            {.prefix = "qmxdmi-test-"},
            needsRoot ? "DM attributes live in the trusted namespace: needs root" : nullptr) {}

  void SetUp() override {
    SandboxFixture::SetUp();
    if (IsSkipped()) return;
    root_ = box().path();
    sysroot_ = box().sysRoot();
    fs_ = box().makeDir("fs");
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
    SandboxFixture::TearDown();
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
    return qmxtest::readFile(errorLog_);
  }

  // Makes |fs| the node's managed file system: the only entry of the
  // managed file-system table, with the instance number |instance|.  Its
  // state file comes from dmiCreateFSState, where a test wants one.
  void manage(const std::string& fs, int instance = 1) {
    qmxtest::writeFile(box().sys("/etc/zpln/SpaceMan/config/dmiFSTable"), fs + "\n");
    qmxtest::writeFile(box().sys("/etc/zpln/SpaceMan/config/dmiInstanceNo"),
                       std::to_string(instance));
  }

  // A file of the file system directory, made (or rewritten) with |content|.
  std::string makeFile(const std::string& name, const std::string& content = "data") {
    return box().write("fs/" + name, content);
  }

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
