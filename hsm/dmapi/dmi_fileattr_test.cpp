#include "hsm/dmapi/dmi_fileattr.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "hsm/dmapi/testing/dmi_testing.h"

namespace {

class FileAttrTest : public dmitest::RootSessionSandbox {
 protected:
  FileAttrTest() : RootSessionSandbox("fileattr-test") {}

  dmiInfo record(uint32_t attr, uint32_t state = dmiStateMigrated, uint32_t transition = 0) {
    dmiInfo info{};
    for (size_t i = 0; i < sizeof info.extObjId.id; ++i)
      info.extObjId.id[i] = static_cast<unsigned char>(i + 1);
    info.carried28 = 0x1122334455667788ULL;
    info.carried52 = 52;
    info.attr = attr;
    info.attr2 = 0x6060;
    info.migState = state;
    info.transition = transition;
    info.dataSize = 4096;
    return info;
  }

  // A file carrying |info| as its migration record.
  std::string stub(const std::string& name, const dmiInfo& info) {
    std::string p = makeFile(name, "stub");
    xdsm_handle_t h;
    EXPECT_EQ(handleSetWithPath(&h, p.c_str()), 0);
    EXPECT_EQ(dmiSetDMAttrib(sid_, h, DM_NO_TOKEN, info, 0), 0);
    handleFree(&h);
    return p;
  }

  // Runs one request on |path| as the attribute command does.
  int request(const std::string& path, int op, uint32_t value, migAttrRequest* out = nullptr) {
    migAttrRequest req{};
    req.operation = op;
    req.mask = op == migAttrSet ? 255 : 0;
    req.value = value;
    std::strncpy(req.path, path.c_str(), sizeof req.path - 1);
    req.fd = open(path.c_str(), O_RDONLY);
    int rc = dmiEntryFileAttributes(sid_, &req);
    int err = errno;
    if (req.fd >= 0) close(req.fd);
    if (out != nullptr) *out = req;
    errno = err;
    return rc;
  }

  dmiInfo readBack(const std::string& path) {
    xdsm_handle_t h;
    EXPECT_EQ(handleSetWithPath(&h, path.c_str()), 0);
    dmiInfo info{};
    EXPECT_EQ(dmiGetDMAttrib(sid_, h, DM_NO_TOKEN, &info), 0);
    handleFree(&h);
    return info;
  }

  int migState(const std::string& path) {
    xdsm_handle_t h;
    EXPECT_EQ(handleSetWithPath(&h, path.c_str()), 0);
    int s = dmiGetFileMigStat(sid_, h, DM_NO_TOKEN, nullptr);
    handleFree(&h);
    return s;
  }
};

TEST_F(FileAttrTest, StatesOfResidentPremigratedMigratedAndBusyFiles) {
  std::string resident = makeFile("resident");
  EXPECT_EQ(migState(resident), dmiStateResident);

  std::string pre = makeFile("pre");
  xdsm_handle_t h;
  ASSERT_EQ(handleSetWithPath(&h, pre.c_str()), 0);
  s_midExtObjId id;
  std::memset(id.id, 0x5A, sizeof id.id);
  ASSERT_EQ(dmiSetFileMigStat(sid_, h, DM_NO_TOKEN, &id, dmiStatePremigrated, 0), 0);
  s_midExtObjId back{};
  EXPECT_EQ(dmiGetFileMigStat(sid_, h, DM_NO_TOKEN, &back), dmiStatePremigrated);
  EXPECT_EQ(std::memcmp(back.id, id.id, sizeof id.id), 0);
  EXPECT_EQ(dmiResetFileMigStat(sid_, h, DM_NO_TOKEN), 0);
  EXPECT_EQ(dmiGetFileMigStat(sid_, h, DM_NO_TOKEN, nullptr), dmiStateResident);
  // Resetting a file with nothing to reset is fine.
  EXPECT_EQ(dmiResetFileMigStat(sid_, h, DM_NO_TOKEN), 0);
  handleFree(&h);

  std::string mig = stub("mig", record(0x200));
  EXPECT_EQ(migState(mig), dmiStateMigrated);
  EXPECT_EQ(migState(stub("busy2", record(0x200, 2, 1))), dmiStateInTransition);
  EXPECT_EQ(migState(stub("busy12", record(0x200, 12, 1))), dmiStateTransition12);
  EXPECT_EQ(migState(stub("odd", record(0x200, 7, 0))), 7);

  // The state moves through dmiSetFileMigStat and keeps the rest.
  ASSERT_EQ(handleSetWithPath(&h, mig.c_str()), 0);
  EXPECT_EQ(dmiSetFileMigStat(sid_, h, DM_NO_TOKEN, nullptr, dmiStateInTransition, 0), 0);
  EXPECT_EQ(dmiGetFileMigStat(sid_, h, DM_NO_TOKEN, nullptr), dmiStateInTransition);
  EXPECT_EQ(dmiSetFileMigStat(sid_, h, DM_NO_TOKEN, nullptr, dmiStateTransition12, 0), 0);
  EXPECT_EQ(dmiGetFileMigStat(sid_, h, DM_NO_TOKEN, nullptr), dmiStateTransition12);
  EXPECT_EQ(dmiSetFileMigStat(sid_, h, DM_NO_TOKEN, nullptr, dmiStateResident, 0), 0);
  EXPECT_EQ(dmiGetFileMigStat(sid_, h, DM_NO_TOKEN, nullptr), dmiStateResident);
  EXPECT_EQ(readBack(mig).carried28, 0x1122334455667788ULL);
  handleFree(&h);
}

TEST_F(FileAttrTest, QueryReturnsTheWordsAndSetsAreRefusedWhereTheyMustBe) {
  migAttrRequest out;
  std::string mig = stub("mig", record(0x204));
  ASSERT_EQ(request(mig, migAttrQuery, 0, &out), 0);
  EXPECT_EQ(out.value, 0x204u);
  EXPECT_EQ(out.value2, 0x6060u);

  // A file in transition can be queried but not set.
  std::string busy = stub("busy", record(0x200, 12, 1));
  EXPECT_EQ(request(busy, migAttrQuery, 0, &out), 0);
  EXPECT_EQ(out.value, 0x200u);
  EXPECT_EQ(request(busy, migAttrSet, 0), -1);
  EXPECT_EQ(errno, EPERM);

  // Resident and premigrated files have no recall mode at all.
  std::string resident = makeFile("resident");
  EXPECT_EQ(request(resident, migAttrSet, 4), -1);
  EXPECT_EQ(errno, EPERM);
  EXPECT_EQ(request(resident, migAttrQuery, 0), -1);
  EXPECT_EQ(errno, EPERM);
  std::string pre = makeFile("pre");
  xdsm_handle_t h;
  ASSERT_EQ(handleSetWithPath(&h, pre.c_str()), 0);
  s_midExtObjId id{};
  ASSERT_EQ(dmiSetFileMigStat(sid_, h, DM_NO_TOKEN, &id, dmiStatePremigrated, 0), 0);
  handleFree(&h);
  EXPECT_EQ(request(pre, migAttrSet, 0), -1);
  EXPECT_EQ(errno, EPERM);

  // Mode 255 is never set.
  EXPECT_EQ(request(mig, migAttrSet, 255), -1);
  EXPECT_EQ(errno, EPERM);
  EXPECT_EQ(readBack(mig).attr, 0x204u);
}

TEST_F(FileAttrTest, PartialRecallNeedsDataKnownUncompressed) {
  for (uint32_t compression : {0x000u, 0x100u, 0x300u}) {
    std::string p = stub("c" + std::to_string(compression), record(compression));
    EXPECT_EQ(request(p, migAttrSet, dmiRecallPartial), -1) << compression;
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(readBack(p).attr, compression) << "a refused set changes nothing";
  }
  std::string ok = stub("plain", record(0x200 | dmiRecallStreaming));
  ASSERT_EQ(request(ok, migAttrSet, dmiRecallPartial), 0);
  EXPECT_EQ(readBack(ok).attr, 0x200u | dmiRecallPartial);
}

TEST_F(FileAttrTest, SetReplacesMaskedBitsClearsTheSizeWordAndKeepsTheRest) {
  dmiInfo info = record(0x200 | dmiRecallPartial | 0xAB0000);
  info.dataSize = 5ULL << 30;  // 5 GiB: high half 1, low half 0x40000000
  std::string p = stub("big", info);
  // The high half counts while the recall mode is 8.
  EXPECT_EQ(readBack(p).dataSize, 5ULL << 30);

  ASSERT_EQ(request(p, migAttrSet, dmiRecallNormal), 0);
  dmiInfo after = readBack(p);
  EXPECT_EQ(after.attr, 0x200u | 0xAB0000u);
  // Mode 0 reads the low half alone, and the set cleared it on purpose;
  // the high half is still stored and counts again under mode 8.
  EXPECT_EQ(after.dataSize, 0u);
  ASSERT_EQ(request(p, migAttrSet, dmiRecallPartial), 0);
  EXPECT_EQ(readBack(p).dataSize, 1ULL << 32);
  EXPECT_EQ(after.carried28, info.carried28);
  EXPECT_EQ(after.attr2, info.attr2);
  EXPECT_EQ(after.migState, info.migState);

  // A record written with mode 0 and a size above 4 GiB reads the low half.
  dmiInfo mode0 = record(0x200);
  mode0.dataSize = 5ULL << 30;
  EXPECT_EQ(readBack(stub("big0", mode0)).dataSize, 1ULL << 30);
}

TEST_F(FileAttrTest, NormalAndStreamingResetTheManagedRegionOthersLeaveIt) {
  std::string p = stub("regions", record(0x200 | dmiRecallPartial));
  xdsm_handle_t h;
  ASSERT_EQ(handleSetWithPath(&h, p.c_str()), 0);
  dm_region_t regs[4];
  unsigned int n = 0;
  ASSERT_EQ(request(p, migAttrSet, dmiRecallStreaming), 0);
  ASSERT_EQ(x_->getRegion(sid_, h, DM_NO_TOKEN, 4, regs, &n), 0);
  ASSERT_EQ(n, 1u);
  EXPECT_EQ(regs[0].rg_offset, 0);
  EXPECT_EQ(regs[0].rg_size, 0u);
  EXPECT_EQ(regs[0].rg_flags, 7u);

  ASSERT_EQ(dmiClrMngRegion(sid_, h, DM_NO_TOKEN), 0);
  ASSERT_EQ(request(p, migAttrSet, dmiRecallPartial), 0);
  ASSERT_EQ(x_->getRegion(sid_, h, DM_NO_TOKEN, 4, regs, &n), 0);
  EXPECT_EQ(n, 0u);
  handleFree(&h);
}

TEST_F(FileAttrTest, BadRequestsAreRefusedWithTheirMessages) {
  std::string p = stub("mig", record(0x200));
  migAttrRequest req{};
  req.operation = 3;
  std::strncpy(req.path, p.c_str(), sizeof req.path - 1);
  EXPECT_EQ(dmiEntryFileAttributes(sid_, &req), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_NE(logged().find("ANS9538E"), std::string::npos);
  EXPECT_EQ(dmiFileAttr(sid_, nullptr, 0), -1);

  // The descriptor must be a regular file's.
  req.operation = migAttrQuery;
  req.fd = open(fs_.c_str(), O_RDONLY);
  EXPECT_EQ(dmiEntryFileAttributes(sid_, &req), -1);
  EXPECT_EQ(errno, EPERM);
  close(req.fd);
  req.fd = 1000;
  EXPECT_EQ(dmiEntryFileAttributes(sid_, &req), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_NE(logged().find("ANS9126E"), std::string::npos);
  // Skipping the test reaches the file by its path.
  EXPECT_EQ(dmiFileAttr(sid_, &req, 1), 0);

  // A path with no file gives no handle.
  std::strncpy(req.path, (fs_ + "/gone").c_str(), sizeof req.path - 1);
  EXPECT_EQ(dmiFileAttr(sid_, &req, 1), -1);
  EXPECT_NE(logged().find("ANS9535E"), std::string::npos);
}

TEST_F(FileAttrTest, ServerNameAndExternalIdAttributes) {
  std::string p = makeFile("named");
  xdsm_handle_t h;
  ASSERT_EQ(handleSetWithPath(&h, p.c_str()), 0);
  std::string name64(64, 'S');
  ASSERT_EQ(dmiSetServerNameAttrib(sid_, DM_NO_TOKEN, h, name64.c_str()), 0);
  char buf[dmiServNameSize];
  ASSERT_EQ(dmiGetServerNameAttrib(sid_, DM_NO_TOKEN, p.c_str(), buf), 0);
  EXPECT_EQ(std::string(buf), name64);
  EXPECT_EQ(dmiSetServerNameAttrib(sid_, DM_NO_TOKEN, h, std::string(65, 'S').c_str()), -1);
  EXPECT_EQ(dmiSetServerNameAttrib(sid_, DM_NO_TOKEN, h, nullptr), -1);
  EXPECT_EQ(dmiFileHasDmAttr(sid_, h, DMI_ATTR_SERV), 1);
  EXPECT_EQ(dmiRemoveServerNameAttrib(sid_, DM_NO_TOKEN, h), 0);
  EXPECT_EQ(dmiFileHasDmAttr(sid_, h, DMI_ATTR_SERV), 0);

  // With external ids and server names recorded, a record brings both.
  opts_->hsmExtObjIdAttr = 1;
  opts_->hsmMultiServer = 1;
  std::strcpy(opts_->migrateServer, "ARCHIVE1");
  dmiInfo info = record(0x200);
  ASSERT_EQ(dmiSetDMAttrib(sid_, h, DM_NO_TOKEN, info, 1), 0);
  ASSERT_EQ(dmiGetServerNameAttrib(sid_, DM_NO_TOKEN, h, buf), 0);
  EXPECT_STREQ(buf, "ARCHIVE1");
  char hex[200] = {};
  size_t rlen = 0;
  dm_attrname_t an = dmiAttrName(DMI_ATTR_EXTID);
  ASSERT_EQ(x_->getDmattr(sid_, h, DM_NO_TOKEN, &an, sizeof hex, hex, &rlen), 0);
  EXPECT_EQ(rlen, dmiExtIdHexSize);
  EXPECT_EQ(std::string(hex, 8), "01020304");
  EXPECT_EQ(dmiRemoveExtObjIDAttrib(sid_, DM_NO_TOKEN, h), 0);
  EXPECT_EQ(dmiRemoveExtObjIDAttrib(sid_, DM_NO_TOKEN, h), -1);

  // A large attribute is found through the second, bigger read.
  std::string large(3000, 'L');
  an = dmiAttrName("Large");
  ASSERT_EQ(x_->setDmattr(sid_, h, DM_NO_TOKEN, &an, 0, large.size(), large.data()), 0);
  EXPECT_EQ(dmiFileHasDmAttr(sid_, h, "Large"), 1);
  handleFree(&h);
}

// ENOSPC while writing the record: one reserve file is released per retry.
struct NoSpace {
  static int failures;
  static decltype(&::dm_set_dmattr) real;
  static int setDmattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                       dm_attrname_t* name, int setd, size_t len, void* buf) {
    if (failures > 0) {
      --failures;
      errno = ENOSPC;
      return -1;
    }
    return real(sid, hanp, hlen, token, name, setd, len, buf);
  }
};
int NoSpace::failures = 0;
decltype(&::dm_set_dmattr) NoSpace::real = nullptr;

TEST_F(FileAttrTest, FullFileSystemGivesBackReserveFilesWhileItHasSome) {
  // The table outlives the test body: TearDown ends the session through it.
  static dmapiBinding_t table;
  dmBindBuiltIn(&table);
  NoSpace::real = table.set_dmattr;
  table.set_dmattr = NoSpace::setDmattr;
  // The new access object takes over this test's session.
  XDSMAPI* x = useRoot(&table);
  x_ = x;
  ASSERT_EQ(x->initService(), 1);
  x->setSID(sid_);
  for (int i = 0; i < 3; ++i) makeFile(".SpaceMan/reserve/r" + std::to_string(i));
  std::string p = makeFile("full");
  xdsm_handle_t h;
  ASSERT_EQ(handleSetWithPath(&h, p.c_str()), 0);
  NoSpace::failures = 2;
  EXPECT_EQ(dmiSetDMAttrib(sid_, h, DM_NO_TOKEN, record(0x200), 0), 0);
  EXPECT_EQ(access((fs_ + "/.SpaceMan/reserve/r0").c_str(), F_OK), -1);
  EXPECT_EQ(access((fs_ + "/.SpaceMan/reserve/r1").c_str(), F_OK), -1);
  EXPECT_EQ(access((fs_ + "/.SpaceMan/reserve/r2").c_str(), F_OK), 0);
  // More failures than reserve files: the write fails once they are gone.
  NoSpace::failures = 5;
  EXPECT_EQ(dmiSetDMAttrib(sid_, h, DM_NO_TOKEN, record(0x200), 0), -1);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(access((fs_ + "/.SpaceMan/reserve/r2").c_str(), F_OK), -1);
  handleFree(&h);
}

}  // namespace
