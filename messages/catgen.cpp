#include "messages/catgen.h"

#include <cstdio>
#include <cstring>
#include <sstream>

namespace {

const char kSeverities[] = "ZTRKIWESLM";

std::string Where(const std::string& name, int line) {
  return name + ":" + std::to_string(line) + ": ";
}

std::string Trim(const std::string& s) {
  size_t b = s.find_first_not_of(" \t\r");
  if (b == std::string::npos) return "";
  size_t e = s.find_last_not_of(" \t\r");
  return s.substr(b, e - b + 1);
}

// Resolves escapes and {n} placeholders of one message text.
bool ParseText(const std::string& raw, size_t inserts, catMessage_t* m, std::string* why) {
  std::string cur;
  std::vector<int> used(inserts, 0);
  bool newline = true;
  m->pieces.clear();
  m->order.clear();
  for (size_t i = 0; i < raw.size(); ++i) {
    char c = raw[i];
    if (c == '\\') {
      if (i + 1 >= raw.size()) {
        *why = "the text ends in a lone backslash";
        return false;
      }
      char e = raw[++i];
      switch (e) {
        case 'n':
          cur.push_back('\n');
          break;
        case 't':
          cur.push_back('\t');
          break;
        case '\\':
          cur.push_back('\\');
          break;
        case '{':
          cur.push_back('{');
          break;
        case '}':
          cur.push_back('}');
          break;
        case 'c':
          if (i + 1 != raw.size()) {
            *why = "\\c may only end the text";
            return false;
          }
          newline = false;
          break;
        default:
          *why = std::string("unknown escape \\") + e;
          return false;
      }
      continue;
    }
    if (c == '{') {
      size_t close = raw.find('}', i);
      std::string num = close == std::string::npos ? "" : raw.substr(i + 1, close - i - 1);
      if (num.empty() || num.find_first_not_of("0123456789") != std::string::npos) {
        *why = "'{' must open an insert such as {1} (write \\{ for a brace)";
        return false;
      }
      unsigned k = static_cast<unsigned>(std::stoul(num));
      if (k < 1 || k > inserts) {
        *why = "insert {" + num + "} does not exist: the message declares " +
               std::to_string(inserts) + " insert(s)";
        return false;
      }
      if (used[k - 1]++ != 0) {
        *why = "insert {" + num + "} is placed twice";
        return false;
      }
      m->pieces.push_back(cur);
      m->order.push_back(static_cast<unsigned char>(k - 1));
      cur.clear();
      i = close;
      continue;
    }
    if (c == '}') {
      *why = "unmatched '}' (write \\} for a brace)";
      return false;
    }
    if (static_cast<unsigned char>(c) < 0x20) {
      *why = "control character in the text";
      return false;
    }
    cur.push_back(c);
  }
  if (newline) cur.push_back('\n');
  m->pieces.push_back(cur);
  for (size_t k = 0; k < inserts; ++k) {
    if (used[k] == 0) {
      *why = "insert {" + std::to_string(k + 1) + "} is declared but not placed in the text";
      return false;
    }
  }
  m->text = raw;
  return true;
}

bool ParseEntry(const std::string& entry, catMessage_t* m, std::string* why) {
  size_t bar = entry.find('|');
  if (bar == std::string::npos) {
    *why = "expected '<number> <severity> [inserts] | <text>'";
    return false;
  }
  std::istringstream head(entry.substr(0, bar));
  std::string num, sev, fmt;
  head >> num >> sev;
  if (num.empty() || num.size() > 5 || num.find_first_not_of("0123456789") != std::string::npos ||
      std::stoul(num) == 0) {
    *why = "the message number '" + num + "' is not a number from 1 to 99999";
    return false;
  }
  m->number = static_cast<unsigned>(std::stoul(num));
  if (sev.size() != 1 || strchr(kSeverities, sev[0]) == nullptr) {
    *why = "the severity '" + sev + "' is not one of Z T R K I W E S L M";
    return false;
  }
  m->severity = sev[0];
  m->inserts.clear();
  while (head >> fmt) {
    nlInsert_t ins;
    if (nlParseInsertFormat(fmt, &ins) != 0) {
      *why = "the insert format '" + fmt + "' is not a single printf conversion";
      return false;
    }
    m->inserts.push_back(ins);
  }
  if (m->inserts.size() > kNlMaxInserts) {
    *why = "more than 15 inserts";
    return false;
  }
  // The text starts after the one blank that follows the bar, so that a
  // text may begin with blanks of its own.
  std::string text = entry.substr(bar + 1);
  if (!text.empty() && text[0] == ' ') text.erase(0, 1);
  text.erase(text.find_last_not_of(" \t\r") + 1);
  if (text.empty()) {
    *why = "the message has no text";
    return false;
  }
  return ParseText(text, m->inserts.size(), m, why);
}

}  // namespace

std::string catIdentifier(unsigned number, char severity) {
  char id[16];
  snprintf(id, sizeof id, "ANS%04u%c ", number, severity);
  return id;
}

bool catParseSource(const std::string& name, const std::string& source,
                    std::map<unsigned, catMessage_t>* out, std::vector<std::string>* errors) {
  std::istringstream in(source);
  std::string line, entry;
  int lineNo = 0, entryLine = 0;
  bool ok = true;
  auto finish = [&]() {
    if (entry.empty()) return;
    catMessage_t m;
    std::string why;
    if (!ParseEntry(entry, &m, &why)) {
      errors->push_back(Where(name, entryLine) + why);
      ok = false;
    } else if (out->count(m.number) != 0) {
      errors->push_back(Where(name, entryLine) + "message " + std::to_string(m.number) +
                        " is defined twice (first at line " +
                        std::to_string((*out)[m.number].line) + ")");
      ok = false;
    } else {
      m.line = entryLine;
      (*out)[m.number] = std::move(m);
    }
    entry.clear();
  };
  bool continued = false;
  while (std::getline(in, line)) {
    ++lineNo;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!continued) {
      std::string t = Trim(line);
      if (t.empty() || t[0] == '#') continue;
      entryLine = lineNo;
    }
    // A line ending in an odd number of backslashes continues.
    size_t backslashes = 0;
    while (backslashes < line.size() && line[line.size() - 1 - backslashes] == '\\') ++backslashes;
    continued = backslashes % 2 == 1;
    if (continued) line.pop_back();
    entry += line;
    if (!continued) finish();
  }
  if (continued) {
    errors->push_back(Where(name, entryLine) + "the last entry ends in a continuation backslash");
    ok = false;
  }
  finish();
  return ok;
}

bool catCheckAgainst(const std::string& name, const std::map<unsigned, catMessage_t>& national,
                     const std::map<unsigned, catMessage_t>& reference,
                     std::vector<std::string>* errors) {
  bool ok = true;
  for (const auto& [num, m] : national) {
    auto it = reference.find(num);
    std::string where = Where(name, m.line) + "message " + std::to_string(num);
    if (it == reference.end()) {
      errors->push_back(where + " has no English original");
      ok = false;
      continue;
    }
    const catMessage_t& r = it->second;
    if (r.severity != m.severity) {
      errors->push_back(where + " has severity " + m.severity + " but the English one has " +
                        r.severity);
      ok = false;
    }
    bool same = r.inserts.size() == m.inserts.size();
    for (size_t i = 0; same && i < r.inserts.size(); ++i) {
      same = r.inserts[i].format == m.inserts[i].format;
    }
    if (!same) {
      errors->push_back(where + " takes other inserts than the English one");
      ok = false;
    }
  }
  return ok;
}

std::string catWriteCompilerInput(const std::string& sourceName,
                                  const std::map<unsigned, catMessage_t>& messages) {
  std::string out = "$ Generated from " + sourceName + " by qmx_catgen; do not edit.\n$set 1\n";
  for (const auto& [num, m] : messages) {
    std::string body;
    // The entries were validated while parsing, so encoding cannot fail.
    nlEncodeBody(m.inserts, m.order, m.pieces, &body);
    std::string text = catIdentifier(num, m.severity) + body;
    out += std::to_string(num);
    out += ' ';
    bool afterOctal = false;
    for (unsigned char c : text) {
      if (c == '\\') {
        out += "\\\\";
        afterOctal = false;
      } else if (c == '\n') {
        out += "\\n";
        afterOctal = false;
      } else if (c < 0x20 || c == 0x7F || (afterOctal && c >= '0' && c <= '9')) {
        // The compiler reads octal digits greedily, so a digit right after
        // an octal escape is escaped too.
        char oct[8];
        snprintf(oct, sizeof oct, "\\%03o", c);
        out += oct;
        afterOctal = true;
      } else {
        out += static_cast<char>(c);
        afterOctal = false;
      }
    }
    out += '\n';
  }
  return out;
}
