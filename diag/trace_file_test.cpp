// Trace files: headers, wrapping, restarting, segments, names.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "diag/testing/trace_test_util.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

bool exists(const std::string& name) {
  struct stat st;
  return lstat(name.c_str(), &st) == 0;
}

// The next-write position recorded in a wrapping file's header.
unsigned long long recordedNext(const std::string& content) {
  return strtoull(content.substr(12, 12).c_str(), nullptr, 10);
}

unsigned recordedMax(const std::string& content) {
  return static_cast<unsigned>(strtoul(content.substr(24, 11).c_str(), nullptr, 10));
}

size_t beginOfData(const std::string& content) {
  return content.find('\n') + 1;
}

class TraceFile : public TraceFixture {
 protected:
  // Lines of a recognisable, fixed length.
  static void writeLines(int from, int to) {
    for (int i = from; i < to; ++i)
      trPrintf("w.cpp", 1, "line %06d %s\n", i, std::string(40, 'x').c_str());
  }
  static std::string lineText(int i) {
    char buf[32];
    snprintf(buf, sizeof(buf), "line %06d ", i);
    return buf;
  }
};

TEST_F(TraceFile, PlainFileHeaderAndAnnouncementAreAppended) {
  ASSERT_EQ(0, chdir(dir_.c_str()));
  trEnable("GENERAL", 0);
  ASSERT_EQ(0, trBegin("rel.trc", 1));
  // A relative name is made absolute against the current directory.
  EXPECT_EQ(path("rel.trc"), trGetTraceFileName());
  std::string content = qmxtest::readFile(path("rel.trc"));
  std::string head = std::string("NQB Trace   ") + trProductBanner +
                     "  \nBuild Date: " + trBuildDate + "\nBEGINNING NEW TRACE\n\n";
  EXPECT_THAT(content, StartsWith(head));
  EXPECT_THAT(content, HasSubstr("): Tracing to file: " + path("rel.trc") + "\n"));
  EXPECT_THAT(content, HasSubstr("): Tracefile maximum length set to 0 MB.\n"));
  EXPECT_THAT(content,
              HasSubstr("): ----------------------------------------------------------------\n"));
  EXPECT_THAT(content, HasSubstr(" - Trace begun.\n"));
  trClose(0);
  EXPECT_EQ("", std::string(trGetTraceFileName()));

  // Opening again appends a second header rather than truncating.
  ASSERT_EQ(0, trBegin(path("rel.trc").c_str(), 0));
  trClose(0);
  std::string twice = qmxtest::readFile(path("rel.trc"));
  EXPECT_EQ(content + head, twice);
  ASSERT_EQ(0, chdir("/"));
}

TEST_F(TraceFile, SecondBeginKeepsTheOpenFile) {
  trEnable("GENERAL", 0);
  ASSERT_EQ(0, trBegin(path("a.trc").c_str(), 0));
  ASSERT_EQ(0, trBegin(path("b.trc").c_str(), 0));
  EXPECT_EQ(path("a.trc"), trGetTraceFileName());
  EXPECT_FALSE(exists(path("b.trc")));
  trClose(0);
  // Nor does a file name replace stdout once it is open.
  testing::internal::CaptureStdout();
  ASSERT_EQ(0, trBegin("STDOUT", 0));
  ASSERT_EQ(0, trBegin(path("c.trc").c_str(), 0));
  testing::internal::GetCapturedStdout();
  EXPECT_STREQ("", trGetTraceFileName());
  EXPECT_FALSE(exists(path("c.trc")));
}

TEST_F(TraceFile, BadNamesAndUnopenableFiles) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(-1, trBegin("", 0));
  EXPECT_EQ(-1, trBegin(std::string(1025, 'n').c_str(), 0));
  EXPECT_EQ(-1, trBegin("''", 0));
  EXPECT_EQ("Invalid trace file name\nInvalid trace file name\nInvalid trace file name\n",
            testing::internal::GetCapturedStdout());

  trEnable("SM", 0);
  testing::internal::CaptureStdout();
  EXPECT_EQ(426, trBegin(path("no/such/dir/t.trc").c_str(), 0));
  EXPECT_EQ("Unable to open trace output file " + path("no/such/dir/t.trc") + "\n",
            testing::internal::GetCapturedStdout());
  EXPECT_EQ(0, TR_SM);  // the trace was reset
  EXPECT_FALSE(trCanOutPut());

  // Without stdout allowed the failure is silent.
  trSetNoStdout();
  testing::internal::CaptureStdout();
  EXPECT_EQ(426, trBegin(path("no/such/dir/t.trc").c_str(), 0));
  EXPECT_EQ("", testing::internal::GetCapturedStdout());
}

TEST_F(TraceFile, QuotedNameIsUnquoted) {
  trEnable("GENERAL", 0);
  ASSERT_EQ(0, trBegin(("\"" + path("with blank.trc") + "\"").c_str(), 0));
  EXPECT_TRUE(exists(path("with blank.trc")));
}

class TraceWrap : public TraceFile {
 protected:
  void SetUp() override {
    TraceFile::SetUp();
    trSetSizeUnitForTest(1024);  // "MB" of 1 KB
  }
  void openWrapping(unsigned max) {
    trSetMaxTraceSize(max);
    trEnable("GENERAL", 0);
    ASSERT_EQ(0, trBegin(path("w.trc").c_str(), 0));
    TR_TIMESTAMP = 0;  // fixed line lengths
  }
};

TEST_F(TraceWrap, HeaderRecordsNextWriteAndMaximum) {
  openWrapping(4);
  writeLines(0, 3);
  std::string c = qmxtest::readFile(path("w.trc"));
  ASSERT_THAT(c, StartsWith("NQB Trace   "));
  EXPECT_EQ(4u, recordedMax(c));
  EXPECT_EQ("\nEND OF DATA\n\n", c.substr(recordedNext(c), 14));
  EXPECT_EQ(c.size(), recordedNext(c) + 14);
  EXPECT_THAT(c.substr(beginOfData(c)), StartsWith("\nBEGINNING NEW TRACE\n\nw.cpp"));
  EXPECT_THAT(c, HasSubstr(lineText(2)));
}

TEST_F(TraceWrap, LineAtTheLimitContinuesAtBeginningOfFile) {
  openWrapping(2);
  int n = 0;
  while (qmxtest::readFile(path("w.trc")).find("Continued at beginning of file") ==
         std::string::npos) {
    writeLines(n, n + 1);
    ++n;
    ASSERT_LT(n, 100) << "never wrapped";
  }
  writeLines(n, n + 2);
  std::string c = qmxtest::readFile(path("w.trc"));
  EXPECT_LE(c.size(), 2048u);
  const size_t bod = beginOfData(c) + 1;  // a new file's header ends in a blank line
  EXPECT_EQ("\nContinued at beginning of file\n\n", c.substr(bod, 33));
  // The line that did not fit comes right after the marker, over the oldest.
  EXPECT_THAT(c.substr(bod + 33), HasSubstr(lineText(n - 1)));
  EXPECT_EQ(bod + 33, c.find("w.cpp"));
  EXPECT_THAT(c, Not(HasSubstr(lineText(0))));
  EXPECT_THAT(c, HasSubstr(lineText(n - 2)));  // the newest before the wrap survives
  EXPECT_EQ("\nEND OF DATA\n\n", c.substr(recordedNext(c), 14));
  EXPECT_LT(c.find(lineText(n + 1)), recordedNext(c));
}

TEST_F(TraceWrap, CloseMarksTheEndOfData) {
  openWrapping(4);
  writeLines(0, 2);
  size_t next = recordedNext(qmxtest::readFile(path("w.trc")));
  trClose(0);
  std::string c = qmxtest::readFile(path("w.trc"));
  EXPECT_EQ("\nEND OF DATA - close\n\n", c.substr(next, 22));
}

TEST_F(TraceWrap, RestartWithSmallerMaximumStartsAnewLargerContinues) {
  openWrapping(4);
  writeLines(0, 5);
  trClose(0);
  std::string first = qmxtest::readFile(path("w.trc"));

  // Equal or larger maximum: continued at its end, header updated.
  delete_TraceObject();
  new_TraceObject(ctCLSpaceMGT, 0, nullptr);
  openWrapping(8);
  writeLines(100, 101);
  std::string more = qmxtest::readFile(path("w.trc"));
  EXPECT_EQ(8u, recordedMax(more));
  EXPECT_THAT(more, HasSubstr(lineText(4)));
  EXPECT_GT(more.find(lineText(100)), more.find(lineText(4)));
  EXPECT_EQ(first.size(), more.find("BEGINNING NEW TRACE", first.size()));
  trClose(0);

  // Smaller maximum than the header records: truncated and begun anew.
  delete_TraceObject();
  new_TraceObject(ctCLSpaceMGT, 0, nullptr);
  openWrapping(2);
  writeLines(200, 201);
  std::string fresh = qmxtest::readFile(path("w.trc"));
  EXPECT_EQ(2u, recordedMax(fresh));
  EXPECT_THAT(fresh, Not(HasSubstr(lineText(4))));
  EXPECT_THAT(fresh, HasSubstr(lineText(200)));
}

TEST_F(TraceWrap, FileWithoutHeaderIsStartedAnew) {
  FILE* f = fopen(path("w.trc").c_str(), "w");
  ASSERT_NE(nullptr, f);
  fputs("some other file\n", f);
  fclose(f);
  openWrapping(4);
  std::string c = qmxtest::readFile(path("w.trc"));
  EXPECT_THAT(c, StartsWith("NQB Trace   "));
  EXPECT_THAT(c, Not(HasSubstr("some other file")));
}

TEST_F(TraceWrap, ConcurrentWritersLoseNoLine) {
  openWrapping(900);  // roomy: no wrap, so every line must survive
  std::vector<std::thread> writers;
  std::atomic<int> ready{0};
  for (int t = 0; t < 4; ++t) {
    writers.emplace_back([t, &ready] {
      ready.fetch_add(1);
      while (ready.load() < 4) {
      }
      writeLines(t * 1000, t * 1000 + 400);
    });
  }
  for (std::thread& w : writers) w.join();
  std::string c = qmxtest::readFile(path("w.trc"));
  const size_t next = recordedNext(c);
  ASSERT_EQ("\nEND OF DATA\n\n", c.substr(next, 14));
  EXPECT_EQ(c.size(), next + 14);
  for (int t = 0; t < 4; ++t) {
    for (int i = t * 1000; i < t * 1000 + 400; ++i) {
      size_t at = c.find(lineText(i));
      ASSERT_NE(std::string::npos, at) << i;
      EXPECT_EQ(std::string::npos, c.find(lineText(i), at + 1)) << i;
    }
  }
}

TEST_F(TraceWrap, SizeSettingsForceTimestampAndPrefix) {
  trSetMaxTraceSize(4);
  trEnable("GENERAL", 0);
  TR_TIMESTAMP = 0;
  TR_PREFIX = 0;
  ASSERT_EQ(0, trBegin(path("w.trc").c_str(), 0));
  EXPECT_EQ(1, TR_TIMESTAMP);
  EXPECT_EQ(1, TR_PREFIX);
}

class TraceSegments : public TraceFile {
 protected:
  void SetUp() override {
    TraceFile::SetUp();
    trSetSizeUnitForTest(64);  // 1500 "MB" = 96000 bytes
  }
};

TEST_F(TraceSegments, MaximumOver1000GivesSegmentsThatGoRoundRobin) {
  trSetMaxTraceSize(1500);
  trEnable("GENERAL", 0);
  ASSERT_EQ(0, trBegin(path("s.trc").c_str(), 1));
  TR_TIMESTAMP = 0;
  EXPECT_EQ(path("s.trc.1"), trGetTraceFileName());
  EXPECT_FALSE(exists(path("s.trc")));

  int n = 0;
  while (std::string(trGetTraceFileName()) != path("s.trc.2")) {
    writeLines(n, n + 1);
    ASSERT_LT(++n, 5000) << "never switched";
  }
  const int firstOfTwo = n;
  std::string one = qmxtest::readFile(path("s.trc.1"));
  EXPECT_LE(one.size(), 1000u * 64);
  EXPECT_THAT(one, HasSubstr("\nContinued at beginning of segment 2\n\n"));
  EXPECT_THAT(one, HasSubstr(lineText(firstOfTwo - 2)));
  std::string two = qmxtest::readFile(path("s.trc.2"));
  EXPECT_THAT(two, StartsWith("NQB Trace   "));
  EXPECT_EQ(1500u, recordedMax(two));
  EXPECT_THAT(two, HasSubstr("Continued from end of segment 1\n\n"));

  while (std::string(trGetTraceFileName()) != path("s.trc.1")) {
    writeLines(n, n + 1);
    ASSERT_LT(++n, 10000) << "never switched back";
  }
  two = qmxtest::readFile(path("s.trc.2"));
  EXPECT_LE(two.size(), 500u * 64);  // the last segment is the shorter one
  EXPECT_GT(two.size(), 400u * 64);
  // Back in segment 1, which was truncated.
  writeLines(n, n + 1);
  one = qmxtest::readFile(path("s.trc.1"));
  EXPECT_THAT(one, HasSubstr("Continued from end of segment 2\n\n"));
  EXPECT_THAT(one, Not(HasSubstr(lineText(0))));
  EXPECT_THAT(one, Not(HasSubstr(lineText(firstOfTwo - 2))));
  EXPECT_THAT(one, HasSubstr(lineText(n)));
  EXPECT_FALSE(exists(path("s.trc.3")));
}

TEST_F(TraceSegments, SegmentSizeIsCappedByTheMaximum) {
  trSetMaxTraceSize(10);
  trSetMaxTraceSegSize(4);  // segments 4, 4, 2
  trEnable("GENERAL", 0);
  ASSERT_EQ(0, trBegin(path("c.trc").c_str(), 0));
  TR_TIMESTAMP = 0;
  for (int n = 0; !exists(path("c.trc.3")); ++n) {
    writeLines(n, n + 1);
    ASSERT_LT(n, 1000);
  }
  trClose(1);
  trSetMaxTraceSize(3);
  trSetMaxTraceSegSize(50);  // lowered to 3: one file, no suffix
  trEnable("GENERAL", 0);
  ASSERT_EQ(0, trBegin(path("d.trc").c_str(), 0));
  EXPECT_EQ(path("d.trc"), trGetTraceFileName());
}

class TraceNames : public TraceFixture {
 protected:
  static void hook(unsigned msg, const char* insert, int log) {
    issued.emplace_back(msg, log);
    lastInsert = insert;
  }
  static std::vector<std::pair<unsigned, int>> issued;
  static std::string lastInsert;
  void SetUp() override {
    TraceFixture::SetUp();
    issued.clear();
    trSetMessageHook(hook);
  }
};
std::vector<std::pair<unsigned, int>> TraceNames::issued;
std::string TraceNames::lastInsert;

TEST_F(TraceNames, SymbolicLinkIsRefusedAndDeleted) {
  ASSERT_EQ(0, symlink("/etc/passwd", path("link.trc").c_str()));
  EXPECT_EQ(959, trSetTraceFileName(path("link.trc").c_str()));
  EXPECT_FALSE(exists(path("link.trc")));
  EXPECT_EQ((std::vector<std::pair<unsigned, int>>{{1193, 0}, {1191, 0}}), issued);
  EXPECT_EQ(path("link.trc"), lastInsert);
  // The name was not stored: a good one is accepted afterwards.
  EXPECT_EQ(0, trSetTraceFileName(path("good.trc").c_str()));
  testing::internal::CaptureStdout();
  trStatus(0, 0);
  EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr(path("good.trc")));
}

TEST_F(TraceNames, UndeletableLinkIsReportedAndLogged) {
  // The process's own links cannot be removed, not even by root.
  EXPECT_EQ(959, trSetTraceFileName("/proc/self/cwd"));
  EXPECT_EQ((std::vector<std::pair<unsigned, int>>{{1193, 1}, {1190, 1}}), issued);
}

TEST_F(TraceNames, BadNameIsMessage1824AndAKnownNameIsKept) {
  EXPECT_EQ(-1, trSetTraceFileName(""));
  EXPECT_EQ(-1, trSetTraceFileName(std::string(1100, 'x').c_str()));
  EXPECT_EQ((std::vector<std::pair<unsigned, int>>{{1824, 0}, {1824, 0}}), issued);
  EXPECT_EQ(0, trSetTraceFileName(path("one.trc").c_str()));
  EXPECT_EQ(0, trSetTraceFileName(path("two.trc").c_str()));
  testing::internal::CaptureStdout();
  trStatus(0, 0);
  EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr(path("one.trc")));
}

TEST_F(TraceNames, WithoutAHookMessagesGoToStderrInPlainWords) {
  trSetMessageHook(nullptr);
  testing::internal::CaptureStderr();
  EXPECT_EQ(-1, trSetTraceFileName(""));
  EXPECT_EQ("The trace file name '' is not valid.\n", testing::internal::GetCapturedStderr());
}

TEST_F(TraceNames, StatusLogOpensItsOwnFileOrJoinsTheTrace) {
  char result[trMaxActualName];
  EXPECT_EQ(109, trInitializeStatusLog(nullptr, "s.log", result));
  EXPECT_EQ(109, trInitializeStatusLog(dir_.c_str(), nullptr, result));
  EXPECT_EQ(102, trInitializeStatusLog(std::string(1020, 'd').c_str(), "s.log", result));

  ASSERT_EQ(0, trInitializeStatusLog(dir_.c_str(), "s.log", result));
  EXPECT_EQ(path("s.log"), result);
  EXPECT_EQ(1, TR_STATUS_LOG);
  EXPECT_EQ(0, TR_PREFIX);  // trace was off: status lines without prefix
  EXPECT_TRUE(exists(path("s.log")));
  size_t before = qmxtest::readFile(path("s.log")).size();
  TR_TIMESTAMP = 0;
  trPrintf("x.cpp", 1, "status\n");
  EXPECT_EQ("status\n", qmxtest::readFile(path("s.log")).substr(before));

  // A started trace takes the status lines itself.
  ASSERT_EQ(0, trInitializeStatusLog(dir_.c_str(), "other.log", result));
  EXPECT_EQ(path("s.log"), result);
  EXPECT_FALSE(exists(path("other.log")));
}

TEST_F(TraceNames, ResetClearsClassesSizesAndName) {
  trSetMaxTraceSize(5);
  trEnable("SM", 0);
  ASSERT_EQ(0, trBegin(path("r.trc").c_str(), 0));
  trReset(1);
  EXPECT_EQ(0, TR_SM);
  EXPECT_EQ(0, trIsStarted());
  EXPECT_FALSE(trCanOutPut());
  testing::internal::CaptureStdout();
  trStatus(0, 0);
  EXPECT_THAT(testing::internal::GetCapturedStdout(),
              StartsWith("  TRACEFILE:    \n  TRACEMAX :    0\n"));
  // The next enable is a first one again.
  TR_TIMESTAMP = 0;
  trEnable("GENERAL", 0);
  EXPECT_EQ(1, TR_TIMESTAMP);
}

}  // namespace
