// What callers that are not root may do through the daemon: each rule is
// checked with forged requests from a child running as another user.
#include <sys/xattr.h>

#include "hsm/rootd/rootd_guard.h"
#include "hsm/rootd/testing/rootd_testing.h"

using namespace rtdtest;

namespace {

class GuardTest : public StubDaemonTest {
 protected:
  rdmWriter getAttr(const std::string& path, dm_sessid_t sid, dm_token_t token = DM_NO_TOKEN) {
    rdmWriter w;
    fileArgs(w, handleOf(dm_, path), sid, token);
    w.name(attrName("KVRObj"));
    w.u64(64);
    return w;
  }
  rdmWriter setAttr(const std::string& path, dm_sessid_t sid, const char* value) {
    rdmWriter w;
    fileArgs(w, handleOf(dm_, path), sid);
    w.name(attrName("KVRObj"));
    w.u32(0);
    w.bytes(value, std::strlen(value));
    return w;
  }
  std::string attrOf(const std::string& path) {
    char buf[64] = {};
    ssize_t n = getxattr(path.c_str(), "trusted.dmapi.KVRObj", buf, sizeof buf - 1);
    return n < 0 ? "none" : std::string(buf, static_cast<size_t>(n));
  }
};

TEST_F(GuardTest, ReadsNeedReadPermissionWritesNeedOwnership) {
  std::string got = runAs(kNobody, [&] {
    dm_sessid_t s = newSession(sock_);
    rdmReply_t rep;
    std::string r = outcome(sock_, rdmGetDmattrCall, getAttr(own_, s), &rep);
    rdmReader in(rep.payload.data(), rep.payload.size());
    in.u64();
    size_t n = 0;
    const unsigned char* v = in.bytes(&n);
    r += "=" + std::string(reinterpret_cast<const char*>(v), n);
    r += " " + outcome(sock_, rdmGetDmattrCall, getAttr(other_, s));
    r += " " + outcome(sock_, rdmGetDmattrCall, getAttr(secret_, s));
    r += " " + outcome(sock_, rdmSetDmattrCall, setAttr(own_, s, "mine"));
    r += " " + outcome(sock_, rdmSetDmattrCall, setAttr(other_, s, "theirs"));
    rdmWriter rm;
    fileArgs(rm, handleOf(dm_, other_), s);
    rm.u32(0);
    rm.name(attrName("KVRObj"));
    r += " " + outcome(sock_, rdmRemoveDmattrCall, rm);
    rdmWriter reg;
    fileArgs(reg, handleOf(dm_, other_), s);
    dm_region_t region{};
    region.rg_flags = DM_REGION_READ;
    reg.bytes(&region, sizeof region);
    r += " " + outcome(sock_, rdmSetRegionCall, reg);
    return r;
  });
  EXPECT_EQ(got, "0/0=old 0/0 -1/13 0/0 -1/1 -1/1 -1/1");
  EXPECT_EQ(attrOf(own_), "mine");
  EXPECT_EQ(attrOf(other_), "old");
  // Root itself is not held back.
  EXPECT_EQ(outcome(sock_, rdmSetDmattrCall, setAttr(other_, rootSid_, "root")), "0/0");
  EXPECT_EQ(attrOf(other_), "root");
}

TEST_F(GuardTest, RefusalsAreReportedWithUserAndProcess) {
  std::string got = runAs(kNobody, [&] {
    dm_sessid_t s = newSession(sock_);
    return std::to_string(getpid()) + " " + outcome(sock_, rdmGetDmattrCall, getAttr(secret_, s));
  });
  ASSERT_NE(got, "child failed");
  std::string pid = got.substr(0, got.find(' '));
  auto lines = server_->refusals();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0], "dm_get_dmattr 65534 " + pid + " " + secret_ + " 13");
}

TEST_F(GuardTest, RootOnlyCallsAndForeignTokensAreRefused) {
  std::string got = runAs(kNobody, [&] {
    dm_sessid_t s = newSession(sock_);
    auto h = handleOf(dm_, own_);
    std::string r;
    rdmWriter right;
    fileArgs(right, h, s);
    right.u32(0);
    right.u32(DM_RIGHT_EXCL);
    r += outcome(sock_, rdmRequestRightCall, right);
    rdmWriter ev;
    ev.u64(1);
    ev.u32(1);
    ev.u32(0);
    ev.u64(256);
    r += " " + outcome(sock_, rdmGetEventsCall, ev);
    rdmWriter tok;
    tok.u64(1);
    tok.u32(4);
    r += " " + outcome(sock_, rdmGetAllTokensCall, tok);
    rdmWriter fa;
    fileArgs(fa, h, s);
    fa.u32(DM_AT_UID);
    dm_fileattr_t attr{};
    fa.bytes(&attr, sizeof attr);
    r += " " + outcome(sock_, rdmSetFileAttrCall, fa);
    rdmWriter punch;
    fileArgs(punch, h, s);
    punch.i64(0);
    punch.u64(0);
    r += " " + outcome(sock_, rdmPunchHoleCall, punch);
    // A token on an otherwise permitted call.
    r += " " + outcome(sock_, rdmGetDmattrCall, getAttr(own_, s, dm_token_t{7, 7}));
    return r;
  });
  EXPECT_EQ(got, "-1/1 -1/1 -1/1 -1/1 -1/1 -1/1");
  struct stat st;
  ASSERT_EQ(stat(own_.c_str(), &st), 0);
  EXPECT_EQ(st.st_uid, kNobody);
  EXPECT_EQ(server_->refusals().size(), 6u);
}

TEST_F(GuardTest, UnreachableFilesAndBadHandles) {
  mkdir(box_.path("closed").c_str(), 0700);
  std::string hidden = box_.file("closed/file", kNobody, 0644);
  box_.file("line\nbreak", 0, 0600);
  auto hiddenHandle = handleOf(dm_, hidden);
  std::string gone = box_.file("gone", kNobody, 0644);
  auto goneHandle = handleOf(dm_, gone);
  ASSERT_EQ(unlink(gone.c_str()), 0);
  std::string got = runAs(kNobody, [&] {
    dm_sessid_t s = newSession(sock_);
    rdmWriter p;
    p.bytes(hidden.c_str(), hidden.size() + 1);
    std::string r = outcome(sock_, rdmPathToHandleCall, p);
    // The caller owns the file, but can't reach it.
    rdmWriter get;
    fileArgs(get, hiddenHandle, s);
    get.name(attrName("KVRObj"));
    get.u64(64);
    r += " " + outcome(sock_, rdmGetDmattrCall, get);
    rdmWriter empty;
    fileArgs(empty, {}, s);
    empty.name(attrName("KVRObj"));
    empty.u64(64);
    r += " " + outcome(sock_, rdmGetDmattrCall, empty);
    rdmWriter rel;
    rel.bytes("own.stub", 9);
    r += " " + outcome(sock_, rdmPathToHandleCall, rel);
    rdmWriter junk;
    std::vector<unsigned char> h(48, 0xAB);
    fileArgs(junk, h, s);
    junk.name(attrName("KVRObj"));
    junk.u64(64);
    r += " " + outcome(sock_, rdmGetDmattrCall, junk);
    r += " " + outcome(sock_, rdmGetDmattrCall, getAttr(box_.path("line\nbreak"), s));
    // A handle of a file that is no more.
    rdmWriter stale;
    fileArgs(stale, goneHandle, s);
    stale.name(attrName("KVRObj"));
    stale.u64(64);
    r += " " + outcome(sock_, rdmGetDmattrCall, stale);
    return r;
  });
  EXPECT_EQ(got, "-1/13 -1/13 -1/9 -1/22 -1/9 -1/13 -1/9");
  // The name with a line break is reported on one line.
  auto lines = server_->refusals();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_NE(lines[2].find("line\\x0Abreak"), std::string::npos) << lines[2];
  EXPECT_EQ(lines[2].find('\n'), std::string::npos);
}

TEST_F(GuardTest, HandleOfAFileReplacedAfterwardsReachesNothing) {
  auto h = handleOf(dm_, own_);
  // The caller's file is replaced by another file of the caller's under
  // the same name: every permission holds, but it is not the handle's file.
  std::string other = box_.file("own.new", kNobody, 0644);
  ASSERT_EQ(setxattr(other.c_str(), "trusted.dmapi.KVRObj", "new", 3, 0), 0);
  ASSERT_EQ(rename(other.c_str(), own_.c_str()), 0);
  std::string got = runAs(kNobody, [&] {
    dm_sessid_t s = newSession(sock_);
    rdmWriter get;
    fileArgs(get, h, s);
    get.name(attrName("KVRObj"));
    get.u64(64);
    rdmWriter set;
    fileArgs(set, h, s);
    set.name(attrName("KVRObj"));
    set.u32(0);
    set.bytes("x", 1);
    return outcome(sock_, rdmGetDmattrCall, get) + " " + outcome(sock_, rdmSetDmattrCall, set);
  });
  EXPECT_EQ(got, "-1/9 -1/9");
  EXPECT_EQ(attrOf(own_), "new");
}

// Sessions: the caller sees and acts on its own process's sessions only.
TEST_F(GuardTest, SessionsBelongToTheProcessThatCreatedThem) {
  auto create = [&](const char* info) {
    rdmWriter w;
    w.u64(0);
    w.bytes(info, std::strlen(info));
    rdmReply_t rep;
    if (outcome(sock_, rdmCreateSessionCall, w, &rep) != "0/0") return dm_sessid_t(0);
    rdmReader in(rep.payload.data(), rep.payload.size());
    return static_cast<dm_sessid_t>(in.u64());
  };
  auto sidArg = [](dm_sessid_t sid) {
    rdmWriter w;
    w.u64(sid);
    return w;
  };
  // A first process creates a session and leaves it behind for the second.
  std::string first = runAs(kNobody, [&] { return std::to_string(create("first")); });
  dm_sessid_t firstSid = std::strtoull(first.c_str(), nullptr, 10);
  ASSERT_NE(firstSid, 0u) << first;
  std::string got = runAs(kNobody, [&] {
    dm_sessid_t mine = create("second");
    std::string r = outcome(sock_, rdmDestroySessionCall, sidArg(firstSid));
    r += " " + outcome(sock_, rdmDestroySessionCall, sidArg(rootSid_));
    rdmWriter q;
    q.u64(rootSid_);
    q.u64(256);
    r += " " + outcome(sock_, rdmQuerySessionCall, q);
    rdmWriter list;
    list.u32(16);
    rdmReply_t rep;
    r += " " + outcome(sock_, rdmGetAllSessionsCall, list, &rep);
    rdmReader in(rep.payload.data(), rep.payload.size());
    uint32_t n = in.u32();
    r += " n=" + std::to_string(n) + (n == 1 && in.u64() == mine ? " mine" : " other");
    rdmWriter named;
    named.u64(0);
    named.bytes("rec1", 4);
    r += " " + outcome(sock_, rdmCreateSessionCall, named);
    rdmWriter take;
    take.u64(firstSid);
    take.bytes("x", 1);
    r += " " + outcome(sock_, rdmCreateSessionCall, take);
    r += " " + outcome(sock_, rdmGetDmattrCall, getAttr(own_, rootSid_));
    r += " " + outcome(sock_, rdmGetDmattrCall, getAttr(own_, mine));
    r += " " + outcome(sock_, rdmDestroySessionCall, sidArg(mine));
    return r;
  });
  EXPECT_EQ(got, "-1/1 -1/1 -1/1 0/0 n=1 mine -1/1 -1/1 -1/1 0/0 0/0");
  // Root's session survived; the first process's session was reaped when
  // the second created its own, as its process had ended.
  char buf[256];
  size_t rlen = 0;
  EXPECT_EQ(dm_.query_session(rootSid_, sizeof buf, buf, &rlen), 0);
  EXPECT_NE(dm_.query_session(firstSid, sizeof buf, buf, &rlen), 0);
  EXPECT_EQ(server_->server().sessions().size(), 0u);
}

class SessionLimitTest : public GuardTest {
 protected:
  void prepare() override { maxUserSessions_ = 2; }
  // "result/errno" of creating a session, and its id after a colon.
  std::string create() {
    rdmWriter w;
    w.u64(0);
    w.bytes("limited", 7);
    rdmReply_t rep;
    std::string o = outcome(sock_, rdmCreateSessionCall, w, &rep);
    rdmReader in(rep.payload.data(), rep.payload.size());
    return o + ":" + std::to_string(in.u64());
  }
  static std::string outcomeOf(const std::string& created) {
    return created.substr(0, created.find(':'));
  }
};

TEST_F(SessionLimitTest, AUserHoldsNoMoreSessionsThanTheLimit) {
  // A process that ends with its sessions leaves nothing that counts.
  std::string first = runAs(kNobody, [&] {
    std::string r = outcomeOf(create());
    return r + " " + outcomeOf(create());
  });
  EXPECT_EQ(first, "0/0 0/0");
  std::string got = runAs(kNobody, [&] {
    std::string a = create();
    std::string r = outcomeOf(a);
    r += " " + outcomeOf(create());
    r += " " + outcomeOf(create());
    // One destroyed makes room for one more.
    rdmWriter d;
    d.u64(std::strtoull(a.substr(a.find(':') + 1).c_str(), nullptr, 10));
    r += " " + outcome(sock_, rdmDestroySessionCall, d);
    r += " " + outcomeOf(create());
    return r + " " + std::to_string(getpid());
  });
  std::string pid = got.substr(got.rfind(' ') + 1);
  EXPECT_EQ(got, "0/0 0/0 -1/11 0/0 0/0 " + pid);
  auto lines = server_->refusals();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0], "dm_create_session 65534 " + pid + " 2 sessions 11");
  // Root is not limited.
  for (int i = 0; i < 3; ++i) EXPECT_EQ(outcomeOf(create()), "0/0") << i;
}

}  // namespace

namespace {

// Read permission is judged without opening the file: a pipe nobody
// writes to is neither opened nor waited on.
TEST_F(GuardTest, PipesAreJudgedByTheirModeNeverOpened) {
  std::string closedPipe = box_.path("closed.fifo");
  std::string openPipe = box_.path("open.fifo");
  ASSERT_EQ(mkfifo(closedPipe.c_str(), 0600), 0);
  ASSERT_EQ(mkfifo(openPipe.c_str(), 0644), 0);
  auto closedHandle = handleOf(dm_, closedPipe);
  auto openHandle = handleOf(dm_, openPipe);
  ASSERT_FALSE(closedHandle.empty());
  std::string got = runAs(kNobody, [&] {
    dm_sessid_t s = newSession(sock_);
    std::string r;
    for (const auto* h : {&closedHandle, &openHandle}) {
      rdmWriter w;
      fileArgs(w, *h, s);
      w.name(attrName("KVRObj"));
      w.u64(64);
      r += outcome(sock_, rdmGetDmattrCall, w) + " ";
    }
    return r;
  });
  // The readable pipe has no attribute: the provider's own answer.
  EXPECT_EQ(got, "-1/13 -1/" + std::to_string(ENOENT) + " ");
}

}  // namespace
