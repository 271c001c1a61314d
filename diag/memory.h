// Tracked allocation.
//
// Every block carries 12 bytes more than asked: a 4-byte guard word
// 0xABCDDCBA, the 4-byte total size, the caller's bytes, and the guard word
// again after them.  qmxFree checks both guards; a damaged guard is traced
// under MEMORY with the caller's file and line and the block is then not
// freed (it is leaked on purpose: freeing an overwritten block would damage
// the heap further).  Freeing null is traced and otherwise harmless.
//
// Call through the macros, which pass the caller's source file and line:
//
//   char* p = (char*)qmxMalloc(n);
//   p = (char*)qmxRealloc(p, 2 * n);
//   qmxFree(p);
//
// A block from qmxMalloc must be released with qmxFree, never free().
// Requests that would not fit the 4-byte size field fail (null).
// Thread safety: as safe as malloc.
#ifndef QMX_DIAG_MEMORY_H_
#define QMX_DIAG_MEMORY_H_

#include <cstddef>
#include <cstdint>

constexpr uint32_t qmxGuardWord = 0xABCDDCBAu;
constexpr size_t qmxBlockOverhead = 12;

// Null when out of memory (or the size does not fit the size field).
void* qmxMallocFL(size_t size, const char* file, int line);
// |count| * |size| bytes, zeroed; null on overflow or out of memory.
void* qmxCallocFL(size_t count, size_t size, const char* file, int line);
// Resizes a tracked block (null |ptr| allocates).  Null on failure, and the
// old block is then untouched, as with realloc.  A size of 0 frees the block
// and returns null.  A damaged block is reported and null returned.
void* qmxReallocFL(void* ptr, size_t size, const char* file, int line);
// Returns 0 when the block was freed, -1 for null or a damaged block.
int qmxFreeFL(void* ptr, const char* file, int line);

// Frees a singly linked list of tracked blocks, each of which begins with
// the pointer to the next one (null ends the list).
void qmxFreeMemoryListFL(void* head, const char* file, int line);

// The caller's size of a tracked block (0 for null).
size_t qmxBlockSize(const void* ptr);

#define qmxMalloc(size) qmxMallocFL((size), __FILE__, __LINE__)
#define qmxCalloc(count, size) qmxCallocFL((count), (size), __FILE__, __LINE__)
#define qmxRealloc(ptr, size) qmxReallocFL((ptr), (size), __FILE__, __LINE__)
#define qmxFree(ptr) qmxFreeFL((ptr), __FILE__, __LINE__)
#define qmxFreeMemoryList(head) qmxFreeMemoryListFL((head), __FILE__, __LINE__)

#endif  // QMX_DIAG_MEMORY_H_
