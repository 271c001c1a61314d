// Growth of the operand array that the command-line parser fills.
#ifndef QMX_HSM_CMD_PARSING_SPACE_H_
#define QMX_HSM_CMD_PARSING_SPACE_H_

#include "platform/platform_status.h"

// Slots added at a time.
constexpr int kParsingSpaceStep = 20;

// Makes room for one more operand in |*array| (|*count| used of |*capacity|
// slots).  An array without storage gets kParsingSpaceStep zeroed slots; a
// full one grows by kParsingSpaceStep, the new slots zeroed.  Returns 0, or
// PS_RC_NOMEM (platform/platform_status.h) when memory runs out: the old
// array is then freed, *array is null and *count is 0.  The array is owned
// by the caller and freed with std::free.
int getParsingSpace(char*** array, int* count, int* capacity);

#endif  // QMX_HSM_CMD_PARSING_SPACE_H_
