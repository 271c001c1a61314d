// Migration state and the DM attributes of managed files.
#include <errno.h>

#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "hsm/dmapi/dmi_fileattr.h"
#include "hsm/dmapi/dmi_session.h"
#include "hsm/dmapi/dmi_status.h"
#include "hsm/dmapi/dmi_trace.h"
#include "hsm/dmapi/fs_config.h"
#include "hsm/dmapi/space_reserve.h"
#include "options/optobj.h"

namespace {

// What providers answer for a missing attribute: ENOENT, ENODATA (the
// extended-attribute errno of this platform) and DMI_ERRNO_NOATTR, which
// some DMAPI implementations use.
bool absent(int err) {
  return err == ENOENT || err == ENODATA || err == DMI_ERRNO_NOATTR;
}

clientOptions* opts() {
  return optGetThreadOptionP();
}

bool recordExtIds() {
  clientOptions* o = opts();
  return o != nullptr && o->hsmExtObjIdAttr != 0;
}

bool recordServerNames() {
  clientOptions* o = opts();
  return o != nullptr && o->hsmMultiServer != 0;
}

// Message 9511 for a failed read of the file of |h|.
void readFailed(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, int err) {
  char sidText[dmiTextBufSize];
  char tokText[dmiTextBufSize];
  const char* tok =
      DM_TOKEN_EQ(token, DM_NO_TOKEN) ? "DM_NO_TOKEN" : dmiTokenToString(token, tokText);
  dmiLogMsg(9511, dmiProgName(), dmiSessionIDToString(sid, sidText), "<NA>",
            dmiHandleToHex(h).c_str(), tok, std::strerror(err));
}

// Reads "KVRObj" into |raw|.  Returns 1 present, 0 absent, -1 error.
int readObj(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
            unsigned char (&raw)[dmiObjSize], size_t* rlen) {
  dm_attrname_t name = dmiAttrName(DMI_ATTR_OBJ);
  if (XDSMAPI::getXDSMAPI()->getDmattr(sid, h, token, &name, sizeof raw, raw, rlen) == 0) return 1;
  return absent(errno) ? 0 : -1;
}

}  // namespace

const char* dmiOptServerName() {
  clientOptions* o = opts();
  if (o == nullptr) return "";
  return o->migrateServer[0] != '\0' ? o->migrateServer : o->serverName;
}

// ---- Handles -----------------------------------------------------------

int handleSetWithPath(xdsm_handle_t* h, const char* path) {
  if (h == nullptr || path == nullptr) {
    errno = EINVAL;
    return -1;
  }
  h->hanp = nullptr;
  h->hlen = 0;
  return XDSMAPI::getXDSMAPI()->pathToHandle(path, h);
}

int dmiPrefetchDirAttributes(const char* dir) {
  if (dir == nullptr) {
    errno = EINVAL;
    return -1;
  }
  return XDSMAPI::getXDSMAPI()->prefetchDirAttributes(dir);
}

void handleFree(xdsm_handle_t* h) {
  if (h == nullptr || h->hanp == nullptr) return;
  XDSMAPI::getXDSMAPI()->freeHandle(h);
}

// ---- Migration state ------------------------------------------------

int dmiGetFileResStat(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                      s_midExtObjId* id) {
  unsigned char raw[dmiObjSize];
  size_t rlen = 0;
  int rc = readObj(sid, h, token, raw, &rlen);
  if (rc == 0) return dmiStateResident;
  if (rc < 0) {
    int err = errno;
    readFailed(sid, h, token, err);
    errno = err;
    return -1;
  }
  dmiInfo info;
  if (dmiDecodeObj(raw, rlen, &info) != 0) {
    readFailed(sid, h, token, EIO);
    errno = EIO;
    return -1;
  }
  if (id != nullptr) *id = info.extObjId;
  return dmiMigState(&info, false);
}

int dmiGetFileMigStat(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                      s_midExtObjId* id) {
  int state = dmiGetFileResStat(sid, h, token, id);
  if (state != dmiStateResident) return state;
  s_midExtObjId pmig;
  size_t rlen = 0;
  dm_attrname_t name = dmiAttrName(DMI_ATTR_PMIG);
  if (XDSMAPI::getXDSMAPI()->getDmattr(sid, h, token, &name, sizeof pmig.id, pmig.id, &rlen) == 0) {
    if (id != nullptr) *id = pmig;
    return dmiStatePremigrated;
  }
  int err = errno;
  if (absent(err)) return dmiStateResident;
  readFailed(sid, h, token, err);
  errno = err;
  return -1;
}

int dmiSetFileMigStat(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                      const s_midExtObjId* id, int state, int /*flag*/) {
  XDSMAPI* x = XDSMAPI::getXDSMAPI();
  if (state == dmiStatePremigrated) {
    if (id == nullptr) {
      errno = EINVAL;
      return -1;
    }
    dm_attrname_t name = dmiAttrName(DMI_ATTR_PMIG);
    if (x->setDmattr(sid, h, token, &name, 0, sizeof id->id, id->id) != 0) return -1;
    if (recordExtIds() && dmiSetExtObjIDAttrib(sid, token, h, id) != 0) {
      int err = errno;
      x->removeDmattr(sid, h, token, 0, &name);
      errno = err;
      return -1;
    }
    return 0;
  }
  if (state != dmiStateInTransition && state != dmiStateResident && state != dmiStateTransition12)
    return 0;
  dmiInfo info;
  if (dmiGetDMAttrib(sid, h, token, &info) != 0) return -1;
  if (state == dmiStateInTransition) {
    info.transition = 1;
  } else if (state == dmiStateResident) {
    info.migState = dmiStateResident;
    info.transition = 0;
  } else {
    info.migState = dmiStateTransition12;
    info.transition = 1;
  }
  return dmiSetDMAttrib(sid, h, token, info, 0);
}

int dmiResetFileMigStat(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token) {
  XDSMAPI* x = XDSMAPI::getXDSMAPI();
  dm_attrname_t name = dmiAttrName(DMI_ATTR_PMIG);
  if (x->removeDmattr(sid, h, token, 0, &name) != 0 && !absent(errno)) return -1;
  if (recordExtIds() && dmiRemoveExtObjIDAttrib(sid, token, h) != 0 && !absent(errno)) return -1;
  return dmiClrMngRegion(sid, h, token);
}

// ---- The migration record ------------------------------------------

int dmiGetDMAttrib(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, dmiInfo* info) {
  unsigned char raw[dmiObjSize];
  size_t rlen = 0;
  int rc = readObj(sid, h, token, raw, &rlen);
  if (rc <= 0) {
    if (rc == 0) errno = ENOENT;
    return -1;
  }
  if (dmiDecodeObj(raw, rlen, info) != 0) {
    errno = EIO;
    return -1;
  }
  return 0;
}

int dmiSetDMAttrib(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, const dmiInfo& info,
                   int withServerName) {
  XDSMAPI* x = XDSMAPI::getXDSMAPI();
  unsigned char raw[dmiObjSize];
  dmiEncodeObj(info, raw);
  dm_attrname_t name = dmiAttrName(DMI_ATTR_OBJ);
  char fs[4096] = {};
  // A full file system gets one reserve file back per attempt, for as long
  // as it has some.
  while (x->setDmattr(sid, h, token, &name, 0, sizeof raw, raw) != 0) {
    int err = errno;
    if (err != ENOSPC && err != ENOMEM) {
      if (DMI_TR_ON)
        trPrintf(__FILE__, __LINE__,
                 "%s: dmiSetDMAttrib: setDmattr failed, errno(%d), reason(%s)\n", dmiProgName(),
                 err, std::strerror(err));
      errno = err;
      return -1;
    }
    if (fs[0] == '\0' && dmiGetFSName(sid, h, fs, sizeof fs) != 0) {
      errno = err;
      return -1;
    }
    if (DMI_TR_ON)
      trPrintf(__FILE__, __LINE__, "%s: Freeing 1 reserved file on %s in nospace condition\n",
               dmiProgName(), fs);
    if (dmiFreeSpaceReserved(fs, 1) != 1) {
      errno = err;
      return -1;
    }
  }
  if (recordExtIds() && dmiSetExtObjIDAttrib(sid, token, h, &info.extObjId) != 0) {
    int err = errno;
    x->removeDmattr(sid, h, token, 0, &name);
    errno = err;
    return -1;
  }
  if (recordServerNames() && withServerName == 1) {
    const char* server = dmiOptServerName();
    if (DMI_TR_ON)
      trPrintf(__FILE__, __LINE__,
               "%s: dmiSetDMAttrib: set servername to file. new server name: '%s'\n", dmiProgName(),
               server);
    if (dmiSetServerNameAttrib(sid, token, h, server) != 0)
      x->removeDmattr(sid, h, token, 0, &name);
  }
  return 0;
}

// ---- Server name and external id --------------------------------------

int dmiSetServerNameAttrib(dm_sessid_t sid, dm_token_t token, const xdsm_handle_t& h,
                           const char* name) {
  static const char kFn[] = "dmiSetServerNameAttrib";
  char value[dmiServNameSize];
  if (name == nullptr) {
    if (DMI_TR_ON)
      trPrintf(__FILE__, __LINE__, "(%s): FAILURE -> Passed server name is NULL!\n", kFn);
    errno = EINVAL;
    return -1;
  }
  if (dmiServerNameValue(name, value) != 0) {
    errno = ENAMETOOLONG;
    return -1;
  }
  dm_attrname_t an = dmiAttrName(DMI_ATTR_SERV);
  if (XDSMAPI::getXDSMAPI()->setDmattr(sid, h, token, &an, 0, sizeof value, value) != 0) {
    if (DMI_TR_ON)
      trPrintf(__FILE__, __LINE__,
               "(%s): FAILURE -> Set serverName DMAPI attribute failed - setDmattr() error!\n",
               kFn);
    return -1;
  }
  if (DMI_TR_ON)
    trPrintf(__FILE__, __LINE__, "(%s): Successfully set serverName DMAPI attribute!\n", kFn);
  return 0;
}

int dmiGetServerNameAttrib(dm_sessid_t sid, dm_token_t token, const xdsm_handle_t& h, char* buf) {
  static const char kFn[] = "dmiGetServerNameAttrib";
  if (buf == nullptr) {
    if (DMI_TR_ON)
      trPrintf(__FILE__, __LINE__, "(%s): FAILURE -> Passed server name is NULL!\n", kFn);
    errno = EINVAL;
    return -1;
  }
  dm_attrname_t an = dmiAttrName(DMI_ATTR_SERV);
  size_t rlen = 0;
  std::memset(buf, 0, dmiServNameSize);
  if (XDSMAPI::getXDSMAPI()->getDmattr(sid, h, token, &an, dmiServNameSize, buf, &rlen) != 0) {
    if (DMI_TR_ON)
      trPrintf(__FILE__, __LINE__,
               "(%s): FAILURE -> Get serverName DMAPI attribute failed - setDmattr() error!\n",
               kFn);
    return -1;
  }
  buf[dmiServNameSize - 1] = '\0';
  // The read reports with the same text as the write: log readers look for
  // this one line.
  if (DMI_TR_ON)
    trPrintf(__FILE__, __LINE__, "(%s): Successfully set serverName DMAPI attribute!\n", kFn);
  return 0;
}

int dmiGetServerNameAttrib(dm_sessid_t sid, dm_token_t token, const char* path, char* buf) {
  xdsm_handle_t h;
  if (handleSetWithPath(&h, path) != 0) return -1;
  int rc = dmiGetServerNameAttrib(sid, token, h, buf);
  int err = errno;
  handleFree(&h);
  errno = err;
  return rc;
}

int dmiRemoveServerNameAttrib(dm_sessid_t sid, dm_token_t token, const xdsm_handle_t& h) {
  dm_attrname_t an = dmiAttrName(DMI_ATTR_SERV);
  return XDSMAPI::getXDSMAPI()->removeDmattr(sid, h, token, 0, &an);
}

int dmiSetExtObjIDAttrib(dm_sessid_t sid, dm_token_t token, const xdsm_handle_t& h,
                         const s_midExtObjId* id) {
  static const char kFn[] = "dmiSetExtObjIDAttrib";
  if (id == nullptr) {
    if (DMI_TR_ON) trPrintf(__FILE__, __LINE__, "(%s): FAILURE -> Passed extObjID is NULL!\n", kFn);
    errno = EINVAL;
    return -1;
  }
  char hex[dmiExtIdHexSize];
  dmiExtObjIdToHex(*id, hex);
  dm_attrname_t an = dmiAttrName(DMI_ATTR_EXTID);
  if (XDSMAPI::getXDSMAPI()->setDmattr(sid, h, token, &an, 0, sizeof hex, hex) != 0) {
    if (DMI_TR_ON)
      trPrintf(__FILE__, __LINE__,
               "(%s): FAILURE -> Set KVRexID DMAPI attribute failed - setDmattr() error!\n", kFn);
    return -1;
  }
  if (DMI_TR_ON)
    trPrintf(__FILE__, __LINE__, "(%s): Successfully set KVRexID DMAPI attribute!\n", kFn);
  return 0;
}

int dmiRemoveExtObjIDAttrib(dm_sessid_t sid, dm_token_t token, const xdsm_handle_t& h) {
  static const char kFn[] = "dmiRemoveExtObjIDAttrib";
  dm_attrname_t an = dmiAttrName(DMI_ATTR_EXTID);
  if (XDSMAPI::getXDSMAPI()->removeDmattr(sid, h, token, 0, &an) != 0) {
    if (DMI_TR_ON)
      trPrintf(__FILE__, __LINE__,
               "(%s): FAILURE -> Remove KVRexID DMAPI attribute failed - removeDmattr() error!\n",
               kFn);
    return -1;
  }
  if (DMI_TR_ON)
    trPrintf(__FILE__, __LINE__, "(%s): Successfully removed KVRexID DMAPI attribute!\n", kFn);
  return 0;
}

int dmiFileHasDmAttr(dm_sessid_t sid, const xdsm_handle_t& h, const char* name) {
  if (name == nullptr) {
    errno = EINVAL;
    return -1;
  }
  XDSMAPI* x = XDSMAPI::getXDSMAPI();
  dm_attrname_t an = dmiAttrName(name);
  std::vector<unsigned char> buf;
  size_t size = 1024;
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (!dmiAssign(&buf, size, static_cast<unsigned char>(0))) return -1;
    size_t rlen = 0;
    if (x->getDmattr(sid, h, DM_NO_TOKEN, &an, buf.size(), buf.data(), &rlen) == 0) return 1;
    if (absent(errno)) return 0;
    if (errno != E2BIG || attempt == 1) return -1;
    size = rlen;
  }
  return -1;
}

// ---- Regions and file systems --------------------------------------

int dmiClrMngRegion(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token) {
  dm_boolean_t exact = DM_FALSE;
  return XDSMAPI::getXDSMAPI()->setRegion(sid, h, token, 0, nullptr, &exact, 0);
}

int dmiGetFSName(dm_sessid_t /*sid*/, const xdsm_handle_t& h, char* buf, size_t size) {
  char path[4096];
  if (XDSMAPI::getXDSMAPI()->handleToPath(h, path, sizeof path) != 0) return -1;
  std::string fs, error;
  if (dmiGetFSName(std::string(path), &fs, &error) != 0) {
    DMI_TRACE(DMI_TR_ON, "dmiGetFSName", "%s\n", error.c_str());
    errno = ENOENT;
    return -1;
  }
  if (fs.size() + 1 > size) {
    errno = ENAMETOOLONG;
    return -1;
  }
  std::memcpy(buf, fs.c_str(), fs.size() + 1);
  return 0;
}
