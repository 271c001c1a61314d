#include "diag/logfile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <fstream>

#include "diag/globalrc.h"
#include "diag/logfile_internal.h"
#include "diag/testing/nl_test_util.h"
#include "testing/files.h"
#include "testing/process.h"

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

class LogTest : public nltest::MessageTest {
 protected:
  void SetUp() override {
    MessageTest::SetUp();
    ASSERT_EQ(Start(), 0);
    setDateFmt(3);
  }
  void TearDown() override {
    setDateFmt(1);
    MessageTest::TearDown();
  }
  std::string Path(const char* name) const { return dir.path() + "/" + name; }
  std::string Dated(int daysAgo, const char* text) {
    time_t t = time(nullptr) - static_cast<time_t>(daysAgo) * 86400;
    struct tm lt;
    localtime_r(&t, &lt);
    char d[32];
    strftime(d, sizeof d, "%Y-%m-%d %H:%M:%S ", &lt);
    return std::string(d) + text + "\n";
  }
  qmxtest::TempDir dir;
};

TEST_F(LogTest, LineIsDateTimeTextWithOneNewline) {
  OpenErrorLog(Path("qmxerror.log"));
  int n = LogMsg("ANS1234E One.");
  EXPECT_EQ(LogMsg("ANS1235E Two.\n"), n);
  std::string log = qmxtest::readFile(Path("qmxerror.log"));
  EXPECT_EQ(static_cast<size_t>(2 * n), log.size());
  // Each line: "YYYY-MM-DD HH:MM:SS " (date format 3, time format 1), text.
  ASSERT_EQ(log.size(), 2u * 34);
  for (size_t at : {size_t{0}, size_t{34}}) {
    int y, mo, d, h, mi, sec;
    EXPECT_EQ(sscanf(log.c_str() + at, "%4d-%2d-%2d %2d:%2d:%2d ", &y, &mo, &d, &h, &mi, &sec), 6);
    EXPECT_EQ(log[at + 4], '-');
    EXPECT_EQ(log[at + 19], ' ');
  }
  EXPECT_EQ(log.substr(20, 14), "ANS1234E One.\n");
  EXPECT_EQ(log.substr(54, 14), "ANS1235E Two.\n");
}

TEST_F(LogTest, LoggingSwitchedOffWritesNothing) {
  OpenErrorLog(Path("qmxerror.log"));
  SetMsgLoggingMode(0);
  EXPECT_EQ(LogMsg("ANS1234E Not written."), 0);
  nlprintf(1107, "-x");
  EXPECT_EQ(qmxtest::readFile(Path("qmxerror.log")), "");
  SetMsgLoggingMode(1);
  EXPECT_GT(LogMsg("ANS1234E Written."), 0);
}

TEST_F(LogTest, MissingPiecesGive109) {
  OpenErrorLog(Path("qmxerror.log"));
  EXPECT_EQ(LogMsg(nullptr), 109);
  nlterm();
  destroyNlsGlobalObject();
  EXPECT_EQ(LogMsg("ANS1234E No message system."), 109);
  EXPECT_EQ(qmxtest::readFile(Path("qmxerror.log")), "");
}

TEST_F(LogTest, AFailedWriteGives621AndIsReportedOnceAsAWarning) {
  const std::string p = Path("capped.log");
  // Larger than anything the child writes elsewhere (its standard error).
  const std::string before(4096, '.');
  qmxtest::writeFile(p, before);
  OpenErrorLog(p);
  const std::string errPath = Path("stderr");
  // In a child whose files may not grow: every line the log is given
  // fails with EFBIG, as on a full file system.
  pid_t child = qmxtest::forkChild([&] {
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit cap = {before.size(), before.size()};
    int e = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (setrlimit(RLIMIT_FSIZE, &cap) != 0 || e < 0 || dup2(e, 2) < 0) return 2;
    if (LogMsg("ANS1234E Lost.") != 621) return 3;
    if (DLogFile::errorLogFile.lastErrno() != EFBIG) return 4;
    if (LogMsg("ANS1234E Still tried.") != 621) return 5;
    if (pGlobalRC->getMax() != 8) return 6;  // message 1399 is a warning
    return 0;
  });
  qmxtest::ChildEnd end = qmxtest::waitChild(child);
  EXPECT_EQ(end.how, "exited with 0");
  std::string err = qmxtest::readFile(errPath);
  EXPECT_THAT(err, HasSubstr("ANS1399W The log file '" + p +
                             "' could not be written (errno 27: File too large)."));
  EXPECT_EQ(err.find("ANS1399W"), err.rfind("ANS1399W")) << err;
  EXPECT_EQ(qmxtest::readFile(p), before);
}

TEST_F(LogTest, OnlyARegularFileOfItsOwnBecomesTheLog) {
  // A link is never followed: the file it points to stays as it was.
  const std::string target = Path("target");
  qmxtest::writeFile(target, "keep\n");
  const std::string link = Path("link.log");
  ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
  DLogFile& log = DLogFile::errorLogFile;
  DLogFile::InitializeLogFile(log, 0, "qmxerlog.pru", 0, 'D', 0, 0);
  EXPECT_EQ(log.utOpenOutputFile(link.c_str()), ELOOP);
  EXPECT_EQ(log.lastKind(), psFileSymlink);
  EXPECT_FALSE(log.isOpen());
  EXPECT_EQ(LogMsg("ANS1234E Not through the link."), 0);
  EXPECT_EQ(qmxtest::readFile(target), "keep\n");

  // A FIFO nobody reads, an endless device and a directory are refused
  // without waiting, whether the log wraps, is pruned or neither.
  const std::string fifo = Path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const struct {
    std::string path;
    psFileKind_t kind;
  } refused[] = {
      {fifo, psFileFifo}, {"/dev/zero", psFileCharDevice}, {dir.path(), psFileDirectory}};
  for (unsigned long maxSize : {0ul, 4000ul}) {
    for (unsigned retention : {0u, 3u}) {
      if (maxSize > 0 && retention > 0) continue;  // a log wraps or is pruned
      for (const auto& r : refused) {
        DLogFile::InitializeLogFile(log, maxSize, "qmxerlog.pru", retention, 'D', 0, 0);
        EXPECT_EQ(log.utOpenOutputFile(r.path.c_str()), EINVAL) << r.path;
        EXPECT_EQ(log.lastKind(), r.kind) << r.path;
        EXPECT_FALSE(log.isOpen());
      }
    }
  }
}

TEST_F(LogTest, DirectoriesOfTheLogAreCreated) {
  std::string p = dir.path() + "/a/b/c/qmxerror.log";
  OpenErrorLog(p);
  EXPECT_GT(LogMsg("ANS1234E Deep."), 0);
  EXPECT_THAT(qmxtest::readFile(p), HasSubstr("ANS1234E Deep."));
  // A file where a directory must be: refused with ENOTDIR.
  EXPECT_EQ(utBuildPath((dir.path() + "/a/b/c/qmxerror.log/x/y").c_str()), ENOTDIR);
}

TEST_F(LogTest, WrappingLogFillsExactlyToTheMaximumAndStartsAfterTheHeader) {
  const unsigned long max = 700;
  const std::string p = Path("wrap.log");
  OpenErrorLog(p, max);
  const size_t header = logprune::HeaderText(0, max).size();
  EXPECT_EQ(DLogFile::errorLogFile.nextWriteOffset(), header);
  std::string first = qmxtest::readFile(p);
  EXPECT_THAT(first, StartsWith("LOGHEADERREC " + std::to_string(header)));
  EXPECT_THAT(first, EndsWith("END OF DATA\n"));

  // Equal lines until one no longer fits and goes to the top.
  int i = 0, n = 0;
  unsigned long prev = header;
  for (;;) {
    char text[64];
    snprintf(text, sizeof text, "ANS1234E Line number %03d of the wrapping test.", i++);
    n = LogMsg(text);
    ASSERT_GT(n, 0);
    ASSERT_LT(i, 100);
    if (DLogFile::errorLogFile.nextWriteOffset() < prev) break;
    prev = DLogFile::errorLogFile.nextWriteOffset();
  }
  EXPECT_GT(i, 3);
  // The newest line stands right after the header, the file is full.
  std::string log = qmxtest::readFile(p);
  EXPECT_EQ(log.size(), max);
  char newest[64];
  snprintf(newest, sizeof newest, "ANS1234E Line number %03d", i - 1);
  EXPECT_EQ(log.find(newest), header + 20);  // after "YYYY-MM-DD HH:MM:SS "
  EXPECT_EQ(log.substr(header + n, 12), "END OF DATA\n");
  EXPECT_EQ(DLogFile::errorLogFile.nextWriteOffset(), header + n);
  size_t cont = log.find("The log continues at the beginning of the file\n");
  ASSERT_NE(cont, std::string::npos);
  std::string pad = log.substr(cont + 47);
  EXPECT_THAT(pad, EndsWith("*\n"));
  EXPECT_EQ(pad.find_first_not_of(' '), pad.size() - 2);
  unsigned long next = 0, recorded = 0;
  ASSERT_EQ(sscanf(log.c_str(), "LOGHEADERREC %lu %lu", &next, &recorded), 2);
  EXPECT_EQ(next, DLogFile::errorLogFile.nextWriteOffset());
  EXPECT_EQ(recorded, max);

  // Reopened with the same maximum, writing goes on where it stopped.
  DLogFile::errorLogFile.utCloseOutputFile();
  OpenErrorLog(p, max);
  EXPECT_EQ(DLogFile::errorLogFile.nextWriteOffset(), next);
  ASSERT_GT(LogMsg("ANS1234E After reopening."), 0);
  log = qmxtest::readFile(p);
  EXPECT_EQ(log.size(), max);
  EXPECT_EQ(log.find("ANS1234E After reopening."), next + 20);
}

TEST_F(LogTest, NewMaximumCarriesTheNewestEntriesOver) {
  const std::string p = Path("conv.log");
  OpenErrorLog(p, 4000);
  for (int i = 0; i < 30; ++i) {
    char text[64];
    snprintf(text, sizeof text, "ANS1234E Entry %02d.", i);
    ASSERT_GT(LogMsg(text), 0);
  }
  DLogFile::errorLogFile.utCloseOutputFile();
  OpenErrorLog(p, 600);
  std::string log = qmxtest::readFile(p);
  unsigned long next = 0, recorded = 0;
  ASSERT_EQ(sscanf(log.c_str(), "LOGHEADERREC %lu %lu", &next, &recorded), 2);
  EXPECT_EQ(recorded, 600u);
  EXPECT_LE(log.size(), 600u);
  EXPECT_THAT(log, HasSubstr("ANS1234E Entry 29."));
  EXPECT_THAT(log, Not(HasSubstr("ANS1234E Entry 00.")));
  EXPECT_LT(log.find("Entry 28."), log.find("Entry 29."));
  EXPECT_EQ(log.find("END OF DATA"), next);
  EXPECT_FALSE(std::ifstream(p + ".tmp").good());
}

TEST_F(LogTest, PlainLogIsConvertedWhenWrappingIsSwitchedOn) {
  const std::string p = Path("plain.log");
  { std::ofstream(p) << Dated(1, "ANS1234E Old one.") << Dated(0, "ANS1234E New one."); }
  OpenErrorLog(p, 2000);
  ASSERT_GT(LogMsg("ANS1234E Newest."), 0);
  std::string log = qmxtest::readFile(p);
  EXPECT_THAT(log, StartsWith("LOGHEADERREC "));
  size_t a = log.find("Old one."), b = log.find("New one."), c = log.find("Newest.");
  ASSERT_NE(a, std::string::npos);
  EXPECT_LT(a, b);
  EXPECT_LT(b, c);
}

TEST_F(LogTest, PruningDropsOldEntriesAndKeepsYoungOnes) {
  const std::string p = Path("prune.log");
  {
    std::ofstream(p) << Dated(40, "ANS1234E Old entry.") << "  with a second line\n"
                     << Dated(10, "ANS1234E Young entry.") << Dated(0, "ANS1234E Today.");
  }
  DLogFile::InitializeLogFile(DLogFile::errorLogFile, 0, "qmxerlog.pru", 30, 'D', 0, 0);
  ASSERT_EQ(DLogFile::errorLogFile.utOpenOutputFile(p.c_str()), 0);
  ASSERT_GT(LogMsg("ANS1234E Appended."), 0);
  std::string log = qmxtest::readFile(p);
  EXPECT_THAT(log, Not(HasSubstr("Old entry.")));
  EXPECT_THAT(log, Not(HasSubstr("second line")));
  EXPECT_THAT(log, HasSubstr("Young entry."));
  EXPECT_THAT(log, HasSubstr("Today."));
  EXPECT_THAT(log, EndsWith("ANS1234E Appended.\n"));
  std::string report = qmxtest::readFile(Path("qmxprune.log"));
  EXPECT_THAT(report, HasSubstr("Log Pruner started.\nLog Retention Days = 30.\n"));
  EXPECT_THAT(report,
              HasSubstr("Log Pruner: 4 lines processed. 2 lines pruned.\nLog Pruner finished.\n"));
  EXPECT_FALSE(std::ifstream(Path("qmxerlog.pru")).good());  // mode D drops them
}

TEST_F(LogTest, PruningInSaveModeKeepsPrunedEntries) {
  const std::string p = Path("prune.log");
  { std::ofstream(p) << Dated(9, "ANS1234E Old entry.") << Dated(1, "ANS1234E Young entry."); }
  DLogFile::InitializeLogFile(DLogFile::errorLogFile, 0, "qmxerlog.pru", 5, 'S', 0, 0);
  ASSERT_EQ(DLogFile::errorLogFile.utOpenOutputFile(p.c_str()), 0);
  EXPECT_THAT(qmxtest::readFile(Path("qmxerlog.pru")), HasSubstr("Old entry."));
  EXPECT_THAT(qmxtest::readFile(p), Not(HasSubstr("Old entry.")));
  EXPECT_THAT(qmxtest::readFile(p), HasSubstr("Young entry."));
}

TEST_F(LogTest, PruningFailureLeavesTheLogWhole) {
  const std::string p = Path("prune.log");
  const std::string before = Dated(9, "ANS1234E Old entry.") + Dated(1, "ANS1234E Young.");
  { std::ofstream(p) << before; }
  DLogFile::InitializeLogFile(DLogFile::errorLogFile, 0, "/nonexistent/dir/x.pru", 5, 'S', 0, 0);
  ASSERT_EQ(DLogFile::errorLogFile.utOpenOutputFile(p.c_str()), 0);
  EXPECT_EQ(qmxtest::readFile(p), before);
  EXPECT_THAT(qmxtest::readFile(Path("qmxprune.log")),
              HasSubstr("Couldn't open save file </nonexistent/dir/x.pru> to save pruned log "
                        "entries.\nerrno = 2, "));
}

TEST_F(LogTest, YoungLogIsNotRewritten) {
  const std::string p = Path("prune.log");
  { std::ofstream(p) << Dated(1, "ANS1234E Young."); }
  DLogFile::InitializeLogFile(DLogFile::errorLogFile, 0, "qmxerlog.pru", 5, 'D', 0, 0);
  ASSERT_EQ(DLogFile::errorLogFile.utOpenOutputFile(p.c_str()), 0);
  EXPECT_FALSE(std::ifstream(Path("qmxprune.log")).good());
}

TEST_F(LogTest, WrappingLogWithAHeaderPastItsEndIsRebuilt) {
  std::string p = Path("bad.log");
  {
    std::ofstream(p) << "LOGHEADERREC 999999      1000       damaged\n\n"
                     << "11/20/2026 10:00:00 ANS1234E Kept.\n";
  }
  OpenErrorLog(p, 1000);
  ASSERT_GT(LogMsg("ANS1234E Added."), 0);
  std::string log = qmxtest::readFile(p);
  EXPECT_LT(log.find("Kept."), log.find("Added."));
  EXPECT_LE(log.size(), 1000u);
  EXPECT_EQ(log.find("LOGHEADERREC", 1), std::string::npos);  // the old header is not an entry
  EXPECT_EQ(log.find("damaged"), std::string::npos);
}

}  // namespace
