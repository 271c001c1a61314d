#include "hsm/cmd/list_records.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

long ListRecords::fill() {
  buf_.erase(0, pos_);
  pos_ = 0;
  const size_t had = buf_.size();
  buf_.resize(had + kListBlock);
  ssize_t n;
  do {
    n = read(fd_, buf_.data() + had, kListBlock);
  } while (n < 0 && errno == EINTR);
  int err = errno;
  buf_.resize(had + (n > 0 ? static_cast<size_t>(n) : 0));
  if (n == 0) end_ = true;
  errno = err;
  return static_cast<long>(n);
}

int ListRecords::start() {
  if (fill() < 0) return -1;
  const auto* b = reinterpret_cast<const unsigned char*>(buf_.data());
  const size_t n = buf_.size();
  if (n >= 2 && ((b[0] == 0xFF && b[1] == 0xFE) || (b[0] == 0xFE && b[1] == 0xFF))) {
    wide_ = true;  // UTF-16 either way round, or UTF-32 little-endian
  } else if (n >= 4 && b[0] == 0 && b[1] == 0 && b[2] == 0xFE && b[3] == 0xFF) {
    wide_ = true;  // UTF-32 big-endian
  } else if (n >= 3 && b[0] == 0xEF && b[1] == 0xBB && b[2] == 0xBF) {
    pos_ = 3;
  }
  if (std::memchr(buf_.data() + pos_, '\0', n - pos_) != nullptr) sep_ = '\0';
  return 0;
}

int ListRecords::next(size_t maxBytes, std::string* record, bool* cut) {
  record->clear();
  *cut = false;
  bool any = false;  // a byte of this record was seen
  for (;;) {
    const char* at = buf_.data() + pos_;
    const size_t left = buf_.size() - pos_;
    const void* sep = std::memchr(at, sep_, left);
    const size_t len =
        sep != nullptr ? static_cast<size_t>(static_cast<const char*>(sep) - at) : left;
    const size_t room = maxBytes - record->size();
    record->append(at, len < room ? len : room);
    if (len > room) *cut = true;
    if (len > 0) any = true;
    if (sep != nullptr) {
      pos_ += len + 1;
      return 1;
    }
    // The whole buffer belongs to this record: what fitted is kept, the
    // rest is dropped, and the record goes on in the next block.
    buf_.clear();
    pos_ = 0;
    if (end_) return any ? 1 : 0;
    if (fill() < 0) return -1;
  }
}
