#include "diag/nlinsert.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <cwctype>

#include "platform/platform_status.h"

namespace {

// A header byte that may be a placeholder: 0x10 reads back as 0.
unsigned char ReadSmall(unsigned char b) {
  return b == kNlPlaceholder ? 0 : b;
}
unsigned char WriteSmall(unsigned char v) {
  return v == 0 ? kNlPlaceholder : v;
}

// printf into |out| with exactly the arguments the insert asks for.
template <typename T>
int FormatOne(std::string* out, const char* fmt, unsigned stars, const int* star, T value) {
  char small[128];
  int n;
  switch (stars) {
    case 0:
      n = snprintf(small, sizeof small, fmt, value);
      break;
    case 1:
      n = snprintf(small, sizeof small, fmt, star[0], value);
      break;
    default:
      n = snprintf(small, sizeof small, fmt, star[0], star[1], value);
      break;
  }
  if (n < 0) return -1;
  if (static_cast<size_t>(n) < sizeof small) {
    out->append(small, n);
    return 0;
  }
  size_t at = out->size();
  out->resize(at + n + 1);
  switch (stars) {
    case 0:
      snprintf(&(*out)[at], n + 1, fmt, value);
      break;
    case 1:
      snprintf(&(*out)[at], n + 1, fmt, star[0], value);
      break;
    default:
      snprintf(&(*out)[at], n + 1, fmt, star[0], star[1], value);
      break;
  }
  out->resize(at + n);
  return 0;
}

// A wide string with every character that cannot be shown replaced by '?',
// so that a damaged name never breaks the message or the terminal.
std::wstring CleanWide(const wchar_t* s) {
  std::wstring w;
  if (s == nullptr) return L"(null)";
  for (; *s != L'\0'; ++s) w.push_back(iswprint(static_cast<wint_t>(*s)) ? *s : L'?');
  return w;
}

}  // namespace

int nlParseInsertFormat(const std::string& fmt, nlInsert_t* out) {
  nlInsert_t ins;
  size_t i = 0;
  if (fmt.size() < 2 || fmt[0] != '%') return PS_RC_BADARG;
  i = 1;
  while (i < fmt.size() && strchr("-+ #0'", fmt[i]) != nullptr) ++i;
  auto digitsOrStar = [&]() {
    if (i < fmt.size() && fmt[i] == '*') {
      ++ins.stars;
      ++i;
      return;
    }
    while (i < fmt.size() && fmt[i] >= '0' && fmt[i] <= '9') ++i;
  };
  digitsOrStar();
  if (i < fmt.size() && fmt[i] == '$') return PS_RC_BADARG;  // positional: not supported
  if (i < fmt.size() && fmt[i] == '.') {
    ++i;
    digitsOrStar();
  }
  int longs = 0;
  bool size64 = false;
  while (i < fmt.size() && strchr("hlLjzt", fmt[i]) != nullptr) {
    if (fmt[i] == 'l') ++longs;
    if (fmt[i] == 'j' || fmt[i] == 'z' || fmt[i] == 't' || fmt[i] == 'L') size64 = true;
    ++i;
  }
  if (i + 1 != fmt.size()) return PS_RC_BADARG;
  char conv = fmt[i];
  if (strchr("diouxXc", conv) != nullptr) {
    ins.type = (longs > 0 || size64) ? nlitInt64 : nlitInt;
  } else if (strchr("eEfFgGaA", conv) != nullptr) {
    if (fmt.find('L') != std::string::npos) return PS_RC_BADARG;  // long double is not carried
    ins.type = nlitDouble;
  } else if (conv == 's') {
    ins.type = nlitPointer;
    ins.wide = longs == 1;
    if (longs > 1 || size64) return PS_RC_BADARG;
  } else if (conv == 'p') {
    ins.type = nlitPointer;
  } else {
    return PS_RC_BADARG;  // %%, %n and unknown conversions take no insert
  }
  ins.format = fmt;
  *out = ins;
  return 0;
}

int nlEncodeBody(const std::vector<nlInsert_t>& inserts, const std::vector<unsigned char>& order,
                 const std::vector<std::string>& pieces, std::string* body) {
  for (const std::string& p : pieces) {
    for (unsigned char c : p) {
      if (c == kNlNoInserts || c == kNlOrderedInserts || c == kNlPlaceholder || c == 0)
        return PS_RC_BADARG;
    }
  }
  body->clear();
  if (inserts.empty()) {
    if (pieces.size() != 1 || !order.empty()) return PS_RC_BADARG;
    body->push_back(static_cast<char>(kNlNoInserts));
    body->append(pieces[0]);
    return 0;
  }
  const size_t n = inserts.size();
  if (n > kNlMaxInserts || order.size() != n || pieces.size() != n + 1) return PS_RC_BADARG;
  for (unsigned char o : order) {
    if (o >= n) return PS_RC_BADARG;
  }
  unsigned char countByte = static_cast<unsigned char>(n);
  for (size_t k = 0; k < 3 && k < n; ++k) {
    if (order[k] == 0) countByte |= static_cast<unsigned char>(0x10u << k);
  }
  body->push_back(static_cast<char>(kNlOrderedInserts));
  body->push_back(static_cast<char>(countByte));
  for (unsigned char o : order) body->push_back(static_cast<char>(WriteSmall(o)));
  for (const nlInsert_t& ins : inserts) {
    if (ins.format.empty() || ins.stars > 2) return PS_RC_BADARG;
    body->push_back(static_cast<char>(WriteSmall(ins.stars)));
    body->push_back(static_cast<char>(WriteSmall(ins.type)));
    body->append(ins.format);
    body->push_back(static_cast<char>(kNlPlaceholder));
  }
  for (size_t k = 0; k < pieces.size(); ++k) {
    if (k > 0) body->push_back(static_cast<char>(kNlPlaceholder));
    body->append(pieces[k]);
  }
  return 0;
}

size_t nlInsertTableLength(const char* body) {
  const unsigned char* b = reinterpret_cast<const unsigned char*>(body);
  if (b == nullptr) return 0;
  if (b[0] == kNlNoInserts) return 1;
  if (b[0] != kNlOrderedInserts || b[1] == 0) return 0;
  const size_t n = b[1] & 0x0F;
  if (n == 0) return 0;
  size_t at = 2;
  for (size_t k = 0; k < n; ++k) {
    if (b[at] == 0) return 0;
    ++at;
  }
  for (size_t k = 0; k < n; ++k) {
    if (b[at] == 0 || b[at + 1] == 0) return 0;
    at += 2;
    while (b[at] != kNlPlaceholder) {
      if (b[at] == 0) return 0;
      ++at;
    }
    ++at;
  }
  return at;
}

int nlDecodeBody(const char* body, nlBody_t* out) {
  const unsigned char* b = reinterpret_cast<const unsigned char*>(body);
  const size_t table = nlInsertTableLength(body);
  if (table == 0) return PS_RC_BADARG;
  out->inserts.clear();
  out->order.clear();
  out->pieces.clear();
  if (b[0] == kNlNoInserts) {
    out->pieces.emplace_back(body + 1);
    return 0;
  }
  const size_t n = b[1] & 0x0F;
  const unsigned mask = (b[1] >> 4) & 0x07;
  size_t at = 2;
  for (size_t k = 0; k < n; ++k, ++at) {
    unsigned char v = b[at];
    // The first three entries carry their placeholder bit in the count
    // byte; later ones are read by position (no entry can be 16).
    if (k < 3 && (mask & (1u << k)) != 0) v = 0;
    v = ReadSmall(v);
    if (v >= n) return PS_RC_BADARG;
    out->order.push_back(v);
  }
  for (size_t k = 0; k < n; ++k) {
    nlInsert_t ins;
    ins.stars = ReadSmall(b[at]);
    unsigned char type = ReadSmall(b[at + 1]);
    if (ins.stars > 2 || type > nlitDouble) return PS_RC_BADARG;
    ins.type = static_cast<nlInsertType_t>(type);
    at += 2;
    size_t start = at;
    while (b[at] != kNlPlaceholder) ++at;
    ins.format.assign(body + start, at - start);
    ++at;
    nlInsert_t check;
    if (nlParseInsertFormat(ins.format, &check) != 0 || check.type != ins.type ||
        check.stars != ins.stars) {
      return PS_RC_BADARG;
    }
    ins.wide = check.wide;
    out->inserts.push_back(std::move(ins));
  }
  const char* p = body + at;
  for (;;) {
    const char* slot = strchr(p, kNlPlaceholder);
    if (slot == nullptr) {
      out->pieces.emplace_back(p);
      break;
    }
    out->pieces.emplace_back(p, slot - p);
    p = slot + 1;
  }
  if (out->pieces.size() != n + 1) return PS_RC_BADARG;
  return 0;
}

int nlComposeBody(const nlBody_t& body, va_list args, std::string* out) {
  const size_t n = body.inserts.size();
  if (n == 0) {
    out->append(body.pieces.empty() ? std::string() : body.pieces[0]);
    return 0;
  }
  std::string values[kNlMaxInserts];
  for (size_t i = 0; i < n; ++i) {
    const nlInsert_t& ins = body.inserts[i];
    int star[2] = {0, 0};
    for (unsigned s = 0; s < ins.stars; ++s) star[s] = va_arg(args, int);
    const char* fmt = ins.format.c_str();
    int rc = 0;
    switch (ins.type) {
      case nlitPointer:
        if (ins.wide) {
          std::wstring clean = CleanWide(va_arg(args, const wchar_t*));
          rc = FormatOne(&values[i], fmt, ins.stars, star, clean.c_str());
          if (rc != 0) {
            // The locale cannot show some character: fall back to ASCII.
            for (wchar_t& c : clean) {
              if (c > 0x7E) c = L'?';
            }
            values[i].clear();
            rc = FormatOne(&values[i], fmt, ins.stars, star, clean.c_str());
          }
        } else if (fmt[ins.format.size() - 1] == 's') {
          const char* s = va_arg(args, const char*);
          rc = FormatOne(&values[i], fmt, ins.stars, star, s != nullptr ? s : "(null)");
        } else {
          rc = FormatOne(&values[i], fmt, ins.stars, star, va_arg(args, void*));
        }
        break;
      case nlitInt:
        rc = FormatOne(&values[i], fmt, ins.stars, star, va_arg(args, int));
        break;
      case nlitInt64:
        rc = FormatOne(&values[i], fmt, ins.stars, star, va_arg(args, long long));
        break;
      case nlitDouble:
        rc = FormatOne(&values[i], fmt, ins.stars, star, va_arg(args, double));
        break;
    }
    if (rc != 0) values[i] = "?";
  }
  size_t total = 0;
  for (const std::string& p : body.pieces) total += p.size();
  for (size_t i = 0; i < n; ++i) total += values[i].size();
  out->reserve(out->size() + total);
  for (size_t k = 0; k < body.pieces.size(); ++k) {
    out->append(body.pieces[k]);
    if (k < body.order.size()) out->append(values[body.order[k]]);
  }
  return 0;
}
