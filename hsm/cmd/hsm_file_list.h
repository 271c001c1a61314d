// Where the attribute command takes its objects from: the operands of the
// command line, or the lines of a file list (then the operands are ignored).
#ifndef QMX_HSM_CMD_HSM_FILE_LIST_H_
#define QMX_HSM_CMD_HSM_FILE_LIST_H_

#include <cstdio>

#include "hsm/cmd/cmd_status.h"

class HSMGlobalCB;

// Size of the item buffer: the longest name a file list may give.
constexpr int kFileListItemSize = 1280;

class HsmFileList {
 public:
  // Reads the operands and the file-list name of |cb|, which must outlive
  // the list.
  explicit HsmFileList(HSMGlobalCB* cb);
  ~HsmFileList();
  HsmFileList(const HsmFileList&) = delete;
  HsmFileList& operator=(const HsmFileList&) = delete;

  // Opens the file list, if one was named.  Returns 0, or CMD_RC_FILELIST
  // when it can't be opened or is a Unicode (UTF-16/32) file.
  int init();

  // True when there is neither an operand nor a file list.
  bool isEmpty() const;

  // The next object: the next operand (the argument itself), or the first
  // word of the next usable line of the file list (in the item buffer).
  // Lines whose name does not exist are reported (14005, 9219) and skipped,
  // as are names of anything but a regular file and lines whose word can't
  // be read (5184).  Null at the end.
  const char* getNextItem();

 private:
  HSMGlobalCB* cb_;
  char item_[kFileListItemSize] = {};
  FILE* stream_ = nullptr;
  int next_ = 0;
  int unicode_ = 0;
  unsigned lineNo_ = 0;
};

#endif  // QMX_HSM_CMD_HSM_FILE_LIST_H_
