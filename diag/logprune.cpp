// Pruning a log of entries older than the retention days, and reading the
// entries of an existing log for conversion to a new maximum size.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>

#include "diag/logfile.h"
#include "diag/logfile_internal.h"
#include "diag/nl.h"
#include "platform/careful_file.h"
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
  char text[2048];
  va_list ap;
  va_start(ap, fmt);
  int n = vsnprintf(text, sizeof text, fmt, ap);
  va_end(ap);
  if (n < 0) return;
  int fd = psOpenOwnFile(PruneLogPath(logName).c_str(), O_WRONLY | O_APPEND, 0666, nullptr);
  if (fd < 0) return;
  // The pruning log is the pruner's last word: a failure here has nowhere
  // else to go.
  (void)psWriteAll(fd, text, std::min(static_cast<size_t>(n), sizeof text - 1));
  close(fd);
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

namespace {

// A file the pruner writes: its descriptor, and the report its first
// failure gets.
struct PruneOutput {
  int fd = -1;
  const char* what;  // "temp pruning file" or "saved pruning recs file"
  int write(const std::string& logName, const std::string& line) {
    if (psWriteAll(fd, line.data(), line.size()) == 0) return 0;
    int err = errno;
    logprune::Report(logName, "error writing to %s.\nerrno = %d, %s\n", what, err, strerror(err));
    return err;
  }
};

}  // namespace

int DLogFile::utPruneFile() {
  int inFd = psOpenForReading(name.c_str(), psNoLinks, nullptr);
  FILE* in = inFd >= 0 ? fdopen(inFd, "r") : nullptr;
  if (in == nullptr) {
    int err = errno;
    if (inFd >= 0) close(inFd);
    if (err == ENOENT) return 0;  // a new log: nothing to prune
    logprune::Report(name, "Couldn't open <%s> for pruning. errno = %d, %s\n", name.c_str(), err,
                     strerror(err));
    return err;
  }
  struct stat st;
  const mode_t mode = fstat(inFd, &st) == 0 ? (st.st_mode & 07777) : 0644;
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
  PruneOutput out{psOpenOwnFile(tmp.c_str(), O_WRONLY | O_TRUNC, mode, nullptr),
                  "temp pruning file"};
  if (out.fd < 0) {
    int err = errno;
    logprune::Report(name, "Couldn't open temp file <%s> for pruning.\nerrno = %d, %s\n",
                     tmp.c_str(), err, strerror(err));
    fclose(in);
    return err;
  }
  PruneOutput save{-1, "saved pruning recs file"};
  if (retentionMode == 'S' || retentionMode == 's') {
    std::string savePath =
        saveName.find('/') == std::string::npos ? DirOf(name) + "/" + saveName : saveName;
    save.fd = psOpenOwnFile(savePath.c_str(), O_WRONLY | O_APPEND, mode, nullptr);
    if (save.fd < 0) {
      int err = errno;
      logprune::Report(name,
                       "Couldn't open save file <%s> to save pruned log entries.\nerrno = %d, %s\n",
                       savePath.c_str(), err, strerror(err));
      fclose(in);
      close(out.fd);
      unlink(tmp.c_str());
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
      if (save.fd >= 0) err = save.write(name, line);
    } else {
      err = out.write(name, line);
    }
  }
  if (err == 0 && ferror(in)) {
    err = EIO;
    logprune::Report(name, "Couldn't read <%s> for pruning. errno = %d, %s\n", name.c_str(), err,
                     strerror(err));
  }
  fclose(in);
  if (save.fd >= 0 && close(save.fd) != 0 && err == 0) {
    err = errno;
    logprune::Report(name, "error writing to saved pruning recs file.\nerrno = %d, %s\n", err,
                     strerror(err));
  }
  if (err == 0 && fchmod(out.fd, mode) != 0) err = errno;
  if (close(out.fd) != 0 && err == 0) {
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
