// How a call's payloads are encoded and decoded from one description.
//
// A payload struct lists its fields in wire order, once, in a static
// function that a field visitor walks:
//   static void fields(auto& f, auto& s);                  request arguments
//   static void fields(auto& f, auto& s, int64_t result);  reply values (a
//                                                          layout may depend
//                                                          on the result)
// rdmFieldWriter writes the fields (|s| const), rdmFieldReader reads them
// (|s| filled in order), so the client and the daemon cannot disagree on a
// layout.  Field kinds, as rdm_proto.h names them:
//   u32 i32 u64 i64   integers (enums and plain ints are cast)
//   token name        dm_token_t, dm_attrname_t
//   bytes             std::vector<unsigned char>
//   text              std::string as bytes, without a NUL
//   cstring           std::string as bytes with its NUL (decoding needs the
//                     last byte to be NUL; bytes before it are kept as sent)
//   record            a struct as bytes of exactly its size (host layout)
//   records           std::vector<T> as bytes, a whole number of T
//   list              |count| items, each through |item|; |count| is a field
//                     of its own before it
// A struct may also say which decoded values make sense:
//   bool valid() const;                                  request arguments
//   bool valid(const Args& args, int64_t result) const;  reply values
// Decoding fails when a field can't be read, bytes are left over, or
// valid() is false.
//
// rdmFieldCodec<Args, Reply> turns two such structs into a call's codec:
//   static void encodeArgs(const Args&, rdmWriter*);
//   static bool decodeArgs(const void* p, size_t n, Args*);
//   static void encodeReply(const Reply&, int64_t result, rdmWriter*);
//   static bool decodeReply(const Args&, const void* p, size_t n,
//                           int64_t result, Reply*);
// (rdm_calls.h has one per call.)  On a failed decode the struct holds
// what was read before the failure, the rest zero.
#ifndef QMX_HSM_RDM_RDM_CODEC_H_
#define QMX_HSM_RDM_RDM_CODEC_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "hsm/rdm/rdm_proto.h"

class rdmFieldWriter {
 public:
  explicit rdmFieldWriter(rdmWriter* w) : w_(w) {}
  template <class T>
  void u32(const T& v) {
    w_->u32(static_cast<uint32_t>(v));
  }
  template <class T>
  void i32(const T& v) {
    w_->i32(static_cast<int32_t>(v));
  }
  template <class T>
  void u64(const T& v) {
    w_->u64(static_cast<uint64_t>(v));
  }
  template <class T>
  void i64(const T& v) {
    w_->i64(static_cast<int64_t>(v));
  }
  void token(const dm_token_t& t) { w_->token(t); }
  void name(const dm_attrname_t& n) { w_->name(n); }
  void bytes(const std::vector<unsigned char>& v) { w_->bytes(v.data(), v.size()); }
  void text(const std::string& s) { w_->bytes(s.data(), s.size()); }
  void cstring(const std::string& s) { w_->bytes(s.c_str(), s.size() + 1); }
  template <class T>
  void record(const T& r) {
    w_->bytes(&r, sizeof r);
  }
  template <class T>
  void records(const std::vector<T>& v) {
    w_->bytes(v.data(), v.size() * sizeof(T));
  }
  // Exactly |count| items: those of |v|, then default ones should |v| be
  // short, so that the items always agree with the count sent before.
  template <class T, class Item>
  void list(const std::vector<T>& v, uint32_t count, Item item) {
    const T none{};
    for (uint32_t i = 0; i < count; ++i) item(*this, i < v.size() ? v[i] : none);
  }

 private:
  rdmWriter* w_;
};

class rdmFieldReader {
 public:
  explicit rdmFieldReader(rdmReader* r) : r_(r) {}
  template <class T>
  void u32(T& v) {
    v = static_cast<T>(r_->u32());
  }
  template <class T>
  void i32(T& v) {
    v = static_cast<T>(r_->i32());
  }
  template <class T>
  void u64(T& v) {
    v = static_cast<T>(r_->u64());
  }
  template <class T>
  void i64(T& v) {
    v = static_cast<T>(r_->i64());
  }
  void token(dm_token_t& t) { t = r_->token(); }
  void name(dm_attrname_t& n) { n = r_->name(); }
  void bytes(std::vector<unsigned char>& v) {
    size_t n = 0;
    const unsigned char* p = r_->bytes(&n);
    v.assign(p, p + n);
  }
  void text(std::string& s) {
    size_t n = 0;
    const unsigned char* p = r_->bytes(&n);
    if (p != nullptr)
      s.assign(reinterpret_cast<const char*>(p), n);
    else
      s.clear();
  }
  void cstring(std::string& s) {
    size_t n = 0;
    const unsigned char* p = r_->bytes(&n);
    if (p == nullptr || n == 0 || p[n - 1] != '\0') return r_->fail();
    s.assign(reinterpret_cast<const char*>(p), n - 1);
  }
  template <class T>
  void record(T& r) {
    size_t n = 0;
    const unsigned char* p = r_->bytes(&n);
    if (p == nullptr || n != sizeof r) return r_->fail();
    std::memcpy(&r, p, sizeof r);
  }
  template <class T>
  void records(std::vector<T>& v) {
    size_t n = 0;
    const unsigned char* p = r_->bytes(&n);
    if (n % sizeof(T) != 0) return r_->fail();
    v.resize(n / sizeof(T));
    if (n > 0) std::memcpy(v.data(), p, n);
  }
  template <class T, class Item>
  void list(std::vector<T>& v, uint32_t count, Item item) {
    // Every item takes at least one byte: a count beyond what is left is
    // refused before anything is allocated for it.
    if (!r_->ok() || count > r_->left()) return r_->fail();
    v.resize(count);
    for (T& x : v) item(*this, x);
  }

 private:
  rdmReader* r_;
};

template <class A, class R>
struct rdmFieldCodec {
  using Args = A;
  using Reply = R;

  static void encodeArgs(const Args& a, rdmWriter* out) {
    rdmFieldWriter f(out);
    Args::fields(f, a);
  }
  static bool decodeArgs(const void* p, size_t n, Args* a) {
    rdmReader in(p, n);
    rdmFieldReader f(&in);
    Args::fields(f, *a);
    if (!in.done()) return false;
    if constexpr (requires { a->valid(); }) return a->valid();
    return true;
  }
  static void encodeReply(const Reply& v, int64_t result, rdmWriter* out) {
    rdmFieldWriter f(out);
    Reply::fields(f, v, result);
  }
  static bool decodeReply(const Args& a, const void* p, size_t n, int64_t result, Reply* v) {
    rdmReader in(p, n);
    rdmFieldReader f(&in);
    Reply::fields(f, *v, result);
    if (!in.done()) return false;
    if constexpr (requires { v->valid(a, result); }) return v->valid(a, result);
    return true;
  }
};

// Payloads without fields.
struct rdmNoArgs_t {
  static void fields(auto&, auto&) {}
};
struct rdmNoReply_t {
  static void fields(auto&, auto&, int64_t) {}
};

#endif  // QMX_HSM_RDM_RDM_CODEC_H_
