#include "options/inclexcl.h"

#include <cctype>
#include <cstring>

#include "options/opt_callbacks.h"
#include "options/opt_types.h"

void inclExclList::setSpecialChars(char anyString, char oneChar) {
  anyString_ = anyString;
  oneChar_ = oneChar;
}

void inclExclList::clear(int source) {
  if (source == 0) {
    rules_.clear();
    return;
  }
  std::erase_if(rules_, [source](const inclExclRule_t& r) { return r.source == source; });
}

int inclExclList::add(int type, int objKind, const char* value, int source) {
  if (value == nullptr) return PS_RC_BADVALUE;
  std::vector<char> pattern(strlen(value) + 1);
  const char* rest = nullptr;
  int rc = optGetToken(value, pattern.data(), pattern.size(), &rest);
  if (rc != 0) return rc;
  if (pattern[0] == '\0') return PS_RC_BADVALUE;
  while (isspace(static_cast<unsigned char>(*rest))) ++rest;
  inclExclRule_t rule{type, objKind, pattern.data(), "", source};
  if (*rest != '\0') {
    // Only include rules bind a management class; nothing may follow it.
    if (type != 1) return PS_RC_BADVALUE;
    std::vector<char> mc(strlen(rest) + 1);
    const char* after = nullptr;
    rc = optGetToken(rest, mc.data(), mc.size(), &after);
    if (rc != 0) return rc;
    while (isspace(static_cast<unsigned char>(*after))) ++after;
    if (*after != '\0') return PS_RC_BADVALUE;
    for (char* p = mc.data(); *p; ++p)
      *p = static_cast<char>(toupper(static_cast<unsigned char>(*p)));
    rule.mgmtClass = mc.data();
  }
  rules_.push_back(std::move(rule));
  return PS_RC_OK;
}
