// Test support for the command: the message system on the catalogues of the
// build tree, showing messages where the command shows them.
#ifndef QMX_HSM_CMD_TESTING_CMD_TEST_UTIL_H_
#define QMX_HSM_CMD_TESTING_CMD_TEST_UTIL_H_

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "diag/nl.h"

namespace cmdtest {

// Starts the message system in English (CTest sets QMX_BUILD_DIR).
inline void StartMessages() {
  setenv("LC_ALL", "C.UTF-8", 1);
  const char* b = std::getenv("QMX_BUILD_DIR");
  std::string dir = std::string(b != nullptr ? b : ".") + "/client/ba/bin";
  ASSERT_EQ(newNlsGlobalObject(nullptr, 0), 0);
  ASSERT_EQ(nlinit("EN_US", 10, dir.c_str(), 5, 1, 1, 1, nullptr, nullptr), 0);
}

}  // namespace cmdtest

#endif  // QMX_HSM_CMD_TESTING_CMD_TEST_UTIL_H_
