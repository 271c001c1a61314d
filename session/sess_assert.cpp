#include "session/sess_assert.h"

#include <cstdio>
#include <cstdlib>

void sessAssertFail(const char* what, const char* file, int line) {
  std::fprintf(stderr, "Assertion failed: %s, file %s, line %d\n", what, file, line);
  std::fflush(stderr);
  std::abort();
}
