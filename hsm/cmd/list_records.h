// The records of a file list: its bytes cut into names or lines.
//
// A list is read from a descriptor in blocks of kListBlock bytes, never
// more than one block and one record at a time, however long the list.
// Its form is decided once, from the first block read (a single read: the
// start of a file, or what a pipe holds at that moment), and holds for the
// whole list:
//   - a NUL byte anywhere in the first block makes the list NUL-separated,
//     as "find -print0" writes it: a record is every byte between two NULs;
//   - otherwise a record is a line, the bytes before a "\n".
// The last record needs no separator.  A UTF-8 byte-order mark at the very
// start is skipped; a UTF-16 or UTF-32 one is reported (wide()), since such
// lists are not read.
//
// Not thread-safe: one reader per list, on one thread.
#ifndef QMX_HSM_CMD_LIST_RECORDS_H_
#define QMX_HSM_CMD_LIST_RECORDS_H_

#include <cstddef>
#include <string>

constexpr size_t kListBlock = 65536;

class ListRecords {
 public:
  // Reads from |fd|, which stays the caller's: it is neither closed here
  // nor used after the reader goes.
  explicit ListRecords(int fd) : fd_(fd) {}

  // Reads the first block and decides the form.  Returns 0, or -1 with
  // errno when the list can't be read.
  int start();
  // After start(): the list begins with a UTF-16 or UTF-32 byte-order mark.
  bool wide() const { return wide_; }
  // After start(): records are separated by NUL bytes, not by newlines.
  bool nulSeparated() const { return sep_ == '\0'; }

  // The next record, without its separator, into |*record|: at most
  // |maxBytes| of it, the rest up to the separator being read and dropped
  // (*cut tells).  Returns 1 for a record (it may be empty), 0 at the end
  // of the list, -1 with errno when reading failed.
  int next(size_t maxBytes, std::string* record, bool* cut);

 private:
  // Reads one block after what is left unread.  Returns the bytes read, 0
  // at the end, -1 with errno.
  long fill();

  int fd_;
  std::string buf_;
  size_t pos_ = 0;  // the first unread byte of buf_
  bool end_ = false;
  bool wide_ = false;
  char sep_ = '\n';
};

#endif  // QMX_HSM_CMD_LIST_RECORDS_H_
