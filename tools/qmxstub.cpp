#include "tools/qmxstub.h"

#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cinttypes>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "diag/logfile.h"
#include "diag/nl.h"
#include "hsm/dmapi/dmi_fileattr.h"
#include "hsm/dmapi/dmi_fsstate.h"
#include "hsm/dmapi/dmi_log.h"
#include "hsm/dmapi/dmi_session.h"
#include "hsm/dmapi/fs_config.h"

namespace {

const char kProg[] = "qmxstub";

// What the command line asks for.
struct Args {
  std::string command;
  std::vector<std::string> names;
  int recall = -1;  // -1 unchanged, 0 off, 1 on
  int migrate = -1;
  uint32_t mode = 0;             // recall-mode code
  uint32_t compression = 0x200;  // known uncompressed
  bool sizeGiven = false;
  uint64_t size = 0;
  bool transition = false;
  uint32_t state = dmiStateMigrated;
};

struct Choice {
  const char* text;
  uint32_t value;
};
const Choice kModes[] = {
    {"n", dmiRecallNormal}, {"p", dmiRecallPartial}, {"s", dmiRecallStreaming}, {"r", 1}, {"m", 2}};
const Choice kCompressions[] = {{"none", 0x200}, {"yes", 0x100}, {"unknown", 0x000}};
const Choice kOnOff[] = {{"on", 1}, {"off", 0}};

template <size_t N>
bool choose(const Choice (&table)[N], const std::string& text, uint32_t* out) {
  for (const Choice& c : table)
    if (text == c.text) {
      *out = c.value;
      return true;
    }
  return false;
}

bool parseNumber(const std::string& text, uint64_t max, uint64_t* out) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) return false;
  errno = 0;
  unsigned long long v = std::strtoull(text.c_str(), nullptr, 10);
  if (errno != 0 || v > max) return false;
  *out = v;
  return true;
}

bool isFileCommand(const std::string& c) {
  return c == "migrate" || c == "premigrate" || c == "resident" || c == "show";
}

// Parses argv into |a|.  Returns 0, or qmxstubUsage after a message.
int parse(int argc, char** argv, Args* a, FILE* err) {
  if (argc < 2) {
    nlfprintf(err, 9560);
    return qmxstubUsage;
  }
  a->command = argv[1];
  const std::string& c = a->command;
  if (c == "-h" || c == "--help" || c == "help") {
    nlfprintf(err, 9560);
    return qmxstubUsage;
  }
  if (!(c == "fs-add" || c == "fs-state" || c == "global" || isFileCommand(c))) {
    nlfprintf(err, 1107, argv[1]);
    nlfprintf(err, 9560);
    return qmxstubUsage;
  }
  for (int i = 2; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg.size() < 2 || arg.compare(0, 2, "--") != 0) {
      a->names.push_back(arg);
      continue;
    }
    std::string opt = arg, value;
    bool inlineValue = false;
    size_t eq = arg.find('=');
    if (eq != std::string::npos) {
      opt = arg.substr(0, eq);
      value = arg.substr(eq + 1);
      inlineValue = true;
    }
    bool takesValue = opt == "--recall" || opt == "--migrate" || opt == "--mode" ||
                      opt == "--compression" || opt == "--size" || opt == "--state";
    bool allowed = (opt == "--recall" || opt == "--migrate")
                       ? (c == "fs-state" || c == "global")
                       : (opt == "--transition" || takesValue) && c == "migrate";
    if (!allowed || (!takesValue && inlineValue)) {
      nlfprintf(err, 1107, arg.c_str());
      return qmxstubUsage;
    }
    if (takesValue && !inlineValue) {
      if (i + 1 >= argc) {
        nlfprintf(err, 9561, kProg, opt.c_str(), "");
        return qmxstubUsage;
      }
      value = argv[++i];
    }
    uint32_t v = 0;
    uint64_t n = 0;
    bool ok = true;
    if (opt == "--recall" || opt == "--migrate") {
      ok = choose(kOnOff, value, &v);
      (opt == "--recall" ? a->recall : a->migrate) = static_cast<int>(v);
    } else if (opt == "--mode") {
      ok = choose(kModes, value, &a->mode);
    } else if (opt == "--compression") {
      ok = choose(kCompressions, value, &a->compression);
    } else if (opt == "--size") {
      ok = parseNumber(value, UINT64_MAX, &n);
      a->size = n;
      a->sizeGiven = true;
    } else if (opt == "--state") {
      ok = parseNumber(value, UINT32_MAX, &n);
      a->state = static_cast<uint32_t>(n);
    } else {
      a->transition = true;
    }
    if (!ok) {
      nlfprintf(err, 9561, kProg, opt.c_str(), value.c_str());
      return qmxstubUsage;
    }
  }
  if (c != "global" && a->names.empty()) {
    nlfprintf(err, 9562, kProg, c.c_str());
    return qmxstubUsage;
  }
  if (c == "global" && !a->names.empty()) {
    nlfprintf(err, 1107, a->names.front().c_str());
    return qmxstubUsage;
  }
  return qmxstubOk;
}

// The absolute path of an existing |name|, or "" after message 9178.
std::string reach(const std::string& name, bool wantDir, FILE* err) {
  char buf[PATH_MAX];
  struct stat st;
  if (realpath(name.c_str(), buf) == nullptr || stat(buf, &st) != 0) {
    nlfprintf(err, 9178, kProg, name.c_str(), std::strerror(errno));
    return std::string();
  }
  if (wantDir ? !S_ISDIR(st.st_mode) : !S_ISREG(st.st_mode)) {
    nlfprintf(err, 9178, kProg, name.c_str(), std::strerror(wantDir ? ENOTDIR : EINVAL));
    return std::string();
  }
  return buf;
}

int changeFailed(const std::string& path, int e, FILE* err) {
  nlfprintf(err, 9563, kProg, path.c_str(), std::strerror(e));
  return -1;
}

// Adds |fs| to the managed file-system table unless it is there.
int addToTable(const std::string& fs, FILE* err) {
  std::vector<std::string> table;
  std::string error;
  std::string path = dmiFSTablePath();
  if (dmiReadFSTable(&table, &error) != 0) {
    nlfprintf(err, 9564, kProg, path.c_str(), error.c_str());
    return -1;
  }
  for (const std::string& t : table)
    if (t == fs) return 0;
  int rc = utBuildPath(path.c_str());
  std::ofstream f;
  if (rc == 0) {
    f.open(path, std::ios::app);
    if (f) f << fs << "\n";
    f.close();
    if (!f) rc = errno != 0 ? errno : EIO;
  }
  if (rc != 0) {
    nlfprintf(err, 9564, kProg, path.c_str(), std::strerror(rc));
    return -1;
  }
  return 0;
}

const char* onOff(unsigned char flags, unsigned char bit) {
  return (flags & bit) != 0 ? "on" : "off";
}

void applyFlags(const Args& a, fsmState* st) {
  if (a.recall >= 0)
    st->flags =
        static_cast<unsigned char>(a.recall ? st->flags | fsmRecallOn : st->flags & ~fsmRecallOn);
  if (a.migrate >= 0)
    st->flags = static_cast<unsigned char>(a.migrate ? st->flags | fsmMigrateOn
                                                     : st->flags & ~fsmMigrateOn);
}

// A stable external id for a file without a server copy: its device and
// inode, so that two stubs never share one.
s_midExtObjId localId(const std::string& path) {
  s_midExtObjId id{};
  struct stat st;
  if (stat(path.c_str(), &st) == 0) {
    uint64_t dev = st.st_dev, ino = st.st_ino;
    std::memcpy(id.id, "QMXSTUB:", 8);
    std::memcpy(id.id + 8, &dev, 8);
    std::memcpy(id.id + 16, &ino, 8);
  }
  return id;
}

void removeQuietly(dm_sessid_t sid, const xdsm_handle_t& h, const char* name) {
  dm_attrname_t an = dmiAttrName(name);
  XDSMAPI::getXDSMAPI()->removeDmattr(sid, h, DM_NO_TOKEN, 0, &an);
}

const char* stateName(int state) {
  switch (state) {
    case dmiStatePremigrated:
      return "premigrated";
    case dmiStateMigrated:
      return "migrated";
    case dmiStateResident:
      return "resident";
    case dmiStateInTransition:
    case dmiStateTransition12:
      return "in transition";
    default:
      return "other";
  }
}

const char* modeLetter(uint32_t mode) {
  for (const Choice& c : kModes)
    if (c.value == mode) return c.text;
  return "?";
}

const char* compressionName(uint32_t attr) {
  for (const Choice& c : kCompressions)
    if (c.value == (attr & dmiCompressionMask)) return c.text;
  return "unknown";
}

void printId(FILE* out, const s_midExtObjId& id) {
  char hex[dmiExtIdHexSize];
  dmiExtObjIdToHex(id, hex);
  std::fprintf(out, "  %-14s%s\n", "object id", hex);
}

int show(dm_sessid_t sid, const std::string& path, const xdsm_handle_t& h, FILE* out, FILE* err) {
  s_midExtObjId id{};
  int state = dmiGetFileMigStat(sid, h, DM_NO_TOKEN, &id);
  if (state < 0) {
    nlfprintf(err, 9178, kProg, path.c_str(), std::strerror(errno));
    return -1;
  }
  std::fprintf(out, "%s\n", path.c_str());
  std::fprintf(out, "  %-14s%d (%s)\n", "state", state, stateName(state));
  if (state != dmiStateResident && state != dmiStatePremigrated) {
    dmiInfo info;
    if (dmiGetDMAttrib(sid, h, DM_NO_TOKEN, &info) != 0) {
      nlfprintf(err, 9178, kProg, path.c_str(), std::strerror(errno));
      return -1;
    }
    uint32_t mode = info.attr & dmiRecallModeMask;
    std::fprintf(out, "  %-14s%s (%u)\n", "recall mode", modeLetter(mode), mode);
    std::fprintf(out, "  %-14s%s (0x%03X)\n", "compression", compressionName(info.attr),
                 info.attr & dmiCompressionMask);
    std::fprintf(out, "  %-14s0x%08X\n", "attribute", info.attr);
    std::fprintf(out, "  %-14s0x%08X\n", "second word", info.attr2);
    std::fprintf(out, "  %-14s%" PRIu64 "\n", "data size", info.dataSize);
    std::fprintf(out, "  %-14s%u\n", "stored state", info.migState);
    std::fprintf(out, "  %-14s%u\n", "transition", info.transition);
  }
  if (state != dmiStateResident) printId(out, id);
  char server[dmiServNameSize];
  if (dmiFileHasDmAttr(sid, h, DMI_ATTR_SERV) == 1 &&
      dmiGetServerNameAttrib(sid, DM_NO_TOKEN, h, server) == 0)
    std::fprintf(out, "  %-14s%s\n", "server", server);
  return 0;
}

// One file of a file command.  Returns 0 or -1 (reported).
int doFile(const Args& a, dm_sessid_t sid, const std::string& name, FILE* out, FILE* err) {
  std::string path = reach(name, false, err);
  if (path.empty()) return -1;
  xdsm_handle_t h;
  if (handleSetWithPath(&h, path.c_str()) != 0) {
    nlfprintf(err, 9178, kProg, path.c_str(), std::strerror(errno));
    return -1;
  }
  XDSMAPI* x = XDSMAPI::getXDSMAPI();
  int rc = 0;
  if (a.command == "show") {
    rc = show(sid, path, h, out, err);
  } else if (a.command == "migrate") {
    struct stat st;
    stat(path.c_str(), &st);
    dmiInfo info{};
    info.extObjId = localId(path);
    info.dataSize = a.sizeGiven ? a.size : static_cast<uint64_t>(st.st_size);
    info.attr = a.mode | a.compression;
    info.migState = a.state;
    info.transition = a.transition ? 1 : 0;
    if (dmiSetDMAttrib(sid, h, DM_NO_TOKEN, info, 1) != 0) {
      rc = changeFailed(path, errno, err);
    } else {
      removeQuietly(sid, h, DMI_ATTR_PMIG);
      // Reads, writes and truncations of a stub must reach the recall service.
      dm_region_t region{0, 0, DM_REGION_READ | DM_REGION_WRITE | DM_REGION_TRUNCATE, 0};
      dm_boolean_t exact = DM_TRUE;
      if (x->setRegion(sid, h, DM_NO_TOKEN, 1, &region, &exact, 0) != 0)
        rc = changeFailed(path, errno, err);
    }
    if (rc == 0) std::fprintf(out, "migrated   %s\n", path.c_str());
  } else if (a.command == "premigrate") {
    s_midExtObjId id = localId(path);
    removeQuietly(sid, h, DMI_ATTR_OBJ);
    if (dmiSetFileMigStat(sid, h, DM_NO_TOKEN, &id, dmiStatePremigrated, 0) != 0)
      rc = changeFailed(path, errno, err);
    else
      std::fprintf(out, "premigrated %s\n", path.c_str());
  } else {  // resident
    removeQuietly(sid, h, DMI_ATTR_OBJ);
    removeQuietly(sid, h, DMI_ATTR_SERV);
    removeQuietly(sid, h, DMI_ATTR_EXTID);
    if (dmiResetFileMigStat(sid, h, DM_NO_TOKEN) != 0)
      rc = changeFailed(path, errno, err);
    else
      std::fprintf(out, "resident   %s\n", path.c_str());
  }
  handleFree(&h);
  return rc;
}

int doFileSystem(const Args& a, dm_sessid_t sid, const std::string& name, FILE* out, FILE* err) {
  std::string fs = reach(name, true, err);
  if (fs.empty()) return -1;
  if (a.command == "fs-add") {
    if (dmiCreateFSState(sid, fs.c_str()) != 0) return changeFailed(fs, errno, err);
    if (addToTable(fs, err) != 0) return -1;
  }
  fsmState st{};
  std::strncpy(st.fsName, fs.c_str(), sizeof st.fsName - 1);
  if (dmiEntryGetFSState(sid, &st) != 0) {
    nlfprintf(err, 9178, kProg, (fs + "/.SpaceMan/dmiFSState").c_str(), std::strerror(errno));
    return -1;
  }
  if (a.command == "fs-state" && (a.recall >= 0 || a.migrate >= 0)) {
    applyFlags(a, &st);
    if (dmiEntrySetFSState(sid, &st) != 0) return changeFailed(fs, errno, err);
  }
  std::fprintf(out, "%s: recall %s, migrate %s\n", fs.c_str(), onOff(st.flags, fsmRecallOn),
               onOff(st.flags, fsmMigrateOn));
  return 0;
}

int doGlobal(const Args& a, FILE* out, FILE* err) {
  fsmState st{};
  if (dmiEntryGetGlobalState(0, &st) != 0 && dmiEntryGetGlobalState(0, &st) != 0) {
    // A damaged file was reported and removed by the first read; the
    // second one recreated it.  Failing twice is a real failure.
    nlfprintf(err, 9178, kProg, dmiGlobalStatePath().c_str(), std::strerror(errno));
    return -1;
  }
  if (a.recall >= 0 || a.migrate >= 0) {
    applyFlags(a, &st);
    if (dmiEntrySetGlobalState(0, &st) != 0) return changeFailed(dmiGlobalStatePath(), errno, err);
  }
  std::fprintf(out, "global: recall %s, migrate %s\n", onOff(st.flags, fsmRecallOn),
               onOff(st.flags, fsmMigrateOn));
  return 0;
}

}  // namespace

int qmxstubRun(int argc, char** argv, FILE* out, FILE* err) {
  Args a;
  int rc = parse(argc, argv, &a, err);
  if (rc != qmxstubOk) return rc;
  if (a.command == "global") return doGlobal(a, out, err) == 0 ? qmxstubOk : qmxstubFailed;

  if (dmiInit(0) != 0) return qmxstubFailed;
  XDSMAPI* x = XDSMAPI::getXDSMAPI();
  // The tool's own short session; one that a caller already opened is used.
  dm_sessid_t sid = x->getSID();
  bool own = sid == DM_NO_SESSION;
  if (own) sid = x->createSession(DM_NO_SESSION, kProg, 0);
  if (sid == DM_NO_SESSION) {
    nlfprintf(err, 9531, kProg, "0", kProg, std::strerror(errno));
    return qmxstubFailed;
  }
  int failed = 0;
  for (const std::string& name : a.names) {
    int r = isFileCommand(a.command) ? doFile(a, sid, name, out, err)
                                     : doFileSystem(a, sid, name, out, err);
    if (r != 0) ++failed;
  }
  if (own) x->destroySession(sid, 0);
  return failed == 0 ? qmxstubOk : qmxstubFailed;
}
