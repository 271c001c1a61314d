#include "platform/textfile.h"

#include <cerrno>
#include <cstring>

#include "platform/platform_status.h"

FILE* utOpenTextFile(const char* path, int* isUnicode) {
  if (isUnicode != nullptr) *isUnicode = 0;
  if (path == nullptr) {
    errno = EINVAL;
    return nullptr;
  }
  FILE* f = std::fopen(path, "re");
  if (f == nullptr) return nullptr;
  unsigned char bom[4] = {0, 0, 0, 0};
  size_t n = std::fread(bom, 1, sizeof bom, f);
  long skip = 0;
  bool wide = false;
  if (n >= 2 && ((bom[0] == 0xFF && bom[1] == 0xFE) || (bom[0] == 0xFE && bom[1] == 0xFF))) {
    wide = true;  // UTF-16 either way round, or UTF-32 little-endian
  } else if (n >= 4 && bom[0] == 0 && bom[1] == 0 && bom[2] == 0xFE && bom[3] == 0xFF) {
    wide = true;  // UTF-32 big-endian
  } else if (n >= 3 && bom[0] == 0xEF && bom[1] == 0xBB && bom[2] == 0xBF) {
    skip = 3;
  }
  if (isUnicode != nullptr) *isUnicode = wide ? 1 : 0;
  if (std::fseek(f, skip, SEEK_SET) != 0) {
    if (errno != ESPIPE) {
      int e = errno;
      std::fclose(f);
      errno = e;
      return nullptr;
    }
    // A pipe (a file list given as "<(command)") can't seek: the bytes
    // looked at go back into the stream instead, the last one first.
    for (size_t i = n; i > static_cast<size_t>(skip); --i) {
      if (std::ungetc(bom[i - 1], f) == EOF) {
        std::fclose(f);
        errno = EIO;
        return nullptr;
      }
    }
  }
  return f;
}

int GetQuotedToken(const char** cursor, char* token, size_t size) {
  if (cursor == nullptr || *cursor == nullptr || token == nullptr || size == 0) return PS_RC_BADARG;
  const char* p = *cursor;
  while (*p == ' ' || *p == '\t') ++p;
  const char* start = p;
  const char* end = nullptr;
  const char* next = nullptr;
  if (*p == '"' || *p == '\'') {
    const char* close = std::strchr(p + 1, *p);
    if (close == nullptr) {
      token[0] = '\0';
      return PS_RC_QUOTE;
    }
    start = p + 1;
    end = close;
    next = close + 1;
  } else {
    end = p;
    while (*end != '\0' && *end != ' ' && *end != '\t') ++end;
    next = end;
  }
  size_t n = static_cast<size_t>(end - start);
  if (n + 1 > size) {
    token[0] = '\0';
    return PS_RC_BADVALUE;
  }
  std::memcpy(token, start, n);
  token[n] = '\0';
  *cursor = next;
  return 0;
}
