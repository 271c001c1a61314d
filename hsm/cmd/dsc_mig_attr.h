// The attribute command: shows or sets the recall mode of files.
//
// DscMigAttr takes its objects from the operands or the file list, lists
// directories one level deep (the whole tree with the recursive option) and
// prints one line per object:
//   "%5s   %s\n"   the mode letter (or "-") and the name
//   "%5s   %s/\n"  "<dir>" and a directory's name
// Set mode changes the recall mode of every plain file instead; a non-root
// caller may change only the files it owns.
#ifndef QMX_HSM_CMD_DSC_MIG_ATTR_H_
#define QMX_HSM_CMD_DSC_MIG_ATTR_H_

#include "hsm/cmd/cmd_status.h"
#include "platform/fileattr.h"

class Sess_o;

// Runs the command on the parsed command line in HSMGlobalCB and returns
// what the command exits with (hsm/cmd/cmd_status.h): 0 (help shown, or all
// well), CMD_EXIT_FAILED (no current directory, unusable file list or one
// that could not be read to its end, no DMAPI session), CMD_EXIT_NOMEM (out
// of memory), CMD_EXIT_NOOPERAND (set mode with nothing named),
// CMD_RC_NOTOWNER (a file of somebody else), or the last operand's outcome
// or the highest severity recorded.  An operand the file layer can't split
// (one that begins with "{") is reported (1081) and leaves the outcome to
// that message.  Once standard output has failed (hsm/cmd/cmd_stdout.h)
// nothing more is worked on; the caller reports it.  |sess| may be null.
int DscMigAttr(Sess_o* sess);

// Shows the recall mode of the file |path|.  Returns 0 when the file could
// be opened (whatever the query said), -1 otherwise (message 9178).
int QueryFileAttr(const char* path);

// Sets the requested recall mode on |path|.  Returns the DMAPI layer's
// result (0 or -1, reported by errno), or -1 when the file can't be opened.
int SetFileAttr(const char* path);

// How directories are read: each listing is allocated from a memory pool of
// |chunkKB| kilobyte chunks that lives as long as the listing.
struct dirReadHandle_t {
  unsigned chunkKB;
};

// Lists the entries of directory |dirPath| (already read, sorted): files
// first (queried or set), then, with the recursive option, each
// subdirectory under its own header.  |header| prints the separator and the
// directory header first.  Returns 0, or CMD_RC_NOTOWNER when a file of
// another user was to be set (nothing after it is touched).
int smMigAttr(const dirReadHandle_t* handle, const char* dirPath, const dirEntry_t* entries,
              int header);

// The letter shown for the recall-mode code stored on a file.
const char* migAttrLetter(unsigned code);
// The code written for the parser's recall-mode value (0 for unknown ones).
unsigned migAttrCode(unsigned char parserMode);

#endif  // QMX_HSM_CMD_DSC_MIG_ATTR_H_
