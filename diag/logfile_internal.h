// Helpers shared by the log writer and the log pruner.
#ifndef QMX_DIAG_LOGFILE_INTERNAL_H_
#define QMX_DIAG_LOGFILE_INTERNAL_H_

#include <cstdio>
#include <string>
#include <vector>

namespace logprune {

// The header of a wrapping log: "LOGHEADERREC %-12lu%-10u <banner> <date>"
// and a blank line.  Its length does not depend on the values.
std::string HeaderText(unsigned long next, unsigned long maxSize);

// The lines of an existing log in the order they were written, without the
// header, the markers and the padding.  A wrapping log (|hasHeader|) holds
// its older lines after the end-of-data marker at |next| and its newer ones
// between the header and |next|.  Each line keeps its "\n".
std::vector<std::string> ReadEntries(FILE* f, bool hasHeader, unsigned long next,
                                     size_t headerLength, const char* endOfData,
                                     const char* continued);

// Appends a formatted report to the pruning log "qmxprune.log" beside the
// log |logName|.
void Report(const std::string& logName, const char* fmt, ...) __attribute__((format(printf, 2, 3)));

// The pruning log's path for |logName|.
std::string PruneLogPath(const std::string& logName);

}  // namespace logprune

#endif  // QMX_DIAG_LOGFILE_INTERNAL_H_
