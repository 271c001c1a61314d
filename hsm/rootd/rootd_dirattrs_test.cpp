// Directory calls through the daemon: a user gets in one call what the
// single calls would give it, and nothing they would refuse.
#include <sys/stat.h>

#include <unistd.h>

#include <functional>
#include <set>

#include "hsm/rdm/rdm_dirattrs.h"
#include "hsm/rootd/rootd_guard.h"
#include "hsm/rootd/testing/rootd_testing.h"

using namespace rtdtest;

namespace {

class DirAttrsTest : public StubDaemonTest {
 protected:
  // A link and a subdirectory beside the stubs: neither is a file to answer.
  void prepare() override {
    ASSERT_EQ(symlink(own_.c_str(), box_.path("link").c_str()), 0);
    ASSERT_EQ(mkdir(box_.path("sub").c_str(), 0755), 0);
  }

  static rdmWriter query(dm_sessid_t sid, const std::string& dir, const std::string& cursor = "",
                         uint32_t flags = 0, uint32_t limit = 0) {
    rdmDirQuery_t q;
    q.sid = sid;
    q.dir = dir;
    q.cursor = cursor;
    q.flags = flags;
    q.limit = limit;
    q.names = {attrName("KVRObj"), attrName("KVRPMig")};
    rdmWriter w;
    rdmEncodeDirQuery(q, &w);
    return w;
  }

  // Every entry of |dir| by as many calls as it takes, on one connection
  // (as the client makes them); "" when one failed.  |*calls| counts the
  // calls; |between| (may be empty) runs after the first.
  std::string listAll(dm_sessid_t sid, const std::string& dir, std::vector<rdmDirEntry_t>* all,
                      int* calls, uint32_t flags = 0, uint32_t limit = 0,
                      const std::function<void()>& between = {}) {
    int fd = connectTo(sock_);
    if (fd < 0) return "no daemon";
    std::string r = listOn(fd, sid, dir, all, calls, flags, limit, between);
    close(fd);
    return r;
  }
  std::string listOn(int fd, dm_sessid_t sid, const std::string& dir,
                     std::vector<rdmDirEntry_t>* all, int* calls, uint32_t flags, uint32_t limit,
                     const std::function<void()>& between) {
    std::string cursor;
    for (bool more = true; more;) {
      rdmRequest_t req;
      req.call = rdmDirAttrsCall;
      req.key = 0x5EED + static_cast<uint64_t>(*calls);
      req.payload = query(sid, dir, cursor, flags, limit).data();
      rdmReply_t rep;
      if (rdmWriteRequest(fd, req) != 0 || rdmReadReply(fd, &rep) != 0) return "no answer";
      ++*calls;
      if (rep.status != 0) return "status " + std::to_string(rep.status);
      if (rep.result != 0) return std::to_string(rep.result) + "/" + std::to_string(rep.err);
      rdmReader r(rep.payload.data(), rep.payload.size());
      std::vector<rdmDirEntry_t> part;
      if (!rdmGetDirEntries(r, 2, &part, &more)) return "malformed";
      if (limit != 0 && part.size() > limit) return "over the limit";
      if (part.empty()) return more ? "no progress" : "0/0";
      cursor = part.back().name;
      all->insert(all->end(), part.begin(), part.end());
      if (*calls == 1 && between) between();
    }
    return "0/0";
  }

  // What a direct GetDmattr of |name| gives for |path|: "rc/errno=value".
  std::string direct(const std::string& path, const char* name) {
    auto h = handleOf(dm_, path);
    dm_attrname_t n = attrName(name);
    char buf[64] = {};
    size_t rlen = 0;
    int rc = dm_.get_dmattr(rootSid_, h.data(), h.size(), DM_NO_TOKEN, &n, sizeof buf, buf, &rlen);
    return std::to_string(rc) + "/" + std::to_string(rc == 0 ? 0 : errno) + "=" +
           std::string(buf, rc == 0 ? rlen : 0);
  }
  static std::string slot(const rdmDirAttr_t& a) {
    return std::to_string(a.err == 0 ? 0 : -1) + "/" + std::to_string(a.err) + "=" +
           std::string(a.value.begin(), a.value.end());
  }

  // A user's listing of the sandbox: what it gets, and what it is refused.
  void checkUserListing() {
    std::string got = runAs(kNobody, [&] {
      dm_sessid_t s = newSession(sock_);
      std::vector<rdmDirEntry_t> all;
      int calls = 0;
      std::string r = listAll(s, box_.dir(), &all, &calls) + " " + std::to_string(getpid());
      for (const rdmDirEntry_t& e : all) {
        r += "\n" + e.name + " " + std::to_string(e.handleErr) + " ";
        r += e.handle == handleOf(dm_, box_.path(e.name)) ? "same" : "other";
        r += " " + slot(e.attrs[0]) + " " + slot(e.attrs[1]);
      }
      return r;
    });
    std::string pmig = direct(own_, "KVRPMig");
    ASSERT_NE(pmig.substr(0, 2), "0/");
    std::string pid = got.substr(4, got.find('\n') - 4);
    // Symbolic link, directories and the socket are left out; the secret is
    // named (the user can list it) but its attributes are refused.
    EXPECT_EQ(got, "0/0 " + pid + "\nother.stub 0 same 0/0=old " + pmig +  //
                       "\nown.stub 0 same 0/0=old " + pmig +               //
                       "\nsecret 0 same -1/13= -1/13=");
    // One line for the refused call, none per file.
    auto lines = server_->refusals();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], "dm_get_dmattr 65534 " + pid + " " + box_.dir() + " 13");

    // Root sees every file's attributes.
    std::vector<rdmDirEntry_t> all;
    int calls = 0;
    ASSERT_EQ(listAll(rootSid_, box_.dir(), &all, &calls), "0/0");
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(all[2].name, "secret");
    EXPECT_EQ(slot(all[2].attrs[0]), "0/0=old");
  }
};

// The same daemon with our provider loaded from its library, as another
// provider would be: handles are looked up, not made.
class DirAttrsLibraryTest : public DirAttrsTest {
 protected:
  void bindProvider(dmapiBinding_t* dm) override {
    std::string error;
    ASSERT_EQ(dmBindLibrary(QMX_TEST_PROVIDER_SO, dm, &error), 0) << error;
    ASSERT_FALSE(dmIsBuiltIn(*dm));
  }
};

TEST_F(DirAttrsTest, UserGetsReadableFilesAndRefusalsForTheRest) {
  ASSERT_TRUE(dmIsBuiltIn(dm_));
  checkUserListing();
}

TEST_F(DirAttrsLibraryTest, UserGetsReadableFilesAndRefusalsForTheRest) {
  checkUserListing();
}

TEST_F(DirAttrsTest, DirectoriesTheUserCannotListAreRefused) {
  std::string locked = box_.path("locked");
  std::string blind = box_.path("blind");
  ASSERT_EQ(mkdir(locked.c_str(), 0700), 0);
  ASSERT_EQ(mkdir(blind.c_str(), 0711), 0);  // reachable, not listable
  box_.file("locked/f", kNobody, 0644);
  box_.file("blind/f", kNobody, 0644);
  std::string got = runAs(kNobody, [&] {
    dm_sessid_t s = newSession(sock_);
    rdmReply_t rep;
    std::string r = outcome(sock_, rdmDirAttrsCall, query(s, locked), &rep);
    rdmReader in(rep.payload.data(), rep.payload.size());
    std::vector<rdmDirEntry_t> none;
    bool more = true;
    r += rdmGetDirEntries(in, 2, &none, &more) && none.empty() && !more ? " empty" : " data";
    r += " " + outcome(sock_, rdmDirAttrsCall, query(s, blind));
    r += " " + outcome(sock_, rdmDirAttrsCall, query(s, locked + "/f"));
    r += " " + outcome(sock_, rdmDirAttrsCall, query(s, "relative"));
    r += " " + outcome(sock_, rdmDirAttrsCall, query(s, box_.path("missing")));
    // Another process's session is not the caller's to use.
    r += " " + outcome(sock_, rdmDirAttrsCall, query(rootSid_, box_.dir()));
    // A cursor that is not a file name does not decode.
    r += " " + outcome(sock_, rdmDirAttrsCall, query(s, box_.dir(), "a/b"));
    return r;
  });
  EXPECT_EQ(got, "-1/13 empty -1/13 -1/13 -1/22 -1/2 -1/1 status 71");
}

TEST_F(DirAttrsTest, LargeDirectoryIsAnsweredInSeveralReplies) {
  std::string big = box_.path("big");
  ASSERT_EQ(mkdir(big.c_str(), 0755), 0);
  // Long names make the directory larger than one reply.
  const int kFiles = 2600;
  std::set<std::string> want;
  for (int i = 0; i < kFiles; ++i) {
    char name[256];
    std::snprintf(name, sizeof name, "%05d%s", i, std::string(200, 'x').c_str());
    box_.file(std::string("big/") + name, kNobody, 0644);
    want.insert(name);
  }
  auto check = [&](dm_sessid_t sid, int* calls) {
    std::vector<rdmDirEntry_t> all;
    std::string o = listAll(sid, big, &all, calls);
    std::set<std::string> seen;
    for (const rdmDirEntry_t& e : all)
      if (e.handleErr == 0 && !e.handle.empty() && e.attrs[0].err != 0) seen.insert(e.name);
    return o + " " + std::to_string(all.size()) + " " + (seen == want ? "all" : "missing");
  };
  int rootCalls = 0;
  EXPECT_EQ(check(rootSid_, &rootCalls), "0/0 2600 all");
  EXPECT_GT(rootCalls, 1);
  std::string got = runAs(kNobody, [&] {
    int calls = 0;
    std::string r = check(newSession(sock_), &calls);
    return r + (calls > 1 ? " split" : " whole");
  });
  EXPECT_EQ(got, "0/0 2600 all split");
}

TEST_F(DirAttrsTest, RepliesKeepToTheirLimitAndSeeTheDirectoryChange) {
  std::string mine = box_.path("mine");
  ASSERT_EQ(mkdir(mine.c_str(), 0755), 0);
  ASSERT_EQ(chown(mine.c_str(), kNobody, kNobody), 0);
  std::string a = box_.file("mine/a", kNobody, 0644);
  box_.file("mine/b", kNobody, 0644);
  auto h = handleOf(dm_, a);
  dm_attrname_t n = attrName("KVRObj");
  ASSERT_EQ(
      dm_.set_dmattr(rootSid_, h.data(), h.size(), DM_NO_TOKEN, &n, 0, 3, const_cast<char*>("mig")),
      0);
  std::string got = runAs(kNobody, [&] {
    dm_sessid_t s = newSession(sock_);
    std::vector<rdmDirEntry_t> all;
    int calls = 0;
    // One file per reply; after the first a file appears between the two,
    // later than the directory's last change (time stamps are coarse).
    std::string r = listAll(s, mine, &all, &calls, rdmDirIfAbsent, 1, [&] {
      usleep(30000);
      std::FILE* f = std::fopen((mine + "/ab").c_str(), "w");
      if (f != nullptr) std::fclose(f);
    });
    r += " " + std::to_string(calls);
    for (const rdmDirEntry_t& e : all)
      r += " " + e.name + ":" + slot(e.attrs[0]) + "," + slot(e.attrs[1]);
    return r;
  });
  // The premigration attribute is read only where the migration one is
  // missing.
  EXPECT_EQ(got, "0/0 3 a:0/0=mig,-1/-1= ab:-1/2=,-1/2= b:-1/2=,-1/2=");
}

}  // namespace
