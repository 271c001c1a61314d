// Traced lines: head, prefix, channels, errno, dumps and listings.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "diag/testing/trace_test_util.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

void fixedDateTime(const struct tm*, char* date, char* time, size_t size) {
  snprintf(date, size, "01/02/2003");
  snprintf(time, size, "04:05:06");
}

void tid42(char* banner, char* tid) {
  banner[0] = '\0';
  snprintf(tid, trTidSize, "[42] ");
}

int bannerCalls = 0;
void bannerOnce(char* banner, char* tid) {
  if (bannerCalls++ == 0) {
    trFormatThreadBanner(banner, "worker", 3);
  } else {
    banner[0] = '\0';
  }
  snprintf(tid, trTidSize, "[7] ");
}

class TraceLine : public TraceFixture {
 protected:
  // Opens a plain trace file and leaves exactly |classes| on.
  void open(const char* classes) {
    ASSERT_EQ(0, trBegin(path("t.trc").c_str(), 0));
    trEnable("", 1);  // uses up the first enable, which would add TIMESTAMP and PREFIX
    allClassesOff();
    ASSERT_EQ(0, trEnable(classes, 0));
    header_ = qmxtest::readFile(path("t.trc")).size();
  }
  // What was traced after opening.
  std::string traced() { return qmxtest::readFile(path("t.trc")).substr(header_); }

  size_t header_ = 0;
};

TEST_F(TraceLine, FullHeadInOrderThenPrefixThenText) {
  delete_TraceObject();
  new_TraceObject(ctCLSpaceMGT, 0, tid42);
  trSetDateTimeHook(fixedDateTime);
  open("TIMESTAMP PID TID CLIENTTYPE PREFIX GENERAL");
  trPrintf("/src/hsm/cmd/attrib.cpp", 12, "value %d\n", 5);
  std::string line = traced();
  ASSERT_GE(line.size(), 24u);
  EXPECT_EQ("01/02/2003 04:05:06.", line.substr(0, 20));
  for (int i = 20; i < 23; ++i) EXPECT_TRUE(isdigit(line[i])) << line;
  char rest[200];
  snprintf(rest, sizeof(rest), " [%.6u] [42] [ctCLSpaceMGT]: %-20s(%4u): value 5\n",
           static_cast<unsigned>(getpid()), "attrib.cpp", 12u);
  EXPECT_EQ(rest, line.substr(23));
}

TEST_F(TraceLine, ClientTagAloneGetsNoColonAndPrefixIsOptional) {
  open("CLIENTTYPE GENERAL");
  trPrintf("a.cpp", 1, "x\n");
  EXPECT_EQ("[ctCLSpaceMGT]x\n", traced());
  trEnable("-CLIENTTYPE PREFIX", 0);
  trPrintf("averyveryverylongsourcename.cpp", 12345, "y\n");
  EXPECT_EQ("[ctCLSpaceMGT]x\naveryveryverylongsourcename.cpp(12345): y\n", traced());
}

TEST_F(TraceLine, PidAloneEndsTheHeadWithColon) {
  open("PID");
  trPrintf("b.cpp", 2, "z\n");
  char expect[64];
  snprintf(expect, sizeof(expect), "[%.6u] : z\n", static_cast<unsigned>(getpid()));
  EXPECT_EQ(expect, traced());
}

TEST_F(TraceLine, ThreadBannerPrecedesTheFirstLineOfANewThread) {
  delete_TraceObject();
  new_TraceObject(ctDICAD, 0, bannerOnce);
  bannerCalls = 0;
  open("TID");
  trPrintf("c.cpp", 3, "one\n");
  trPrintf("c.cpp", 3, "two\n");
  char banner[trBannerSize];
  snprintf(banner, sizeof(banner), "\n%32s thread %s%2d================>\n", "worker", "CAD    ",
           3);
  EXPECT_EQ(std::string(banner) + "[7] : one\n[7] : two\n", traced());
}

TEST_F(TraceLine, ThreadBannerKindFollowsClientType) {
  char banner[trBannerSize];
  delete_TraceObject();
  new_TraceObject(ctDIJavaGUI, 0, nullptr);
  trFormatThreadBanner(banner, "t", 1);
  EXPECT_THAT(banner, HasSubstr(" thread Agent   1="));
  delete_TraceObject();
  new_TraceObject(ctCLBackup, 0, nullptr);
  trFormatThreadBanner(banner, "t", 1);
  EXPECT_THAT(banner, HasSubstr(" thread         1="));
}

TEST_F(TraceLine, DefaultThreadIdCallbackWritesOnlyTheIdField) {
  char banner[trBannerSize] = "stale";
  char tid[trTidSize] = "";
  trTIDProc(banner, tid);
  EXPECT_STREQ("", banner);
  unsigned id = 0;
  ASSERT_EQ(1, sscanf(tid, "[%u]", &id)) << tid;
  EXPECT_NE(0u, id);
  char expect[trTidSize];
  snprintf(expect, sizeof(expect), "[%u] ", id);
  EXPECT_STREQ(expect, tid);
}

TEST_F(TraceLine, ClientTypeTags) {
  EXPECT_STREQ("[ctCLBackup  ]", trClientTypeTag(ctCLBackup));
  EXPECT_STREQ("[ctDIWebClien]", trClientTypeTag(ctDIWebClient));
  EXPECT_STREQ("[ctDIJavaGUI ]", trClientTypeTag(ctDIJavaGUI));
  EXPECT_STREQ("[ctUnkown    ]", trClientTypeTag(13));
  EXPECT_STREQ("[ctUnkown    ]", trClientTypeTag(-1));
  for (int t = -1; t <= 13; ++t) EXPECT_EQ(14u, strlen(trClientTypeTag(t))) << t;
}

TEST_F(TraceLine, PrintAppendsTextAloneAndWideLinesAreConverted) {
  open("PREFIX GENERAL TIMESTAMP");
  TR_TIMESTAMP = 0;
  trPrintf("d.cpp", 4, "start ");
  trPrint("%s-%d\n", "more", 9);
  trPrintf("d.cpp", 5, L"wide %ls %d\n", L"text", 3);
  char expect[200];
  snprintf(expect, sizeof(expect), "%-20s(%4u): start more-9\n%-20s(%4u): wide text 3\n", "d.cpp",
           4u, "d.cpp", 5u);
  EXPECT_EQ(expect, traced());
}

TEST_F(TraceLine, OverlongTextIsCutToTheLineBuffer) {
  open("GENERAL");
  std::string big(10000, 'a');
  trPrintf("e.cpp", 1, "%s\n", big.c_str());
  EXPECT_EQ(trLineBufSize - 1, traced().size());
}

TEST_F(TraceLine, FunctionObjectTracesOnlyEnabledClasses) {
  open("SM");
  TRACE_Fkt("f.cpp", 7)(TR_GENERAL, "hidden %d\n", 1);
  TRACE_Fkt("f.cpp", 7)(TR_SM, "shown %d\n", 2);
  TRACE_Fkt("f.cpp", 8)(TR_SM, "no arguments\n");
  EXPECT_EQ("shown 2\nno arguments\n", traced());
}

void tracedFunction(int* errnoAfterEntry) {
  TRACE_ENTER_EXIT("recaller::qryAlias \t ");
  *errnoAfterEntry = errno;
  errno = 99;  // the function's own result survives the exit line
}

TEST_F(TraceLine, EnterExitGuardWritesBothLinesWithTheEntryLine) {
  open("ENTER EXIT PREFIX");
  errno = 5;
  int inside = 0;
  tracedFunction(&inside);
  EXPECT_EQ(5, inside);
  EXPECT_EQ(99, errno);
  std::string out = traced();
  // Both lines carry the file and line of the guard.
  std::string where = out.substr(0, out.find(": "));
  EXPECT_EQ(
      where + ": ENTER =====> recaller::qryAlias\n" + where + ": EXIT  <===== recaller::qryAlias\n",
      out);
  EXPECT_THAT(where, HasSubstr("trace_output_test.cpp"));
}

TEST_F(TraceLine, EnterExitGuardHandlesLongNamesAndOnlyExit) {
  open("EXIT");
  std::string name(300, 'n');
  { trEnterExit guard(name.c_str(), "g.cpp", 1); }
  EXPECT_EQ("EXIT  <===== " + name + "\n", traced());
}

TEST_F(TraceLine, EveryOutputCallKeepsErrno) {
  open("GENERAL ENTER EXIT TIMESTAMP PID TID CLIENTTYPE PREFIX");
  char buf[40] = "some bytes";
  std::vector<std::pair<const char*, std::function<void()>>> calls = {
      {"trPrintf", [] { trPrintf("h.cpp", 1, "x %d\n", 1); }},
      {"trPrintf wide", [] { trPrintf("h.cpp", 1, L"x %d\n", 1); }},
      {"trPrint", [] { trPrint("y\n"); }},
      {"TRACE_Fkt", [] { TRACE_Fkt("h.cpp", 2)(TR_GENERAL, "z\n"); }},
      {"dump", [&] { trPrintFormattedDump(buf, sizeof(buf), 16); }},
      {"trPrintStr", [&] { trPrintStr(buf, 10, trStrText); }},
      {"trQuery", [] { trQuery(); }},
      {"trPrintEnabledTestFlags", [] { trPrintEnabledTestFlags(); }},
      {"guard", [] { trEnterExit g("fn", "h.cpp", 3); }},
      {"trSetMaxTraceSize", [] { trSetMaxTraceSize(0); }},
      {"trProcTestFlags", [] { trProcTestFlags("NOSUCHFLAG"); }},
      {"trBegin bad",
       [] {
         testing::internal::CaptureStdout();
         trBegin("", 0);
         testing::internal::GetCapturedStdout();
       }},
  };
  for (auto& [name, call] : calls) {
    errno = 4321;
    call();
    EXPECT_EQ(4321, errno) << name;
  }
}

TEST_F(TraceLine, FailedWriteDisablesTracingWithAMessageAndKeepsErrno) {
  ASSERT_EQ(0, trBegin("/dev/full", 0));
  trEnable("GENERAL", 0);
  testing::internal::CaptureStdout();
  errno = 17;
  trPrintf("i.cpp", 1, "lost\n");
  EXPECT_EQ(17, errno);
  EXPECT_EQ("Unable to write to trace file /dev/full. Tracing disabled.\n",
            testing::internal::GetCapturedStdout());
  EXPECT_FALSE(trCanOutPut());
  EXPECT_EQ(0, TR_GENERAL);
  EXPECT_EQ(0, trIsStarted());
}

TEST_F(TraceLine, FailedPrintNamesTheSystemError) {
  ASSERT_EQ(0, trBegin("/dev/full", 0));
  trEnable("GENERAL", 0);
  testing::internal::CaptureStdout();
  trPrint("lost\n");
  std::string expect = std::string("Unable to write to trace file /dev/full error is (") +
                       std::to_string(ENOSPC) + ") " + strerror(ENOSPC) + ". Tracing disabled.\n";
  EXPECT_EQ(expect, testing::internal::GetCapturedStdout());
}

class TraceStd : public TraceFixture {};

TEST_F(TraceStd, StdoutCarriesTheAnnouncementAndLines) {
  trEnable("GENERAL", 0);
  TR_TIMESTAMP = 0;
  TR_PREFIX = 0;
  testing::internal::CaptureStdout();
  ASSERT_EQ(0, trBegin("stdout", 1));
  trPrintf("j.cpp", 1, "hello\n");
  trStopTracing();
  trPrintf("j.cpp", 2, "paused\n");
  trStartTracing();
  trPrintf("j.cpp", 3, "again\n");
  EXPECT_EQ("Tracing to stdout\nhello\nagain\n", testing::internal::GetCapturedStdout());
  EXPECT_EQ(1, trIsStarted());
}

TEST_F(TraceStd, OutputToStdoutOrStderrIsDroppedWhenStdoutIsNotAllowed) {
  trEnable("GENERAL", 0);
  trSetNoStdout();
  testing::internal::CaptureStdout();
  ASSERT_EQ(0, trBegin("STDOUT", 1));
  trPrintf("k.cpp", 1, "hidden\n");
  trPrint("hidden too\n");
  EXPECT_EQ("", testing::internal::GetCapturedStdout());
  EXPECT_FALSE(trCanOutPut());

  trClose(0);
  testing::internal::CaptureStderr();
  ASSERT_EQ(0, trBegin("STDERR", 1));
  trPrintf("k.cpp", 2, "hidden\n");
  EXPECT_EQ("", testing::internal::GetCapturedStderr());
}

TEST_F(TraceStd, StoppedTracingWritesNothingUntilStarted) {
  trEnable("GENERAL", 0);
  TR_TIMESTAMP = 0;
  TR_PREFIX = 0;
  ASSERT_EQ(0, trBegin(path("s.trc").c_str(), 0));
  size_t before = qmxtest::readFile(path("s.trc")).size();
  trStopTracing();
  trPrintf("l.cpp", 1, "paused\n");
  EXPECT_EQ(before, qmxtest::readFile(path("s.trc")).size());
  trStartTracing();
  trPrintf("l.cpp", 1, "resumed\n");
  EXPECT_EQ("resumed\n", qmxtest::readFile(path("s.trc")).substr(before));
}

struct ConsoleLog {
  std::vector<int> ops;
  std::string text;
  int openResult = 0;
};

int consoleCb(int op, const char* text, void* ctx) {
  ConsoleLog* log = static_cast<ConsoleLog*>(ctx);
  log->ops.push_back(op);
  if (op == 1) log->text += text;
  return op == 0 ? log->openResult : 0;
}

TEST_F(TraceStd, ConsoleModeSendsLinesToTheCallback) {
  ConsoleLog log;
  trInstallConsoleCallback(consoleCb, &log);
  trSetNoStdout();  // the console is not stdout: still written
  trEnable("GENERAL", 0);
  TR_TIMESTAMP = 0;
  TR_PREFIX = 0;
  testing::internal::CaptureStdout();
  ASSERT_EQ(0, trBegin("Console", 0));
  EXPECT_EQ("Tracing to stderr\n", testing::internal::GetCapturedStdout());
  trPrintf("m.cpp", 1, "to console\n");
  trClose(0);
  EXPECT_EQ((std::vector<int>{0, 1, 2}), log.ops);
  EXPECT_EQ("to console\n", log.text);
}

TEST_F(TraceStd, RefusedConsoleLeavesNothingOpen) {
  ConsoleLog log;
  log.openResult = 1;
  trInstallConsoleCallback(consoleCb, &log);
  trEnable("GENERAL", 0);
  ASSERT_EQ(0, trBegin("CONSOLE", 0));
  trPrintf("m.cpp", 1, "nowhere\n");
  EXPECT_FALSE(trCanOutPut());
  EXPECT_EQ((std::vector<int>{0}), log.ops);
}

class TraceDump : public TraceLine {};

std::string ptr8(const void* p) {
  char raw[32], out[40];
  snprintf(raw, sizeof(raw), "%p", p);
  snprintf(out, sizeof(out), "%8s", raw);
  return out;
}

std::string row32(const void* p) {
  char out[16];
  snprintf(out, sizeof(out), "%08X", static_cast<unsigned>(reinterpret_cast<uintptr_t>(p)));
  return out;
}

TEST_F(TraceDump, RowsOfHexAndCharactersWithAPaddedLastRow) {
  open("GENERAL");
  const unsigned char bytes[10] = {'A', 'b', 0x00, 0x7f, '1', 0xff, ' ', '~', 0x0a, 'z'};
  trPrintFormattedDump(bytes, 10, 4);
  std::string expect = "\nDumping Memory Range " + ptr8(bytes) + " - " + ptr8(bytes + 9) +
                       " (10 Bytes)\n\n" + "\n\n" + ptr8(bytes) + ": " + "41 62 00 7F     Ab..\n" +
                       row32(bytes + 4) + ": " + "31 FF 20 7E     1. ~\n" + row32(bytes + 8) +
                       ": " + "0A 7A " + "      " + "    .z" + "\n\n";
  EXPECT_EQ(expect, traced());
}

TEST_F(TraceDump, EmptyRangeHasHeaderAndFirstAddressOnly) {
  open("GENERAL");
  const char bytes[1] = {0};
  trPrintFormattedDump(bytes, 0, 16);
  EXPECT_EQ("\nDumping Memory Range " + ptr8(bytes) + " - " + ptr8(bytes) + " (0 Bytes)\n\n\n\n" +
                ptr8(bytes) + ": \n\n",
            traced());
}

TEST_F(TraceDump, PrintStrAsTextOrHex) {
  open("GENERAL");
  trPrintStr(
      "ab\x01"
      "c",
      4, trStrText);
  EXPECT_EQ("ab.c\n", traced());
  size_t before = traced().size();
  trPrintStr("ab", 2, trStrHex);
  EXPECT_THAT(traced().substr(before), HasSubstr(": 61 62 "));
}

TEST_F(TraceDump, QueryListsEnabledClassesInTableOrder) {
  open("SM GENERAL");
  trQuery();
  EXPECT_EQ("Current trace classes enabled: \n GENERAL, SM\n\n", traced());
}

TEST_F(TraceDump, QueryWithNothingEnabled) {
  open("GENERAL");
  TR_GENERAL = 0;
  trQuery();
  EXPECT_EQ("Current trace classes enabled: \nNone\n\nTracing not active.\n", traced());
}

TEST_F(TraceDump, TableAndStatusListingsOnStdout) {
  testing::internal::CaptureStdout();
  trQueryTraceFlags();
  std::string tables = testing::internal::GetCapturedStdout();
  EXPECT_EQ(0u, tables.find("Trace Class Table:\nERROR, ACTIVEDIR, ADMIN, "));
  EXPECT_THAT(tables, HasSubstr(", VM, VM_DETAIL\n\nTrace Aggregate Table:\n"));
  EXPECT_THAT(tables, HasSubstr("\nALL_FMDB = FMDBNPDB FMDBFSDB FMDBBAOBJDB FMDB\n"));

  trSetMaxTraceSize(7);
  trSetTraceFileName(path("st.trc").c_str());
  testing::internal::CaptureStdout();
  trStatus(0, 0);
  EXPECT_EQ("  TRACEFILE:    " + path("st.trc") +
                "\n  TRACEMAX :    7\n  TRACESEGSIZE: 0\n  TRACE STATUS: Disabled\n\n",
            testing::internal::GetCapturedStdout());

  allClassesOff();
  TR_ERROR = 1;
  testing::internal::CaptureStdout();
  trStatus(0, 1);
  std::string classes = testing::internal::GetCapturedStdout();
  EXPECT_EQ(0u, classes.find("  ERROR                  ON   ACTIVEDIR              OFF"));
}

}  // namespace
