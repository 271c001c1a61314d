// Catalogue sources and their translation into catalogue-compiler input.
//
// A catalogue source (messages/<LANGUAGE>.msg) holds one message per entry:
//
//   # comment
//   <number> <severity> [<insert format> ...] | <text>
//
//   number    1 to 99999; numbers of five digits show four (the first digit
//             is dropped from the identifier the user sees)
//   severity  one letter: I informational, W warning, E error, S severe,
//             K kept-identifier notice, Z/T/R/L display text shown without
//             identifier (L is also logged), M retired (treated as absent)
//   inserts   the printf formats of the caller's arguments, in the order the
//             caller passes them: "%s", "%d", "%u", "%-8s", "%*d", "%ls"...
//   text      the message, from the one blank after the bar on (further
//             leading blanks are part of the text; trailing blanks are not);
//             {1} ... {n} place insert 1 ... n (each exactly
//             once, in any order, so translations may reorder them).
//             Escapes: \n newline, \t tab, \\ backslash, \{ and \} braces.
//             A newline is added at the end unless the text ends in \c.
//             A line ending in a single backslash continues on the next
//             line, which is taken exactly as written (blanks included).
//
// The generated file is input for the system's catalogue compiler: set 1,
// message n is "ANS" + the number in four (or five) digits + severity + " "
// + the body of diag/nlinsert.h, with control bytes written as octal
// escapes.
#ifndef QMX_MESSAGES_CATGEN_H_
#define QMX_MESSAGES_CATGEN_H_

#include <map>
#include <string>
#include <vector>

#include "diag/nlinsert.h"

struct catMessage_t {
  unsigned number = 0;
  char severity = 'I';
  std::vector<nlInsert_t> inserts;  // argument order
  std::string text;                 // template text with {n} resolved into
  std::vector<std::string> pieces;  //   pieces and slot order
  std::vector<unsigned char> order;
  int line = 0;  // source line of the entry
};

// Parses a whole source.  |name| is used in error texts.  Returns true and
// fills |out| (keyed by number); on failure returns false with one line per
// problem in |errors| ("<name>:<line>: <what>").
bool catParseSource(const std::string& name, const std::string& source,
                    std::map<unsigned, catMessage_t>* out, std::vector<std::string>* errors);

// Checks that every message of |national| exists in |reference| with the
// same severity and insert formats (callers pass arguments by the English
// source).  Returns false with the differences in |errors|.
bool catCheckAgainst(const std::string& name, const std::map<unsigned, catMessage_t>& national,
                     const std::map<unsigned, catMessage_t>& reference,
                     std::vector<std::string>* errors);

// The catalogue-compiler input for |messages|.
std::string catWriteCompilerInput(const std::string& sourceName,
                                  const std::map<unsigned, catMessage_t>& messages);

// The identifier text of message |number| with |severity|: "ANS0102W ".
std::string catIdentifier(unsigned number, char severity);

#endif  // QMX_MESSAGES_CATGEN_H_
