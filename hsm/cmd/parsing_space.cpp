#include "hsm/cmd/parsing_space.h"

#include <cstdlib>
#include <cstring>

#include "platform/platform_status.h"

int getParsingSpace(char*** array, int* count, int* capacity) {
  if (*array == nullptr) {
    *array = static_cast<char**>(std::calloc(kParsingSpaceStep, sizeof(char*)));
    if (*array == nullptr) {
      *count = 0;
      return PS_RC_NOMEM;
    }
    *capacity = kParsingSpaceStep;
    return 0;
  }
  if (*count < *capacity) return 0;
  int grown = *capacity + kParsingSpaceStep;
  char** bigger =
      static_cast<char**>(std::realloc(*array, static_cast<size_t>(grown) * sizeof(char*)));
  if (bigger == nullptr) {
    std::free(*array);
    *array = nullptr;
    *count = 0;
    return PS_RC_NOMEM;
  }
  std::memset(bigger + *capacity, 0, kParsingSpaceStep * sizeof(char*));
  *array = bigger;
  *capacity = grown;
  return 0;
}
