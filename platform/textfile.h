// Reading text files given by users: file lists and option files.
#ifndef QMX_PLATFORM_TEXTFILE_H_
#define QMX_PLATFORM_TEXTFILE_H_

#include <cstddef>
#include <cstdio>

#include "platform/platform_status.h"

// Opens |path| for reading as a text file.  *isUnicode is set to 1 when the
// file starts with a UTF-16 or UTF-32 byte-order mark (such files are not
// read as text by the client), else 0.  A UTF-8 byte-order mark is skipped.
// Returns the stream (positioned after any mark), or null with errno set.
FILE* utOpenTextFile(const char* path, int* isUnicode);

// Takes the next token from *cursor into |token| (|size| bytes): leading
// blanks and tabs are skipped; a token that begins with a double or single
// quote runs to the matching quote (the quotes are not copied), any other
// token to the next blank or tab.  *cursor is advanced past the token.
// Returns 0 (an empty token when nothing is left), PS_RC_QUOTE for a missing
// closing quote, PS_RC_BADVALUE when the token does not fit, PS_RC_BADARG
// for null arguments (platform/platform_status.h).
int GetQuotedToken(const char** cursor, char* token, size_t size);

#endif  // QMX_PLATFORM_TEXTFILE_H_
