// Pruning a log of entries older than the retention days, and reading the
// entries of an existing log for conversion to a new maximum size.
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>

#include "diag/logfile.h"
#include "diag/logfile_internal.h"
#include "diag/nl.h"
#include "platform/clock.h"

namespace {

const char kBanner[] = "NQB Space Management Client";

std::string DirOf(const std::string& path) {
  size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
}

// Days since the epoch of a calendar date (noon, so that daylight saving
// never moves it to another day).
long DayNumber(struct tm t) {
  t.tm_hour = 12;
  t.tm_min = t.tm_sec = 0;
  t.tm_isdst = -1;
  time_t s = mktime(&t);
  return s == static_cast<time_t>(-1) ? -1 : static_cast<long>(s / 86400);
}

bool IsPadding(const std::string& line) {
  // "%*s\n" with "*": blanks ending in an asterisk, or a lone newline
  // padding byte.
  if (line.size() >= 2 && line[line.size() - 2] == '*') {
    return line.find_first_not_of(' ') == line.size() - 2;
  }
  return false;
}

bool ReadLine(FILE* f, std::string* line) {
  line->clear();
  int c;
  while ((c = fgetc(f)) != EOF) {
    line->push_back(static_cast<char>(c));
    if (c == '\n') break;
  }
  return !line->empty();
}

}  // namespace

namespace logprune {

std::string HeaderText(unsigned long next, unsigned long maxSize) {
  char h[160];
  snprintf(h, sizeof h, "LOGHEADERREC %-12lu%-10lu %-40s %-11s\n\n", next, maxSize, kBanner,
           __DATE__);
  return h;
}

std::string PruneLogPath(const std::string& logName) {
  return DirOf(logName) + "/qmxprune.log";
}

void Report(const std::string& logName, const char* fmt, ...) {
  FILE* f = fopen(PruneLogPath(logName).c_str(), "a");
  if (f == nullptr) return;
  va_list ap;
  va_start(ap, fmt);
  vfprintf(f, fmt, ap);
  va_end(ap);
  fclose(f);
}

std::vector<std::string> ReadEntries(FILE* f, bool hasHeader, unsigned long next,
                                     size_t headerLength, const char* endOfData,
                                     const char* continued) {
  std::vector<std::string> older, newer;
  const std::string eod = std::string(endOfData) + "\n";
  const std::string cont = std::string(continued) + "\n";
  std::string line;
  auto keep = [&](std::vector<std::string>* to) {
    if (line == eod || line == cont || line == "\n" || IsPadding(line) ||
        line.compare(0, 13, "LOGHEADERREC ") == 0) {
      return;
    }
    if (line.back() != '\n') line.push_back('\n');
    to->push_back(line);
  };
  if (!hasHeader) {
    fseek(f, 0, SEEK_SET);
    while (ReadLine(f, &line)) keep(&older);
    return older;
  }
  if (next < headerLength) next = headerLength;
  // The older round: from the end-of-data marker to the continued marker.
  // What follows the marker up to the first dated line is the rest of a
  // line that the newer round overwrote.
  if (fseek(f, static_cast<long>(next), SEEK_SET) == 0) {
    bool started = false;
    while (ReadLine(f, &line)) {
      if (line == cont) break;
      if (!started && nlParseDate(line.c_str(), nullptr) == 0) continue;
      started = true;
      keep(&older);
    }
  }
  fseek(f, static_cast<long>(headerLength), SEEK_SET);
  long at = static_cast<long>(headerLength);
  while (at < static_cast<long>(next) && ReadLine(f, &line)) {
    at += static_cast<long>(line.size());
    keep(&newer);
  }
  older.insert(older.end(), newer.begin(), newer.end());
  return older;
}

}  // namespace logprune

int DLogFile::utPruneFile() {
  FILE* in = fopen(name.c_str(), "r");
  if (in == nullptr) {
    if (errno == ENOENT) return 0;  // a new log: nothing to prune
    int err = errno;
    logprune::Report(name, "Couldn't open <%s> for pruning. errno = %d, %s\n", name.c_str(), err,
                     strerror(err));
    return err;
  }
  time_t now;
  psGetTimeMs(&now, nullptr);
  struct tm today;
  if (psLocalTime(now, &today) == nullptr) {
    fclose(in);
    return EINVAL;
  }
  const long cutoff = DayNumber(today) - static_cast<long>(retentionDays);
  auto isOld = [&](const std::string& line, bool* dated) {
    struct tm d;
    *dated = nlParseDate(line.c_str(), &d) > 0;
    return *dated && DayNumber(d) < cutoff;
  };
  // Entries are appended in time order: when the first is young enough,
  // every other one is too, and the log is left alone.
  std::string line;
  bool dated = false;
  if (!ReadLine(in, &line) || (!isOld(line, &dated) && dated)) {
    fclose(in);
    return 0;
  }
  fseek(in, 0, SEEK_SET);
  logprune::Report(name, "Log Pruner started.\nLog Retention Days = %u.\n", retentionDays);

  const std::string tmp = name + ".prunetmp";
  FILE* out = fopen(tmp.c_str(), "w");
  if (out == nullptr) {
    int err = errno;
    logprune::Report(name, "Couldn't open temp file <%s> for pruning.\nerrno = %d, %s\n",
                     tmp.c_str(), err, strerror(err));
    fclose(in);
    return err;
  }
  FILE* save = nullptr;
  if (retentionMode == 'S' || retentionMode == 's') {
    std::string savePath =
        saveName.find('/') == std::string::npos ? DirOf(name) + "/" + saveName : saveName;
    save = fopen(savePath.c_str(), "a");
    if (save == nullptr) {
      int err = errno;
      logprune::Report(name,
                       "Couldn't open save file <%s> to save pruned log entries.\nerrno = %d, %s\n",
                       savePath.c_str(), err, strerror(err));
      fclose(in);
      fclose(out);
      remove(tmp.c_str());
      return err;
    }
  }
  unsigned long processed = 0, prunedLines = 0;
  bool pruneEntry = false;
  int err = 0;
  while (err == 0 && ReadLine(in, &line)) {
    ++processed;
    bool d;
    bool old = isOld(line, &d);
    if (d) pruneEntry = old;  // undated lines continue the entry above
    if (pruneEntry) {
      ++prunedLines;
      if (save != nullptr && fwrite(line.data(), 1, line.size(), save) != line.size()) {
        err = errno;
        logprune::Report(name, "error writing to saved pruning recs file.\nerrno = %d, %s\n", err,
                         strerror(err));
      }
    } else if (fwrite(line.data(), 1, line.size(), out) != line.size()) {
      err = errno;
      logprune::Report(name, "error writing to temp pruning file.\nerrno = %d, %s\n", err,
                       strerror(err));
    }
  }
  fclose(in);
  if (save != nullptr && fclose(save) != 0 && err == 0) {
    err = errno;
    logprune::Report(name, "error writing to saved pruning recs file.\nerrno = %d, %s\n", err,
                     strerror(err));
  }
  if (fclose(out) != 0 && err == 0) {
    err = errno;
    logprune::Report(name, "error writing to temp pruning file.\nerrno = %d, %s\n", err,
                     strerror(err));
  }
  // The pruned copy replaces the log in one step, so that a failure part
  // way leaves the original whole.
  if (err == 0 && rename(tmp.c_str(), name.c_str()) != 0) {
    err = errno;
    logprune::Report(name,
                     "Couldn't copy from temp file back to <%s> after pruning. errno = %d, "
                     "%s\noriginal log not pruned.",
                     name.c_str(), err, strerror(err));
  }
  if (err != 0) {
    int rc = remove(tmp.c_str());
    if (rc != 0 && errno != ENOENT) {
      logprune::Report(name, "Couldn't remove temporary pruning file %s. rc = %d\n", tmp.c_str(),
                       rc);
    }
    return err;
  }
  logprune::Report(name,
                   "Log Pruner: %lu lines processed. %lu lines pruned.\nLog Pruner finished.\n",
                   processed, prunedLines);
  return 0;
}
