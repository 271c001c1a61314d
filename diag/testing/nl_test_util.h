// Test support for the message system: the catalogues of the build tree and
// output functions that record what was shown.
#ifndef QMX_DIAG_TESTING_NL_TEST_UTIL_H_
#define QMX_DIAG_TESTING_NL_TEST_UTIL_H_

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "diag/globalrc.h"
#include "diag/logfile.h"
#include "diag/nl.h"
#include "testing/files.h"
#include "testing/temp_dir.h"

namespace nltest {

// What the output functions received: (severity, text).
inline std::vector<std::pair<unsigned, std::string>>& Shown() {
  static std::vector<std::pair<unsigned, std::string>> shown;
  return shown;
}

template <unsigned Sev>
void Record(const char* text) {
  Shown().emplace_back(Sev, text);
}

inline const nlOutputFn_t kRecorders[nlNumOutputFns] = {
    Record<0>, Record<1>, Record<2>, Record<3>, Record<4>,
    Record<5>, Record<6>, Record<7>, Record<8>,
};

// The build tree (CTest sets QMX_BUILD_DIR for unit tests).
inline std::string BuildDir() {
  const char* d = getenv("QMX_BUILD_DIR");
  return d != nullptr ? d : ".";
}
inline std::string ClientBinDir() {
  return BuildDir() + "/client/ba/bin";
}
inline std::string TestCatDir() {
  return BuildDir() + "/testcat";
}

// Each test starts a fresh message system with recording output functions
// and a return-code object, and tears everything down afterwards.
class MessageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Shown().clear();
    // The environment's language must not leak into the expectations.
    setenv("LC_ALL", "C.UTF-8", 1);
    nlSetLocale(nullptr);
    ASSERT_EQ(newNlsGlobalObject(kRecorders, 0), 0);
    newGlobalRC();
    pGlobalRC->clearAllRC();
    SetMsgLoggingMode(1);
  }
  void TearDown() override {
    DLogFile::errorLogFile.utCloseOutputFile();
    DLogFile::InitializeLogFile(DLogFile::errorLogFile, 0, "", 0, 'D', 0, 0);
    nlterm();
    destroyNlsGlobalObject();
    deleteGlobalRC();
    nlSetLocale(nullptr);
  }
  // Starts with the real catalogues.
  int Start(const char* language = "AMENG", unsigned cache = 50, int clientType = 5) {
    return nlinit(language, cache, ClientBinDir().c_str(), clientType, 1, 1, 1, nullptr, nullptr);
  }
  // Starts with the test catalogue (a utility client type may name one).
  int StartTestCatalogue() {
    return nlinit("AMENG", 10, TestCatDir().c_str(), 9, 1, 1, 1, nullptr, "qmxtestV3.cat");
  }
  std::string Compose(unsigned num, ...) {
    va_list ap;
    va_start(ap, num);
    char* s = nullptr;
    nlvsprintf(&s, num, ap);
    va_end(ap);
    std::string r = s != nullptr ? s : "<absent>";
    free(s);
    return r;
  }
  void OpenErrorLog(const std::string& path, unsigned long maxSize = 0) {
    DLogFile::InitializeLogFile(DLogFile::errorLogFile, maxSize, "qmxerlog.pru", 0, 'D', 0, 0);
    ASSERT_EQ(DLogFile::errorLogFile.utOpenOutputFile(path.c_str()), 0);
  }
};

}  // namespace nltest

#endif  // QMX_DIAG_TESTING_NL_TEST_UTIL_H_
