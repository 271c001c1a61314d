// Memory pools: chunked bump allocation, freed all at once.
#include "diag/mempool.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>

#include "platform/mutex.h"

namespace {

constexpr size_t kAlign = alignof(std::max_align_t);

struct Chunk {
  Chunk* next;
  size_t size;  // usable bytes after the (aligned) chunk header
  size_t used;
};

constexpr size_t kChunkHeader = (sizeof(Chunk) + kAlign - 1) / kAlign * kAlign;

struct Pool {
  size_t chunkSize;
  Chunk* chunks = nullptr;  // newest first; pieces come from the newest
  size_t bytesUsed = 0;
};

psMutex_t* registryMutex() {
  static psMutex_t mx = [] {
    psMutex_t m{};
    psMutexInit(&m, 0);
    return m;
  }();
  return &mx;
}

std::map<mpHandle_t, Pool*>& registry() {
  static auto* pools = new std::map<mpHandle_t, Pool*>();
  return *pools;
}

mpHandle_t nextHandle = 1;

Pool* lookup(mpHandle_t handle) {
  psMutexGuard guard(registryMutex());
  auto it = registry().find(handle);
  return it != registry().end() ? it->second : nullptr;
}

void freePool(Pool* pool) {
  for (Chunk* c = pool->chunks; c != nullptr;) {
    Chunk* next = c->next;
    free(c);
    c = next;
  }
  delete pool;
}

}  // namespace

mpHandle_t qmxpCreate(unsigned chunkKB) {
  Pool* pool = new (std::nothrow) Pool;
  if (pool == nullptr) return 0;
  pool->chunkSize = static_cast<size_t>(chunkKB == 0 ? 1 : chunkKB) * 1024;
  psMutexGuard guard(registryMutex());
  mpHandle_t handle = nextHandle++;
  if (nextHandle <= 0) nextHandle = 1;  // wrap around, skipping 0
  registry()[handle] = pool;
  return handle;
}

void* qmxpAlloc(mpHandle_t handle, size_t size) {
  Pool* pool = lookup(handle);
  if (pool == nullptr) return nullptr;
  if (size == 0) size = 1;
  if (size > SIZE_MAX - kAlign) return nullptr;
  size = (size + kAlign - 1) / kAlign * kAlign;
  Chunk* c = pool->chunks;
  if (c == nullptr || c->size - c->used < size) {
    size_t want = size > pool->chunkSize ? size : pool->chunkSize;
    if (want > SIZE_MAX - kChunkHeader) return nullptr;
    c = static_cast<Chunk*>(malloc(kChunkHeader + want));
    if (c == nullptr) return nullptr;
    c->size = want;
    c->used = 0;
    if (size > pool->chunkSize && pool->chunks != nullptr) {
      // An oversized piece gets its own chunk behind the current one, so the
      // current chunk's free room stays usable.
      c->next = pool->chunks->next;
      pool->chunks->next = c;
    } else {
      c->next = pool->chunks;
      pool->chunks = c;
    }
  }
  void* piece = reinterpret_cast<unsigned char*>(c) + kChunkHeader + c->used;
  c->used += size;
  pool->bytesUsed += size;
  return piece;
}

void* qmxpCalloc(mpHandle_t handle, size_t size) {
  void* p = qmxpAlloc(handle, size);
  if (p != nullptr) memset(p, 0, size);
  return p;
}

char* qmxpStrDup(mpHandle_t handle, const char* text) {
  if (text == nullptr) return nullptr;
  size_t len = strlen(text);
  char* copy = static_cast<char*>(qmxpAlloc(handle, len + 1));
  if (copy != nullptr) memcpy(copy, text, len + 1);
  return copy;
}

int qmxpDestroy(mpHandle_t handle) {
  Pool* pool = nullptr;
  {
    psMutexGuard guard(registryMutex());
    auto it = registry().find(handle);
    if (it == registry().end()) return -1;
    pool = it->second;
    registry().erase(it);
  }
  freePool(pool);
  return 0;
}

void mpDestroyAll() {
  std::map<mpHandle_t, Pool*> pools;
  {
    psMutexGuard guard(registryMutex());
    pools.swap(registry());
  }
  for (auto& entry : pools) freePool(entry.second);
}

size_t qmxpBytesUsed(mpHandle_t handle) {
  Pool* pool = lookup(handle);
  return pool != nullptr ? pool->bytesUsed : 0;
}
