// The static tables: shape, consistency between them, the documented key
// rows, and the lookup rules (abbreviation, kind-2 keywords, tie-break).
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "options/opt_keywords.h"
#include "options/opt_tables.h"

namespace {

const optionEntry* rowOf(int id) {
  for (int i = 0; i < optionTableEntries; ++i)
    if (optionTable[i].id == id) return &optionTable[i];
  return nullptr;
}

TEST(OptTables, ShapeAndEndRows) {
  ASSERT_EQ(optOptTableEntries, 353);
  ASSERT_EQ(optionTableEntries, 277);
  const optSharedOptionTableEntry_t& last = optSharedOptionTable[optOptTableEntries - 1];
  EXPECT_STREQ(last.name, "ZZZLASTENTRY");
  EXPECT_EQ(last.id, 999);
  EXPECT_EQ(optionTable[optionTableEntries - 1].id, 999);
  // Only the last rows carry the end marker.
  for (int i = 0; i + 1 < optOptTableEntries; ++i) EXPECT_NE(optSharedOptionTable[i].id, 999);
  for (int i = 0; i + 1 < optionTableEntries; ++i) EXPECT_NE(optionTable[i].id, 999);
}

TEST(OptTables, NamesAndRowsAgree) {
  std::set<int> rowIds, optionNameIds, keywordIds;
  for (int i = 0; i + 1 < optionTableEntries; ++i) {
    EXPECT_TRUE(rowIds.insert(optionTable[i].id).second) << "duplicate row " << optionTable[i].id;
  }
  std::set<std::string> spellings;
  for (int i = 0; i + 1 < optOptTableEntries; ++i) {
    const optSharedOptionTableEntry_t& n = optSharedOptionTable[i];
    EXPECT_TRUE(spellings.insert(n.name).second) << n.name;
    EXPECT_GE(n.minLen, 1u) << n.name;
    // E2AOBJNAME is listed with 11 letters for its 10: it can only be set
    // by identifier.  No other row may be out of reach.
    if (strcmp(n.name, "E2AOBJNAME") != 0) {
      EXPECT_LE(n.minLen, strlen(n.name)) << n.name;
    }
    for (const char* p = n.name; *p; ++p) EXPECT_FALSE(*p >= 'a' && *p <= 'z') << n.name;
    if (n.kind == 2) {
      EXPECT_TRUE(keywordIds.insert(n.id).second);
      EXPECT_EQ(rowIds.count(n.id), 0u) << n.name << " keyword shares an option id";
    } else {
      EXPECT_LE(n.kind, 1) << n.name;
      EXPECT_TRUE(optionNameIds.insert(n.id).second) << n.name;
    }
  }
  EXPECT_EQ(optionNameIds, rowIds);
  EXPECT_EQ(keywordIds.size(), 76u);
}

TEST(OptTables, RowsAreComplete) {
  for (int i = 0; i + 1 < optionTableEntries; ++i) {
    const optionEntry& r = optionTable[i];
    SCOPED_TRACE(r.id);
    EXPECT_NE(r.callback, nullptr);
    EXPECT_NE(r.sources, 0);
    if (r.parseKind == PK_KEYWORD) {
      EXPECT_NE(r.keywords, nullptr);
    }
    if (r.storage == ST_TEXT) {
      EXPECT_GT(r.size, 1u);
      if (r.defaultText) {
        EXPECT_LT(strlen(r.defaultText), r.size);
      }
    }
    if (r.parseKind == PK_TOKEN && r.storage == ST_TEXT) {
      EXPECT_LT(r.high, r.size);
    }
    if (r.parseKind == PK_NUMBER) {
      EXPECT_LE(static_cast<uint64_t>(r.low), r.high);
      EXPECT_GE(r.defaultValue, static_cast<uint64_t>(r.low));
      EXPECT_LE(r.defaultValue, r.high);
      // Every value of the range fits the storage.
      const uint64_t maxOf[] = {0xFF, 0x7FFF, 0xFFFF, 0x7FFFFFFF, 0xFFFFFFFF, UINT64_MAX};
      ASSERT_LE(r.storage, ST_U64);
      EXPECT_LE(r.high, maxOf[r.storage]);
    }
    if (r.parseKind == PK_INCLEXCL) {
      EXPECT_EQ(r.field, -1);
      EXPECT_TRUE(r.low == 1 || r.low == 2);
    } else {
      EXPECT_GE(r.field, 0);
    }
  }
}

// The rows other layers depend on, as documented.
struct KeyRow {
  const char* name;
  unsigned minLen;
  uint8_t sources;
  int storage, parseKind;
  int64_t low;
  uint64_t high;
  uint64_t dflt;
};

TEST(OptTables, KeyRows) {
  const uint8_t SYS0 = optSrcStore0 | optSrcSystem, USR0 = optSrcStore0 | optSrcUser;
  const KeyRow rows[] = {
      {"SERVERNAME", 2, optSrcSystem | optSrcUser, ST_TEXT, PK_TOKEN, 1, 64, 0},
      {"DEFAULTSERVER", 8, optSrcAny, ST_TEXT, PK_TOKEN, 1, 64, 0},
      {"MIGRATESERVER", 4, optSrcAny, ST_TEXT, PK_TOKEN, 1, 64, 0},
      {"NODENAME", 3, SYS0, ST_TEXT, PK_OWN, 1, 64, 0},
      {"TCPSERVERADDRESS", 4, SYS0, ST_TEXT, PK_TOKEN, 1, 64, 0},
      {"TCPPORT", 4, SYS0, ST_I32, PK_NUMBER, 1, 32767, 1500},
      {"SHMPORT", 4, SYS0, ST_I32, PK_NUMBER, 1000, 32767, 1510},
      {"TCPBUFFSIZE", 4, SYS0, ST_U32, PK_OWN, 1, 512, 32768},
      {"TCPWINDOWSIZE", 4, SYS0, ST_I32, PK_OWN, 0, 2048, 64512},
      {"TCPNODELAY", 4, SYS0, ST_YESNO, PK_YESNO, 1, 0, 1},
      {"COMMMETHOD", 5, SYS0, ST_I32, PK_OWN, 0, 0, 1},
      {"COMMRESTARTDURATION", 12, SYS0, ST_I32, PK_NUMBER, 0, 9999, 60},
      {"COMMRESTARTINTERVAL", 12, SYS0, ST_I32, PK_NUMBER, 0, 65535, 15},
      {"PASSWORDACCESS", 9, SYS0, ST_I32, PK_KEYWORD, 0, 0, 0},
      {"PASSWORDDIR", 11, SYS0, ST_TEXT, PK_TOKEN, 1, 1023, 0},
      {"ERRORLOGNAME", 9, SYS0, ST_TEXT, PK_OWN, 1, 1279, 0},
      {"ERRORLOGMAX", 9, SYS0, ST_U32, PK_NUMBER, 0, 2146435072, 0},
      {"ERRORLOGRETENTION", 9, SYS0, ST_U16, PK_OWN, 0, 9999, 10000},
      {"TRACEFILE", 7, USR0, ST_TEXT, PK_OWN, 0, 0, 0},
      {"TRACEFLAGS", 7, optSrcAny, ST_TEXT, PK_OWN, 0, 0, 0},
      {"TRACEMAX", 6, USR0, ST_U32, PK_NUMBER, 0, 4294967295u, 0},
      {"OPTFILE", 7, SYS0, ST_TEXT, PK_TOKEN, 0, 1279, 0},
      {"INCLEXCL", 5, SYS0 | optSrcServerSet, ST_LIST, PK_OWN, 0, 0, 0},
      {"QUIET", 5, USR0 | optSrcServerSet, ST_I32, PK_SWITCH, 0, 4, 4},
      {"VERBOSE", 2, USR0 | optSrcServerSet, ST_I32, PK_SWITCH, 4, 0, 4},
      {"CHECKTHRESHOLDS", 6, optSrcAny, ST_I32, PK_NUMBER, 1, 9999, 5},
      {"RECONCILEINTERVAL", 4, optSrcAny, ST_I32, PK_NUMBER, 0, 9999, 24},
      {"CANDIDATESINTERVAL", 11, optSrcSystem, ST_I32, PK_NUMBER, 0, 9999, 1},
      {"MAXTHRESHOLDPROC", 4, optSrcAny, ST_I32, PK_NUMBER, 1, 99, 3},
      {"MAXRECONCILEPROC", 7, optSrcAny, ST_I32, PK_NUMBER, 1, 99, 3},
      {"MINRECALLDAEMONS", 4, optSrcAny, ST_I32, PK_NUMBER, 1, 99, 3},
      {"MAXRECALLDAEMONS", 7, optSrcAny, ST_I32, PK_NUMBER, 2, 99, 20},
      {"MIGFILEEXPIRATION", 4, optSrcAny, ST_I32, PK_NUMBER, 0, 9999, 7},
      {"MINMIGFILESIZE", 4, SYS0, ST_U32, PK_NUMBER, 0, 2147483647, 0},
      {"MAXMIGRATORS", 7, optSrcAny, ST_U32, PK_NUMBER, 1, 20, 5},
      {"MAXCANDPROCS", 7, optSrcAny, ST_U32, PK_NUMBER, 2, 20, 5},
      {"OVERLAPRECALL", 2, SYS0, ST_YESNO, PK_YESNO, 1, 0, 0},
      {"CHECKFORORPHANS", 6, optSrcAny, ST_YESNO, PK_YESNO, 1, 0, 0},
      {"HSMDISTRIBUTEDRECALL", 8, SYS0, ST_YESNO, PK_YESNO, 1, 0, 1},
      {"HSMDISABLEAUTOMIGDAEMONS", 8, optSrcUser, ST_YESNO, PK_YESNO, 1, 0, 0},
      {"HSMEVENTDESTROY", 8, optSrcUser, ST_YESNO, PK_YESNO, 1, 0, 0},
      {"HSMEXTOBJIDATTR", 8, optSrcUser, ST_YESNO, PK_YESNO, 1, 0, 0},
      {"HSMGROUPEDMIGRATE", 8, optSrcUser, ST_YESNO, PK_YESNO, 1, 0, 0},
      {"HSMIMMUTABLEFILES", 8, optSrcUser, ST_YESNO, PK_YESNO, 1, 0, 0},
      {"HSMMULTISERVER", 8, optSrcUser, ST_YESNO, PK_YESNO, 1, 0, 0},
      {"HSMPROGRESSIVEDAEMONSTART", 5, optSrcUser, ST_YESNO, PK_YESNO, 1, 0, 0},
      {"HSMENABLEIMMEDIATEMIGRATE", 12, optSrcUser, ST_YESNO, PK_YESNO, 1, 0, 0},
      {"RESTOREMIGSTATE", 4, USR0, ST_YESNO, PK_YESNO, 1, 0, 1},
      {"SKIPMIGRATED", 5, USR0, ST_YESNO, PK_YESNO, 1, 0, 0},
  };
  optSharedTable names;
  for (const KeyRow& k : rows) {
    SCOPED_TRACE(k.name);
    int id = names.optSTStringToId(k.name);
    ASSERT_GT(id, 0);
    ASSERT_NE(id, 999);
    // The shortest form resolves, one letter less does not reach it.
    EXPECT_EQ(names.optSTStringToId(std::string(k.name, k.minLen).c_str()), id);
    EXPECT_NE(names.optSTStringToId(std::string(k.name, k.minLen - 1).c_str()), id);
    const optionEntry* r = rowOf(id);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->sources, k.sources);
    EXPECT_EQ(r->storage, k.storage);
    EXPECT_EQ(r->parseKind, k.parseKind);
    if (k.parseKind != PK_OWN || k.high != 0) {
      EXPECT_EQ(r->low, k.low);
      EXPECT_EQ(r->high, k.high);
    }
    if (k.storage != ST_TEXT && k.storage != ST_LIST) {
      EXPECT_EQ(r->defaultValue, k.dflt);
    }
    if (k.storage == ST_TEXT) {
      EXPECT_STREQ(r->defaultText, "");
    }
  }
  EXPECT_EQ(rowOf(names.optSTStringToId("SERVERNAME"))->size, 65u);
  EXPECT_EQ(rowOf(names.optSTStringToId("PASSWORDDIR"))->valueForm, VF_KEEPCASE);
  EXPECT_EQ(rowOf(names.optSTStringToId("ERRORLOGNAME"))->size, 1280u);
}

TEST(OptTables, IncludeExcludeRows) {
  optSharedTable names;
  const uint8_t ie = optSrcStore0 | optSrcSystem | optSrcIEFile | optSrcServerSet;
  const struct {
    const char* name;
    int type, kind;
  } rules[] = {{"INCLUDE", 1, OBJ_FILE},
               {"EXCLUDE", 2, OBJ_FILE},
               {"EXCLUDE.DIR", 2, OBJ_DIR},
               {"EXCLUDE.SPACEMGMT", 2, OBJ_SPACEMGMT},
               {"EXCLUDE.FILE.SPACEMGMT", 2, OBJ_SPACEMGMT},
               {"INCLUDE.FILE", 1, OBJ_FILE}};
  for (const auto& r : rules) {
    const optionEntry* row = rowOf(names.optSTStringToId(r.name));
    ASSERT_NE(row, nullptr) << r.name;
    EXPECT_EQ(row->parseKind, PK_INCLEXCL) << r.name;
    EXPECT_EQ(row->low, r.type) << r.name;
    EXPECT_EQ(static_cast<int>(row->high), r.kind) << r.name;
    EXPECT_EQ(row->sources, ie) << r.name;
  }
}

TEST(OptLookup, AbbreviationKeywordsAndUnknown) {
  optSharedTable names;
  int serverName = names.optSTStringToId("SERVERNAME");
  EXPECT_EQ(names.optSTStringToId("se"), serverName);  // case-insensitive
  EXPECT_EQ(names.optSTStringToId("S"), 999);
  EXPECT_EQ(names.optSTStringToId(""), 999);
  EXPECT_EQ(names.optSTStringToId(nullptr), 999);
  EXPECT_EQ(names.optSTStringToId("SERVERNAMEX"), 999);  // longer than the name
  // TRACEF is too short for TRACEFILE and TRACEFLAGS and too long for TRACE.
  EXPECT_EQ(names.optSTStringToId("TRACEF"), 999);
  // Command operand keywords come back negated.
  int trace = names.optSTStringToId("TRACE");
  EXPECT_LT(trace, 0);
  EXPECT_LT(names.optSTStringToId("FILELIST"), 0);
  EXPECT_LT(names.optSTStringToId("T"), 0);  // TRUSTEDINTERFACE accepts one letter
  // DIRM reaches the option DIRMC; DIR only the keyword DIRSONLY.
  EXPECT_GT(names.optSTStringToId("DIRM"), 0);
  EXPECT_LT(names.optSTStringToId("DIR"), 0);

  EXPECT_TRUE(names.optSTAbbrev("SE", serverName));
  EXPECT_TRUE(names.optSTAbbrev("servern", serverName));
  EXPECT_FALSE(names.optSTAbbrev("S", serverName));
  EXPECT_FALSE(names.optSTAbbrev("SE", 999));
  EXPECT_FALSE(names.optSTAbbrev("SE", 1000));
  EXPECT_FALSE(names.optSTAbbrev("TRACE", -trace));
  EXPECT_STREQ(names.optSTIdToName(serverName), "SERVERNAME");
}

TEST(OptLookup, TableOrderBreaksTies) {
  const optSharedOptionTableEntry_t table[] = {
      {"MAXB", 3, 7, 0}, {"MAXA", 3, 8, 0}, {"MAXC", 2, 9, 2}, {"ZZZLASTENTRY", 3, 999, 0}};
  optSharedTable names(table);
  EXPECT_EQ(names.optSTStringToId("MAX"), 7);  // both rows match: the first wins
  EXPECT_EQ(names.optSTStringToId("MAXA"), 8);
  EXPECT_EQ(names.optSTStringToId("MA"), -9);  // only the keyword is short enough
  const optSharedOptionTableEntry_t swapped[] = {
      {"MAXA", 3, 8, 0}, {"MAXB", 3, 7, 0}, {"ZZZLASTENTRY", 3, 999, 0}};
  EXPECT_EQ(optSharedTable(swapped).optSTStringToId("MAX"), 8);
}

TEST(OptKeywords, ListsAndToggle) {
  EXPECT_EQ(kwOptionFormat[optFindKeyword(kwOptionFormat, "short")].value, 1);
  EXPECT_EQ(kwOptionFormat[optFindKeyword(kwOptionFormat, "STANDARD")].value, 0);
  EXPECT_EQ(optFindKeyword(kwOptionFormat, "S"), -1);  // SHORT or STANDARD?
  EXPECT_EQ(kwPasswordAccess[optFindKeyword(kwPasswordAccess, "gen")].value, 1);
  EXPECT_EQ(kwCommMethod[optFindKeyword(kwCommMethod, "TCPIP")].value, 1);
  EXPECT_EQ(optFindKeyword(kwCommMethod, "NAMEDPIPE"), -1);

  const struct {
    const char* word;
    int expect;
  } words[] = {{"YES", 7},   {"no", 0}, {"On", 7}, {"OFF", 0}, {"true", 7},
               {"FALSE", 0}, {"1", 7},  {"0", 0},  {"y", 7},   {"N", 0}};
  for (const auto& w : words) {
    int v = -1;
    EXPECT_EQ(optReadToggle(w.word, 7, &v), 0) << w.word;
    EXPECT_EQ(v, w.expect) << w.word;
  }
  int v = 0;
  EXPECT_EQ(optReadToggle("O", 1, &v), 400);  // ON or OFF?
  EXPECT_EQ(optReadToggle("MAYBE", 1, &v), 400);
  EXPECT_EQ(optReadToggle("2", 1, &v), 400);
  EXPECT_EQ(optReadToggle("", 1, &v), 400);
}

}  // namespace
