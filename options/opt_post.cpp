// What follows the reading of every source: derived settings, the user
// check, and the option listing.
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "diag/trace.h"
#include "options/opt_internal.h"
#include "options/optobj.h"

namespace {
// Rules every space-managed client adds: the HSM's own bookkeeping
// directories are never backed up or migrated.
constexpr int kImplicitSource = 0x40;
const char* const kImplicitExcludes[] = {"/.../.SpaceMan", "/.../lost+found"};
}  // namespace

int clientOptions::optPostProcessOptions(optError* err) {
  TRACE_ENTER_EXIT("clientOptions::optPostProcessOptions");
  if (errorLogName[0] == '\0')
    optBuildFullName(logDir, "qmxerror.log", '/', errorLogName, sizeof(errorLogName));
  optBuildLogNames(this);

  ieList().clear(kImplicitSource);
  for (const char* pattern : kImplicitExcludes) ieList().add(2, OBJ_DIR, pattern, kImplicitSource);

  // A log either wraps within its maximum size or is pruned by age.
  if (errorLogMax > 0 && errorLogRetention != 10000)
    return optSetError(err, PS_RC_BADVALUE, "ERRORLOGRETENTION", "ERRORLOGMAX", 0, "");
  if (schedLogMax > 0 && schedLogRetention != 10000)
    return optSetError(err, PS_RC_BADVALUE, "SCHEDLOGRETENTION", "SCHEDLOGMAX", 0, "");

  // Features asked for that this platform lacks are switched off with a
  // message; the command goes on without them.
  if (enableLanFree && !(platformSupport & optSupLanFree)) {
    optMsgFeatureMissing("LANFREE");
    enableLanFree = 0;
  }
  if (subfileBackup && !(platformSupport & optSupSubfile)) {
    optMsgFeatureMissing("SUBFILE");
    subfileBackup = 0;
  }
  return PS_RC_OK;
}

int clientOptions::optCheckUser() const {
  bool haveUsers = users != nullptr && !users->empty();
  bool haveGroups = groups != nullptr && !groups->empty();
  if (!haveUsers && !haveGroups) return OPT_RC_USERALLOWED;
  uid_t uid = geteuid();
  if (uid == 0) return OPT_RC_USERALLOWED;  // the superuser is never locked out

  std::vector<char> buf(16384);
  if (haveUsers) {
    struct passwd pw, *res = nullptr;
    if (getpwuid_r(uid, &pw, buf.data(), buf.size(), &res) == 0 && res != nullptr &&
        users->contains(pw.pw_name))
      return OPT_RC_USERALLOWED;
  }
  if (haveGroups) {
    std::vector<gid_t> gids(1, getegid());
    int n = getgroups(0, nullptr);
    if (n > 0) {
      std::vector<gid_t> more(static_cast<size_t>(n));
      n = getgroups(n, more.data());
      if (n > 0) gids.insert(gids.end(), more.begin(), more.begin() + n);
    }
    for (gid_t g : gids) {
      struct group gr, *res = nullptr;
      if (getgrgid_r(g, &gr, buf.data(), buf.size(), &res) == 0 && res != nullptr &&
          groups->contains(gr.gr_name))
        return OPT_RC_USERALLOWED;
    }
  }
  return PS_RC_OK;
}

void clientOptions::optDisplayToTrace() const {
  char* text = nullptr;
  size_t size = 0;
  FILE* ms = open_memstream(&text, &size);
  if (ms == nullptr) return;
  optDisplay(ms);
  fclose(ms);
  // One call per line: a trace write holds one line's worth of text.
  for (char* line = text; line != nullptr && *line;) {
    char* nl = strchr(line, '\n');
    if (nl != nullptr) *nl = '\0';
    trPrint("%s\n", line);
    line = nl ? nl + 1 : nullptr;
  }
  free(text);
}

void clientOptions::optPrintToScreen(int id, const char* text, int width, FILE* out) const {
  fprintf(out, "%-*s %s\n", width, sharedTable().optSTIdToName(id), text ? text : "");
}

void clientOptions::optDisplay(FILE* out) const {
  const int width = 28;
  char num[64];
  std::vector<int32_t> shown;  // rows sharing a field (QUIET, VERBOSE) print once
  for (int i = 0; optionTable[i].id != OPT_END_ID; ++i) {
    const optionEntry& r = optionTable[i];
    const void* f = fieldOf(&r);
    if (f == nullptr) continue;
    bool seen = false;
    for (int32_t s : shown) seen = seen || s == r.field;
    if (seen) continue;
    shown.push_back(r.field);
    std::string text;
    switch (r.storage) {
      case ST_BYTE:
        snprintf(num, sizeof(num), "%u", *static_cast<const uint8_t*>(f));
        text = num;
        break;
      case ST_I16:
        snprintf(num, sizeof(num), "%d", *static_cast<const int16_t*>(f));
        text = num;
        break;
      case ST_U16:
        snprintf(num, sizeof(num), "%u", *static_cast<const uint16_t*>(f));
        text = num;
        break;
      case ST_I32:
      case ST_OTHER:
        snprintf(num, sizeof(num), "%d", *static_cast<const int32_t*>(f));
        text = num;
        break;
      case ST_U32:
        snprintf(num, sizeof(num), "%u", *static_cast<const uint32_t*>(f));
        text = num;
        break;
      case ST_U64:
        snprintf(num, sizeof(num), "%" PRIu64, *static_cast<const uint64_t*>(f));
        text = num;
        break;
      case ST_YESNO:
        text = *static_cast<const int32_t*>(f) ? "YES" : "NO";
        break;
      case ST_TEXT:
        text = static_cast<const char*>(f);
        break;
      case ST_HEAP: {
        const char* p = *static_cast<char* const*>(f);
        text = p ? p : "";
        break;
      }
      case ST_LIST: {
        const optStringList* l = *static_cast<optStringList* const*>(f);
        if (l != nullptr) {
          for (size_t k = 0; k < l->size(); ++k) text += (k ? " " : "") + (*l)[k];
        }
        break;
      }
      case ST_DATE: {
        const unsigned char* d = static_cast<const unsigned char*>(f);
        snprintf(num, sizeof(num), r.valueForm == VF_TIME ? "%02u:%02u:%02u" : "%04u-%02u-%02u",
                 r.valueForm == VF_TIME ? d[4] : d[0] | (d[1] << 8),
                 r.valueForm == VF_TIME ? d[5] : d[2], r.valueForm == VF_TIME ? d[6] : d[3]);
        text = num;
        break;
      }
      default:
        continue;
    }
    optPrintToScreen(r.id, text.c_str(), width, out);
  }
  for (const inclExclRule_t& rule : ieList().rules()) {
    fprintf(out, "%-*s %s%s%s%s\n", width, rule.type == 1 ? "INCLUDE" : "EXCLUDE",
            rule.objKind == OBJ_DIR ? "(dir) " : "", rule.pattern.c_str(),
            rule.mgmtClass.empty() ? "" : " ", rule.mgmtClass.c_str());
  }
}
