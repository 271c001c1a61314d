#include "hsm/cmd/dsc_mig_attr.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "diag/nl.h"
#include "hsm/cmd/hsm_global_cb.h"
#include "hsm/cmd/testing/cmd_test_util.h"
#include "options/optobj.h"
#include "testing/temp_dir.h"

namespace {

TEST(RecallModeCodesTest, ParserValuesCodesAndLetters) {
  // normal, partial recall and streaming round-trip through their codes.
  EXPECT_STREQ(migAttrLetter(migAttrCode(1)), "n");
  EXPECT_STREQ(migAttrLetter(migAttrCode(5)), "p");
  EXPECT_STREQ(migAttrLetter(migAttrCode(4)), "s");
  EXPECT_STREQ(migAttrLetter(migAttrCode(3)), "r");
  EXPECT_STREQ(migAttrLetter(migAttrCode(2)), "m");
  EXPECT_EQ(migAttrCode(9), 0u);
  EXPECT_STREQ(migAttrLetter(3), "?");
  EXPECT_STREQ(migAttrLetter(255), "?");
}

// One directory entry of a hand-made listing.
dirEntry_t* Entry(std::vector<std::string>& store, const char* name, uid_t owner) {
  store.emplace_back(sizeof(dirEntry_t) + std::strlen(name) + 1, '\0');
  auto* e = reinterpret_cast<dirEntry_t*>(store.back().data());
  e->attr.type = ATTR_KIND_FILE;
  e->attr.uid = owner;
  std::strcpy(e->name, name);
  return e;
}

TEST(OwnerRuleTest, SomebodyElsesFileStopsTheListingWith829) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to act as another user";
  cmdtest::StartMessages();
  if (HasFatalFailure()) return;
  clientOptions opts(ctCLSpaceMGT);
  optionsP = &opts;
  opts.subdir = 2;
  HSMGlobalCB* cb = HSMGlobalCB::GetHsmCB();
  cb->queryMode = 0;
  cb->recallMode = 5;

  const uid_t nobody = 65534;
  std::vector<std::string> store;
  store.reserve(3);
  dirEntry_t* mine = Entry(store, "/mine", nobody);
  dirEntry_t* roots = Entry(store, "/roots", 0);
  dirEntry_t* after = Entry(store, "/after", nobody);
  mine->next = roots;
  roots->next = after;
  const dirReadHandle_t handle{4};
  // The caller is an ordinary user: root's file ends everything with 829
  // and message 9096; the file after it is never looked at.
  qmxtest::TempDir tmp("qmxowner.");
  int errFd = open(tmp.write("stderr", "").c_str(), O_RDWR);
  ASSERT_GE(errFd, 0);
  EXPECT_EXIT(
      {
        if (fchown(errFd, nobody, nobody) != 0 || setuid(nobody) != 0) std::exit(3);
        dup2(errFd, 2);
        int rc = smMigAttr(&handle, "/qmx/nowhere", mine, 0);
        std::fflush(nullptr);
        std::exit(rc == 829 ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
  std::string err(4096, '\0');
  err.resize(static_cast<size_t>(pread(errFd, err.data(), err.size(), 0)));
  close(errFd);
  EXPECT_NE(err.find("ANS9096E"), std::string::npos) << err;
  EXPECT_NE(err.find("/qmx/nowhere/roots"), std::string::npos) << err;
  EXPECT_EQ(err.find("/after"), std::string::npos) << err;
  optionsP = nullptr;
  nlterm();
}

}  // namespace
