// Managed regions of our provider, kept per file in the extended attribute
// "trusted.qmxdm.regions": "QRG1", a little-endian u32 count, then per
// region i64 offset, u64 size, u32 flags, u32 opaque (little-endian).  The
// name lies outside "trusted.dmapi.", so no DM attribute can overwrite it.
#include <errno.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cstring>
#include <vector>

#include "hsm/provider/handle.h"
#include "hsm/provider/qmxdm.h"
#include "hsm/provider/regions.h"
#include "hsm/provider/session_registry.h"

namespace {

constexpr char kRegionAttr[] = "trusted.qmxdm.regions";
constexpr size_t kHead = 8;
constexpr size_t kRecord = 24;
constexpr uint32_t kAllFlags = DM_REGION_READ | DM_REGION_WRITE | DM_REGION_TRUNCATE;

int fail(int err) {
  errno = err;
  return -1;
}

void putLe(unsigned char* p, uint64_t v, int bytes) {
  for (int i = 0; i < bytes; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}

uint64_t getLe(const unsigned char* p, int bytes) {
  uint64_t v = 0;
  for (int i = 0; i < bytes; ++i) v |= static_cast<uint64_t>(p[i]) << (8 * i);
  return v;
}

// End of a region, with size 0 reaching to the end of any file.
uint64_t regionEnd(const dm_region_t& r) {
  return r.rg_size == 0 ? UINT64_MAX : static_cast<uint64_t>(r.rg_offset) + r.rg_size;
}

int prepare(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, qdmHandle_t* h) {
  if (qdmRegCheck(sid) != 0) return -1;
  if (qdmHandleDecode(hanp, hlen, h) != 0) return -1;
  return qdmRegCheckToken(sid, token);
}

}  // namespace

int qdmReadRegions(const char* path, std::vector<dm_region_t>* out) {
  out->clear();
  unsigned char small[kHead + 4 * kRecord];
  std::vector<unsigned char> big;
  unsigned char* buf = small;
  ssize_t n = getxattr(path, kRegionAttr, small, sizeof small);
  if (n < 0 && errno == ERANGE) {
    n = getxattr(path, kRegionAttr, nullptr, 0);
    if (n > 0) {
      big.resize(static_cast<size_t>(n));
      buf = big.data();
      n = getxattr(path, kRegionAttr, buf, big.size());
    }
  }
  if (n < 0) return errno == ENODATA ? 0 : -1;
  size_t len = static_cast<size_t>(n);
  if (len < kHead || std::memcmp(buf, "QRG1", 4) != 0) return fail(EIO);
  uint64_t count = getLe(buf + 4, 4);
  if (len != kHead + count * kRecord) return fail(EIO);
  for (uint64_t i = 0; i < count; ++i) {
    const unsigned char* p = buf + kHead + i * kRecord;
    dm_region_t r;
    r.rg_offset = static_cast<dm_off_t>(getLe(p, 8));
    r.rg_size = getLe(p + 8, 8);
    r.rg_flags = static_cast<uint32_t>(getLe(p + 16, 4));
    r.rg_opaque = static_cast<uint32_t>(getLe(p + 20, 4));
    out->push_back(r);
  }
  return 0;
}

int qdmCheckRegions(unsigned int nelem, const dm_region_t* regs) {
  if (nelem > QDM_MAX_REGIONS) return fail(E2BIG);
  for (unsigned int i = 0; i < nelem; ++i) {
    const dm_region_t& r = regs[i];
    if (r.rg_offset < 0 || (r.rg_flags & ~kAllFlags) != 0) return fail(EINVAL);
    if (r.rg_size != 0 && r.rg_size > UINT64_MAX - static_cast<uint64_t>(r.rg_offset))
      return fail(EINVAL);
    for (unsigned int j = 0; j < i; ++j) {
      const dm_region_t& o = regs[j];
      bool apart = regionEnd(r) <= static_cast<uint64_t>(o.rg_offset) ||
                   regionEnd(o) <= static_cast<uint64_t>(r.rg_offset);
      if (!apart) return fail(EINVAL);
    }
  }
  return 0;
}

extern "C" {

int qmxdm_set_region(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, unsigned int nelem,
                     dm_region_t* regbufp, dm_boolean_t* exactflagp) {
  qdmHandle_t h;
  if (prepare(sid, hanp, hlen, token, &h) != 0) return -1;
  if (exactflagp == nullptr || (nelem > 0 && regbufp == nullptr)) return fail(EFAULT);
  if (qdmCheckRegions(nelem, regbufp) != 0) return -1;
  struct statx stx;
  if (qdmHandleVerify(h, &stx) != 0) return -1;
  if (!S_ISREG(stx.stx_mode)) return fail(EINVAL);
  if (nelem == 0) {
    if (removexattr(h.path, kRegionAttr) != 0 && errno != ENODATA)
      return fail(qdmStaleErrno(errno));
  } else {
    std::vector<unsigned char> buf(kHead + nelem * kRecord);
    std::memcpy(buf.data(), "QRG1", 4);
    putLe(buf.data() + 4, nelem, 4);
    for (unsigned int i = 0; i < nelem; ++i) {
      unsigned char* p = buf.data() + kHead + i * kRecord;
      putLe(p, static_cast<uint64_t>(regbufp[i].rg_offset), 8);
      putLe(p + 8, regbufp[i].rg_size, 8);
      putLe(p + 16, regbufp[i].rg_flags, 4);
      putLe(p + 20, regbufp[i].rg_opaque, 4);
    }
    if (setxattr(h.path, kRegionAttr, buf.data(), buf.size(), 0) != 0)
      return fail(qdmStaleErrno(errno));
  }
  // Regions are stored as given, never widened, so events come exactly for
  // the bytes asked for.
  *exactflagp = DM_TRUE;
  return 0;
}

int qmxdm_get_region(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, unsigned int nelem,
                     dm_region_t* regbufp, unsigned int* nelemp) {
  qdmHandle_t h;
  if (prepare(sid, hanp, hlen, token, &h) != 0) return -1;
  if (nelemp == nullptr) return fail(EFAULT);
  std::vector<dm_region_t> regs;
  if (qdmReadRegions(h.path, &regs) != 0) return fail(qdmStaleErrno(errno));
  // No region attribute may also mean the file went away.
  if (regs.empty() && qdmHandleVerify(h, nullptr) != 0) return -1;
  *nelemp = static_cast<unsigned int>(regs.size());
  if (regs.size() > nelem) return fail(E2BIG);
  if (!regs.empty() && regbufp == nullptr) return fail(EFAULT);
  for (size_t i = 0; i < regs.size(); ++i) regbufp[i] = regs[i];
  return 0;
}

}  // extern "C"
