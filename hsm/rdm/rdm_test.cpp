#include <errno.h>

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hsm/rdm/rdm_dirattrs.h"
#include "hsm/rdm/rdm_proto.h"

namespace {

dm_attrname_t attrName(const char* s) {
  dm_attrname_t n{};
  std::strncpy(reinterpret_cast<char*>(n.an_chars), s, sizeof n.an_chars);
  return n;
}

TEST(RdmProto, FieldsRoundTripAndShortPayloadsAreCaught) {
  rdmWriter w;
  w.u32(0xA1B2C3D4);
  w.i64(-5);
  w.token(dm_token_t{7, 9});
  w.name(attrName("KVRObj"));
  w.bytes("abc", 3);
  const auto& d = w.data();
  EXPECT_EQ(d[0], 0xD4);  // little-endian
  rdmReader r(d.data(), d.size());
  EXPECT_EQ(r.u32(), 0xA1B2C3D4u);
  EXPECT_EQ(r.i64(), -5);
  dm_token_t t = r.token();
  EXPECT_EQ(t.high, 7u);
  EXPECT_EQ(t.low, 9u);
  EXPECT_EQ(std::memcmp(r.name().an_chars, "KVRObj\0\0", 8), 0);
  size_t n = 0;
  const unsigned char* b = r.bytes(&n);
  ASSERT_EQ(n, 3u);
  EXPECT_EQ(std::memcmp(b, "abc", 3), 0);
  EXPECT_TRUE(r.done());

  rdmReader shortOne(d.data(), d.size() - 1);
  shortOne.u32();
  shortOne.i64();
  shortOne.token();
  shortOne.name();
  shortOne.bytes(&n);
  EXPECT_FALSE(shortOne.ok());
  // A length beyond the payload is refused, not read.
  rdmWriter lie;
  lie.u32(1000);
  rdmReader bad(lie.data().data(), lie.data().size());
  EXPECT_EQ(bad.bytes(&n), nullptr);
  EXPECT_FALSE(bad.ok());
}

}  // namespace

TEST(RdmProto, DirectoryQueriesAndEntriesRoundTrip) {
  rdmDirQuery_t q;
  q.sid = 0x1234;
  q.dir = "/fs/d";
  q.cursor = "stub7";
  q.flags = rdmDirIfAbsent;
  q.limit = 300;
  q.names = {attrName("KVRObj"), attrName("KVRPMig")};
  rdmWriter w;
  rdmEncodeDirQuery(q, &w);
  rdmReader r(w.data().data(), w.data().size());
  rdmDirQuery_t back;
  ASSERT_TRUE(rdmDecodeDirQuery(r, &back));
  EXPECT_EQ(back.sid, q.sid);
  EXPECT_EQ(back.dir, q.dir);
  EXPECT_EQ(back.cursor, q.cursor);
  EXPECT_EQ(back.flags, rdmDirIfAbsent);
  EXPECT_EQ(back.limit, 300u);
  ASSERT_EQ(back.names.size(), 2u);
  EXPECT_STREQ(reinterpret_cast<const char*>(back.names[1].an_chars), "KVRPMig");

  // Bad arguments: a cursor that is not a file name, no names, too many,
  // a flag this side does not know.
  for (int bad = 0; bad < 4; ++bad) {
    rdmDirQuery_t b = q;
    if (bad == 0) b.cursor = "a/b";
    if (bad == 1) b.names.clear();
    if (bad == 2) b.names.assign(rdmDirMaxNames + 1, attrName("KVRObj"));
    if (bad == 3) b.flags = 2;
    rdmWriter bw;
    rdmEncodeDirQuery(b, &bw);
    rdmReader br(bw.data().data(), bw.data().size());
    EXPECT_FALSE(rdmDecodeDirQuery(br, &back)) << bad;
  }

  rdmDirEntry_t e;
  e.name = "stub8";
  e.handle = {1, 2, 3};
  e.attrs.resize(2);
  e.attrs[0].rlen = 2;
  e.attrs[0].value = {'o', 'k'};
  e.attrs[1].err = ENOENT;
  rdmDirEntry_t refused;
  refused.name = "secret";
  refused.attrs.resize(2);
  refused.attrs[0].err = refused.attrs[1].err = EACCES;
  rdmWriter ew;
  rdmPutDirEntries({e, refused}, true, &ew);
  rdmReader er(ew.data().data(), ew.data().size());
  std::vector<rdmDirEntry_t> got;
  bool more = false;
  ASSERT_TRUE(rdmGetDirEntries(er, 2, &got, &more));
  EXPECT_TRUE(more);
  ASSERT_EQ(got.size(), 2u);
  EXPECT_EQ(got[0].name, "stub8");
  EXPECT_EQ(got[0].handle, e.handle);
  EXPECT_EQ(got[0].attrs[0].value, e.attrs[0].value);
  EXPECT_EQ(got[0].attrs[1].err, ENOENT);
  EXPECT_EQ(got[1].attrs[0].err, EACCES);
  EXPECT_TRUE(got[1].attrs[0].value.empty());
  // Read with the wrong number of attributes, the payload does not fit.
  rdmReader wrong(ew.data().data(), ew.data().size());
  EXPECT_FALSE(rdmGetDirEntries(wrong, 1, &got, &more));
  // A name with a slash would reach outside the directory.
  e.name = "../x";
  rdmWriter sw;
  rdmPutDirEntries({e}, false, &sw);
  rdmReader sr(sw.data().data(), sw.data().size());
  EXPECT_FALSE(rdmGetDirEntries(sr, 2, &got, &more));

  // A reply builder stops before the payload limit.
  rdmDirReplyBuilder b;
  rdmDirEntry_t fat;
  fat.name = "fat";
  fat.attrs.resize(1);
  fat.attrs[0].value.assign(rdmDirValueMax, 'v');
  rdmWriter one;
  rdmPutDirEntries({fat}, false, &one);
  size_t entrySize = one.data().size() - 8;
  int added = 0;
  while (b.add(fat)) ++added;
  EXPECT_TRUE(b.more());
  EXPECT_FALSE(b.add(e));  // once full, nothing more
  rdmDirReply_t full;
  b.finish(&full);
  rdmWriter bw;
  rdmPutDirEntries(full.entries, full.more, &bw);
  EXPECT_EQ(bw.data().size(), 8 + added * entrySize);
  EXPECT_LE(bw.data().size(), rdmMaxPayload);
  EXPECT_GT(bw.data().size() + entrySize, rdmMaxPayload - 64);

  // A builder with a limit takes that many entries and says there is more.
  rdmDirReplyBuilder two(2);
  EXPECT_EQ(two.room(), 2u);
  EXPECT_TRUE(two.add(refused));
  EXPECT_TRUE(two.add(refused));
  EXPECT_EQ(two.room(), 0u);
  EXPECT_FALSE(two.more());
  EXPECT_FALSE(two.add(refused));
  EXPECT_TRUE(two.more());
  rdmDirReplyBuilder cut(5);
  cut.add(refused);
  cut.cut();
  rdmDirReply_t cutReply;
  cut.finish(&cutReply);
  rdmWriter cw;
  rdmPutDirEntries(cutReply.entries, cutReply.more, &cw);
  rdmReader cr(cw.data().data(), cw.data().size());
  ASSERT_TRUE(rdmGetDirEntries(cr, 2, &got, &more));
  EXPECT_EQ(got.size(), 1u);
  EXPECT_TRUE(more);
}
