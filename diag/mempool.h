// Memory pools: many small allocations released together.
//
// A pool hands out pieces of larger chunks and frees them all at once when
// it is destroyed; single pieces are never freed.  The directory lister of
// a command, for example, allocates every list node from one pool and
// destroys the pool when the listing is done.
//
//   mpHandle_t pool = qmxpCreate(4);          // chunks of 4 KB
//   char* s = qmxpStrDup(pool, path);
//   ...
//   qmxpDestroy(pool);
//
// Pieces are aligned for any fundamental type.  A piece larger than the
// chunk size gets a chunk of its own.
//
// Thread safety: the pool registry (create, destroy, mpDestroyAll) is
// locked; one pool must be used by one thread at a time.
#ifndef QMX_DIAG_MEMPOOL_H_
#define QMX_DIAG_MEMPOOL_H_

#include <cstddef>

// A pool handle; 0 is never a valid pool.
typedef int mpHandle_t;

// Creates a pool whose chunks hold |chunkKB| kilobytes (0 is taken as 1).
// Returns the handle, or 0 when out of memory.
mpHandle_t qmxpCreate(unsigned chunkKB);

// |size| bytes from the pool (0 is taken as 1).  Null when out of memory or
// when |pool| is not a live pool.
void* qmxpAlloc(mpHandle_t pool, size_t size);
// |size| zeroed bytes, as qmxpAlloc.
void* qmxpCalloc(mpHandle_t pool, size_t size);
// A copy of |text| in the pool; null as qmxpAlloc.
char* qmxpStrDup(mpHandle_t pool, const char* text);

// Frees every piece of |pool| and the pool.  Returns 0, or -1 when |pool| is
// not a live pool (nothing happens then).
int qmxpDestroy(mpHandle_t pool);

// Destroys every live pool (process clean-up).
void mpDestroyAll();

// Bytes handed out by |pool| so far (for statistics); 0 for a dead pool.
size_t qmxpBytesUsed(mpHandle_t pool);

#endif  // QMX_DIAG_MEMPOOL_H_
