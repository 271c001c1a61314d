// Log files: opening, line writing and wrapping within a maximum size.
#include "diag/logfile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "diag/diag_status.h"
#include "diag/logfile_internal.h"
#include "diag/nlsobject.h"
#include "diag/trace.h"
#include "platform/clock.h"

DLogFile DLogFile::errorLogFile;
DLogFile DLogFile::schedLogFile;
DLogFile DLogFile::webLogFile;
DLogFile DLogFile::auditLogFile;

namespace {

int loggingOn = 1;
char endOfData[128] = "END OF DATA";
char continued[128] = "The log continues at the beginning of the file";

// A marker from the catalogue, quietly: a catalogue without it keeps the
// built-in text.
void LoadMarker(unsigned num, char* marker) {
  if (nlsObj == nullptr || nlsObj->catName != nlDefaultCatalogue) return;
  char* text = nullptr;
  if (nlsprintf(&text, num) > 0) {
    size_t n = strcspn(text, "\n");
    snprintf(marker, 128, "%.*s", static_cast<int>(n), text);
  }
  free(text);
}

}  // namespace

DLogFile::~DLogFile() {
  if (stream != nullptr) fclose(stream);
}

void DLogFile::setLoggingEnabled(int on) {
  loggingOn = on != 0;
}
int DLogFile::loggingEnabled() {
  return loggingOn;
}

void DLogFile::loadMarkers() {
  LoadMarker(9880, endOfData);
  LoadMarker(9881, continued);
}
const char* DLogFile::endOfDataMarker() {
  return endOfData;
}
const char* DLogFile::continuedMarker() {
  return continued;
}

int DLogFile::InitializeLogFile(DLogFile& log, unsigned long maxSize, const char* saveName,
                                unsigned retentionDays, char retentionMode, int oemText,
                                int noConvert) {
  psMutexGuard g(&nls_mutex);
  log.utCloseOutputFile();
  log.maxSize = maxSize;
  log.saveName = saveName != nullptr ? saveName : "";
  log.retentionDays = retentionDays;
  log.retentionMode = retentionMode;
  log.oemText = oemText;
  log.noConvert = noConvert;
  log.nextWrite = 0;
  log.wrapping = 0;
  log.lastError = 0;
  return 0;
}

int utBuildPath(const char* path) {
  if (path == nullptr || *path == '\0') return PS_RC_BADARG;
  std::string p = path;
  size_t slash = p.find_last_of('/');
  if (slash == std::string::npos || slash == 0) return 0;
  for (size_t at = p.find('/', 1); at != std::string::npos && at <= slash;
       at = p.find('/', at + 1)) {
    std::string dir = p.substr(0, at);
    struct stat st;
    if (stat(dir.c_str(), &st) == 0) {
      if (!S_ISDIR(st.st_mode)) {
        if (TR_GENERAL)
          trPrintf(__FILE__, __LINE__, "utBuildPath(): %s is not a directory\n", dir.c_str());
        return ENOTDIR;
      }
      continue;
    }
    if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST) {
      int err = errno;
      if (TR_GENERAL) {
        trPrintf(__FILE__, __LINE__, "utBuildPath(): mkdir(%s) failed, errno = %d, %s\n",
                 dir.c_str(), err, strerror(err));
      }
      return err;
    }
    if (TR_GENERAL)
      trPrintf(__FILE__, __LINE__, "utBuildPath(): created directory %s\n", dir.c_str());
  }
  return 0;
}

int DLogFile::utOpenOutputFile(const char* fileName) {
  if (fileName == nullptr || *fileName == '\0') return EINVAL;
  psMutexGuard g(&nls_mutex);
  utCloseOutputFile();
  name = fileName;
  lastError = 0;
  if (TR_GENERAL) trPrintf(__FILE__, __LINE__, "Opening log file '%s'\n", fileName);
  struct stat st;
  if (stat(fileName, &st) != 0 && errno == ENOENT) {
    int rc = utBuildPath(fileName);
    if (rc != 0) {
      lastError = rc;
      return rc;
    }
  }
  if (maxSize > 0) {
    wrapping = 1;
    int rc = utWrapFile();
    if (rc != 0) {
      lastError = rc;
      wrapping = 0;
    }
    return rc;
  }
  wrapping = 0;
  bool pruned = retentionDays > 0 && utPruneFile() == 0;
  stream = fopen(fileName, "a");
  if (stream == nullptr) {
    lastError = errno;
    if (pruned) {
      logprune::Report(name, "Couldn't reopen <%s> after pruning. errno = %d, %s\n", fileName,
                       lastError, strerror(lastError));
    }
    return lastError;
  }
  return 0;
}

int DLogFile::utCloseOutputFile() {
  if (stream == nullptr) return 0;
  int rc = fclose(stream) == 0 ? 0 : errno;
  stream = nullptr;
  return rc;
}

size_t DLogFile::headerLength() const {
  return logprune::HeaderText(0, maxSize).size();
}

int DLogFile::writeHeader(FILE* f, unsigned long next) {
  std::string h = logprune::HeaderText(next, maxSize);
  if (fseek(f, 0, SEEK_SET) != 0 || fwrite(h.data(), 1, h.size(), f) != h.size()) return errno;
  return 0;
}

int DLogFile::utCheckWrap(size_t length) {
  if (!wrapping || stream == nullptr) return 0;
  const size_t header = headerLength();
  // Another process may have written since: the header has the truth.
  char first[64] = {};
  unsigned long next = 0;
  if (fseek(stream, 0, SEEK_SET) == 0 && fgets(first, sizeof first, stream) != nullptr &&
      sscanf(first, "LOGHEADERREC %lu", &next) == 1) {
    nextWrite = next < header ? header : next;
  }
  if (nextWrite < header) nextWrite = header;
  const size_t eod = strlen(endOfData);
  const size_t cont = strlen(continued);
  if (nextWrite + length + 1 + eod >= maxSize - cont - 1 && maxSize > header + cont + 1) {
    // Close the round: the continued marker, then padding up to exactly
    // the maximum, and start again after the header.
    if (fseek(stream, static_cast<long>(nextWrite), SEEK_SET) != 0) return errno;
    fprintf(stream, "%s\n", continued);
    long at = ftell(stream);
    long remaining = static_cast<long>(maxSize) - at;
    if (remaining == 1) {
      fputs("\n", stream);
    } else if (remaining > 1) {
      fprintf(stream, "%*s\n", static_cast<int>(remaining - 1), "*");
    }
    if (fflush(stream) != 0) return errno;
    nextWrite = header;
  }
  if (fseek(stream, static_cast<long>(nextWrite), SEEK_SET) != 0) return errno;
  return 0;
}

int DLogFile::utSetNextWrite() {
  if (!wrapping || stream == nullptr) return 0;
  long at = ftell(stream);
  if (at < 0) return errno;
  nextWrite = static_cast<unsigned long>(at);
  char head[32];
  int n = snprintf(head, sizeof head, "LOGHEADERREC %-12lu", nextWrite);
  if (fseek(stream, 0, SEEK_SET) != 0 || fwrite(head, 1, n, stream) != static_cast<size_t>(n) ||
      fseek(stream, at, SEEK_SET) != 0) {
    return errno;
  }
  fprintf(stream, "%s\n", endOfData);
  if (TR_GENERAL) {
    trPrintf(__FILE__, __LINE__, "utSetNextWrite(): nextWrite for END OF DATA is %d .\n",
             static_cast<int>(nextWrite));
  }
  if (fflush(stream) != 0) return errno;
  return fseek(stream, at, SEEK_SET) == 0 ? 0 : errno;
}

int DLogFile::utWrapFile() {
  FILE* f = fopen(name.c_str(), "r+");
  if (f == nullptr) {
    if (errno != ENOENT) return errno;
    f = fopen(name.c_str(), "w+");
    if (f == nullptr) return errno;
    stream = f;
    // A new file: the header first, then the end-of-data marker after it.
    if (writeHeader(f, 0) != 0 || fseek(f, static_cast<long>(headerLength()), SEEK_SET) != 0) {
      int err = errno;
      utCloseOutputFile();
      return err;
    }
    return utSetNextWrite();
  }
  char first[256] = {};
  unsigned long next = 0, oldMax = 0;
  bool hasHeader = fgets(first, sizeof first, f) != nullptr &&
                   sscanf(first, "LOGHEADERREC %lu %lu", &next, &oldMax) == 2;
  // A header that points past the end of the file cannot be trusted.
  if (hasHeader && (fseek(f, 0, SEEK_END) != 0 || next > static_cast<unsigned long>(ftell(f)))) {
    hasHeader = false;
  }
  if (hasHeader && oldMax == maxSize) {
    stream = f;
    nextWrite = next < headerLength() ? headerLength() : next;
    return fseek(f, static_cast<long>(nextWrite), SEEK_SET) == 0 ? 0 : errno;
  }
  return convertWrapFile(f, hasHeader, next);
}

int DLogFile::convertWrapFile(FILE* old, bool hasHeader, unsigned long oldNext) {
  std::vector<std::string> lines;
  if (!noConvert) {
    lines = logprune::ReadEntries(old, hasHeader, oldNext, headerLength(), endOfData, continued);
  }
  fclose(old);
  // Keep the newest entries that fit below the wrap point of the new size.
  const size_t header = headerLength();
  const size_t room = maxSize > header + strlen(endOfData) + strlen(continued) + 3
                          ? maxSize - header - strlen(endOfData) - strlen(continued) - 3
                          : 0;
  size_t total = 0, first = lines.size();
  while (first > 0 && total + lines[first - 1].size() <= room) total += lines[--first].size();
  std::string tmp = name + ".tmp";
  FILE* t = fopen(tmp.c_str(), "w+");
  if (t == nullptr) return errno;
  std::string h = logprune::HeaderText(header + total, maxSize);
  bool ok = fwrite(h.data(), 1, h.size(), t) == h.size();
  for (size_t i = first; ok && i < lines.size(); ++i) {
    ok = fwrite(lines[i].data(), 1, lines[i].size(), t) == lines[i].size();
  }
  ok = ok && fflush(t) == 0;
  int err = ok ? 0 : errno;
  fclose(t);
  if (ok && rename(tmp.c_str(), name.c_str()) != 0) {
    ok = false;
    err = errno;
  }
  if (!ok) {
    remove(tmp.c_str());
    return err;
  }
  stream = fopen(name.c_str(), "r+");
  if (stream == nullptr) return errno;
  if (fseek(stream, static_cast<long>(header + total), SEEK_SET) != 0) return errno;
  return utSetNextWrite();
}

int DLogFile::writeLine(const char* text) {
  if (nlsObj == nullptr || text == nullptr) return PS_RC_BADARG;
  if (!loggingOn) return 0;
  if (nlLockMutex() != 0) return PS_RC_BADARG;
  if (stream == nullptr) {
    nlUnlockMutex();
    return 0;
  }
  time_t now;
  psGetTimeMs(&now, nullptr);
  struct tm lt;
  char date[64] = "", timeText[64] = "";
  if (psLocalTime(now, &lt) != nullptr) dateFmt(&lt, date, timeText, sizeof date);
  const size_t len = strlen(text);
  const bool addNewline = len == 0 || text[len - 1] != '\n';
  int rc = utCheckWrap(strlen(date) + strlen(timeText) + len + 2 + (addNewline ? 1 : 0));
  int written = 0;
  if (rc == 0) {
    written = fprintf(stream, "%s %s %s%s", date, timeText, text, addNewline ? "\n" : "");
    if (written < 0 || fflush(stream) != 0) rc = errno != 0 ? errno : EIO;
  }
  if (rc == 0) rc = utSetNextWrite();
  if (rc != 0) {
    lastError = rc;
    clearerr(stream);
    nlUnlockMutex();
    return DIAG_RC_LOGWRITE;
  }
  nlUnlockMutex();
  return written;
}

int LogMsg(const char* text) {
  return DLogFile::errorLogFile.writeLine(text);
}
int LogSchedMsg(const char* text) {
  return DLogFile::schedLogFile.writeLine(text);
}
int LogAuditMsg(const char* text) {
  return DLogFile::auditLogFile.writeLine(text);
}
