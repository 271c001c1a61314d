// The trace facility's tables: class flags, class table, aggregate table,
// test-flag records and table, client-type tags.
#include "diag/trace.h"

#define TR_CLASS(keyword, flag, comm) unsigned char flag = 0;
#include "diag/trace_classes.def"

const trClassEntry_t ClassTable[] = {
#define TR_CLASS(keyword, flag, comm) {#keyword, &flag, comm},
#include "diag/trace_classes.def"
    {nullptr, nullptr, 0}};

static_assert(sizeof(ClassTable) / sizeof(ClassTable[0]) == trNumClasses + 1,
              "the class table has one row per class and the end row");

// Member strings stand exactly as users have always seen them listed, odd
// spacing included.  ALL_FMDB names FMDBBAOBJDB, which is no class: enabling
// the aggregate turns on its first two members and then fails, and that is
// kept so.  SCHEDULER turns INCLEXCL_DETAIL back on after SERVICE cleared it.
const trAggrEntry_t AggrTable[] = {
    {"ALL_API", "API API_DETAIL"},
    {"ALL_BACK", "INCR TXN POLICY PFM PFM_DETAIL"},
    {"ALL_COMPRESS", "COMPRESS COMPRESS_DETAIL"},
    {"ALL_CACHEDB", "BACACHE CACHEDB BTREEDB BACACHEMIGR"},
    {"ALL_DEDUP", "DEDUP DEDUPDETAIL DEDUPENTER DEDUPDB FP"},
    {"ALL_FILE", "DIROPS FILEOPS FIOATTRIBS OFSFILENAME"},
    {"ALL_IMAGE",
     "IMAGE APPL API API_DETAIL DISKMAP DISKMAP_DETAIL IMAGETHREAD IMAGE_DETAIL SNAPSHOT "
     "SNAPSHOT_DETAIL SNAPSHOT_DRIVER SNAPSHOT_DRIVER_DETAIL"},
    {"ALL_JBB",
     "JBBSERVICE JBBDAEMON JBBFILEMON JBBDBACCESS JBBFSNOTIFY JBBNPCOMM JBBVERBINFO JBBDBINFO "
     "JBBCOMM JBBQUERY"},
    {"ALL_FMDB", "FMDBNPDB FMDBFSDB FMDBBAOBJDB FMDB"},
    {"ALL_NAS", "NAS NAS_DETAIL APPL API API_DETAIL"},
    {"QDBHW", "APPL C2C QDB DISKMAP HCI HWVM IMAGE SBRM SNAPSHOT UTIL HDW"},
    {"QDBHW_DETAIL", "QDBHW QDB_DETAIL ALL_IMAGE HCI HCI_DETAIL LSM SESSION VERBINFO HDW_DETAIL"},
    {"ALL_PROC", "ALL_BACK ALL_FILE ALL_SESS"},
    {"ALL_SESS", "SESSION VERBINFO SESSVERB VERBADMIN VERBDETAIL C2C"},
    {"ALL_SNAPSHOT", "SNAPSHOT SNAPSHOT_DETAIL SNAPSHOT_DRIVER SNAPSHOT_DRIVER_DETAIL"},
    {"ALL_VSS",
     "VSS OBJENUM ALL_SNAPSHOT SBRM C2C RESTFILECOPY RESTORE UTIL HCI HCI_DETAIL GROUPS DISKMAP "
     "DISKMAP_DETAIL WIN2K LPM"},
    {"DEVELOP", "SERVICE -TIMESTAMP"},
    {"MOBILE", "DELTA ENCRYPT -TIMESTAMP"},
    {"NETWARE", "SMSDEBUG SMS_DETAIL TXN TID"},
    {"OPTIONS", "CONFIG"},
    {"PERFORM", "CONFIG STATS"},
    {"SERVICE",
     "ALL -NLS -COMMDETAIL -COMMFULL -DIRDETAIL -MEMORY -MEMDETAIL -VERBDETAIL -MAC_DETAIL "
     "-INCLEXCL_DETAIL -CLIENTTYPE -PROXY_DETAIL -EXTRC_DETAIL -DEBUG -PFM_DETAIL -VM_DETAIL "
     "-VSS_DETAIL -XATTR_DETAIL -IC49009 -BTREEDB -EDITOR -CACHEDB -DBPERF -EXCLUDECACHE "
     "-SMSIGNALHANDLER -FP -FPDETAIL1 -FPDETAIL2 -DEDUPENTER -DEDUPDETAIL"},
    {"SCHEDULER", "SERVICE -THREAD_STATUS -PFM -PFM_DETAIL        INCLEXCL_DETAIL"},
    {"SUBFILE", "DELTA DELTASTAT TXN"},
    {"SMALL",
     "SM SMLOG SMVERBOSE SMSIGNALHANDLER SMXDSM SMXDSMDETAIL SMSESS SMSCOUT SMSCOUTDETAIL "
     "SMSCOUTSEARCH SMSCOUTSEARCHDETAIL SMSCOUTSCAN SMSCOUTSCANDETAIL SMSCOUTQUERY "
     "SMSCOUTQUERYDETAIL SMSCOUTCOMM SMSCOUTCOMMDISPATCHER SMSCOUTCOMMCALLER SMSCOUTCOMMSOAP "
     "SMSCOUTHASHTABLE SMSCOUTHASHTABLEDETAIL SMRECONCILE SMRECONCILEDETAIL SMMULTISERVER "
     "SMEXCEPTION SMAUTOMIG SMAUTOMIGDETAIL SMFSTABLE SMFSTABLEDETAIL "},
    {nullptr, nullptr}};

#define TR_TESTFLAG(keyword, record) trTestFlag_t record = {0, 0, nullptr};
#include "diag/trace_testflags.def"

const trTestEntry_t TestClassTable[] = {
#define TR_TESTFLAG(keyword, record) {#keyword, &record},
#include "diag/trace_testflags.def"
    {nullptr, nullptr}};

const char* trClientTypeTag(int type) {
  static const char* const tags[] = {
      "[ctCLBackup  ]", "[ctCLAdmin   ]", "[ctGUIBackup ]", "[ctODBCDriver]", "[ctCLAPI     ]",
      "[ctCLSpaceMGT]", "[ctDICAD     ]", "[ctDIWebClien]", "[ctJBBDaemon ]", "[ctUtlAppl   ]",
      "[ctCLUtlAppl ]", "[ctGUIUtlAppl]", "[ctDIJavaGUI ]"};
  if (type < 0 || type >= static_cast<int>(sizeof(tags) / sizeof(tags[0]))) {
    return "[ctUnkown    ]";
  }
  return tags[type];
}
