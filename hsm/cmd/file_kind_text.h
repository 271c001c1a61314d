// The words for what stands where a file was expected.
#ifndef QMX_HSM_CMD_FILE_KIND_TEXT_H_
#define QMX_HSM_CMD_FILE_KIND_TEXT_H_

#include <string>

#include "platform/careful_file.h"

// The catalogue's clause for |kind| ("it is a directory", messages 14010 to
// 14016), to be inserted into the message that refuses the file.  A kind
// the catalogue has no clause for (a regular or missing file, which is
// never refused for its kind) reads as a special file.  Without the
// catalogue the platform's English word stands in.
std::string cmdFileKindText(psFileKind_t kind);

// True for what is refused for its kind, whatever error opening it gave
// (a socket, or a FIFO opened for writing without a reader, fails before
// its kind is checked): a directory, FIFO, socket or device.
bool cmdIsSpecialKind(psFileKind_t kind);

#endif  // QMX_HSM_CMD_FILE_KIND_TEXT_H_
