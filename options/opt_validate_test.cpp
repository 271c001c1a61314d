// Validating single options: parse kinds, ranges, masks, the valid mode,
// set-by bytes, after-success actions and the own callbacks.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "diag/nl.h"
#include "options/opt_callbacks.h"
#include "options/optobj.h"

namespace {

class OptValidate : public ::testing::Test {
 protected:
  OptValidate() : o(ctCLSpaceMGT) {}
  // Validates |value| for |name| as if read from the system option file.
  int sys(const char* name, const char* value) {
    o.optSetValidMode(optSrcSystem);
    return o.optValidateOption(value, name, 1, 1, 0);
  }
  int user(const char* name, const char* value) {
    o.optSetValidMode(optSrcUser);
    return o.optValidateOption(value, name, 1, 1, 0);
  }
  int cl(const char* name, const char* value) {
    return o.optValidateOptionCL(value, name, 0, 1, 8);
  }
  clientOptions o;
};

TEST_F(OptValidate, ConstructionAppliesDefaults) {
  ASSERT_TRUE(o.constructed());
  EXPECT_EQ(o.tcpPort, 1500);
  EXPECT_EQ(o.shmPort, 1510);
  EXPECT_EQ(o.tcpBuffSize, 32768u);
  EXPECT_EQ(o.tcpWindowSize, 64512);
  EXPECT_EQ(o.tcpNoDelay, 1);
  EXPECT_EQ(o.commMethod, 1);
  EXPECT_EQ(o.errorLogRetention, 10000);
  EXPECT_EQ(o.verbosity, 4);
  EXPECT_EQ(o.subdir, 2);
  EXPECT_EQ(o.optionFormat, 0);
  EXPECT_EQ(o.hsmDistributedRecall, 1);
  EXPECT_STREQ(o.serverName, "");
  EXPECT_EQ(o.virtualMountPoints, nullptr);
  EXPECT_EQ(o.dmapiSessionId, 0u);
  // The node name defaults to the computer's name, upper-cased.
  ASSERT_NE(o.nodeName[0], '\0');
  for (const char* p = o.nodeName; *p; ++p) EXPECT_FALSE(*p >= 'a' && *p <= 'z');
  EXPECT_EQ(o.optGetClientType(), ctCLSpaceMGT);
  clientOptions api(ctCLAPI);
  EXPECT_STREQ(api.nodeName, "");
}

TEST_F(OptValidate, NumbersRangesAndForms) {
  EXPECT_EQ(sys("TCPPORT", "0"), 400);
  EXPECT_EQ(sys("TCPPORT", "32768"), 400);
  EXPECT_EQ(sys("TCPPORT", "15x"), 400);
  EXPECT_EQ(sys("TCPPORT", "15 00"), 400);
  EXPECT_EQ(sys("TCPPORT", "-1"), 400);
  EXPECT_EQ(o.tcpPort, 1500);  // refused values change nothing
  EXPECT_EQ(sys("TCPPORT", "0x5DC"), 0);
  EXPECT_EQ(o.tcpPort, 1500);
  EXPECT_EQ(sys("TCPPORT", "010"), 0);  // octal
  EXPECT_EQ(o.tcpPort, 8);
  EXPECT_EQ(sys("TCPPORT", "32767"), 0);
  EXPECT_EQ(o.tcpPort, 32767);
  EXPECT_EQ(sys("tcpp", "1"), 0);
  EXPECT_EQ(o.tcpPort, 1);
  // Unsigned storages refuse a sign and values beyond 64 bits.
  EXPECT_EQ(sys("MINMIGFILESIZE", "-5"), 400);
  EXPECT_EQ(sys("MINMIGFILESIZE", "2147483648"), 400);
  EXPECT_EQ(sys("MINMIGFILESIZE", "2147483647"), 0);
  EXPECT_EQ(o.minMigFileSize, 2147483647u);
  EXPECT_EQ(user("TRACEMAX", "4294967295"), 0);
  EXPECT_EQ(o.traceMax, 4294967295u);
  EXPECT_EQ(user("TRACEMAX", "4294967296"), 400);
  EXPECT_EQ(user("TRACEMAX", "99999999999999999999999"), 400);
  EXPECT_EQ(sys("MAXRECALLDAEMONS", "1"), 400);
  EXPECT_EQ(sys("COMMRESTARTINTERVAL", "65535"), 0);
  EXPECT_EQ(o.commRestartInterval, 65535);
}

TEST_F(OptValidate, TokensTextAndCase) {
  char name64[65], name65[66];
  memset(name64, 'a', 64);
  name64[64] = '\0';
  memset(name65, 'b', 65);
  name65[65] = '\0';
  EXPECT_EQ(sys("TCPSERVERADDRESS", name64), 0);
  EXPECT_EQ(strlen(o.tcpServerAddress), 64u);
  EXPECT_EQ(o.tcpServerAddress[0], 'A');  // upper-cased
  EXPECT_EQ(sys("TCPSERVERADDRESS", name65), 400);
  EXPECT_EQ(sys("TCPSERVERADDRESS", "two words"), 400);
  EXPECT_EQ(sys("TCPSERVERADDRESS", "\"unclosed"), 402);
  EXPECT_EQ(sys("TCPSERVERADDRESS", "\"host.example\""), 0);
  EXPECT_STREQ(o.tcpServerAddress, "HOST.EXAMPLE");
  EXPECT_EQ(sys("PASSWORDDIR", "'/etc/My Dir'"), 0);  // case and blanks kept
  EXPECT_STREQ(o.passwordDir, "/etc/My Dir");
  EXPECT_EQ(sys("NODENAME", "mynode"), 0);
  EXPECT_STREQ(o.nodeName, "MYNODE");
  EXPECT_EQ(sys("NODENAME", name65), 400);
}

TEST_F(OptValidate, YesNoSwitchAndKeywords) {
  EXPECT_EQ(sys("TCPNODELAY", "no"), 0);
  EXPECT_EQ(o.tcpNoDelay, 0);
  EXPECT_EQ(sys("TCPNODELAY", "On"), 0);
  EXPECT_EQ(o.tcpNoDelay, 1);
  EXPECT_EQ(sys("TCPNODELAY", "perhaps"), 400);
  EXPECT_EQ(user("SUBDIR", "yes"), 0);
  EXPECT_EQ(o.subdir, 1);  // storage 3 keeps the toggle's own value

  EXPECT_EQ(user("QUIET", ""), 0);
  EXPECT_EQ(o.verbosity, 0);
  EXPECT_EQ(user("VERBOSE", nullptr), 0);
  EXPECT_EQ(o.verbosity, 4);
  EXPECT_EQ(user("QUIET", "no"), 0);  // a value only from the option files
  EXPECT_EQ(o.verbosity, 4);
  EXPECT_EQ(cl("QUIET", "yes"), 400);
  EXPECT_EQ(cl("QUIET", ""), 0);
  EXPECT_EQ(o.verbosity, 0);

  EXPECT_EQ(user("OPTIONFORMAT", "short"), 0);
  EXPECT_EQ(o.optionFormat, 1);
  EXPECT_EQ(user("OPTIONFORMAT", "S"), 400);
  EXPECT_EQ(sys("PASSWORDACCESS", "generate"), 0);
  EXPECT_EQ(o.passwordAccess, 1);
  EXPECT_EQ(sys("COMMMETHOD", "sharedmem"), 0);
  EXPECT_EQ(o.commMethod, 2);
  EXPECT_EQ(sys("COMMMETHOD", "carrierpigeon"), 400);
}

TEST_F(OptValidate, NamesValuesAndNoValue) {
  EXPECT_EQ(sys("", "1"), 400);
  EXPECT_EQ(sys("NOSUCHOPTION", "1"), 400);
  EXPECT_EQ(sys("FILELIST", "x"), 400);  // a command operand keyword
  EXPECT_EQ(sys("TCPPORT", ""), 400);    // missing value
  EXPECT_EQ(sys("TCPPORT", "   "), 400);
  EXPECT_EQ(sys("TCPPORT", "  1600  "), 0);  // trimmed
  EXPECT_EQ(o.tcpPort, 1600);
}

TEST_F(OptValidate, SourceMasksAndValidMode) {
  // TCPPORT belongs to the system file; in the user file it is 429.
  EXPECT_EQ(user("TCPPORT", "1600"), 429);
  EXPECT_EQ(o.tcpPort, 1500);
  EXPECT_EQ(sys("HSMEXTOBJIDATTR", "yes"), 429);
  EXPECT_EQ(user("HSMEXTOBJIDATTR", "yes"), 0);
  EXPECT_EQ(o.hsmExtObjIdAttr, 1);
  // The command line admits every option and restores the mode.
  o.optSetValidMode(optSrcUser);
  EXPECT_EQ(cl("TCPPORT", "1700"), 0);
  EXPECT_EQ(o.tcpPort, 1700);
  EXPECT_EQ(o.optGetValidMode(), optSrcUser);
  EXPECT_EQ(o.optValidateAnyOptionStr("CANDIDATESINTERVAL 9", 3, 1, 0), 0);
  EXPECT_EQ(o.candidatesInterval, 9);
  EXPECT_EQ(o.optGetValidMode(), optSrcUser);

  EXPECT_EQ(o.optSetValidMode(0x40), 109);
  EXPECT_EQ(o.optSetValidMode(0), 109);
  EXPECT_EQ(o.optGetValidMode(), optSrcUser);
  EXPECT_EQ(o.optSetValidMode(255), 0);
  EXPECT_EQ(o.optSetValidMode(0x21), 0);
}

TEST_F(OptValidate, SetByBytesAndApplyFlag) {
  int id = o.optGetOptionId("TCPPORT");
  EXPECT_EQ(o.optGetSourceEntry(id), 0);
  o.optSetValidMode(optSrcSystem);
  EXPECT_EQ(o.optValidateOption("1600", "TCPPORT", 1, 0, 0), 0);  // check only
  EXPECT_EQ(o.tcpPort, 1500);
  EXPECT_EQ(o.optGetSourceEntry(id), 0);
  EXPECT_EQ(sys("TCPPORT", "1600"), 0);
  EXPECT_EQ(o.optGetSourceEntry(id), optSrcSystem);
  EXPECT_EQ(cl("TCPPORT", "1601"), 0);
  EXPECT_EQ(o.optGetSourceEntry(id), 255);
  EXPECT_EQ(o.optGetSourceEntry(-1), 0);
  EXPECT_EQ(o.optGetSourceEntry(5000), 0);
}

TEST_F(OptValidate, FeatureClientTypeAndLocks) {
  // Options of other operating systems are accepted and ignored.
  EXPECT_EQ(user("NWUSER", "someone"), 0);
  EXPECT_STREQ(o.nwUser, "");
  o.nodeNameLocked = true;
  EXPECT_EQ(sys("NODENAME", "other"), 0);
  EXPECT_STRNE(o.nodeName, "OTHER");
  o.nodeNameLocked = false;
  o.serverNameLocked = true;
  EXPECT_EQ(user("SERVERNAME", "srv"), 0);
  EXPECT_STREQ(o.serverName, "");
  o.userOptFileOpened = true;
  EXPECT_EQ(sys("OPTFILE", "/tmp/x.opt"), 0);
  EXPECT_STREQ(o.optFile, "");
  o.platformSupport &= ~clientOptions::optSupLanFree;
  EXPECT_EQ(sys("ENABLELANFREE", "yes"), 0);
  EXPECT_EQ(o.enableLanFree, 0);
  o.optSetFeatureWord(0);
  EXPECT_EQ(sys("TCPPORT", "99999"), 0);  // not even checked
  EXPECT_EQ(o.tcpPort, 1500);
}

TEST_F(OptValidate, UnitsAndSupport) {
  struct {
    const char* value;
    uint32_t number;
    int unit;
  } cases[] = {
      {"2G", 2, 3}, {"100M", 100, 2}, {"4096K", 4096, 1}, {"25600", 25600, 1}, {"32g", 32, 3}};
  for (const auto& c : cases) {
    ASSERT_EQ(user("TXNBYTELIMIT", c.value), 0) << c.value;
    EXPECT_EQ(o.txnByteLimit, c.number) << c.value;
    EXPECT_EQ(o.txnByteLimitUnit, c.unit) << c.value;
  }
  EXPECT_EQ(user("TXNBYTELIMIT", "33G"), 400);
  EXPECT_EQ(user("TXNBYTELIMIT", "299"), 400);
  EXPECT_EQ(user("TXNBYTELIMIT", "G"), 400);
  EXPECT_EQ(user("TXNBYTELIMIT", "10T"), 400);
  EXPECT_EQ(o.txnByteLimitUnit, 3);  // unchanged by refusals
  EXPECT_EQ(user("IMAGEGAPSIZE", "1M"), 0);
  EXPECT_EQ(o.imageGapSizeUnit, 2);
  o.platformSupport = 0;
  EXPECT_EQ(user("IMAGEGAPSIZE", "1M"), 400);
  EXPECT_EQ(user("SNAPSHOTCACHESIZE", "50"), 400);
}

TEST_F(OptValidate, SizesInKilobytes) {
  EXPECT_EQ(sys("TCPBUFFSIZE", "512"), 0);
  EXPECT_EQ(o.tcpBuffSize, 512u * 1024u);
  EXPECT_EQ(sys("TCPBUFFSIZE", "0"), 400);
  EXPECT_EQ(sys("TCPBUFFSIZE", "513"), 400);
  EXPECT_EQ(sys("TCPWINDOWSIZE", "0"), 0);
  EXPECT_EQ(o.tcpWindowSize, 0);
  EXPECT_EQ(sys("TCPWINDOWSIZE", "2048"), 0);
  EXPECT_EQ(o.tcpWindowSize, 2048 * 1024);
  EXPECT_EQ(sys("TCPWINDOWSIZE", "2049"), 400);
}

TEST_F(OptValidate, LogsAndRetention) {
  snprintf(o.logDir, sizeof(o.logDir), "/var/log/qmx");
  EXPECT_EQ(sys("ERRORLOGNAME", "my.log"), 0);
  EXPECT_STREQ(o.errorLogName, "/var/log/qmx/my.log");
  EXPECT_EQ(sys("ERRORLOGNAME", "/abs/Err.log"), 0);
  EXPECT_STREQ(o.errorLogName, "/abs/Err.log");
  EXPECT_EQ(sys("SCHEDLOGNAME", "s.log"), 0);
  EXPECT_STREQ(o.schedLogName, "s.log");
  EXPECT_STREQ(o.schedLogFullName, "/var/log/qmx/s.log");

  EXPECT_EQ(sys("ERRORLOGRETENTION", "30 S"), 0);
  EXPECT_EQ(o.errorLogRetention, 30);
  EXPECT_EQ(o.errorLogRetentionSave, 1);
  EXPECT_EQ(sys("ERRORLOGRETENTION", "n,d"), 0);
  EXPECT_EQ(o.errorLogRetention, 10000);
  EXPECT_EQ(o.errorLogRetentionSave, 0);
  EXPECT_EQ(sys("ERRORLOGRETENTION", "10000"), 400);
  EXPECT_EQ(sys("ERRORLOGRETENTION", "5 X"), 400);
  EXPECT_EQ(sys("SCHEDLOGRETENTION", "7"), 0);
  EXPECT_EQ(o.schedLogRetention, 7);
}

TEST_F(OptValidate, FormatsAndLanguage) {
  EXPECT_EQ(user("DATEFORMAT", "3"), 0);
  EXPECT_EQ(o.dateFormat, 3);
  EXPECT_EQ(user("DATEFORMAT", "8"), 400);
  EXPECT_EQ(user("TIMEFORMAT", "5"), 0);
  EXPECT_EQ(user("TIMEFORMAT", "6"), 400);
  EXPECT_EQ(user("NUMBERFORMAT", "x"), 400);
  EXPECT_EQ(user("LANGUAGE", "de_DE"), 0);
  EXPECT_STREQ(o.language, "DE_DE");
  EXPECT_STREQ(qmxLocale, "DE_DE");  // what the message system will open
  EXPECT_EQ(user("LANGUAGE", "de/DE"), 400);
  EXPECT_STREQ(qmxLocale, "DE_DE");
  nlSetLocale(nullptr);
}

TEST_F(OptValidate, ListsAndVirtualMountPoints) {
  EXPECT_EQ(sys("VIRTUALMOUNTPOINT", "/gpfs/projects/"), 0);
  EXPECT_EQ(sys("VIRTUALMOUNTPOINT", "/gpfs/Home"), 0);
  EXPECT_EQ(sys("VIRTUALMOUNTPOINT", "/gpfs/projects"), 0);  // already there
  EXPECT_EQ(sys("VIRTUALMOUNTPOINT", "relative/dir"), 400);
  EXPECT_EQ(sys("VIRTUALMOUNTPOINT", "/"), 400);
  ASSERT_NE(o.virtualMountPoints, nullptr);
  ASSERT_EQ(o.virtualMountPoints->size(), 2u);
  EXPECT_EQ((*o.virtualMountPoints)[0], "/gpfs/projects");
  EXPECT_EQ((*o.virtualMountPoints)[1], "/gpfs/Home");
  EXPECT_EQ(user("VIRTUALMOUNTPOINT", "/x"), 429);

  EXPECT_EQ(user("DOMAIN", "/home \"/my dir\" /usr"), 0);
  ASSERT_NE(o.domain, nullptr);
  EXPECT_EQ(o.domain->size(), 3u);
  EXPECT_EQ((*o.domain)[1], "/my dir");
  // A full reset releases lists; a partial one keeps late rows.
  o.setDefaults(0);
  EXPECT_NE(o.domain, nullptr);
  o.setDefaults(1);
  EXPECT_EQ(o.domain, nullptr);
  EXPECT_EQ(o.virtualMountPoints, nullptr);
}

TEST_F(OptValidate, IncludeExcludeRulesAreStored) {
  o.optSetValidMode(optSrcSystem);
  EXPECT_EQ(o.optValidateOptionStr("EXCLUDE.DIR   /tmp/cache", 1, 1, 0), 0);
  EXPECT_EQ(o.optValidateOptionStr("include \"/data/My  Files/*\" mgmtA", 2, 1, 0), 0);
  EXPECT_EQ(o.optValidateOptionStr("EXCLUDE /x extra", 3, 1, 0), 400);
  EXPECT_EQ(o.optValidateOptionStr("EXCLUDE \"/x", 4, 1, 0), 402);
  o.optSetValidMode(optSrcUser);
  EXPECT_EQ(o.optValidateOptionStr("EXCLUDE /y", 5, 1, 0), 429);
  const auto& rules = o.ieList().rules();
  ASSERT_EQ(rules.size(), 2u);
  EXPECT_EQ(rules[0].type, 2);
  EXPECT_EQ(rules[0].objKind, OBJ_DIR);
  EXPECT_EQ(rules[0].pattern, "/tmp/cache");
  EXPECT_EQ(rules[1].type, 1);
  EXPECT_EQ(rules[1].pattern, "/data/My  Files/*");  // blanks inside quotes kept
  EXPECT_EQ(rules[1].mgmtClass, "MGMTA");
  EXPECT_EQ(rules[1].source, optSrcSystem);
}

TEST(OptObject, ErrorRecords) {
  optError record;
  optError* err = &record;
  optSetError(err, 400, "x", "y", 3, "z");
  optClearError(err);
  EXPECT_EQ(err->rc, 0);
  EXPECT_EQ(err->lineNumber, 0u);
  EXPECT_STREQ(err->token, "");
  EXPECT_EQ(optSetError(err, 410, "TCPPORT", "TCPPORT 1", 7, "/x/qmx.sys"), 410);
  EXPECT_STREQ(err->token, "TCPPORT");
  EXPECT_STREQ(err->line, "TCPPORT 1");
  EXPECT_EQ(err->lineNumber, 7u);
  EXPECT_STREQ(err->fileName, "/x/qmx.sys");
  EXPECT_EQ(optSetError(nullptr, 402, "a", "b", 1, "c"), 402);
}

TEST(OptObject, DamagedTableIsNotConstructed) {
  const optionEntry bad[] = {
      {1000, -1, ST_NONE, 0, 0, 0, 0, 0, 0, 0, VF_NONE, nullptr, false, nullptr, 0, ""},
      {OPT_END_ID, -1, ST_NONE, 0, 0, 0, 0, 0, 0, 0, VF_NONE, nullptr, false, nullptr, 0, ""}};
  clientOptions o(ctCLSpaceMGT, bad, 2);
  EXPECT_FALSE(o.constructed());
  EXPECT_EQ(o.optGetRow(1), nullptr);
}

TEST(OptObject, MissingRowIsRefused) {
  // A name table that knows an option the option table lacks.
  const optionEntry table[] = {
      {OPT_END_ID, -1, ST_NONE, 0, 0, 0, 0, 0, 0, 0, VF_NONE, nullptr, false, nullptr, 0, ""}};
  clientOptions o(ctCLSpaceMGT, table, 1);
  EXPECT_EQ(o.optValidateOptionCL("1500", "TCPPORT", 0, 1, 0), 400);
}

}  // namespace

namespace {

TEST(OptShadow, PerThreadCopyIsIndependent) {
  clientOptions main(ctCLSpaceMGT);
  main.optSetValidMode(optSrcSystem);
  ASSERT_EQ(main.optValidateOption("/gpfs/a", "VIRTUALMOUNTPOINT", 1, 1, 0), 0);
  ASSERT_EQ(main.optValidateOption("1600", "TCPPORT", 1, 1, 0), 0);
  main.dmapiSessionId = 0x1234;
  optionsP = &main;

  clientOptions* shadow = clientOptions::ouCreateShadowOpts(main);
  ASSERT_NE(shadow, nullptr);
  EXPECT_EQ(shadow->tcpPort, 1600);
  EXPECT_EQ(shadow->dmapiSessionId, 0x1234u);
  ASSERT_NE(shadow->virtualMountPoints, nullptr);
  EXPECT_NE(shadow->virtualMountPoints, main.virtualMountPoints);  // its own list
  EXPECT_EQ(shadow->optGetSourceEntry(shadow->optGetOptionId("TCPPORT")), optSrcSystem);

  EXPECT_EQ(optGetThreadOptionP(), &main);
  optSetThreadOptionP(shadow);
  EXPECT_EQ(optGetThreadOptionP(), shadow);
  shadow->optSetValidMode(optSrcSystem);
  ASSERT_EQ(shadow->optValidateOption("/gpfs/b", "VIRTUALMOUNTPOINT", 1, 1, 0), 0);
  EXPECT_EQ(main.virtualMountPoints->size(), 1u);
  EXPECT_EQ(shadow->virtualMountPoints->size(), 2u);

  clientOptions::ouDeleteShadowOpts(shadow);
  EXPECT_EQ(shadow, nullptr);
  EXPECT_EQ(optGetThreadOptionP(), &main);
  clientOptions* self = &main;
  clientOptions::ouDeleteShadowOpts(self);  // the process's object stays
  EXPECT_EQ(self, &main);
  optionsP = nullptr;
}

}  // namespace

namespace {

// A small table of our own for the storages and parse kinds that no row of
// the real table uses yet: a date, a time and a value-less flag.
TEST(OptGeneral, DatesTimesAndFlags) {
  const int32_t text = static_cast<int32_t>(offsetof(optFields_t, archMc));
  const int32_t text2 = static_cast<int32_t>(offsetof(optFields_t, backMc));
  const int32_t num = static_cast<int32_t>(offsetof(optFields_t, tcpPort));
  const optionEntry table[] = {
      {1, text, ST_DATE, 7, optFeatAll, 0xFFFF, optSrcAny, PK_TEXT, 0, 0, VF_DATE,
       optGeneralCallback, false, nullptr, 0, ""},
      {2, text2, ST_DATE, 7, optFeatAll, 0xFFFF, optSrcAny, PK_TEXT, 0, 0, VF_TIME,
       optGeneralCallback, false, nullptr, 0, ""},
      {3, num, ST_I32, 4, optFeatAll, 0xFFFF, optSrcAny, PK_FLAG, 9, 0, VF_NORMAL,
       optGeneralCallback, false, nullptr, 0, ""},
      {4, num, ST_I32, 4, optFeatAll, 0xFFFF, optSrcAny, PK_NUMBER, 0, 5, VF_NOVALUE,
       optGeneralCallback, false, nullptr, 0, ""},
      {OPT_END_ID, -1, ST_NONE, 0, 0, 0, 0, 0, 0, 0, VF_NONE, nullptr, false, nullptr, 0, ""}};
  const optSharedOptionTableEntry_t names[] = {{"DAY", 3, 1, 0},
                                               {"HOUR", 4, 2, 0},
                                               {"FLAG", 4, 3, 0},
                                               {"BARE", 4, 4, 0},
                                               {"ZZZLASTENTRY", 3, 999, 0}};
  clientOptions o(ctCLSpaceMGT, table, 5, names);
  ASSERT_TRUE(o.constructed());
  const unsigned char* d = reinterpret_cast<const unsigned char*>(o.archMc);
  EXPECT_EQ(o.optValidateOptionCL("02/29/2024", "DAY", 0, 1, 0), 0);
  EXPECT_EQ(d[0] | (d[1] << 8), 2024);
  EXPECT_EQ(d[2], 2);
  EXPECT_EQ(d[3], 29);
  EXPECT_EQ(o.optValidateOptionCL("2023-12-31", "DAY", 0, 1, 0), 0);
  EXPECT_EQ(d[0] | (d[1] << 8), 2023);
  EXPECT_EQ(o.optValidateOptionCL("02/29/2023", "DAY", 0, 1, 0), 400);  // not a leap year
  EXPECT_EQ(o.optValidateOptionCL("13/01/2023", "DAY", 0, 1, 0), 400);
  EXPECT_EQ(o.optValidateOptionCL("2023-01-01x", "DAY", 0, 1, 0), 400);
  EXPECT_EQ(d[0] | (d[1] << 8), 2023);

  const unsigned char* t = reinterpret_cast<const unsigned char*>(o.backMc);
  EXPECT_EQ(o.optValidateOptionCL("23:59:58", "HOUR", 0, 1, 0), 0);
  EXPECT_EQ(t[4], 23);
  EXPECT_EQ(t[5], 59);
  EXPECT_EQ(t[6], 58);
  EXPECT_EQ(o.optValidateOptionCL("24:00", "HOUR", 0, 1, 0), 400);

  EXPECT_EQ(o.optValidateOptionCL("", "FLAG", 0, 1, 0), 0);  // no value needed
  EXPECT_EQ(o.tcpPort, 9);
  EXPECT_EQ(o.optValidateOptionCL("no", "FLAG", 0, 1, 0), 0);
  EXPECT_EQ(o.tcpPort, 0);
  EXPECT_EQ(o.optValidateOptionCL("3", "BARE", 0, 1, 0), 400);  // takes no value
}

TEST(OptGeneral, NumbersMustFitTheirStorage) {
  // Ranges wider than the storage: the storage still bounds the value.
  const int32_t f16 = static_cast<int32_t>(offsetof(optFields_t, errorLogRetention));
  const int32_t f32 = static_cast<int32_t>(offsetof(optFields_t, tcpPort));
  const optionEntry table[] = {
      {1, f16, ST_U16, 2, optFeatAll, 0xFFFF, optSrcAny, PK_NUMBER, 0, 100000, VF_NORMAL,
       optGeneralCallback, false, nullptr, 0, ""},
      {2, f32, ST_I32, 4, optFeatAll, 0xFFFF, optSrcAny, PK_NUMBER, -5000000000, 5000000000u,
       VF_NORMAL, optGeneralCallback, false, nullptr, 0, ""},
      {OPT_END_ID, -1, ST_NONE, 0, 0, 0, 0, 0, 0, 0, VF_NONE, nullptr, false, nullptr, 0, ""}};
  const optSharedOptionTableEntry_t names[] = {
      {"SMALL", 5, 1, 0}, {"WIDE", 4, 2, 0}, {"ZZZLASTENTRY", 3, 999, 0}};
  clientOptions o(ctCLSpaceMGT, table, 3, names);
  EXPECT_EQ(o.optValidateOptionCL("65535", "SMALL", 0, 1, 0), 0);
  EXPECT_EQ(o.errorLogRetention, 65535);
  EXPECT_EQ(o.optValidateOptionCL("65536", "SMALL", 0, 1, 0), 400);
  EXPECT_EQ(o.optValidateOptionCL("-2147483648", "WIDE", 0, 1, 0), 0);
  EXPECT_EQ(o.tcpPort, INT32_MIN);
  EXPECT_EQ(o.optValidateOptionCL("2147483648", "WIDE", 0, 1, 0), 400);
  EXPECT_EQ(o.optValidateOptionCL("-0x80000001", "WIDE", 0, 1, 0), 400);
}

TEST(OptDisplay, OneOptionPerLine) {
  clientOptions o(ctCLSpaceMGT);
  o.optSetValidMode(optSrcSystem);
  ASSERT_EQ(o.optValidateOption("/gpfs/a", "VIRTUALMOUNTPOINT", 1, 1, 0), 0);
  ASSERT_EQ(o.optValidateOption("/gpfs/b", "VIRTUALMOUNTPOINT", 1, 1, 0), 0);
  ASSERT_EQ(o.optValidateOption("/tmp/x", "EXCLUDE.DIR", 1, 1, 0), 0);
  char* buf = nullptr;
  size_t size = 0;
  FILE* out = open_memstream(&buf, &size);
  o.optDisplay(out);
  fclose(out);
  std::string text(buf, size);
  free(buf);
  EXPECT_NE(text.find("\nTCPPORT                      1500\n"), std::string::npos);
  EXPECT_NE(text.find("\nTCPNODELAY                   YES\n"), std::string::npos);
  EXPECT_NE(text.find("\nVIRTUALMOUNTPOINT            /gpfs/a /gpfs/b\n"), std::string::npos);
  EXPECT_NE(text.find("EXCLUDE                      (dir) /tmp/x\n"), std::string::npos);
  // QUIET and VERBOSE share a field: it is shown once.
  EXPECT_NE(text.find("\nQUIET "), std::string::npos);
  EXPECT_EQ(text.find("\nVERBOSE "), std::string::npos);
}

}  // namespace
