#include "session/signon_verbs.h"

#include <algorithm>
#include <cstring>

#include "session/verb.h"

namespace {

constexpr uint8_t kLayoutVersion = 1;

class Writer {
 public:
  explicit Writer(uint32_t type) : type_(type), v_(VERB_EXT_HDR_LEN, 0) {}
  void U8(uint8_t x) { v_.push_back(x); }
  void U16(uint16_t x) {
    U8(static_cast<uint8_t>(x >> 8));
    U8(static_cast<uint8_t>(x));
  }
  void U32(uint32_t x) {
    U16(static_cast<uint16_t>(x >> 16));
    U16(static_cast<uint16_t>(x));
  }
  void Raw(const unsigned char* p, size_t n) { v_.insert(v_.end(), p, p + n); }
  void Str(const std::string& s, size_t max) {
    size_t n = std::min(s.size(), max);
    U8(static_cast<uint8_t>(n));
    Raw(reinterpret_cast<const unsigned char*>(s.data()), n);
  }
  void Bytes(const soBytes_t& b, size_t max) {
    size_t n = std::min(b.size(), max);
    U8(static_cast<uint8_t>(n));
    Raw(b.data(), n);
  }
  // Puts the header in front; short types get the 4-byte header.
  soBytes_t Finish() {
    uint32_t body = static_cast<uint32_t>(v_.size()) - VERB_EXT_HDR_LEN;
    if (type_ < 0x100) {
      v_.erase(v_.begin(), v_.begin() + (VERB_EXT_HDR_LEN - VERB_SHORT_HDR_LEN));
      verbSetShortHdr(v_.data(), static_cast<uint8_t>(type_),
                      static_cast<uint16_t>(body + VERB_SHORT_HDR_LEN));
    } else {
      verbSetExtHdr(v_.data(), type_, body + VERB_EXT_HDR_LEN);
    }
    return std::move(v_);
  }

 private:
  uint32_t type_;
  soBytes_t v_;
};

// Bounded reader over a verb body: every read past the end sets the error
// flag and yields zeros, so a hostile peer can make a parse fail but never
// make it read outside the verb.
class Reader {
 public:
  Reader(const unsigned char* verb, uint32_t expectedType) {
    if (verb == nullptr || verb[3] != VERB_MAGIC || verbType(verb) != expectedType) {
      bad_ = true;
      return;
    }
    uint32_t hdr = verbHdrLength(verb), len = verbLength(verb);
    if (len < hdr) {
      bad_ = true;
      return;
    }
    p_ = verb + hdr;
    end_ = verb + len;
  }
  bool Take(size_t n) {
    if (bad_ || static_cast<size_t>(end_ - p_) < n) {
      bad_ = true;
      return false;
    }
    return true;
  }
  uint8_t U8() { return Take(1) ? *p_++ : 0; }
  uint16_t U16() {
    if (!Take(2)) return 0;
    uint16_t x = GetTwo(p_);
    p_ += 2;
    return x;
  }
  uint32_t U32() {
    if (!Take(4)) return 0;
    uint32_t x = GetFour(p_);
    p_ += 4;
    return x;
  }
  void Raw(unsigned char* out, size_t n) {
    if (!Take(n)) return;
    std::memcpy(out, p_, n);
    p_ += n;
  }
  std::string Str(size_t min, size_t max) {
    size_t n = U8();
    if (n < min || n > max) bad_ = true;
    if (!Take(n)) return std::string();
    std::string s(reinterpret_cast<const char*>(p_), n);
    p_ += n;
    return s;
  }
  soBytes_t Bytes(size_t min, size_t max) {
    size_t n = U8();
    if (n < min || n > max) bad_ = true;
    if (!Take(n)) return soBytes_t();
    soBytes_t b(p_, p_ + n);
    p_ += n;
    return b;
  }
  int Result() const { return bad_ ? SO_RC_MALFORMED : 0; }

 private:
  const unsigned char* p_ = nullptr;
  const unsigned char* end_ = nullptr;
  bool bad_ = false;
};

}  // namespace

soBytes_t soBuildSignOn(const soSignOn_t& in) {
  Writer w(in.enhanced ? VB_SignOnEnhanced : VB_SignOn);
  w.U8(kLayoutVersion);
  if (in.enhanced) {
    w.U16(in.version);
    w.U16(in.release);
    w.U16(in.level);
    w.U8(in.flags);
  }
  w.Str(in.node, SO_NAME_MAX);
  w.Str(in.platform, SO_NAME_MAX);
  if (in.enhanced) w.Bytes(in.clientMap, SO_MAP_MAX);
  return w.Finish();
}

int soParseSignOn(const unsigned char* verb, soSignOn_t* out) {
  bool enhanced = verb != nullptr && verb[2] == VERB_EXTENDED;
  Reader r(verb, enhanced ? VB_SignOnEnhanced : VB_SignOn);
  out->enhanced = enhanced;
  if (r.U8() != kLayoutVersion) return SO_RC_MALFORMED;
  if (enhanced) {
    out->version = r.U16();
    out->release = r.U16();
    out->level = r.U16();
    out->flags = r.U8();
  }
  out->node = r.Str(1, SO_NAME_MAX);
  out->platform = r.Str(0, SO_NAME_MAX);
  if (enhanced) out->clientMap = r.Bytes(0, SO_MAP_MAX);
  return r.Result();
}

soBytes_t soBuildSignOnResp(const soSignOnResp_t& in) {
  Writer w(in.enhanced ? VB_SignOnEResp : VB_SignOnResp);
  w.U16(in.result);
  w.U8(in.flags);
  if (in.enhanced) {
    w.U16(in.version);
    w.U16(in.release);
    w.U16(in.level);
  }
  w.Bytes(in.salt, AUTH_SALT_MAX);
  w.U32(in.iterations);
  w.Raw(in.nonce.data(), in.nonce.size());
  w.Str(in.serverName, SO_NAME_MAX);
  w.Bytes(in.serverMap, SO_MAP_MAX);
  if (in.enhanced) w.Bytes(in.agentMap, SO_MAP_MAX);
  return w.Finish();
}

int soParseSignOnResp(const unsigned char* verb, soSignOnResp_t* out) {
  bool enhanced = verb != nullptr && verb[2] == VERB_EXTENDED;
  Reader r(verb, enhanced ? VB_SignOnEResp : VB_SignOnResp);
  out->enhanced = enhanced;
  out->result = r.U16();
  out->flags = r.U8();
  if (enhanced) {
    out->version = r.U16();
    out->release = r.U16();
    out->level = r.U16();
  }
  out->salt = r.Bytes(1, AUTH_SALT_MAX);
  out->iterations = r.U32();
  r.Raw(out->nonce.data(), out->nonce.size());
  out->serverName = r.Str(0, SO_NAME_MAX);
  out->serverMap = r.Bytes(0, SO_MAP_MAX);
  if (enhanced) out->agentMap = r.Bytes(0, SO_MAP_MAX);
  return r.Result();
}

soBytes_t soBuildAuthenticate(const soAuthenticate_t& in) {
  Writer w(VB_Authenticate);
  w.Raw(in.clientNonce.data(), in.clientNonce.size());
  w.Raw(in.response.data(), in.response.size());
  return w.Finish();
}

int soParseAuthenticate(const unsigned char* verb, soAuthenticate_t* out) {
  Reader r(verb, VB_Authenticate);
  r.Raw(out->clientNonce.data(), out->clientNonce.size());
  r.Raw(out->response.data(), out->response.size());
  return r.Result();
}

soBytes_t soBuildAuthResult(const soAuthResult_t& in) {
  Writer w(VB_AuthResult);
  w.U16(in.result);
  w.Raw(in.proof.data(), in.proof.size());
  return w.Finish();
}

int soParseAuthResult(const unsigned char* verb, soAuthResult_t* out) {
  Reader r(verb, VB_AuthResult);
  out->result = r.U16();
  r.Raw(out->proof.data(), out->proof.size());
  return r.Result();
}

soBytes_t soBuildUpdVerifier(const soUpdVerifier_t& in) {
  Writer w(VB_UpdVerifier);
  w.Bytes(in.salt, AUTH_SALT_MAX);
  w.U32(in.iterations);
  w.Raw(in.iv, sizeof in.iv);
  w.Raw(in.cipher, sizeof in.cipher);
  w.Raw(in.tag, sizeof in.tag);
  return w.Finish();
}

int soParseUpdVerifier(const unsigned char* verb, soUpdVerifier_t* out) {
  Reader r(verb, VB_UpdVerifier);
  out->salt = r.Bytes(1, AUTH_SALT_MAX);
  out->iterations = r.U32();
  r.Raw(out->iv, sizeof out->iv);
  r.Raw(out->cipher, sizeof out->cipher);
  r.Raw(out->tag, sizeof out->tag);
  return r.Result();
}

soBytes_t soBuildUpdVerifierResp(uint16_t result) {
  Writer w(VB_UpdVerifierResp);
  w.U16(result);
  return w.Finish();
}

int soParseUpdVerifierResp(const unsigned char* verb, uint16_t* result) {
  Reader r(verb, VB_UpdVerifierResp);
  *result = r.U16();
  return r.Result();
}
