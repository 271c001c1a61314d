// Tracked allocation with guard words around every block.
#include "diag/memory.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "diag/trace.h"

namespace {

constexpr size_t kHeader = 8;  // guard word and total size

uint32_t load32(const unsigned char* p) {
  uint32_t v;
  memcpy(&v, p, sizeof(v));
  return v;
}

void store32(unsigned char* p, uint32_t v) {
  memcpy(p, &v, sizeof(v));
}

// Lays out header and trailer around |raw| for |size| caller bytes.
void* frame(void* raw, size_t size) {
  unsigned char* base = static_cast<unsigned char*>(raw);
  store32(base, qmxGuardWord);
  store32(base + 4, static_cast<uint32_t>(size + qmxBlockOverhead));
  store32(base + kHeader + size, qmxGuardWord);
  return base + kHeader;
}

bool fits(size_t size) {
  return size <= UINT32_MAX - qmxBlockOverhead;
}

// Checks both guards of the block at |ptr|; traces a damaged one.  The
// header is checked first: with a damaged header the size can't be trusted
// to find the trailer.
unsigned char* checkedBase(void* ptr, const char* file, int line) {
  unsigned char* base = static_cast<unsigned char*>(ptr) - kHeader;
  if (load32(base) != qmxGuardWord) {
    if (TR_MEMORY) {
      trPrintf(__FILE__, __LINE__,
               "Block header invalid, possible memory overwrite. Addr %p, File %s, Line %d\n", ptr,
               file, line);
    }
    return nullptr;
  }
  uint32_t total = load32(base + 4);
  if (total < qmxBlockOverhead || load32(base + total - 4) != qmxGuardWord) {
    if (TR_MEMORY) {
      trPrintf(__FILE__, __LINE__,
               "Block trailer invalid, possible memory overwrite. Addr %p, File %s, Line %d\n", ptr,
               file, line);
    }
    return nullptr;
  }
  return base;
}

}  // namespace

void* qmxMallocFL(size_t size, const char* /*file*/, int /*line*/) {
  if (!fits(size)) return nullptr;
  void* raw = malloc(size + qmxBlockOverhead);
  return raw != nullptr ? frame(raw, size) : nullptr;
}

void* qmxCallocFL(size_t count, size_t size, const char* /*file*/, int /*line*/) {
  size_t total = 0;
  if (__builtin_mul_overflow(count, size, &total) || !fits(total)) return nullptr;
  void* raw = calloc(1, total + qmxBlockOverhead);
  return raw != nullptr ? frame(raw, total) : nullptr;
}

void* qmxReallocFL(void* ptr, size_t size, const char* file, int line) {
  if (ptr == nullptr) return qmxMallocFL(size, file, line);
  if (size == 0) {
    qmxFreeFL(ptr, file, line);
    return nullptr;
  }
  unsigned char* base = checkedBase(ptr, file, line);
  if (base == nullptr || !fits(size)) return nullptr;
  void* raw = realloc(base, size + qmxBlockOverhead);
  return raw != nullptr ? frame(raw, size) : nullptr;
}

int qmxFreeFL(void* ptr, const char* file, int line) {
  if (ptr == nullptr) {
    if (TR_MEMORY) {
      trPrintf(__FILE__, __LINE__, "Attempt to free NULL pointer. File %s Line %d\n", file, line);
    }
    return -1;
  }
  unsigned char* base = checkedBase(ptr, file, line);
  if (base == nullptr) return -1;
  // Clear the guard so that a second free of the same block is caught.
  store32(base, 0);
  free(base);
  return 0;
}

void qmxFreeMemoryListFL(void* head, const char* file, int line) {
  while (head != nullptr) {
    void* next;
    memcpy(&next, head, sizeof(next));
    qmxFreeFL(head, file, line);
    head = next;
  }
}

size_t qmxBlockSize(const void* ptr) {
  if (ptr == nullptr) return 0;
  const unsigned char* base = static_cast<const unsigned char*>(ptr) - kHeader;
  return load32(base + 4) - qmxBlockOverhead;
}
