// The recall-mode request of the attribute command.
#include "hsm/dmapi/dmi_fileattr.h"

#include <errno.h>
#include <sys/stat.h>

#include <cstring>

#include "hsm/dmapi/dmi_session.h"
#include "hsm/dmapi/dmi_status.h"
#include "hsm/dmapi/dmi_trace.h"

namespace {

void put32(unsigned char* p, size_t off, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[off + i] = static_cast<unsigned char>(v >> (8 * i));
}

int fail(int err) {
  errno = err;
  return -1;
}

// Message 9512 for a failed write to the file of |h|.
void writeFailed(dm_sessid_t sid, const xdsm_handle_t& h, int err) {
  char sidText[dmiTextBufSize];
  dmiLogMsg(9512, dmiProgName(), dmiSessionIDToString(sid, sidText), dmiHandleToHex(h).c_str(),
            "DM_NO_TOKEN", std::strerror(err));
}

// The steps after the handle is made; the caller frees it.
int fileAttrWithHandle(dm_sessid_t sid, migAttrRequest* req, const xdsm_handle_t& h) {
  XDSMAPI* x = XDSMAPI::getXDSMAPI();
  // One read of the record serves both the state check and the request.
  unsigned char raw[dmiObjSize];
  size_t rlen = 0;
  dm_attrname_t name = dmiAttrName(DMI_ATTR_OBJ);
  int state;
  dmiInfo info;
  bool haveRecord = false;
  if (x->getDmattr(sid, h, DM_NO_TOKEN, &name, sizeof raw, raw, &rlen) == 0) {
    if (dmiDecodeObj(raw, rlen, &info) != 0) {
      char sidText[dmiTextBufSize];
      dmiLogMsg(9511, dmiProgName(), dmiSessionIDToString(sid, sidText), req->path,
                dmiHandleToHex(h).c_str(), "DM_NO_TOKEN", std::strerror(EIO));
      return fail(EIO);
    }
    haveRecord = true;
    state = dmiMigState(&info, false);
  } else {
    int err = errno;
    if (err != ENOENT && err != ENODATA && err != DMI_ERRNO_NOATTR) {
      char sidText[dmiTextBufSize];
      dmiLogMsg(9511, dmiProgName(), dmiSessionIDToString(sid, sidText), req->path,
                dmiHandleToHex(h).c_str(), "DM_NO_TOKEN", std::strerror(err));
      state = -1;
    } else {
      state = dmiGetFileMigStat(sid, h, DM_NO_TOKEN, nullptr);
      err = errno;
    }
    if (state == -1) {
      if (DMI_TR_ON)
        trPrintf(__FILE__, __LINE__,
                 "dmiFileAttr(%s): dmiGetFileMigStat failed, errno(%d), reason(%s)\n", req->path,
                 err, std::strerror(err));
      return fail(err);
    }
  }
  if (state == dmiStateInTransition || state == dmiStateTransition12) {
    if (req->operation == migAttrSet) {
      if (DMI_TR_ON)
        trPrintf(__FILE__, __LINE__,
                 "dmiFileAttr(%s): is currently in migration/recall, so we cannot set the new "
                 "attributes!\n",
                 req->path);
      return fail(EPERM);
    }
  } else if (state != dmiStateMigrated) {
    // Resident and premigrated files have no recall mode.
    return fail(EPERM);
  }
  if (!haveRecord) return fail(EPERM);

  if (req->operation == migAttrQuery) {
    req->value = info.attr;
    req->value2 = info.attr2;
    return 0;
  }

  uint32_t mode = req->value & dmiRecallModeMask;
  if (mode == dmiRecallInvalid) return fail(EPERM);
  if (mode == dmiRecallPartial && !dmiPartialRecallAllowed(info.attr)) {
    if (DMI_TR_ON)
      trPrintf(__FILE__, __LINE__,
               "dmiFileAttr: can't set recall mode to partial, file is or may be compressed\n");
    return fail(EINVAL);
  }
  uint32_t word = (info.attr & ~req->mask) | req->value;
  // The record is changed in place, so that every field this layer does not
  // know (the size's high half among them) is written back as it was read;
  // the low half of the size is cleared in the same write on purpose.
  put32(raw, 56, word);
  put32(raw, 48, 0);
  if (x->setDmattr(sid, h, DM_NO_TOKEN, &name, 0, sizeof raw, raw) != 0) {
    int err = errno;
    writeFailed(sid, h, err);
    if (DMI_TR_ON)
      trPrintf(__FILE__, __LINE__, "Couldn't apply new miginfo attributes, errno %d (%s)\n", err,
               std::strerror(err));
    return fail(err);
  }
  if (DMI_TR_ON)
    trPrintf(__FILE__, __LINE__, "Applied new ma_attr's, f1 = %d\n", static_cast<int>(word));
  if (mode == dmiRecallNormal || mode == dmiRecallStreaming) {
    // Normal and streaming recall need every read, write and truncate of
    // the whole file to raise an event.
    dm_region_t region{};
    region.rg_offset = 0;
    region.rg_size = 0;
    region.rg_flags = DM_REGION_READ | DM_REGION_WRITE | DM_REGION_TRUNCATE;
    dm_boolean_t exact = DM_TRUE;
    if (x->setRegion(sid, h, DM_NO_TOKEN, 1, &region, &exact, 0) != 0) {
      int err = errno;
      writeFailed(sid, h, err);
      if (DMI_TR_ON)
        trPrintf(__FILE__, __LINE__, "Couldn't reset managed region, errno %d (%s)\n", err,
                 std::strerror(err));
      return fail(err);
    }
    if (DMI_TR_ON) trPrintf(__FILE__, __LINE__, "Reset managed region to off 0, len 0, flags 7\n");
  }
  return 0;
}

}  // namespace

int dmiFileAttr(dm_sessid_t sid, migAttrRequest* req, int skipStat) {
  TRACE_ENTER_EXIT("dmiFileAttr");
  if (req == nullptr) {
    if (DMI_TR_ON) trPrintf(__FILE__, __LINE__, "dmiFileAttr: maReqP is NULL!\n");
    return fail(EINVAL);
  }
  if (req->operation != migAttrQuery && req->operation != migAttrSet) {
    dmiLogMsg(9538, dmiProgName(), static_cast<int>(req->operation));
    return fail(EINVAL);
  }
  req->path[sizeof req->path - 1] = '\0';
  if (!skipStat) {
    struct stat st;
    if (fstat(req->fd, &st) != 0) {
      int err = errno;
      dmiLogMsg(9126, dmiProgName(), req->path, std::strerror(err));
      return fail(err);
    }
    if (!S_ISREG(st.st_mode)) {
      if (DMI_TR_ON)
        trPrintf(__FILE__, __LINE__,
                 "dmiFileAttr(%s): isn't a regular file, mode(%x), skipping...\n", req->path,
                 static_cast<unsigned>(st.st_mode));
      return fail(EPERM);
    }
  }
  xdsm_handle_t h;
  if (handleSetWithPath(&h, req->path) != 0) {
    int err = errno;
    dmiLogMsg(9535, dmiProgName(), static_cast<int>(req->fd), std::strerror(err));
    return fail(err);
  }
  int rc = fileAttrWithHandle(sid, req, h);
  int err = errno;
  handleFree(&h);
  errno = err;
  return rc;
}

int dmiEntryFileAttributes(dm_sessid_t sid, migAttrRequest* req) {
  if (sid == DM_NO_SESSION || sid == DM_INVALID_SESSION) sid = dmiGetSid();
  return dmiFileAttr(sid, req, 0);
}
