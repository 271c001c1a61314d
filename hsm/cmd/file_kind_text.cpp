#include "hsm/cmd/file_kind_text.h"

#include <cstdlib>

#include "diag/nl.h"

namespace {

unsigned MessageOf(psFileKind_t kind) {
  switch (kind) {
    case psFileDirectory:
      return 14010;
    case psFileFifo:
      return 14011;
    case psFileSocket:
      return 14012;
    case psFileCharDevice:
      return 14013;
    case psFileBlockDevice:
      return 14014;
    case psFileSymlink:
      return 14015;
    default:
      return 14016;
  }
}

}  // namespace

std::string cmdFileKindText(psFileKind_t kind) {
  char* text = nullptr;
  std::string out;
  if (nlsprintf(&text, MessageOf(kind)) > 0 && text != nullptr) {
    out = text;
  } else {
    out = psFileKindName(kind);
  }
  std::free(text);
  return out;
}

bool cmdIsSpecialKind(psFileKind_t kind) {
  switch (kind) {
    case psFileDirectory:
    case psFileFifo:
    case psFileSocket:
    case psFileCharDevice:
    case psFileBlockDevice:
      return true;
    default:
      return false;
  }
}
