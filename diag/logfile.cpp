// Log files: opening, line writing and wrapping within a maximum size.
#include "diag/logfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "diag/diag_status.h"
#include "diag/logfile_internal.h"
#include "diag/nl.h"
#include "diag/nlsobject.h"
#include "diag/trace.h"
#include "platform/careful_file.h"
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

// Writes |n| bytes at |p| to |fd| at offset |at|.  Returns 0 or an errno.
int WriteAt(int fd, unsigned long at, const char* p, size_t n) {
  if (lseek(fd, static_cast<off_t>(at), SEEK_SET) < 0) return errno;
  return psWriteAll(fd, p, n) == 0 ? 0 : errno;
}

// The first line of |fd| (at most |size| - 1 bytes) into |buf|; "" when
// there is none.
void FirstLine(int fd, char* buf, size_t size) {
  ssize_t n = pread(fd, buf, size - 1, 0);
  buf[n > 0 ? n : 0] = '\0';
  buf[strcspn(buf, "\n")] = '\0';
}

}  // namespace

DLogFile::~DLogFile() {
  if (fd >= 0) close(fd);
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

int utBuildPath(const char* path, mode_t mode) {
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
    if (mkdir(dir.c_str(), mode) != 0 && errno != EEXIST) {
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

int DLogFile::openChecked(int flags) {
  psFileKind_t kind = psFileRegular;
  int f = psOpenOwnFile(name.c_str(), flags, 0666, &kind);
  if (f < 0) {
    int err = errno;
    failedKind = kind;
    // A FIFO without a reader (ENXIO) or a directory (EISDIR) fails before
    // its kind is looked at; it is refused for what it is all the same.
    switch (kind) {
      case psFileDirectory:
      case psFileFifo:
      case psFileSocket:
      case psFileCharDevice:
      case psFileBlockDevice:
        err = EINVAL;
        break;
      default:
        break;
    }
    if (TR_GENERAL) {
      trPrintf(__FILE__, __LINE__, "Log file '%s' refused: %s (%s)\n", name.c_str(), strerror(err),
               psFileKindName(kind));
    }
    return err;
  }
  fd = f;
  return 0;
}

int DLogFile::utOpenOutputFile(const char* fileName) {
  if (fileName == nullptr || *fileName == '\0') return EINVAL;
  psMutexGuard g(&nls_mutex);
  utCloseOutputFile();
  name = fileName;
  lastError = 0;
  failedKind = psFileRegular;
  writeFailureShown = false;
  if (TR_GENERAL) trPrintf(__FILE__, __LINE__, "Opening log file '%s'\n", fileName);
  struct stat st;
  if (lstat(fileName, &st) != 0 && errno == ENOENT) {
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
      utCloseOutputFile();
    }
    return rc;
  }
  wrapping = 0;
  // The file is checked (and made) before the pruner reads or replaces it.
  int rc = openChecked(O_WRONLY | O_APPEND);
  if (rc == 0 && retentionDays > 0) {
    // Pruning puts a new file in the old one's place: the log is opened
    // again afterwards.
    utCloseOutputFile();
    bool pruned = utPruneFile() == 0;
    rc = openChecked(O_WRONLY | O_APPEND);
    if (rc != 0 && pruned) {
      logprune::Report(name, "Couldn't reopen <%s> after pruning. errno = %d, %s\n", fileName, rc,
                       strerror(rc));
    }
  }
  lastError = rc;
  return rc;
}

int DLogFile::utCloseOutputFile() {
  if (fd < 0) return 0;
  int rc = close(fd) == 0 ? 0 : errno;
  fd = -1;
  return rc;
}

size_t DLogFile::headerLength() const {
  return logprune::HeaderText(0, maxSize).size();
}

int DLogFile::utCheckWrap(size_t length) {
  if (!wrapping || fd < 0) return 0;
  const size_t header = headerLength();
  // Another process may have written since: the header has the truth.
  char first[64];
  FirstLine(fd, first, sizeof first);
  unsigned long next = 0;
  if (sscanf(first, "LOGHEADERREC %lu", &next) == 1) nextWrite = next < header ? header : next;
  if (nextWrite < header) nextWrite = header;
  const size_t eod = strlen(endOfData);
  const size_t cont = strlen(continued);
  if (nextWrite + length + 1 + eod >= maxSize - cont - 1 && maxSize > header + cont + 1) {
    // Close the round: the continued marker, then padding up to exactly
    // the maximum ("*" ending a run of blanks), and start again after the
    // header.
    std::string fill = std::string(continued) + "\n";
    long remaining = static_cast<long>(maxSize) - static_cast<long>(nextWrite + fill.size());
    if (remaining == 1) {
      fill += "\n";
    } else if (remaining > 1) {
      fill.append(static_cast<size_t>(remaining - 2), ' ').append("*\n");
    }
    int rc = WriteAt(fd, nextWrite, fill.data(), fill.size());
    if (rc != 0) return rc;
    nextWrite = header;
  }
  return 0;
}

int DLogFile::utSetNextWrite() {
  if (!wrapping || fd < 0) return 0;
  char head[32];
  int n = snprintf(head, sizeof head, "LOGHEADERREC %-12lu", nextWrite);
  int rc = WriteAt(fd, 0, head, static_cast<size_t>(n));
  if (rc != 0) return rc;
  std::string marker = std::string(endOfData) + "\n";
  rc = WriteAt(fd, nextWrite, marker.data(), marker.size());
  if (TR_GENERAL) {
    trPrintf(__FILE__, __LINE__, "utSetNextWrite(): nextWrite for END OF DATA is %d .\n",
             static_cast<int>(nextWrite));
  }
  return rc;
}

int DLogFile::utWrapFile() {
  int rc = openChecked(O_RDWR);
  if (rc != 0) return rc;
  struct stat st;
  if (fstat(fd, &st) != 0) return errno;
  if (st.st_size == 0) {
    // A new file: the header first, then the end-of-data marker after it.
    nextWrite = headerLength();
    std::string h = logprune::HeaderText(0, maxSize);
    rc = WriteAt(fd, 0, h.data(), h.size());
    return rc != 0 ? rc : utSetNextWrite();
  }
  char first[256];
  FirstLine(fd, first, sizeof first);
  unsigned long next = 0, oldMax = 0;
  bool hasHeader = sscanf(first, "LOGHEADERREC %lu %lu", &next, &oldMax) == 2;
  // A header that points past the end of the file cannot be trusted.
  if (hasHeader && next > static_cast<unsigned long>(st.st_size)) hasHeader = false;
  if (hasHeader && oldMax == maxSize) {
    nextWrite = next < headerLength() ? headerLength() : next;
    return 0;
  }
  return convertWrapFile(hasHeader, next);
}

int DLogFile::convertWrapFile(bool hasHeader, unsigned long oldNext) {
  std::vector<std::string> lines;
  if (!noConvert) {
    int copy = dup(fd);
    FILE* old = copy >= 0 ? fdopen(copy, "r") : nullptr;
    if (old == nullptr) {
      int err = errno;
      if (copy >= 0) close(copy);
      return err;
    }
    lines = logprune::ReadEntries(old, hasHeader, oldNext, headerLength(), endOfData, continued);
    fclose(old);
  }
  struct stat st;
  const mode_t mode = fstat(fd, &st) == 0 ? (st.st_mode & 07777) : 0644;
  utCloseOutputFile();
  // Keep the newest entries that fit below the wrap point of the new size.
  const size_t header = headerLength();
  const size_t room = maxSize > header + strlen(endOfData) + strlen(continued) + 3
                          ? maxSize - header - strlen(endOfData) - strlen(continued) - 3
                          : 0;
  size_t total = 0, first = lines.size();
  while (first > 0 && total + lines[first - 1].size() <= room) total += lines[--first].size();
  // The converted log is written beside the old one and renamed over it,
  // so that a failure leaves the old log whole.
  std::string tmp = name + ".tmp";
  int t = psOpenOwnFile(tmp.c_str(), O_WRONLY | O_TRUNC, mode, nullptr);
  if (t < 0) return errno;
  std::string h = logprune::HeaderText(header + total, maxSize);
  int err = psWriteAll(t, h.data(), h.size()) == 0 ? 0 : errno;
  for (size_t i = first; err == 0 && i < lines.size(); ++i) {
    if (psWriteAll(t, lines[i].data(), lines[i].size()) != 0) err = errno;
  }
  if (err == 0 && fchmod(t, mode) != 0) err = errno;
  if (close(t) != 0 && err == 0) err = errno;
  if (err == 0 && rename(tmp.c_str(), name.c_str()) != 0) err = errno;
  if (err != 0) {
    unlink(tmp.c_str());
    return err;
  }
  int rc = openChecked(O_RDWR);
  if (rc != 0) return rc;
  nextWrite = header + total;
  return utSetNextWrite();
}

int DLogFile::writeLine(const char* text) {
  if (nlsObj == nullptr || text == nullptr) return PS_RC_BADARG;
  if (!loggingOn) return 0;
  if (nlLockMutex() != 0) return PS_RC_BADARG;
  if (fd < 0) {
    nlUnlockMutex();
    return 0;
  }
  time_t now;
  psGetTimeMs(&now, nullptr);
  struct tm lt;
  char date[64] = "", timeText[64] = "";
  if (psLocalTime(now, &lt) != nullptr) dateFmt(&lt, date, timeText, sizeof date);
  const size_t len = strlen(text);
  std::string line = std::string(date) + " " + timeText + " " + text;
  if (len == 0 || text[len - 1] != '\n') line += "\n";
  int rc = utCheckWrap(line.size());
  if (rc == 0 && wrapping) {
    rc = WriteAt(fd, nextWrite, line.data(), line.size());
    if (rc == 0) {
      nextWrite += line.size();
      rc = utSetNextWrite();
    }
  } else if (rc == 0) {
    rc = psWriteAll(fd, line.data(), line.size()) == 0 ? 0 : errno;
  }
  if (rc != 0) {
    lastError = rc;
    const bool show = !writeFailureShown;
    writeFailureShown = true;
    const std::string shown = name;
    nlUnlockMutex();
    // Said once: a log that can't take one line rarely takes the next, and
    // the message itself goes to the logs as well.
    if (show) nlfprintf(stderr, 1399, shown.c_str(), rc, strerror(rc));
    return DIAG_RC_LOGWRITE;
  }
  nlUnlockMutex();
  return static_cast<int>(line.size());
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
