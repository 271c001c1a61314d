#include "hsm/rdm/rdm_proto.h"

#include <errno.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "platform/sysroot.h"

std::string rdmSocketPath() {
  return psSysPath("/run/qmxrootd.sock");
}

// ---- Payload encoding -------------------------------------------------

void rdmWriter::u32(uint32_t v) {
  for (int i = 0; i < 4; ++i) buf_.push_back(static_cast<unsigned char>(v >> (8 * i)));
}

void rdmWriter::u64(uint64_t v) {
  u32(static_cast<uint32_t>(v));
  u32(static_cast<uint32_t>(v >> 32));
}

void rdmWriter::bytes(const void* p, size_t n) {
  u32(static_cast<uint32_t>(n));
  raw(p, n);
}

void rdmWriter::raw(const void* p, size_t n) {
  if (n == 0) return;
  const unsigned char* b = static_cast<const unsigned char*>(p);
  buf_.insert(buf_.end(), b, b + n);
}

const unsigned char* rdmReader::take(size_t n) {
  if (!ok_ || n > n_ - pos_) {
    ok_ = false;
    return nullptr;
  }
  const unsigned char* p = p_ + pos_;
  pos_ += n;
  return p;
}

uint32_t rdmReader::u32() {
  const unsigned char* p = take(4);
  if (p == nullptr) return 0;
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
         static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

uint64_t rdmReader::u64() {
  uint64_t lo = u32();
  uint64_t hi = u32();
  return lo | hi << 32;
}

dm_attrname_t rdmReader::name() {
  dm_attrname_t n{};
  if (const unsigned char* p = take(sizeof n.an_chars))
    std::memcpy(n.an_chars, p, sizeof n.an_chars);
  return n;
}

const unsigned char* rdmReader::bytes(size_t* n) {
  uint32_t len = u32();
  *n = 0;
  if (!ok_ || len > rdmMaxPayload) {
    ok_ = false;
    return nullptr;
  }
  const unsigned char* p = take(len);
  if (p != nullptr) *n = len;
  return p;
}

// ---- Frames -------------------------------------------------------------

namespace {

int writeAll(int fd, const void* p, size_t n) {
  const char* b = static_cast<const char*>(p);
  while (n > 0) {
    // A peer that has gone is an error to report, not a signal.
    ssize_t w = send(fd, b, n, MSG_NOSIGNAL);
    if (w < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    b += w;
    n -= static_cast<size_t>(w);
  }
  return 0;
}

int readAll(int fd, void* p, size_t n) {
  char* b = static_cast<char*>(p);
  while (n > 0) {
    ssize_t r = read(fd, b, n);
    if (r < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    if (r == 0) {
      errno = ECONNRESET;
      return -1;
    }
    b += r;
    n -= static_cast<size_t>(r);
  }
  return 0;
}

void putHead(rdmWriter& w, uint16_t call, uint64_t key) {
  w.u32(rdmMagic);
  w.u32(static_cast<uint32_t>(rdmVersion) | static_cast<uint32_t>(call) << 16);
  w.u64(key);
}

// Reads the payload of |len| bytes after a header.
int readPayload(int fd, uint32_t len, std::vector<unsigned char>* out) {
  if (len > rdmMaxPayload) {
    errno = EPROTO;
    return -1;
  }
  out->resize(len);
  return len == 0 ? 0 : readAll(fd, out->data(), len);
}

// Checks magic and version of a header; fills call and key.
bool headOk(rdmReader& r, uint16_t* call, uint64_t* key) {
  uint32_t magic = r.u32();
  uint32_t vc = r.u32();
  *key = r.u64();
  *call = static_cast<uint16_t>(vc >> 16);
  return r.ok() && magic == rdmMagic && (vc & 0xFFFF) == rdmVersion;
}

}  // namespace

int rdmWriteRequest(int fd, const rdmRequest_t& req) {
  if (req.payload.size() > rdmMaxPayload) {
    errno = E2BIG;
    return -1;
  }
  rdmWriter w;
  putHead(w, req.call, req.key);
  w.u32(static_cast<uint32_t>(req.payload.size()));
  w.raw(req.payload.data(), req.payload.size());
  return writeAll(fd, w.data().data(), w.data().size());
}

int rdmReadRequest(int fd, rdmRequest_t* req) {
  unsigned char head[rdmRequestHeaderSize];
  if (readAll(fd, head, sizeof head) != 0) return -1;
  rdmReader r(head, sizeof head);
  if (!headOk(r, &req->call, &req->key)) {
    errno = EPROTO;
    return -1;
  }
  return readPayload(fd, r.u32(), &req->payload);
}

int rdmWriteReply(int fd, const rdmReply_t& rep) {
  if (rep.payload.size() > rdmMaxPayload) {
    errno = E2BIG;
    return -1;
  }
  rdmWriter w;
  putHead(w, rep.call, rep.key);
  w.i32(rep.status);
  w.i64(rep.result);
  w.i32(rep.err);
  w.u32(static_cast<uint32_t>(rep.payload.size()));
  w.raw(rep.payload.data(), rep.payload.size());
  return writeAll(fd, w.data().data(), w.data().size());
}

int rdmReadReply(int fd, rdmReply_t* rep) {
  unsigned char head[rdmReplyHeaderSize];
  if (readAll(fd, head, sizeof head) != 0) return -1;
  rdmReader r(head, sizeof head);
  if (!headOk(r, &rep->call, &rep->key)) {
    errno = EPROTO;
    return -1;
  }
  rep->status = r.i32();
  rep->result = r.i64();
  rep->err = r.i32();
  return readPayload(fd, r.u32(), &rep->payload);
}
