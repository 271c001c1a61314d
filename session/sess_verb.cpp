// Verb traffic of a session: framing, length limits and checksums.
#include <cstring>
#include <new>

#include "session/crc32.h"
#include "session/sess.h"
#include "session/sess_diag.h"
#include "session/verb.h"

namespace {

// Verbs that checksum mode 1 protects: the ones that carry object data.
bool IsDataVerb(uint32_t type) {
  return type == VB_DataExt || type == VB_ObjectData || type == VB_Data;
}

}  // namespace

void Sess_o::BreakAndClose() {
  sessSetBool(sessBroken, true);
  CloseConnection();
  sessClose();
}

int Sess_o::RecvRaw(unsigned char* buf, uint32_t n) {
  if (!connected_) return COMM_RC_METHOD;
  int rc = commObj_.commFunc.commRead(&commObj_, buf, n);
  if (rc == 0) sessSetUint64(sessBytesRecv, sessGetUint64(sessBytesRecv) + n);
  return rc;
}

int Sess_o::WriteRaw(const unsigned char* buf, uint32_t n) {
  if (!connected_) return COMM_RC_METHOD;
  int rc = commObj_.commFunc.commWrite(&commObj_, buf, n);
  if (rc == 0) sessSetUint64(sessBytesSent, sessGetUint64(sessBytesSent) + n);
  return rc;
}

// Reads one verb into |*bufP| (moving it to the session's receive buffer
// when a bulk verb does not fit the caller's).
int Sess_o::RecvOne(unsigned char** bufP, bool callerBuf) {
  unsigned char* buf = *bufP;
  int rc = RecvRaw(buf, VERB_SHORT_HDR_LEN);
  if (rc != 0) {
    SESS_TRACE(TR_SESSION | TR_SESSVERB, "sessRecvVerb(): reading the verb header failed\n");
    SESS_TRACE_MSG(TR_SESSION | TR_SESSVERB | TR_ERROR, 20024, rc);
    BreakAndClose();
    return rc;
  }
  if (buf[3] != VERB_MAGIC) {
    SESS_DIAG("sessRecvVerb(): Invalid verb received.\n");
    SESS_DIAG("sessRecvVerb(): length=%04x, verb=%02x,magic=%02x\n", GetTwo(buf), buf[2], buf[3]);
    BreakAndClose();
    return SESS_RC_PROTOCOL;
  }
  uint32_t hdrLen = VERB_SHORT_HDR_LEN;
  if (buf[2] == VERB_EXTENDED) {
    rc = RecvRaw(buf + VERB_SHORT_HDR_LEN, VERB_EXT_HDR_LEN - VERB_SHORT_HDR_LEN);
    if (rc != 0) {
      SESS_TRACE_MSG(TR_SESSION | TR_SESSVERB | TR_ERROR, 20024, rc);
      BreakAndClose();
      return rc;
    }
    hdrLen = VERB_EXT_HDR_LEN;
  }
  uint32_t type = verbType(buf), len = verbLength(buf);
  uint32_t limit = sessGetBool(sessLargeBuffers) ? VERB_MAX_LEN_LARGE : VERB_MAX_LEN;
  if (len < hdrLen) {  // shorter than its own header: no verb at all
    SESS_DIAG("sessRecvVerb(): Invalid verb received.\n");
    SESS_DIAG("sessRecvVerb(): length=%04x, verb=%02x,magic=%02x\n", len, buf[2], buf[3]);
    BreakAndClose();
    return SESS_RC_PROTOCOL;
  }
  if (type != VB_BulkData && len > limit) {
    SESS_DIAG("sessRecvVerb(): Verb exceeds allowed length.\n");
    SESS_DIAG("sessRecvVerb(): length=%04x, verb=%02x,magic=%02x\n", len, buf[2], buf[3]);
    BreakAndClose();
    return SESS_RC_PROTOCOL;
  }
  uint32_t capacity = callerBuf ? sessGetBufferSize() : static_cast<uint32_t>(recvBuf_.size());
  if (len > capacity) {
    unsigned char header[VERB_EXT_HDR_LEN];  // |buf| may be the buffer that grows
    std::memcpy(header, buf, hdrLen);
    try {
      if (recvBuf_.size() < len) recvBuf_.resize(len);
    } catch (const std::bad_alloc&) {
      SESS_DIAG("sessRecvVerb(): no memory for a verb of %u bytes\n", len);
      BreakAndClose();
      return PS_RC_NOMEM;
    }
    std::memmove(recvBuf_.data(), header, hdrLen);
    buf = recvBuf_.data();
    *bufP = buf;
  }
  if (len > hdrLen && (rc = RecvRaw(buf + hdrLen, len - hdrLen)) != 0) {
    SESS_TRACE_MSG(TR_SESSION | TR_SESSVERB | TR_ERROR, 20025, rc);
    BreakAndClose();
    return rc;
  }
  if (type != VB_CRC) sessSetUint64(sessVerbsRecv, sessGetUint64(sessVerbsRecv) + 1);
  SESS_TRACE_MSG(TR_VERBINFO | TR_SESSVERB, 20765, len, type, trVerbType(type));
  if (TR_VERBDETAIL) trPrintFormattedDump(buf, len < 256 ? len : 256, 16);
  return 0;
}

int Sess_o::CheckCRC(const unsigned char* crcVerb, unsigned char** bufP, bool callerBuf) {
  if (verbLength(crcVerb) != VERB_CRC_LEN) {
    SESS_DIAG("sessRecvVerb(): checksum verb of length %u\n", verbLength(crcVerb));
    BreakAndClose();
    return SESS_RC_PROTOCOL;
  }
  sessSetBool(sessCrcSeen, true);
  uint32_t serverCrc = GetFour(crcVerb + VERB_CRC_OFF_VALUE);
  uint32_t protectedType = GetFour(crcVerb + VERB_CRC_OFF_TYPE);
  int rc = RecvOne(bufP, callerBuf);
  if (rc != 0) return rc;
  const unsigned char* verb = *bufP;
  uint32_t type = verbType(verb);
  uint32_t clientCrc = 0;
  nqb_crc_32(verb, static_cast<int32_t>(verbLength(verb)), &clientCrc);
  if (type == VB_CRC || clientCrc != serverCrc || type != protectedType) {
    SESS_DIAG("Server CRC: %x, Client CRC: %x, Verb type: %s\n", serverCrc, clientCrc,
              trVerbType(type));
    nlprintf(1867, serverCrc, clientCrc, trVerbType(type));
    nlprintf(1871);
    BreakAndClose();
    return SESS_RC_PROTOCOL;
  }
  return 0;
}

int Sess_o::sessRecvVerb(unsigned char** verbP) {
  TRACE_ENTER_EXIT("Sess_o::sessRecvVerb");
  sessStateType next;
  if (int rc = Enter(sopVerb, "sessRecvVerb", 20023, &next)) return rc;
  if (verbP == nullptr) return PS_RC_BADARG;
  if (!PoolReady()) return COMM_RC_METHOD;
  bool callerBuf = *verbP != nullptr;
  unsigned char* buf = callerBuf ? *verbP : recvBuf_.data();
  int rc = RecvOne(&buf, callerBuf);
  if (rc == 0 && verbType(buf) == VB_CRC) {
    unsigned char crcVerb[VERB_CRC_LEN];
    std::memcpy(crcVerb, buf, verbLength(buf) < VERB_CRC_LEN ? verbLength(buf) : VERB_CRC_LEN);
    SetFour(crcVerb + 8, verbLength(buf));
    rc = CheckCRC(crcVerb, &buf, callerBuf);
  }
  if (rc != 0) return rc;
  *verbP = buf;
  return 0;
}

int Sess_o::SendCRC(const unsigned char* verb) {
  unsigned char crc[VERB_CRC_LEN];
  int rc = verbBuildCRC(verb, crc);
  if (rc != 0) return PS_RC_BADARG;
  SESS_TRACE(TR_VERBINFO | TR_SESSVERB, "Calculated CRC value: %x\n",
             GetFour(crc + VERB_CRC_OFF_VALUE));
  return WriteRaw(crc, VERB_CRC_LEN);
}

int Sess_o::sessSendVerb(const unsigned char* verb) {
  TRACE_ENTER_EXIT("Sess_o::sessSendVerb");
  sessStateType next;
  if (int rc = Enter(sopVerb, "sessSendVerb", 20027, &next)) return rc;
  if (verb == nullptr || verb[3] != VERB_MAGIC || verbLength(verb) < verbHdrLength(verb)) {
    SESS_DIAG("sessSendVerb(): the verb to send has no valid header\n");
    return PS_RC_BADARG;
  }
  uint32_t type = verbType(verb), len = verbLength(verb);
  int rc = 0;
  if (TestServerFuncBit(CAP_VERB_CRC)) {
    uint8_t mode = sessGetUint8(sessCrcMode);
    if (mode == 2 || (mode == 1 && IsDataVerb(type))) rc = SendCRC(verb);
  }
  if (rc == 0) rc = WriteRaw(verb, len);
  if (rc != 0) {
    nlprintf(20028, rc);
    return rc;
  }
  sessSetUint64(sessVerbsSent, sessGetUint64(sessVerbsSent) + 1);
  SESS_TRACE_MSG(TR_VERBINFO | TR_SESSVERB, 20768, len, type, trVerbType(type));
  if (TR_VERBDETAIL) trPrintFormattedDump(verb, len < 256 ? len : 256, 16);
  return 0;
}

int Sess_o::sessRecvBuff(unsigned char* buf, uint32_t max, uint32_t* got) {
  TRACE_ENTER_EXIT("Sess_o::sessRecvBuff");
  sessStateType next;
  if (int rc = Enter(sopVerb, "sessRecvBuff", 20029, &next)) return rc;
  if (buf == nullptr || got == nullptr) return PS_RC_BADARG;
  *got = 0;
  if (!connected_) return COMM_RC_METHOD;
  int rc = commObj_.commFunc.commRecvBuff(&commObj_, buf, max, got);
  if (rc != 0) {
    SESS_TRACE_MSG(TR_SESSION | TR_SESSVERB | TR_ERROR, 20025, rc);
    BreakAndClose();
    return rc;
  }
  sessSetUint64(sessBytesRecv, sessGetUint64(sessBytesRecv) + *got);
  return 0;
}

int Sess_o::sessFlushVerb() {
  TRACE_ENTER_EXIT("Sess_o::sessFlushVerb");
  sessStateType next;
  if (int rc = Enter(sopVerb, "sessFlushVerb", 20030, &next)) return rc;
  if (!connected_) return 0;
  int rc = commObj_.commFunc.commFlush(&commObj_);
  if (rc != 0) nlprintf(20026, rc);
  return rc;
}
