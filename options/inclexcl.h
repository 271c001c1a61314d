// The include-exclude list: the rules read from INCLUDE/EXCLUDE options and
// from the file named by INCLEXCL, kept in the order they were read.  The
// options layer only stores them; the backup and space-management engines
// match files against them.  Not thread-safe while it is being filled.
#ifndef QMX_OPTIONS_INCLEXCL_H_
#define QMX_OPTIONS_INCLEXCL_H_

#include <string>
#include <vector>

#include "options/opt_status.h"

struct inclExclRule_t {
  int type;               // 1 include, 2 exclude
  int objKind;            // optObjKind_e: what the rule applies to
  std::string pattern;    // the file pattern as written
  std::string mgmtClass;  // management class of an include rule ("" = none)
  int source;             // valid mode of the source that added it
};

class inclExclList {
 public:
  // Adds the rule of option row |type|/|objKind| with value |value|: a
  // quoted or plain pattern, for include rules optionally followed by a
  // management class.  Returns 0, PS_RC_BADVALUE (empty pattern, excess
  // words) or PS_RC_QUOTE (unclosed quote).
  int add(int type, int objKind, const char* value, int source);
  // Sets the wildcard characters (any string, one character).
  void setSpecialChars(char anyString, char oneChar);
  char anyStringChar() const { return anyString_; }
  char oneCharChar() const { return oneChar_; }
  // Drops every rule that came from |source| (all when |source| is 0).
  void clear(int source = 0);
  const std::vector<inclExclRule_t>& rules() const { return rules_; }

 private:
  std::vector<inclExclRule_t> rules_;
  char anyString_ = '*';
  char oneChar_ = '?';
};

#endif  // QMX_OPTIONS_INCLEXCL_H_
