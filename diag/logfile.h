// The client's persistent logs: error log, schedule log, web log, audit log.
//
// Each is a DLogFile that appends time-stamped lines "%s %s %s" (date, time
// and the message text with its identifier, in the client's date and time
// formats).  A log either wraps within a maximum size or is pruned of
// entries older than a number of days when it is opened:
//
//   DLogFile::InitializeLogFile(DLogFile::errorLogFile, maxBytes,
//                               "qmxerlog.pru", retentionDays, 'D', 0, 0);
//   if (DLogFile::errorLogFile.utOpenOutputFile(path) != 0) ...  // 1398
//   LogMsg("ANS1234E Something happened.\n");
//
// A log is opened only where it is a regular file of its own: never through
// a symbolic link, never a FIFO or a device (which could block the process
// or swallow the lines), and without waiting on anything.  Every write is
// checked; the first line a log can't take is reported once on standard
// error (message 1399, a warning), so that lost lines never go unnoticed.
//
// A wrapping log starts with the header line
//   "LOGHEADERREC <next-write, %-12lu><maximum, %-10u> <banner> <build date>"
// and a blank line.  New lines are written at the next-write offset and
// followed by the end-of-data marker, which the next line overwrites.  When
// a line would pass the maximum, the "continued" marker and a padding line
// fill the file to exactly the maximum and writing resumes after the header.
//
// Thread safety: every writer holds the message mutex (diag/nl.h) while it
// writes a line, so lines from different threads never interleave.  Opening
// and closing are start-up and shut-down work for one thread.
#ifndef QMX_DIAG_LOGFILE_H_
#define QMX_DIAG_LOGFILE_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdio>
#include <string>

#include "diag/diag_status.h"
#include "platform/careful_file.h"

class DLogFile {
 public:
  // The four logs of the process.
  static DLogFile errorLogFile;
  static DLogFile schedLogFile;
  static DLogFile webLogFile;
  static DLogFile auditLogFile;

  DLogFile() = default;
  ~DLogFile();
  DLogFile(const DLogFile&) = delete;
  DLogFile& operator=(const DLogFile&) = delete;

  // Stores the settings of |log| (closing it if open) and clears next-write,
  // wrapping and the last error.
  //   maxSize        maximum size in bytes; 0: no wrapping
  //   saveName       file that keeps pruned entries in mode 'S' (a bare
  //                  name lives beside the log), e.g. "qmxerlog.pru"
  //   retentionDays  entries older than this are pruned at open; 0: keep all
  //   retentionMode  'S' saves pruned entries, anything else drops them
  //   oemText        1: texts are in the OEM code page (kept for the log's
  //                  readers; this platform has one code page)
  //   noConvert      1: an existing wrapping log written with another
  //                  maximum (or without header) is started anew instead of
  //                  having its entries carried over
  // Returns 0.
  static int InitializeLogFile(DLogFile& log, unsigned long maxSize, const char* saveName,
                               unsigned retentionDays, char retentionMode, int oemText,
                               int noConvert);

  // Opens the log |name| for writing, creating it (and its directory path)
  // when needed, then sets up wrapping or prunes.  Returns 0, or an errno
  // when the file cannot be opened (the log stays closed and lastErrno()
  // holds it): ELOOP when |name| is a symbolic link, EINVAL when it is no
  // regular file (lastKind() says what it is).  Reopening closes the
  // previous file first.
  int utOpenOutputFile(const char* name);
  // Closes the log.  Returns 0 or an errno.
  int utCloseOutputFile();

  // Writes one line "%s %s %s" (date, time, text), adding "\n" when |text|
  // does not end in one.  Returns PS_RC_BADARG when the message system, the
  // text or the message mutex is missing, 0 when logging is off,
  // DIAG_RC_LOGWRITE on a write error (lastErrno() keeps the errno; later
  // lines are still tried; the first failure since the log was opened is
  // reported with message 1399), else the number of bytes written.  The log
  // must be open (else 0).
  int writeLine(const char* text);

  bool isOpen() const { return fd >= 0; }
  bool isWrapping() const { return wrapping != 0; }
  unsigned long nextWriteOffset() const { return nextWrite; }
  int lastErrno() const { return lastError; }
  // What stood at the name when the last open failed with EINVAL or ELOOP.
  psFileKind_t lastKind() const { return failedKind; }
  const std::string& fileName() const { return name; }

  // Switches writing on or off for every log (SetMsgLoggingMode).
  static void setLoggingEnabled(int on);
  static int loggingEnabled();

  // The end-of-data and continued markers, taken from the message catalogue
  // (messages 9880 and 9881) when it is open, else built-in English texts.
  static void loadMarkers();
  static const char* endOfDataMarker();
  static const char* continuedMarker();

 private:
  // Opens |name| as the log's descriptor with |flags| (psOpenOwnFile).
  // Returns 0 or an errno (failedKind set).
  int openChecked(int flags);
  int utWrapFile();
  int utPruneFile();
  int convertWrapFile(bool hasHeader, unsigned long oldNext);
  // Wrapping bookkeeping: make room for |length| bytes at the next-write
  // offset (wrapping to the top when they would pass the maximum), and,
  // once a line is written and nextWrite is the offset after it, record
  // that offset in the header and mark the end of the data there.  Return
  // 0 or an errno.
  int utCheckWrap(size_t length);
  int utSetNextWrite();
  size_t headerLength() const;

  unsigned long maxSize = 0;  // bytes; 0: no wrapping
  int wrapping = 0;
  unsigned long nextWrite = 0;  // offset of the next line
  std::string name;             // the open log
  unsigned retentionDays = 0;
  char retentionMode = 'D';
  int lastError = 0;  // errno of the last failed write
  psFileKind_t failedKind = psFileRegular;
  bool writeFailureShown = false;  // message 1399 given for this opening
  int fd = -1;
  int oemText = 0;
  int noConvert = 0;
  std::string saveName;  // file for pruned entries in mode 'S'
};

// Makes every missing directory of |path| up to its last "/" (the file
// itself is not created), each with |mode| (less the umask).  Returns 0 or
// an errno; trace lines begin "utBuildPath(): ".
int utBuildPath(const char* path, mode_t mode = 0755);

// One line into the error, schedule, audit or web log (see writeLine).
int LogMsg(const char* text);
int LogSchedMsg(const char* text);
int LogAuditMsg(const char* text);
int LogWebMsg(const char* text);

#endif  // QMX_DIAG_LOGFILE_H_
