#include "session/pswdfile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <fstream>
#include <sstream>

#include "testing/temp_dir.h"

namespace {

class PswdFileTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, psSetPswdFileOption((dir_ + "/sub/").c_str())); }
  void TearDown() override { psSetPswdFileOption(""); }
  static pswdRecord_t Rec(const char* server, const char* node, unsigned char seed) {
    pswdRecord_t r;
    r.server = server;
    r.node = node;
    r.salt = {seed, 2, 3};
    r.iterations = 1000u + seed;
    r.verifier.fill(seed);
    return r;
  }
  qmxtest::TempDir tmp_{"qmx-pswd-"};
  const std::string dir_ = tmp_.path();
};

TEST_F(PswdFileTest, StoreReplaceAndDelete) {
  EXPECT_EQ(dir_ + "/sub/qmx.pwd", pswdFilePath());
  pswdRecord_t got;
  EXPECT_EQ(ENOENT, pswdFRead("S", "N", &got));
  EXPECT_EQ(0, dsDeletePasswordRecord("S", "N"));  // nothing to delete

  ASSERT_EQ(0, pswdFWrite(Rec("S", "N", 1)));
  ASSERT_EQ(0, pswdFWrite(Rec("S", "M", 2)));
  ASSERT_EQ(0, pswdFWrite(Rec("S", "N", 3)));  // replaces the first
  ASSERT_EQ(0, pswdFRead("S", "N", &got));
  EXPECT_EQ(1003u, got.iterations);
  EXPECT_EQ(Rec("S", "N", 3).verifier, got.verifier);
  EXPECT_EQ(Rec("S", "N", 3).salt, got.salt);

  struct stat st {};
  ASSERT_EQ(0, ::stat(pswdFilePath().c_str(), &st));
  EXPECT_EQ(0600u, st.st_mode & 0777);
  ASSERT_EQ(0, ::stat((dir_ + "/sub").c_str(), &st));
  EXPECT_EQ(0700u, st.st_mode & 0777);

  ASSERT_EQ(0, dsDeletePasswordRecord("S", "N"));
  EXPECT_EQ(ENOENT, pswdFRead("S", "N", &got));
  EXPECT_EQ(0, pswdFRead("S", "M", &got));
}

TEST_F(PswdFileTest, ForeignLinesSurviveAndOpenFilesAreRefused) {
  ASSERT_EQ(0, pswdFWrite(Rec("S", "N", 1)));
  {
    std::ofstream f(pswdFilePath(), std::ios::app);
    f << "V2 something the next release writes\n";
  }
  ASSERT_EQ(0, pswdFWrite(Rec("S", "M", 2)));
  ASSERT_EQ(0, dsDeletePasswordRecord("S", "N"));
  std::ifstream in(pswdFilePath());
  std::stringstream all;
  all << in.rdbuf();
  EXPECT_NE(std::string::npos, all.str().find("V2 something the next release writes"));

  ::chmod(pswdFilePath().c_str(), 0644);
  pswdRecord_t got;
  EXPECT_EQ(EACCES, pswdFRead("S", "M", &got));

  EXPECT_EQ(EINVAL, pswdFWrite(Rec("S S", "N", 1)));
  EXPECT_EQ(109, psSetPswdFileOption("relative/dir"));
}

}  // namespace
