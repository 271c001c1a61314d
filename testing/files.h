// Whole-file helpers for tests.
//
// Failures that would leave a test working on the wrong thing (a file that
// could not be written, a directory that could not be made) throw
// std::runtime_error naming the path and the reason; the test framework
// reports an exception as the test's failure.  Reading is lenient: a file
// that can't be read reads as "", which is what a test then compares.
// The functions keep no state and may be called from any thread.
#ifndef QMX_TESTING_FILES_H_
#define QMX_TESTING_FILES_H_

#include <sys/types.h>

#include <string>

namespace qmxtest {

// The whole content of |path|, or "" when it can't be read.
std::string readFile(const std::string& path);

// Writes |content| to |path|, replacing what was there, after making every
// missing directory above it (mode 0755).  Throws on failure.
void writeFile(const std::string& path, const std::string& content);

// Makes |path| and every missing directory above it with |mode|; existing
// directories are left as they are.  Throws on failure.
void makeDirs(const std::string& path, mode_t mode = 0755);

// Removes |path| and everything below it, also where a test left
// directories without write or search permission.  Returns "" on success
// (also when there was nothing), else what stood in the way.
std::string removeTree(const std::string& path);

// "ENOENT (No such file or directory)": the name and text of errno value
// |err|.
std::string errnoText(int err);

}  // namespace qmxtest

#endif  // QMX_TESTING_FILES_H_
