#include "hsm/cmd/hsm_file_list.h"

#include <sys/stat.h>

#include <cerrno>
#include <memory>

#include "diag/nl.h"
#include "diag/trace.h"
#include "hsm/cmd/cmd_status.h"
#include "hsm/cmd/hsm_global_cb.h"
#include "options/optobj.h"
#include "platform/textfile.h"

namespace {
bool Tracing() {
  return TR_GENERAL || TR_SM;
}
}  // namespace

HsmFileList::HsmFileList(HSMGlobalCB* cb) : cb_(cb) {}

HsmFileList::~HsmFileList() {
  if (stream_ != nullptr) std::fclose(stream_);
}

int HsmFileList::init() {
  if (cb_->fileListName[0] == '\0' || stream_ != nullptr) return 0;
  stream_ = utOpenTextFile(cb_->fileListName, &unicode_);
  if (stream_ == nullptr) {
    if (Tracing()) {
      trPrintf(__FILE__, __LINE__, "hsmfilelist can not open filelist '%s'\n", cb_->fileListName);
    }
    return CMD_RC_FILELIST;
  }
  if (unicode_) {
    if (Tracing()) trPrintf(__FILE__, __LINE__, "hsmfilelist unicode not supported for HSM\n");
    std::fclose(stream_);
    stream_ = nullptr;
    return CMD_RC_FILELIST;
  }
  return 0;
}

bool HsmFileList::isEmpty() const {
  return cb_->operandCount == 0 && cb_->fileListName[0] == '\0';
}

const char* HsmFileList::getNextItem() {
  if (cb_->fileListName[0] == '\0') {
    if (next_ >= cb_->operandCount) return nullptr;
    return cb_->operands[next_++];
  }
  if (stream_ == nullptr) return nullptr;
  // One line of the list; longer lines are cut by the reader and their word
  // is then refused below.
  auto line = std::make_unique<char[]>(optLineBufSize);
  while (utGetNextLine(stream_, line.get(), optLineBufSize, &lineNo_) == 1) {
    const char* cursor = line.get();
    int rc = GetQuotedToken(&cursor, item_, sizeof item_);
    if (rc != 0) {
      if (Tracing()) {
        trPrintf(__FILE__, __LINE__,
                 "HsmFileList::getNextItem(): GetQuotedToken(%s) failed with rc(%d)\n", line.get(),
                 rc);
      }
      nlfprintf(stderr, 5184, line.get());
      continue;
    }
    if (item_[0] == '\0') continue;
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
