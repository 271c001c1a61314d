#include "session/sess_attr.h"

#include <cstdio>
#include <cstring>

#include "session/auth.h"
#include "session/sess_assert.h"

namespace {

// The index map: one row per attribute.
constexpr sessAttrDesc_t kAttrs[] = {
    {sessServerName, atString, "serverName", 0},
    {sessCommAddress, atString, "commAddress", 0},
    {sessCommMethodName, atString, "commMethodName", 0},
    {sessPswdDir, atString, "pswdDir", 0},
    {sessNodeName, atString, "nodeName", 0},
    {sessOwner, atString, "owner", 0},
    {sessSAAddress, atString, "saAddress", 0},
    {sessPlatform, atString, "platform", 0},
    {sessClientVersionStr, atString, "clientVersion", 0},

    {sessLargeBuffers, atBool, "largeBuffers", 0},
    {sessLargeGranted, atBool, "largeGranted", 0},
    {sessTcpNoDelay, atBool, "tcpNoDelay", 1},
    {sessEnhancedSignOn, atBool, "enhancedSignOn", 1},
    {sessPswdExpired, atBool, "pswdExpired", 0},
    {sessServerInitiated, atBool, "serverInitiated", 0},
    {sessMainSession, atBool, "mainSession", 0},
    {sessCanPrompt, atBool, "canPrompt", 0},
    {sessBroken, atBool, "broken", 0},
    {sessSAMode, atBool, "saMode", 0},
    {sessLanFreeMode, atBool, "lanFreeMode", 0},
    {sessObjectSetMode, atBool, "objectSetMode", 0},
    {sessFMMode, atBool, "fmMode", 0},
    {sessAuthenticated, atBool, "authenticated", 0},
    {sessServerProven, atBool, "serverProven", 0},
    {sessPswdFromFile, atBool, "pswdFromFile", 0},
    {sessPswdPrompted, atBool, "pswdPrompted", 0},
    {sessKeepOnExpiry, atBool, "keepOnExpiry", 0},
    {sessSignedOnOnce, atBool, "signedOnOnce", 0},
    {sessHaveSAMap, atBool, "haveSAMap", 0},
    {sessCrcSeen, atBool, "crcSeen", 0},
    {sessSignOffSent, atBool, "signOffSent", 0},
    {sessTraceVerbs, atBool, "traceVerbs", 0},
    {sessEventsPending, atBool, "eventsPending", 0},
    {sessPswdUpdated, atBool, "pswdUpdated", 0},

    {sessPswdAccess, atUint8, "pswdAccess", 0},
    {sessCrcMode, atUint8, "crcMode", 0},
    {sessInitType, atUint8, "initType", 0},
    {sessCapTestResult, atUint8, "capTestResult", 0},
    {sessClientType, atUint8, "clientType", 5},
    {sessCommMethod, atUint8, "commMethod", 1},
    {sessConnMode, atUint8, "connMode", 0},

    {sessCommPort, atUint16, "commPort", 1500},
    {sessSAPort, atUint16, "saPort", 1500},
    {sessServerVersion, atUint16, "serverVersion", 0},
    {sessServerRelease, atUint16, "serverRelease", 0},
    {sessServerLevel, atUint16, "serverLevel", 0},
    {sessLastSignOnRc, atUint16, "lastSignOnRc", 0},

    {sessBufferSize, atUint32, "bufferSize", 32 * 1024},
    {sessWindowSize, atUint32, "windowSize", 0},
    {sessRestartDuration, atUint32, "restartDuration", 0},
    {sessRestartInterval, atUint32, "restartInterval", 15000},
    {sessConnectTimeout, atUint32, "connectTimeout", 30000},
    {sessReadTimeout, atUint32, "readTimeout", 0},
    {sessVerifierIter, atUint32, "verifierIterations", AUTH_ITERATIONS_DEFAULT},
    {sessServerIter, atUint32, "serverIterations", 0},
    {sessMaxVerbLen, atUint32, "maxVerbLength", 32768},

    {sessBytesSent, atUint64, "bytesSent", 0},
    {sessBytesRecv, atUint64, "bytesReceived", 0},
    {sessVerbsSent, atUint64, "verbsSent", 0},
    {sessVerbsRecv, atUint64, "verbsReceived", 0},

    {sessServerNameRecv, atChar, "serverNameReported", 0},
    {sessServerPlatform, atChar, "serverPlatform", 0},

    {sessSignOnDate, atDate, "signOnDate", 0},
    {sessPswdSetDate, atDate, "pswdSetDate", 0},

    {sessLoginHandler, atVoid, "loginHandler", 0},
    {sessSchedHandler, atVoid, "schedHandler", 0},
    {sessUserData, atVoid, "userData", 0},

    {sessPassword, atPassword, "password", 0},
};

struct Index {
  const sessAttrDesc_t* byIndex[256] = {};
  Index() {
    for (const auto& d : kAttrs) byIndex[d.index] = &d;
  }
};

const Index& TheIndex() {
  static const Index idx;
  return idx;
}

// Slot of a character buffer, date or pointer within its small array.
constexpr unsigned kCharBase = 192, kDateBase = 208, kVoidBase = 216;

const char* TypeName(sessAttrType_t t) {
  static const char* const kNames[] = {"none",   "String", "Bool", "Uint8", "Uint16",  "Uint32",
                                       "Uint64", "Char",   "Date", "Void",  "Password"};
  return kNames[t];
}

}  // namespace

const sessAttrDesc_t* sessAttrDesc(uint8_t index) {
  return TheIndex().byIndex[index];
}

sessAttrStore::sessAttrStore() {
  std::memset(num_, 0, sizeof num_);
  std::memset(chars_, 0, sizeof chars_);
  std::memset(ptrs_, 0, sizeof ptrs_);
  for (const auto& d : kAttrs) num_[d.index] = d.numDefault;
}

sessAttrStore::~sessAttrStore() {
  std::string& pw = str_[sessPassword];
  if (!pw.empty()) authWipe(pw.data(), pw.size());
}

void sessAttrStore::Check(uint8_t idx, sessAttrType_t type, const char* who) const {
  const sessAttrDesc_t* d = sessAttrDesc(idx);
  if (d != nullptr && d->type == type) return;
  char what[160];
  std::snprintf(what, sizeof what, "%s: attribute index %u is not a %s attribute", who,
                static_cast<unsigned>(idx), TypeName(type));
  sessAssertFail(what, __FILE__, __LINE__);
}

uint64_t sessAttrStore::GetNum(uint8_t idx, sessAttrType_t type, const char* who) const {
  Check(idx, type, who);
  return num_[idx];
}

void sessAttrStore::SetNum(uint8_t idx, sessAttrType_t type, uint64_t v, const char* who) {
  Check(idx, type, who);
  num_[idx] = v;
}

const std::string& sessAttrStore::GetStr(uint8_t idx, sessAttrType_t type, const char* who) const {
  Check(idx, type, who);
  return str_[idx];
}

void sessAttrStore::SetStr(uint8_t idx, sessAttrType_t type, const char* v, const char* who) {
  Check(idx, type, who);
  std::string& s = str_[idx];
  if (type == atPassword && !s.empty()) authWipe(s.data(), s.size());
  s.assign(v == nullptr ? "" : v);
}

char* sessAttrStore::GetCharP(uint8_t idx, const char* who) {
  Check(idx, atChar, who);
  return chars_[idx - kCharBase];
}

nDate sessAttrStore::GetDate(uint8_t idx, const char* who) const {
  Check(idx, atDate, who);
  return dates_[idx - kDateBase];
}

void sessAttrStore::SetDate(uint8_t idx, const nDate& d, const char* who) {
  Check(idx, atDate, who);
  dates_[idx - kDateBase] = d;
}

void* sessAttrStore::GetVoid(uint8_t idx, const char* who) const {
  Check(idx, atVoid, who);
  return ptrs_[idx - kVoidBase];
}

void sessAttrStore::SetVoid(uint8_t idx, void* p, const char* who) {
  Check(idx, atVoid, who);
  ptrs_[idx - kVoidBase] = p;
}
