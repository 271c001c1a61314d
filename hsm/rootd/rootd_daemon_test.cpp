// The daemon's command line.
#include "hsm/rootd/rootd_daemon.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(ArgsTest, DaemonArgumentsAndStartUpOptions) {
  auto parse = [](std::vector<std::string> a, rtdArgs_t* out, std::string* bad) {
    std::vector<char*> argv;
    for (auto& s : a) argv.push_back(s.data());
    return rtdParseArgs(static_cast<int>(argv.size()), argv.data(), out, bad);
  };
  rtdArgs_t a;
  std::string bad;
  ASSERT_EQ(
      parse({"qmxrootd", "-d", "-c", "4", "-t9", "-TRACEFILE=/tmp/x", "-traceflags=SM"}, &a, &bad),
      0);
  EXPECT_TRUE(a.daemon);
  EXPECT_EQ(a.maxClients, 4);
  EXPECT_EQ(a.timeoutSec, 9);
  for (const char* wrong : {"-c0", "-c257", "-tx", "-x", "file", "-TRA=1"}) {
    rtdArgs_t b;
    EXPECT_EQ(parse({"qmxrootd", wrong}, &b, &bad), -1) << wrong;
    EXPECT_EQ(bad, wrong);
  }
  EXPECT_EQ(parse({"qmxrootd", "-c"}, &a, &bad), -1);
  EXPECT_EQ(bad, "-c");
}

}  // namespace
