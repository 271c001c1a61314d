// The access object of users who are not root, against a stand-in daemon
// that makes the calls through our provider: what a directory prefetch
// answers, and that it never answers differently from the single calls.
#include "hsm/dmapi/uxdsmapi.h"

#include <errno.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "hsm/dmapi/dmi_attrs.h"
#include "hsm/dmapi/dmi_fileattr.h"
#include "hsm/dmapi/testing/dmi_testing.h"
#include "hsm/rdm/rdm_client.h"
#include "hsm/rootd/testing/fake_daemon.h"

namespace {

// What one getDmattr gives: "rc/errno=value".
std::string attrOf(XDSMAPI* x, dm_sessid_t sid, const xdsm_handle_t& h, const char* name) {
  dm_attrname_t an = dmiAttrName(name);
  char buf[64] = {};
  size_t rlen = 0;
  int rc = x->getDmattr(sid, h, DM_NO_TOKEN, &an, sizeof buf, buf, &rlen);
  return std::to_string(rc) + "/" + std::to_string(rc == 0 ? 0 : errno) + "=" +
         std::string(buf, rc == 0 ? rlen : 0);
}

class PrefetchTest : public dmitest::Sandbox {
 protected:
  void SetUp() override {
    dmitest::Sandbox::SetUp();
    if (IsSkipped()) return;
    manage(fs_);
    dmBindBuiltIn(&dm_);
    daemon_ = std::make_unique<FakeDaemon>(&dm_);
    ASSERT_TRUE(daemon_->ok());
    daemon_->keepConnections = true;
    u_ = new UXDSMAPI(DM_FALSE);
    u_->init();
    delete XDSMAPI::setXDSMAPI(u_);
    ASSERT_EQ(dmiInit(0), 0);
    sid_ = u_->createSession(0, "qmxattr", 0);
    ASSERT_NE(sid_, 0u);
  }
  void TearDown() override {
    if (u_ != nullptr) u_->destroySession(sid_, 0);
    rdmDirAttrsAbandon();
    daemon_.reset();
    dmitest::Sandbox::TearDown();
  }

  // Sets DM attribute |name| of |path| to |value| through the daemon.
  void setAttr(const std::string& path, const char* name, const std::string& value) {
    xdsm_handle_t h;
    ASSERT_EQ(handleSetWithPath(&h, path.c_str()), 0);
    dm_attrname_t an = dmiAttrName(name);
    ASSERT_EQ(u_->setDmattr(sid_, h, DM_NO_TOKEN, &an, 0, value.size(), value.data()), 0);
    handleFree(&h);
  }

  // "handle-errno obj pmig" for |path| as the command asks for it.
  std::string look(const std::string& path) {
    xdsm_handle_t h;
    if (handleSetWithPath(&h, path.c_str()) != 0) return "no handle " + std::to_string(errno);
    std::string r = attrOf(u_, sid_, h, DMI_ATTR_OBJ) + " " + attrOf(u_, sid_, h, DMI_ATTR_PMIG);
    handleFree(&h);
    return r;
  }

  dmapiBinding_t dm_{};
  std::unique_ptr<FakeDaemon> daemon_;
  UXDSMAPI* u_ = nullptr;
  dm_sessid_t sid_ = 0;
};

TEST_F(PrefetchTest, CachedAnswersAreTheDaemonsAndAreGivenOnce) {
  std::string a = makeFile("a");
  std::string b = makeFile("b");
  std::string p = makeFile("p");
  setAttr(a, DMI_ATTR_OBJ, "obj");
  setAttr(p, DMI_ATTR_PMIG, "pm");
  ASSERT_EQ(mkdir((fs_ + "/sub").c_str(), 0755), 0);
  // What the single calls say, with nothing prefetched.
  std::string wantA = look(a), wantB = look(b), wantP = look(p);
  EXPECT_EQ(wantA.substr(0, 8), "0/0=obj ");
  EXPECT_EQ(wantP.substr(wantP.size() - 6), "0/0=pm");

  ASSERT_EQ(dmiPrefetchDirAttributes(fs_.c_str()), 0);
  EXPECT_EQ(look(a).substr(0, 8), "0/0=obj ");
  int afterA = daemon_->requests;
  // A file without the migration attribute has both answers cached; one
  // with it had its premigration attribute left unread (one more call).
  EXPECT_EQ(look(b), wantB);
  EXPECT_EQ(look(p), wantP);
  EXPECT_EQ(daemon_->requests, afterA);
  EXPECT_EQ(daemon_->dirRequests, 1);
  // Each answer is given once: asked again, the daemon answers the same.
  EXPECT_EQ(look(b), wantB);
  EXPECT_EQ(daemon_->requests, afterA + 3);
  // A file made after the prefetch, and a directory, are misses.
  std::string c = makeFile("c");
  EXPECT_EQ(look(c), wantB);
  xdsm_handle_t h;
  EXPECT_EQ(handleSetWithPath(&h, (fs_ + "/sub").c_str()), 0);
  handleFree(&h);
  // Another session is not the one prefetched for.
  ASSERT_EQ(dmiPrefetchDirAttributes(fs_.c_str()), 0);
  ASSERT_EQ(handleSetWithPath(&h, b.c_str()), 0);
  int before = daemon_->requests;
  dm_attrname_t pm = dmiAttrName(DMI_ATTR_PMIG);
  char buf[16];
  size_t rlen = 0;
  EXPECT_EQ(u_->getDmattr(sid_ + 1, h, DM_NO_TOKEN, &pm, sizeof buf, buf, &rlen), -1);
  EXPECT_EQ(daemon_->requests, before + 1);
  handleFree(&h);
}

TEST_F(PrefetchTest, LargeDirectoryComesInRepliesThatGrowAndServeEveryFile) {
  const int kFiles = 1500;  // more than the first two replies hold
  std::vector<std::string> paths;
  for (int i = 0; i < kFiles; ++i) {
    char name[32];
    std::snprintf(name, sizeof name, "f%05d", i);
    paths.push_back(makeFile(name));
  }
  setAttr(paths[700], DMI_ATTR_OBJ, "obj");
  std::string plain = look(paths[0]);
  std::string migrated = look(paths[700]);
  int before = daemon_->requests;
  ASSERT_EQ(dmiPrefetchDirAttributes(fs_.c_str()), 0);
  int wrong = 0;
  for (int i = 0; i < kFiles; ++i) {
    if (i == 700) continue;
    if (look(paths[i]) != plain) ++wrong;
    // A call of another kind between two replies reads the one on its way
    // first; the listing goes on from the cache.
    if (i == 300) {
      dm_stat_t st{};
      xdsm_handle_t h;
      ASSERT_EQ(handleSetWithPath(&h, paths[i].c_str()), 0);
      EXPECT_EQ(u_->getFileAttr(sid_, h, DM_NO_TOKEN, DM_AT_STAT, &st), 0);
      EXPECT_EQ(st.dt_size, 4);
      handleFree(&h);
    }
  }
  EXPECT_EQ(wrong, 0);
  // 256 + 1024 + the rest: three directory calls; the handle asked for a
  // second time and the stat call are the only others.
  EXPECT_EQ(daemon_->dirRequests, 3);
  EXPECT_EQ(daemon_->requests - before, 5);
  EXPECT_EQ(look(paths[700]), migrated);
}

TEST_F(PrefetchTest, LostRepliesAreAskedAgainAndFailuresFallBackToSingleCalls) {
  std::string a = makeFile("a");
  setAttr(a, DMI_ATTR_OBJ, "obj");
  std::string want = look(a);
  // The daemon drops the request sent ahead: it is asked again in full.
  daemon_->hangUps = 1;
  int before = daemon_->requests;
  ASSERT_EQ(dmiPrefetchDirAttributes(fs_.c_str()), 0);
  EXPECT_EQ(look(a), want);
  EXPECT_EQ(daemon_->dirRequests, 2);
  EXPECT_EQ(daemon_->requests - before, 3);  // two directory calls, the premigration read

  // A directory that can't be listed: every file goes to the daemon alone.
  ASSERT_EQ(dmiPrefetchDirAttributes((fs_ + "/none").c_str()), 0);
  EXPECT_EQ(look(a), want);
  // Nor is a refusing daemon believed: the single calls answer.
  daemon_->mode = FakeDaemon::kRefuse;
  ASSERT_EQ(dmiPrefetchDirAttributes(fs_.c_str()), 0);
  xdsm_handle_t h;
  EXPECT_EQ(handleSetWithPath(&h, a.c_str()), -1);
  EXPECT_EQ(errno, EACCES);
  daemon_->mode = FakeDaemon::kServe;
  // A prefetch replaced before its answer is read leaves no reply behind
  // on the connection.
  ASSERT_EQ(dmiPrefetchDirAttributes(fs_.c_str()), 0);
  ASSERT_EQ(dmiPrefetchDirAttributes(fs_.c_str()), 0);
  EXPECT_EQ(look(a), want);
  // Changing an attribute empties the cache.
  ASSERT_EQ(dmiPrefetchDirAttributes(fs_.c_str()), 0);
  setAttr(a, DMI_ATTR_OBJ, "new");
  EXPECT_EQ(look(a).substr(0, 8), "0/0=new ");
}

}  // namespace
