// Listings and dumps: enabled classes, the tables, the settings, memory.
#include <cctype>
#include <cstdint>
#include <cstring>
#include <string>

#include "diag/trace_internal.h"

namespace {

// "%08p" of the dump header: the pointer's text right-aligned in 8 columns.
std::string ptrText(const void* p) {
  char raw[32], out[40];
  snprintf(raw, sizeof(raw), "%p", p);
  snprintf(out, sizeof(out), "%8s", raw);
  return out;
}

char printable(unsigned char c) {
  return isprint(c) ? static_cast<char>(c) : '.';
}

}  // namespace

int trQuery() {
  trErrnoKeeper keep;
  if (!trCanOutPut()) return 0;
  std::string out = "Current trace classes enabled: ";
  bool any = false;
  for (const trClassEntry_t* e = ClassTable; e->keyword != nullptr; ++e) {
    if (!*e->flag) continue;
    out += any ? ", " : "\n ";
    out += e->keyword;
    any = true;
  }
  out += any ? "\n\n" : "\nNone\n\nTracing not active.\n";
  // One class list can be longer than a line buffer: write it in pieces.
  for (size_t at = 0; at < out.size(); at += 4000) trPrint("%s", out.substr(at, 4000).c_str());
  return 0;
}

int trQueryTraceFlags() {
  trErrnoKeeper keep;
  printf("Trace Class Table:\n");
  for (const trClassEntry_t* e = ClassTable; e->keyword != nullptr; ++e) {
    printf("%s%s", e == ClassTable ? "" : ", ", e->keyword);
  }
  printf("\n\nTrace Aggregate Table:\n");
  for (const trAggrEntry_t* a = AggrTable; a->keyword != nullptr; ++a) {
    printf("%s = %s\n", a->keyword, a->members);
  }
  fflush(stdout);
  return 0;
}

int trStatus(int /*kind*/, int mode) {
  trErrnoKeeper keep;
  const TraceObject* o = trObj;
  if (mode == 0) {
    printf("  TRACEFILE:    %s\n", o != nullptr ? o->configName : "");
    printf("  TRACEMAX :    %u\n", o != nullptr ? o->maxSize : 0);
    printf("  TRACESEGSIZE: %u\n", o != nullptr ? o->segSize : 0);
    printf("  TRACE STATUS: %s\n\n", o != nullptr && o->active ? "Enabled" : "Disabled");
  } else {
    unsigned column = 0;
    for (const trClassEntry_t* e = ClassTable; e->keyword != nullptr; ++e) {
      printf(*e->flag ? "  %-23sON " : "  %-23sOFF", e->keyword);
      if (++column % 3 == 0) printf("\n");
    }
    printf(column % 3 != 0 ? "\n\n" : "\n");
  }
  fflush(stdout);
  return 0;
}

int trPrintFormattedDump(const void* addr, unsigned len, unsigned width) {
  trErrnoKeeper keep;
  if (!trCanOutPut()) return 0;
  if (width == 0) width = 16;
  const unsigned char* bytes = static_cast<const unsigned char*>(addr);
  const unsigned char* last = len > 0 ? bytes + len - 1 : bytes;
  trPrint("\nDumping Memory Range %s - %s (%d Bytes)\n\n", ptrText(bytes).c_str(),
          ptrText(last).c_str(), static_cast<int>(len));
  trPrint("\n\n%s: ", ptrText(bytes).c_str());
  std::string row;
  char hex[8];
  unsigned inRow = 0;
  for (unsigned i = 0; i < len; ++i) {
    snprintf(hex, sizeof(hex), "%02X ", bytes[i]);
    row += hex;
    if (++inRow == width) {
      row += "    ";
      for (unsigned k = i + 1 - width; k <= i; ++k) row += printable(bytes[k]);
      // The row addresses are printed in 32 bits, as they always were.
      char next[24];
      snprintf(next, sizeof(next),
               "\n%08X: ", static_cast<unsigned>(reinterpret_cast<uintptr_t>(bytes + i + 1)));
      row += next;
      trPrint("%s", row.c_str());
      row.clear();
      inRow = 0;
    }
  }
  if (inRow > 0) {
    for (unsigned k = inRow; k < width; ++k) row += "   ";
    row += "    ";
    for (unsigned k = len - inRow; k < len; ++k) row += printable(bytes[k]);
    trPrint("%s", row.c_str());
  }
  trPrint("\n\n");
  return 0;
}

int trPrintStr(const char* buf, unsigned len, int form) {
  trErrnoKeeper keep;
  if (!trCanOutPut() || buf == nullptr) return 0;
  if (form == trStrHex) return trPrintFormattedDump(buf, len, 16);
  std::string text;
  text.reserve(len + 1);
  for (unsigned i = 0; i < len; ++i) text += printable(static_cast<unsigned char>(buf[i]));
  for (size_t at = 0; at < text.size(); at += 4000) trPrint("%s", text.substr(at, 4000).c_str());
  trPrint("\n");
  return 0;
}
