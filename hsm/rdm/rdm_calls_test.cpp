// Each call's codec against the layout written out by hand, field by
// field, in the order of the protocol's table; round trips; and the
// requests and replies that make no sense.
#include "hsm/rdm/rdm_calls.h"

#include <errno.h>

#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Bytes = std::vector<unsigned char>;
using ByHand = std::function<void(rdmWriter&)>;

dm_attrname_t attrName(const char* s) {
  dm_attrname_t n{};
  std::strncpy(reinterpret_cast<char*>(n.an_chars), s, sizeof n.an_chars);
  return n;
}

const Bytes kHandle = {0x10, 0x20, 0x30, 0x40, 0x50};
const dm_token_t kToken = {7, 9};
const dm_attrname_t kName = attrName("KVRObj");

rdmFileArgs_t fileArgs() {
  return rdmFileArgs_t{0xABCD, kHandle, kToken};
}
void fileByHand(rdmWriter& w) {
  w.u64(0xABCD);
  w.bytes(kHandle.data(), kHandle.size());
  w.token(kToken);
}

Bytes written(const ByHand& f) {
  rdmWriter w;
  f(w);
  return w.data();
}

// One call with sample values: what its codec makes of them, what the
// protocol's table says they are, and the codec's round trips.
struct CallCase {
  std::string name;
  rdmCall_t call;
  int64_t result;
  Bytes args, argsByHand, reply, replyByHand;
  // Decode, then encode again; false when the decoder refuses.
  std::function<bool(const Bytes&, Bytes*)> argsAgain, replyAgain;
};

template <class M>
CallCase callCase(std::string name, const typename M::Args& a, const ByHand& argsByHand,
                  const typename M::Reply& r, int64_t result, const ByHand& replyByHand) {
  CallCase c;
  c.name = std::move(name);
  c.call = M::kCall;
  c.result = result;
  rdmWriter w;
  M::encodeArgs(a, &w);
  c.args = w.data();
  c.argsByHand = written(argsByHand);
  w.clear();
  M::encodeReply(r, result, &w);
  c.reply = w.data();
  c.replyByHand = written(replyByHand);
  c.argsAgain = [](const Bytes& in, Bytes* out) {
    typename M::Args back{};
    if (!M::decodeArgs(in.data(), in.size(), &back)) return false;
    rdmWriter again;
    M::encodeArgs(back, &again);
    *out = again.data();
    return true;
  };
  c.replyAgain = [a, result](const Bytes& in, Bytes* out) {
    typename M::Reply back{};
    if (!M::decodeReply(a, in.data(), in.size(), result, &back)) return false;
    rdmWriter again;
    M::encodeReply(back, result, &again);
    *out = again.data();
    return true;
  };
  return c;
}

const Bytes kValue = {'o', 'l', 'd'};
const dm_region_t kRegion{0, 100, DM_REGION_READ, 0};
void noFields(rdmWriter&) {}
void rangeByHand(rdmWriter& w) {
  fileByHand(w);
  w.i64(-4096);
  w.u64(8192);
}

void addSessionCalls(std::vector<CallCase>& c) {
  c.push_back(callCase<rdmInitServiceMsg_t>("InitService", {}, noFields, {{'v', '1'}}, 0,
                                            [](rdmWriter& w) { w.bytes("v1", 2); }));
  c.push_back(callCase<rdmCreateSessionMsg_t>(
      "CreateSession", {0x11, "info"},
      [](rdmWriter& w) {
        w.u64(0x11);
        w.bytes("info", 4);
      },
      {0x22}, 0, [](rdmWriter& w) { w.u64(0x22); }));
  c.push_back(callCase<rdmDestroySessionMsg_t>(
      "DestroySession", {0x22}, [](rdmWriter& w) { w.u64(0x22); }, {}, 0, noFields));
  c.push_back(callCase<rdmGetAllTokensMsg_t>(
      "GetAllTokens", {0x22, 4},
      [](rdmWriter& w) {
        w.u64(0x22);
        w.u32(4);
      },
      {2, {kToken, dm_token_t{1, 2}}}, 0,
      [](rdmWriter& w) {
        w.u32(2);
        w.token(kToken);
        w.token(dm_token_t{1, 2});
      }));
  // Failed, only the count goes: E2BIG tells how many to ask for.
  c.push_back(callCase<rdmGetAllTokensMsg_t>(
      "GetAllTokens E2BIG", {0x22, 1},
      [](rdmWriter& w) {
        w.u64(0x22);
        w.u32(1);
      },
      {3, {}}, -1, [](rdmWriter& w) { w.u32(3); }));
  c.push_back(callCase<rdmGetAllSessionsMsg_t>(
      "GetAllSessions", {8}, [](rdmWriter& w) { w.u32(8); }, {2, {0x22, 0x33}}, 0,
      [](rdmWriter& w) {
        w.u32(2);
        w.u64(0x22);
        w.u64(0x33);
      }));
  c.push_back(callCase<rdmGetAllSessionsMsg_t>(
      "GetAllSessions E2BIG", {1}, [](rdmWriter& w) { w.u32(1); }, {2, {}}, -1,
      [](rdmWriter& w) { w.u32(2); }));
  c.push_back(callCase<rdmQuerySessionMsg_t>(
      "QuerySession", {0x22, 64},
      [](rdmWriter& w) {
        w.u64(0x22);
        w.u64(64);
      },
      {3, kValue}, 0,
      [&](rdmWriter& w) {
        w.u64(3);
        w.bytes(kValue.data(), kValue.size());
      }));
}

void addFileCalls(std::vector<CallCase>& c) {
  dm_stat_t st{};
  st.dt_ino = 42;
  st.dt_size = 4096;
  dm_fileattr_t fa{};
  fa.fa_mode = 0600;
  c.push_back(callCase<rdmSetDmattrMsg_t>(
      "SetDmattr", {fileArgs(), kName, 1, kValue},
      [&](rdmWriter& w) {
        fileByHand(w);
        w.name(kName);
        w.u32(1);
        w.bytes(kValue.data(), kValue.size());
      },
      {}, 0, noFields));
  c.push_back(callCase<rdmGetDmattrMsg_t>(
      "GetDmattr", {fileArgs(), kName, 64},
      [](rdmWriter& w) {
        fileByHand(w);
        w.name(kName);
        w.u64(64);
      },
      {3, kValue}, 0,
      [&](rdmWriter& w) {
        w.u64(3);
        w.bytes(kValue.data(), kValue.size());
      }));
  c.push_back(callCase<rdmRemoveDmattrMsg_t>(
      "RemoveDmattr", {fileArgs(), 1, kName},
      [](rdmWriter& w) {
        fileByHand(w);
        w.u32(1);
        w.name(kName);
      },
      {}, 0, noFields));
  c.push_back(callCase<rdmProbeHoleMsg_t>("ProbeHole", {fileArgs(), -4096, 8192}, rangeByHand,
                                          {4096, 4096}, 0, [](rdmWriter& w) {
                                            w.i64(4096);
                                            w.u64(4096);
                                          }));
  c.push_back(callCase<rdmPunchHoleMsg_t>("PunchHole", {fileArgs(), -4096, 8192}, rangeByHand, {},
                                          0, noFields));
  c.push_back(callCase<rdmRequestRightMsg_t>(
      "RequestRight", {fileArgs(), 1, DM_RIGHT_EXCL},
      [](rdmWriter& w) {
        fileByHand(w);
        w.u32(1);
        w.u32(DM_RIGHT_EXCL);
      },
      {}, 0, noFields));
  c.push_back(
      callCase<rdmReleaseRightMsg_t>("ReleaseRight", {fileArgs()}, fileByHand, {}, 0, noFields));
  c.push_back(callCase<rdmGetFileAttrMsg_t>(
      "GetFileAttr", {fileArgs(), DM_AT_STAT},
      [](rdmWriter& w) {
        fileByHand(w);
        w.u32(DM_AT_STAT);
      },
      {st}, 0, [&](rdmWriter& w) { w.bytes(&st, sizeof st); }));
  c.push_back(callCase<rdmSetFileAttrMsg_t>(
      "SetFileAttr", {fileArgs(), DM_AT_MODE, fa},
      [&](rdmWriter& w) {
        fileByHand(w);
        w.u32(DM_AT_MODE);
        w.bytes(&fa, sizeof fa);
      },
      {}, 0, noFields));
  c.push_back(
      callCase<rdmReadInvisMsg_t>("ReadInvis", {{fileArgs(), -4096, 8192}}, rangeByHand, {kValue},
                                  3, [&](rdmWriter& w) { w.bytes(kValue.data(), kValue.size()); }));
  c.push_back(callCase<rdmSetRegionMsg_t>(
      "SetRegion", {fileArgs(), {kRegion}},
      [&](rdmWriter& w) {
        fileByHand(w);
        w.bytes(&kRegion, sizeof kRegion);
      },
      {1}, 0, [](rdmWriter& w) { w.u32(1); }));
}

void addEventCalls(std::vector<CallCase>& c) {
  c.push_back(callCase<rdmGetEventsMsg_t>(
      "GetEvents", {0x22, 2, 1, 256},
      [](rdmWriter& w) {
        w.u64(0x22);
        w.u32(2);
        w.u32(1);
        w.u64(256);
      },
      {3, kValue}, 0,
      [&](rdmWriter& w) {
        w.u64(3);
        w.bytes(kValue.data(), kValue.size());
      }));
  c.push_back(callCase<rdmRespondEventMsg_t>(
      "RespondEvent", {0x22, kToken, DM_RESP_ABORT, -5},
      [](rdmWriter& w) {
        w.u64(0x22);
        w.token(kToken);
        w.u32(DM_RESP_ABORT);
        w.i32(-5);
      },
      {}, 0, noFields));
  c.push_back(callCase<rdmCreateUserEventMsg_t>(
      "CreateUserEvent", {0x22, {'h', 'i'}},
      [](rdmWriter& w) {
        w.u64(0x22);
        w.bytes("hi", 2);
      },
      {kToken}, 0, [](rdmWriter& w) { w.token(kToken); }));
}

void addHandleAndDirectoryCalls(std::vector<CallCase>& c) {
  Bytes regBytes(reinterpret_cast<const unsigned char*>(&kRegion),
                 reinterpret_cast<const unsigned char*>(&kRegion) + sizeof kRegion);
  rdmDirQuery_t q;
  q.sid = 5;
  q.dir = "/fs/d";
  q.cursor = "a";
  q.flags = rdmDirIfAbsent;
  q.limit = 10;
  q.names = {kName};
  rdmDirEntry_t e;
  e.name = "b";
  e.handle = kHandle;
  e.attrs = {rdmDirAttr_t{0, 3, kValue}};
  c.push_back(callCase<rdmPathToHandleMsg_t>(
      "PathToHandle", {"/fs/f"}, [](rdmWriter& w) { w.bytes("/fs/f", 6); }, {kHandle}, 0,
      [](rdmWriter& w) { w.bytes(kHandle.data(), kHandle.size()); }));
  c.push_back(callCase<rdmHandleToPathMsg_t>(
      "HandleToPath", {kHandle, 64},
      [](rdmWriter& w) {
        w.bytes(kHandle.data(), kHandle.size());
        w.u64(64);
      },
      {{'/', 'f', 0}}, 0, [](rdmWriter& w) { w.bytes("/f", 3); }));
  c.push_back(callCase<rdmGetRegionMsg_t>(
      "GetRegion", {fileArgs(), 2},
      [](rdmWriter& w) {
        fileByHand(w);
        w.u32(2);
      },
      {1, regBytes}, 0,
      [&](rdmWriter& w) {
        w.u32(1);
        w.bytes(&kRegion, sizeof kRegion);
      }));
  c.push_back(callCase<rdmDirAttrsMsg_t>(
      "DirAttrs", q,
      [](rdmWriter& w) {
        w.u64(5);
        w.bytes("/fs/d", 6);
        w.bytes("a", 1);
        w.u32(rdmDirIfAbsent);
        w.u32(10);
        w.u32(1);
        w.name(kName);
      },
      {{e}, true}, 0,
      [&](rdmWriter& w) {
        w.u32(1);
        w.u32(1);
        w.bytes("b", 1);
        w.i32(0);
        w.bytes(kHandle.data(), kHandle.size());
        w.i32(0);
        w.u64(3);
        w.bytes(kValue.data(), kValue.size());
      }));
}

std::vector<CallCase> sampleCalls() {
  std::vector<CallCase> c;
  addSessionCalls(c);
  addFileCalls(c);
  addEventCalls(c);
  addHandleAndDirectoryCalls(c);
  return c;
}

TEST(RdmCalls, EveryCallIsLaidOutAsTheProtocolSaysAndRoundTrips) {
  std::set<int> covered;
  for (const CallCase& c : sampleCalls()) {
    SCOPED_TRACE(c.name);
    covered.insert(c.call);
    EXPECT_EQ(c.args, c.argsByHand);
    EXPECT_EQ(c.reply, c.replyByHand);
    Bytes again;
    ASSERT_TRUE(c.argsAgain(c.args, &again));
    EXPECT_EQ(again, c.args);
    ASSERT_TRUE(c.replyAgain(c.reply, &again));
    EXPECT_EQ(again, c.reply);
    // A payload cut short or with bytes left over is refused.
    Bytes longer = c.args;
    longer.push_back(0);
    EXPECT_FALSE(c.argsAgain(longer, &again));
    if (!c.args.empty()) {
      Bytes shorter(c.args.begin(), c.args.end() - 1);
      EXPECT_FALSE(c.argsAgain(shorter, &again));
    }
    longer = c.reply;
    longer.push_back(0);
    EXPECT_FALSE(c.replyAgain(longer, &again));
    if (!c.reply.empty()) {
      Bytes shorter(c.reply.begin(), c.reply.end() - 1);
      EXPECT_FALSE(c.replyAgain(shorter, &again));
    }
  }
  for (int call = rdmInitServiceCall; call < rdmCallLimit; ++call)
    EXPECT_EQ(covered.count(call), 1u) << "no sample of call " << call;
}

template <class M>
bool argsDecode(const ByHand& f) {
  Bytes b = written(f);
  typename M::Args a{};
  return M::decodeArgs(b.data(), b.size(), &a);
}

TEST(RdmCalls, RequestsThatMakeNoSenseAreRefused) {
  auto withFile = [](const ByHand& rest) {
    return [rest](rdmWriter& w) {
      fileByHand(w);
      rest(w);
    };
  };
  // Buffers up to what a reply can carry are fine, one byte more is not.
  for (uint64_t n : {rdmMaxBuffer, rdmMaxBuffer + 1}) {
    bool fits = n <= rdmMaxBuffer;
    EXPECT_EQ(argsDecode<rdmGetDmattrMsg_t>(withFile([n](rdmWriter& w) {
                w.name(kName);
                w.u64(n);
              })),
              fits);
    EXPECT_EQ(argsDecode<rdmReadInvisMsg_t>(withFile([n](rdmWriter& w) {
                w.i64(0);
                w.u64(n);
              })),
              fits);
    EXPECT_EQ(argsDecode<rdmGetEventsMsg_t>([n](rdmWriter& w) {
                w.u64(1);
                w.u32(1);
                w.u32(0);
                w.u64(n);
              }),
              fits);
    EXPECT_EQ(argsDecode<rdmQuerySessionMsg_t>([n](rdmWriter& w) {
                w.u64(1);
                w.u64(n);
              }),
              fits);
    EXPECT_EQ(argsDecode<rdmHandleToPathMsg_t>([n](rdmWriter& w) {
                w.bytes(kHandle.data(), kHandle.size());
                w.u64(n);
              }),
              fits);
  }
  // Lists longer than a reply can carry.
  EXPECT_TRUE(argsDecode<rdmGetAllTokensMsg_t>([](rdmWriter& w) {
    w.u64(1);
    w.u32(rdmMaxPayload / 16);
  }));
  EXPECT_FALSE(argsDecode<rdmGetAllTokensMsg_t>([](rdmWriter& w) {
    w.u64(1);
    w.u32(rdmMaxPayload / 16 + 1);
  }));
  EXPECT_FALSE(argsDecode<rdmGetAllSessionsMsg_t>([](rdmWriter& w) { w.u32(rdmMaxPayload / 8); }));
  EXPECT_FALSE(argsDecode<rdmGetRegionMsg_t>(
      withFile([](rdmWriter& w) { w.u32(rdmMaxPayload / sizeof(dm_region_t)); })));
  // Records of the wrong size, session information too long, a path
  // without its NUL.
  dm_fileattr_t fa{};
  EXPECT_FALSE(argsDecode<rdmSetFileAttrMsg_t>(withFile([&](rdmWriter& w) {
    w.u32(0);
    w.bytes(&fa, sizeof fa - 1);
  })));
  dm_region_t regs[2] = {};
  EXPECT_FALSE(argsDecode<rdmSetRegionMsg_t>(
      withFile([&](rdmWriter& w) { w.bytes(regs, sizeof regs - 4); })));
  std::string info(DM_SESSION_INFO_LEN - 1, 'i');
  EXPECT_TRUE(argsDecode<rdmCreateSessionMsg_t>([&](rdmWriter& w) {
    w.u64(0);
    w.bytes(info.data(), info.size());
  }));
  info += 'i';
  EXPECT_FALSE(argsDecode<rdmCreateSessionMsg_t>([&](rdmWriter& w) {
    w.u64(0);
    w.bytes(info.data(), info.size());
  }));
  EXPECT_FALSE(argsDecode<rdmPathToHandleMsg_t>([](rdmWriter& w) { w.bytes("/fs/f", 5); }));
  EXPECT_FALSE(argsDecode<rdmPathToHandleMsg_t>([](rdmWriter& w) { w.bytes(nullptr, 0); }));
}

template <class M>
bool replyDecodes(const typename M::Args& a, int64_t result, const ByHand& f) {
  Bytes b = written(f);
  typename M::Reply v{};
  return M::decodeReply(a, b.data(), b.size(), result, &v);
}

TEST(RdmCalls, RepliesThatDoNotAnswerTheRequestAreRefused) {
  auto sized = [](uint64_t rlen, size_t n) {
    return [rlen, n](rdmWriter& w) {
      Bytes v(n, 'x');
      w.u64(rlen);
      w.bytes(v.data(), v.size());
    };
  };
  // More bytes than the caller's buffer holds.
  rdmGetDmattrMsg_t::Args get{fileArgs(), kName, 4};
  EXPECT_TRUE(replyDecodes<rdmGetDmattrMsg_t>(get, 0, sized(4, 4)));
  EXPECT_FALSE(replyDecodes<rdmGetDmattrMsg_t>(get, 0, sized(5, 5)));
  EXPECT_TRUE(replyDecodes<rdmGetDmattrMsg_t>(get, -1, sized(5, 0)));  // E2BIG and the length
  EXPECT_FALSE(replyDecodes<rdmQuerySessionMsg_t>({1, 2}, 0, sized(3, 3)));
  EXPECT_FALSE(replyDecodes<rdmGetEventsMsg_t>({1, 1, 0, 2}, 0, sized(3, 3)));
  EXPECT_FALSE(
      replyDecodes<rdmHandleToPathMsg_t>({kHandle, 2}, 0, [](rdmWriter& w) { w.bytes("/fs", 4); }));
  // Data read: no more than asked, and as much as the result counts.
  rdmReadInvisMsg_t::Args read{{fileArgs(), 0, 4}};
  auto data = [](size_t n) {
    return [n](rdmWriter& w) {
      Bytes v(n, 'd');
      w.bytes(v.data(), v.size());
    };
  };
  EXPECT_TRUE(replyDecodes<rdmReadInvisMsg_t>(read, 3, data(3)));
  EXPECT_FALSE(replyDecodes<rdmReadInvisMsg_t>(read, 2, data(3)));
  EXPECT_FALSE(replyDecodes<rdmReadInvisMsg_t>(read, 5, data(5)));
  EXPECT_TRUE(replyDecodes<rdmReadInvisMsg_t>(read, -1, data(0)));
  // Lists: no more items than asked for when the call succeeded; the
  // count alone when it failed.
  auto tokens = [](uint32_t n, uint32_t sent) {
    return [n, sent](rdmWriter& w) {
      w.u32(n);
      for (uint32_t i = 0; i < sent; ++i) w.token(kToken);
    };
  };
  EXPECT_TRUE(replyDecodes<rdmGetAllTokensMsg_t>({1, 2}, 0, tokens(2, 2)));
  EXPECT_FALSE(replyDecodes<rdmGetAllTokensMsg_t>({1, 2}, 0, tokens(3, 3)));
  EXPECT_TRUE(replyDecodes<rdmGetAllTokensMsg_t>({1, 2}, -1, tokens(3, 0)));
  EXPECT_FALSE(replyDecodes<rdmGetAllTokensMsg_t>({1, 2}, -1, tokens(1, 1)));
  // A count far beyond the payload is refused before anything is made of it.
  EXPECT_FALSE(replyDecodes<rdmGetAllSessionsMsg_t>({0xFFFFFFFF}, 0, [](rdmWriter& w) {
    w.u32(0xFFFFFFFF);
    w.u64(1);
  }));
  dm_region_t regs[3] = {};
  EXPECT_FALSE(replyDecodes<rdmGetRegionMsg_t>({fileArgs(), 2}, 0, [&](rdmWriter& w) {
    w.u32(3);
    w.bytes(regs, sizeof regs);
  }));
  // A handle on success, a whole status record.
  EXPECT_FALSE(
      replyDecodes<rdmPathToHandleMsg_t>({"/f"}, 0, [](rdmWriter& w) { w.bytes(nullptr, 0); }));
  EXPECT_TRUE(
      replyDecodes<rdmPathToHandleMsg_t>({"/f"}, -1, [](rdmWriter& w) { w.bytes(nullptr, 0); }));
  dm_stat_t st{};
  EXPECT_FALSE(replyDecodes<rdmGetFileAttrMsg_t>(
      {fileArgs(), 0}, 0, [&](rdmWriter& w) { w.bytes(&st, sizeof st - 1); }));
}

TEST(RdmCalls, DirectoryRepliesMustAnswerTheirQuery) {
  rdmDirQuery_t q;
  q.dir = "/fs/d";
  q.cursor = "m";
  q.limit = 2;
  q.names = {kName};
  auto entry = [](const char* name) {
    rdmDirEntry_t e;
    e.name = name;
    e.attrs.resize(1);
    e.attrs[0].err = ENOENT;
    return e;
  };
  auto answers = [&](std::vector<rdmDirEntry_t> entries, bool more, int64_t result) {
    rdmWriter w;
    rdmPutDirEntries(entries, more, &w);
    rdmDirReply_t v;
    return rdmDirAttrsMsg_t::decodeReply(q, w.data().data(), w.data().size(), result, &v);
  };
  EXPECT_TRUE(answers({entry("n"), entry("o")}, true, 0));
  EXPECT_TRUE(answers({}, false, -1));
  EXPECT_FALSE(answers({entry("o"), entry("n")}, false, 0)) << "out of order";
  EXPECT_FALSE(answers({entry("m")}, false, 0)) << "not after the cursor";
  EXPECT_FALSE(answers({entry("n"), entry("o"), entry("p")}, false, 0)) << "over the limit";
  EXPECT_FALSE(answers({}, true, 0)) << "more, but no progress";
  EXPECT_FALSE(answers({entry("n")}, false, -1)) << "entries of a failed call";
  EXPECT_FALSE(answers({}, true, -1)) << "more of a failed call";
}

}  // namespace
