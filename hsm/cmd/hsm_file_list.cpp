#include "hsm/cmd/hsm_file_list.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>

#include "diag/nl.h"
#include "diag/trace.h"
#include "hsm/cmd/cmd_status.h"
#include "hsm/cmd/file_kind_text.h"
#include "hsm/cmd/hsm_global_cb.h"
#include "platform/careful_file.h"
#include "platform/platform_status.h"

namespace {

// The longest line of a newline list that is looked at; the rest of a
// longer line is dropped, and a word cut by it is refused below.
constexpr size_t kLineMax = 3584;

bool Tracing() {
  return TR_GENERAL || TR_SM;
}

bool IsStdin(const char* name) {
  return std::strcmp(name, "-") == 0;
}

// What standard input is when it can't serve as a list; psFileRegular when
// it can (a regular file, a pipe, a socket or a terminal).
psFileKind_t UnfitStdin(int fd) {
  struct stat st;
  if (fstat(fd, &st) != 0) return psFileRegular;  // the first read tells
  if (S_ISREG(st.st_mode) || S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode)) return psFileRegular;
  if (S_ISCHR(st.st_mode)) return isatty(fd) ? psFileRegular : psFileCharDevice;
  if (S_ISDIR(st.st_mode)) return psFileDirectory;
  if (S_ISBLK(st.st_mode)) return psFileBlockDevice;
  return psFileOther;
}

// The first word of |line| into |token| (|size| bytes): leading blanks and
// tabs are skipped; a word that begins with a quote runs to the last quote
// of its kind on the line, any other to the next blank or tab.  Returns 0,
// PS_RC_QUOTE when the quote is never closed, PS_RC_BADVALUE when the word
// does not fit.
int FirstWord(const char* line, char* token, size_t size) {
  const char* p = line;
  while (*p == ' ' || *p == '\t') ++p;
  const char* start = p;
  const char* end = nullptr;
  if (*p == '"' || *p == '\'') {
    const char* close = std::strrchr(p + 1, *p);
    if (close == nullptr) return PS_RC_QUOTE;
    start = p + 1;
    end = close;
  } else {
    end = p + std::strcspn(p, " \t");
  }
  size_t n = static_cast<size_t>(end - start);
  if (n + 1 > size) return PS_RC_BADVALUE;
  std::memcpy(token, start, n);
  token[n] = '\0';
  return 0;
}

// Blank lines and comment lines ("*" first) name nothing.
bool NamesNothing(const std::string& line) {
  for (char c : line) {
    if (!std::isspace(static_cast<unsigned char>(c))) return c == '*';
  }
  return true;
}

}  // namespace

HsmFileList::HsmFileList(HSMGlobalCB* cb, int stdinFd) : cb_(cb), stdinFd_(stdinFd) {}

HsmFileList::~HsmFileList() {
  if (ownFd_) close(fd_);
}

int HsmFileList::drop() {
  records_.reset();
  if (ownFd_) close(fd_);
  ownFd_ = false;
  fd_ = -1;
  return CMD_RC_FILELIST;
}

int HsmFileList::init() {
  const char* name = cb_->fileListName;
  if (name[0] == '\0' || records_) return 0;
  if (IsStdin(name)) {
    psFileKind_t kind = UnfitStdin(stdinFd_);
    if (kind != psFileRegular) {
      nlfprintf(stderr, 14006, name, cmdFileKindText(kind).c_str());
      return CMD_RC_FILELIST;
    }
    fd_ = stdinFd_;
  } else {
    psFileKind_t kind = psFileOther;
    fd_ = psOpenForReading(name, psFollowLinks, &kind);
    if (fd_ < 0) {
      const int err = errno;
      if (Tracing()) {
        trPrintf(__FILE__, __LINE__, "hsmfilelist can not open filelist '%s'\n", name);
      }
      if (err == EINVAL || cmdIsSpecialKind(kind)) {
        nlfprintf(stderr, 14006, name, cmdFileKindText(kind).c_str());
      } else {
        nlfprintf(stderr, 14005, name, "", "");
      }
      return CMD_RC_FILELIST;
    }
    ownFd_ = true;
  }
  records_.emplace(fd_);
  if (records_->start() != 0) {
    reportReadError(errno);
    return drop();
  }
  if (records_->wide()) {
    if (Tracing()) trPrintf(__FILE__, __LINE__, "hsmfilelist unicode not supported for HSM\n");
    nlfprintf(stderr, 14005, name, "", "");
    return drop();
  }
  if (Tracing()) {
    trPrintf(__FILE__, __LINE__, "hsmfilelist '%s' is %s-separated\n", name,
             records_->nulSeparated() ? "NUL" : "newline");
  }
  return 0;
}

bool HsmFileList::isEmpty() const {
  return cb_->operandCount == 0 && cb_->fileListName[0] == '\0';
}

void HsmFileList::reportReadError(int err) {
  failed_ = true;
  if (Tracing()) {
    trPrintf(__FILE__, __LINE__, "hsmfilelist read of '%s' failed: %s\n", cb_->fileListName,
             std::strerror(err));
  }
  nlfprintf(stderr, 14007, cb_->fileListName, std::strerror(err));
}

int HsmFileList::nextLineName(std::string* rec) {
  bool cut = false;
  for (;;) {
    int rc = records_->next(kLineMax, rec, &cut);
    if (rc <= 0) return rc;
    ++lineNo_;
    if (!rec->empty() && rec->back() == '\r') rec->pop_back();
    if (NamesNothing(*rec)) continue;
    // A NUL in a line would hide the rest of it from every check below.
    if (rec->find('\0') != std::string::npos) {
      nlfprintf(stderr, 5184, rec->c_str());
      continue;
    }
    rc = FirstWord(rec->c_str(), item_, sizeof item_);
    if (rc != 0) {
      if (Tracing()) {
        trPrintf(__FILE__, __LINE__,
                 "HsmFileList::getNextItem(): GetQuotedToken(%s) failed with rc(%d)\n",
                 rec->c_str(), rc);
      }
      nlfprintf(stderr, 5184, rec->c_str());
      continue;
    }
    if (item_[0] == '\0') continue;
    return 1;
  }
}

int HsmFileList::nextName() {
  std::string rec;
  int rc = 0;
  if (!records_->nulSeparated()) {
    rc = nextLineName(&rec);
  } else {
    bool cut = false;
    while ((rc = records_->next(sizeof item_ - 1, &rec, &cut)) == 1) {
      if (cut) {
        nlfprintf(stderr, 5184, rec.c_str());
        continue;
      }
      if (rec.empty()) continue;
      std::memcpy(item_, rec.data(), rec.size());
      item_[rec.size()] = '\0';
      break;
    }
  }
  if (rc < 0) reportReadError(errno);
  return rc;
}

const char* HsmFileList::getNextItem() {
  if (cb_->fileListName[0] == '\0') {
    if (next_ >= cb_->operandCount) return nullptr;
    return cb_->operands[next_++];
  }
  if (!records_ || failed_) return nullptr;
  while (nextName() == 1) {
    struct stat st;
    if (lstat(item_, &st) != 0) {
      if (errno == ENOENT) {
        nlfprintf(stderr, 14005, item_, "", "");
        nlfprintf(stderr, 9219);
      } else {
        nlfprintf(stderr, 5184, item_);
      }
      continue;
    }
    if (!S_ISREG(st.st_mode)) {
      nlfprintf(stderr, 5184, item_);
      continue;
    }
    return item_;
  }
  if (Tracing()) {
    trPrintf(__FILE__, __LINE__,
             "HsmFileList::getNextItem(): utGetNextLine() returned NULL - processing is "
             "stopped.\n");
  }
  return nullptr;
}
