// Where the attribute command takes its objects from: the operands of the
// command line, or the names of a file list (then the operands are ignored).
//
// A file list is a regular file, named by the user (a symbolic link to one
// is followed), or the command's standard input when the name is "-"; only
// standard input may also be a pipe, a socket or a terminal, because the
// user asked for exactly that.  A directory, a FIFO or a device given by
// name is refused at once, without waiting on it.
//
// Its form is decided from the first block read (hsm/cmd/list_records.h):
//   - NUL-separated (a NUL byte anywhere in that block, as "find -print0"
//     writes): every name is taken verbatim, blanks, quotes, newlines and
//     all; empty names are skipped;
//   - newline-separated (otherwise): a name a line.  A trailing "\r" is
//     dropped; blank lines and lines whose first non-blank is "*" are
//     skipped; a line longer than 3584 bytes is cut there.  The name is the
//     line's first word after leading blanks and tabs: a word that begins
//     with a double or single quote runs to the last quote of the same kind
//     on the line (so a quoted name may itself hold that quote), any other
//     word to the next blank or tab; what follows the word is ignored.
// A line that holds a NUL byte (a damaged list) is refused like any bad
// line.
//
// Not thread-safe: one list per command run.
#ifndef QMX_HSM_CMD_HSM_FILE_LIST_H_
#define QMX_HSM_CMD_HSM_FILE_LIST_H_

#include <unistd.h>

#include <optional>
#include <string>

#include "hsm/cmd/cmd_status.h"
#include "hsm/cmd/list_records.h"

class HSMGlobalCB;

// Size of the item buffer: the longest name a file list may give.
constexpr int kFileListItemSize = 1280;

class HsmFileList {
 public:
  // Reads the operands and the file-list name of |cb|, which must outlive
  // the list.  |stdinFd| is the descriptor that "-" names; it is read but
  // never closed.
  explicit HsmFileList(HSMGlobalCB* cb, int stdinFd = STDIN_FILENO);
  ~HsmFileList();
  HsmFileList(const HsmFileList&) = delete;
  HsmFileList& operator=(const HsmFileList&) = delete;

  // Opens the file list, if one was named, and reads its first block.
  // Returns 0, or CMD_RC_FILELIST after saying why on standard error: the
  // list is missing or can't be opened, or is a Unicode (UTF-16/32) file
  // (14005); it is no regular file, or standard input is neither a regular
  // file, a pipe, a socket nor a terminal (14006, naming what it is); it
  // can't be read (14007).
  int init();

  // True when there is neither an operand nor a file list.
  bool isEmpty() const;

  // The next object: the next operand (the argument itself), or the next
  // usable name of the file list (in the item buffer).  Names that do not
  // exist are reported (14005, 9219) and skipped, as are names of anything
  // but a regular file, lines whose word can't be read and names too long
  // for the item buffer (5184).  Null at the end, and when the list could
  // not be read on (14007; failed() tells).
  const char* getNextItem();

  // True once reading the list failed: the command must not count the
  // names it did not get as done.
  bool failed() const { return failed_; }

 private:
  // The next name of the list into the item buffer, before it is checked
  // as a file: 1, 0 at the end, -1 after a read error (reported).
  int nextName();
  int nextLineName(std::string* rec);
  void reportReadError(int err);
  // Lets go of a list that can't be used; returns CMD_RC_FILELIST.
  int drop();

  HSMGlobalCB* cb_;
  int stdinFd_;
  int fd_ = -1;
  bool ownFd_ = false;
  std::optional<ListRecords> records_;
  char item_[kFileListItemSize] = {};
  int next_ = 0;
  unsigned lineNo_ = 0;
  bool failed_ = false;
};

#endif  // QMX_HSM_CMD_HSM_FILE_LIST_H_
