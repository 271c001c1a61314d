#include "options/opt_strlist.h"

#include <strings.h>

bool optStringList::contains(const std::string& text, bool caseSensitive) const {
  for (const std::string& s : items_) {
    if (caseSensitive ? s == text : strcasecmp(s.c_str(), text.c_str()) == 0) return true;
  }
  return false;
}

bool optStringList::add(const std::string& text, bool caseSensitive) {
  if (contains(text, caseSensitive)) return false;
  items_.push_back(text);
  return true;
}
