// The message system against the catalogues built by gencat in the build
// tree.
#include <gmock/gmock.h>

#include <fstream>
#include <sstream>
#include <thread>

#include "diag/nlsobject.h"
#include "diag/testing/nl_test_util.h"
#include "diag/trace.h"

using nltest::MessageTest;
using nltest::Shown;
using qmxtest::TempDir;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

std::vector<unsigned> CacheNumbers(const nlCache_t& c) {
  std::vector<unsigned> r;
  if (c.head == nullptr) return r;
  const NLSMsg* m = c.head;
  do {
    r.push_back(m->num);
    m = m->next;
  } while (m != c.head);
  return r;
}

TEST_F(MessageTest, ComposesInsertsIntoTheEnglishText) {
  ASSERT_EQ(Start(), 0);
  EXPECT_EQ(Compose(1107, "-bogus"),
            "ANS1107E The option or argument '-bogus' is not valid here. Check its spelling and "
            "its value; the usage shows what the command accepts.\n");
  // Number inserts, and a string next to them.
  EXPECT_EQ(Compose(1075, "dscspars", 333),
            "ANS1075E Not enough memory to continue (in dscspars, line 333). Free some memory or "
            "end other programs and try again.\n");
  // The order list places the third argument first.
  EXPECT_EQ(Compose(9531, "sessA", "1F", "qmxattr", "No such process"),
            "ANS9531E qmxattr: The DMAPI session 'sessA' (previous id 1F) could not be created or "
            "recovered: No such process.\n");
  // Hexadecimal and unsigned inserts.
  EXPECT_EQ(Compose(20765, 32u, 0x1B00u, "SignOn"),
            "ANS0765I Received verb: length 32, type 0x1B00 (SignOn).\n");
}

TEST_F(MessageTest, IdentifierRulesFollowTheSeverityLetter) {
  ASSERT_EQ(Start(), 0);
  // Display texts lose their identifier.
  EXPECT_EQ(Compose(9205, "/hsmfs/a"), "Directory: /hsmfs/a\n");
  EXPECT_EQ(Compose(15755, 2026), "Copyright Norvik 2002, 2026. All rights reserved.");
  // Five-digit numbers show four digits.
  EXPECT_THAT(Compose(11159), StartsWith("ANS1159W The command was interrupted"));
  EXPECT_THAT(Compose(14005, "/tmp/list", "", ""), StartsWith("ANS4005E The file '/tmp/list'"));
  EXPECT_THAT(Compose(21301, "/x/qmx.sys"), StartsWith("ANS1301E "));
  EXPECT_EQ(nlGetMsgSev(9205), nlsevZ);
  EXPECT_EQ(nlGetMsgSev(1398), nlsevW);
  EXPECT_EQ(nlGetMsgSev(1107), nlsevE);
  EXPECT_EQ(nlGetMsgSev(9033), nlsevI);
  // Another prefix replaces "ANS" in what is shown.
  setNlsGlobalObjectMsgPrefix("QMX");
  EXPECT_THAT(Compose(1107, "x"), StartsWith("QMX1107E "));
}

TEST_F(MessageTest, PrintRoutesBySeverityAndStreamGetsTheText) {
  ASSERT_EQ(Start(), 0);
  int n = nlprintf(9033, "/fs/f1");
  ASSERT_EQ(Shown().size(), 1u);
  EXPECT_EQ(Shown()[0].first, static_cast<unsigned>(nlsevI));
  EXPECT_EQ(Shown()[0].second, "ANS9033I The recall mode of '/fs/f1' was set.\n");
  EXPECT_EQ(n, static_cast<int>(Shown()[0].second.size()));

  FILE* f = tmpfile();
  ASSERT_NE(f, nullptr);
  nlfprintf(f, 9117, "x");
  rewind(f);
  char line[512] = {};
  ASSERT_NE(fgets(line, sizeof line, f), nullptr);
  fclose(f);
  EXPECT_THAT(line, StartsWith("ANS9117E The recall mode 'x' is not valid."));
  EXPECT_EQ(Shown().size(), 1u);  // a stream message is not routed as well
}

TEST_F(MessageTest, GermanCatalogueForLanguageDeWithEnglishFallbackPerMessage) {
  nlSetLocale("de");
  ASSERT_EQ(Start(), 0);
  EXPECT_STREQ(qmxLocale, "DE");
  EXPECT_EQ(Compose(1107, "-x"),
            "ANS1107E Die Option oder das Argument '-x' ist hier nicht gültig. Prüfen Sie "
            "Schreibweise und Wert; die Hilfe zeigt, was der Befehl annimmt.\n");
  // Not translated: the English text.
  EXPECT_THAT(Compose(20051, "sessOpen", "sInit", "sOpened"),
              StartsWith("ANS0051I Session: sessOpen changed"));
  char* eng = nullptr;
  ASSERT_GT(nlEngsprintf(&eng, 1107, "-x"), 0);
  EXPECT_THAT(eng, StartsWith("ANS1107E The option or argument '-x'"));
  free(eng);
  EXPECT_TRUE(Shown().empty());  // no ANS0102W: the catalogue exists
}

TEST_F(MessageTest, MessageFileNameAsLanguageLeavesTheChoiceToTheLocale) {
  // Start-up passes the catalogue path where a language may stand.
  std::string path = nltest::ClientBinDir() + "/qmxclientv3.cat";
  nlSetLocale("de");
  ASSERT_EQ(Start(path.c_str()), 0);
  EXPECT_THAT(Compose(1107, "-x"), StartsWith("ANS1107E Die Option"));
  ASSERT_EQ(Start(path.c_str(), 50), 0);  // the second start keeps the catalogue
  EXPECT_THAT(Compose(9033, "/f"), StartsWith("ANS9033I Der Abrufmodus von '/f'"));
  EXPECT_TRUE(Shown().empty());
}

TEST_F(MessageTest, UnknownLanguageFallsBackToEnglishWithATraceLine) {
  TempDir dir;
  std::string trace = dir.path() + "/trace.out";
  new_TraceObject(ctCLSpaceMGT, 0, nullptr);
  ASSERT_EQ(trEnable("NLS", 1), 0);
  ASSERT_EQ(trBegin(trace.c_str(), 0), 0);
  nlSetLocale("xx");
  ASSERT_EQ(Start(), 0);
  EXPECT_THAT(Compose(1107, "-x"), StartsWith("ANS1107E The option or argument"));
  trClose(1);
  delete_TraceObject();
  EXPECT_THAT(qmxtest::readFile(trace),
              HasSubstr("Language specification \"XX\" not found, substituting US English"));
  EXPECT_TRUE(Shown().empty());
}

TEST_F(MessageTest, MissingNationalCatalogueWarnsOnceThenEnglish) {
  nlSetLocale("FR_FR");
  ASSERT_EQ(Start(), 0);
  ASSERT_EQ(Shown().size(), 1u);
  EXPECT_EQ(Shown()[0].first, static_cast<unsigned>(nlsevW));
  EXPECT_THAT(Shown()[0].second, StartsWith("ANS0102W Unable to open the message repository " +
                                            nltest::ClientBinDir() + "/FR_FR/qmxclientV3.cat."));
  EXPECT_STREQ(qmxLocale, "EN_US");
  nlprintf(9033, "a");
  nlprintf(9033, "b");
  ASSERT_EQ(Shown().size(), 3u);
  EXPECT_THAT(Shown()[1].second, StartsWith("ANS9033I The recall mode of 'a'"));
  // A second start (cache 50) does not open or warn again.
  ASSERT_EQ(Start("AMENG", 50), 0);
  EXPECT_EQ(Shown().size(), 3u);
}

TEST_F(MessageTest, MissingEnglishCatalogueFailsWith610) {
  TempDir dir;
  EXPECT_EQ(nlinit("AMENG", 10, dir.path().c_str(), 5, 1, 1, 1, nullptr, nullptr), 610);
  ASSERT_EQ(Shown().size(), 1u);
  EXPECT_THAT(Shown()[0].second, StartsWith("ANS0102W Unable to open the message repository"));
  EXPECT_EQ(nlinit("", 10, nltest::ClientBinDir().c_str(), 5, 1, 1, 1, nullptr, nullptr), 610);
  EXPECT_EQ(nlprintf(1107, "x"), 0);  // nothing open: nothing shown
}

TEST_F(MessageTest, AbsentMessagesAreReportedAndLogged) {
  TempDir dir;
  ASSERT_EQ(Start(), 0);
  OpenErrorLog(dir.path() + "/qmxerror.log");
  EXPECT_EQ(nlprintf(4242), 0);
  ASSERT_EQ(Shown().size(), 1u);
  EXPECT_EQ(Shown()[0].first, static_cast<unsigned>(nlsevE));
  EXPECT_THAT(Shown()[0].second, StartsWith("ANS9999E "));
  EXPECT_THAT(Shown()[0].second, HasSubstr("): Message No 4242 could not be found.\n"));
  EXPECT_THAT(qmxtest::readFile(dir.path() + "/qmxerror.log"),
              HasSubstr("Message No 4242 could not be found."));
  EXPECT_EQ(nlGetMsgSev(4242), nlsevNone);
  EXPECT_EQ(pGlobalRC->get(), 0);
}

TEST_F(MessageTest, RetiredCorruptAndDefaultTextMessages) {
  ASSERT_EQ(StartTestCatalogue(), 0);
  EXPECT_EQ(Compose(1), "ANS0001I A plain test message.\n");
  // M: absent, silently.
  EXPECT_EQ(nlprintf(2), 0);
  EXPECT_TRUE(Shown().empty());
  EXPECT_EQ(nlGetMsgSev(2), nlsevNone);
  // Unknown letter and damaged body: corrupted.
  EXPECT_EQ(nlprintf(3), 0);
  EXPECT_EQ(nlprintf(8), 0);
  ASSERT_EQ(Shown().size(), 2u);
  EXPECT_THAT(Shown()[0].second, HasSubstr("Message No 3 is corrupted."));
  EXPECT_THAT(Shown()[1].second, HasSubstr("Message No 8 is corrupted."));
  // A text ending with the catalogue's default is taken as not found.
  EXPECT_EQ(nlprintf(4), 0);
  ASSERT_EQ(Shown().size(), 3u);
  EXPECT_THAT(Shown()[2].second, HasSubstr("Message No 4 could not be found."));
  // A hand-built insert table: slot order 0, 2, 1.
  EXPECT_EQ(Compose(5, "a", 7, "c"), "ANS0005E <a|c|7>\n");
  // L: no identifier; five-digit W keeps four digits.
  EXPECT_EQ(Compose(6), "Logged display text.\n");
  EXPECT_EQ(Compose(12345), "ANS2345W A five-digit message.\n");
}

TEST_F(MessageTest, EleventhMessageEvictsTheLeastRecentlyUsed) {
  ASSERT_EQ(Start("AMENG", 10), 0);
  const unsigned nums[] = {1038, 1075, 1079, 1081, 1107, 1216, 1246, 1398, 1691, 1824};
  for (unsigned n : nums) EXPECT_NE(nlGetMsgSev(n), nlsevNone);
  nlGetMsgSev(1038);  // used again: now the most recent
  EXPECT_EQ(CacheNumbers(getNlsGlobalObjectHandle()->engCache).size(), 10u);
  nlGetMsgSev(9117);  // the eleventh
  std::vector<unsigned> c = CacheNumbers(getNlsGlobalObjectHandle()->engCache);
  ASSERT_EQ(c.size(), 10u);
  EXPECT_EQ(c[0], 9117u);
  EXPECT_EQ(c[1], 1038u);
  EXPECT_EQ(std::count(c.begin(), c.end(), 1075u), 0);  // least recently used
  EXPECT_EQ(std::count(c.begin(), c.end(), 1079u), 1);
}

TEST_F(MessageTest, EmbeddedClientIsSilentOnScreensButStillLogs) {
  TempDir dir;
  ASSERT_EQ(Start("AMENG", 10, nlClientTypeAPI), 0);
  OpenErrorLog(dir.path() + "/qmxerror.log");
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_GT(nlprintf(9178, "qmxattr", "/dev/fsm", "No such device"), 0);
  EXPECT_GT(nlfprintf(stderr, 1107, "-x"), 0);
  EXPECT_GT(nlfprintf(stdout, 9033, "/f"), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_TRUE(Shown().empty());
  std::string log = qmxtest::readFile(dir.path() + "/qmxerror.log");
  EXPECT_THAT(log, HasSubstr("ANS9178E qmxattr: '/dev/fsm' could not be accessed"));
  EXPECT_THAT(log, HasSubstr("ANS1107E The option or argument '-x'"));
  EXPECT_THAT(log, ::testing::Not(HasSubstr("ANS9033I")));  // informational: not logged
}

TEST_F(MessageTest, MessagesRaiseTheProcessReturnCode) {
  ASSERT_EQ(Start(), 0);
  nlprintf(9033, "a");
  EXPECT_EQ(pGlobalRC->get(), 0);
  nlprintf(1398, "/x/log", 2, "No such file or directory");
  EXPECT_EQ(pGlobalRC->get(), 8);
  char* s = nullptr;
  nlsprintf(&s, 9033, "b");
  free(s);
  EXPECT_EQ(pGlobalRC->get(), 8);
  FILE* sink = tmpfile();
  ASSERT_NE(sink, nullptr);
  nlfprintf(sink, 1081, "bad");
  fclose(sink);
  EXPECT_EQ(pGlobalRC->get(), 12);
}

TEST_F(MessageTest, ResponsesAndEmbeddedTexts) {
  ASSERT_EQ(Start(), 0);
  char buf[24];
  int n = nlapimsg(1107, buf, sizeof buf, "-x");
  EXPECT_EQ(n, 23);
  EXPECT_STREQ(buf, "ANS1107E The option or ");
  EXPECT_TRUE(Shown().empty());
  char resp[64];
  EXPECT_EQ(nlresponse(9205, resp, sizeof resp), 10);
  EXPECT_STREQ(resp, "Directory:");
  EXPECT_EQ(nlresponse(4242, resp, sizeof resp), 0);
}

TEST_F(MessageTest, TraceFacilityMessagesGoThroughTheCatalogue) {
  TempDir dir;
  ASSERT_EQ(Start(), 0);
  OpenErrorLog(dir.path() + "/qmxerror.log");
  new_TraceObject(ctCLSpaceMGT, 0, nullptr);
  std::string target = dir.path() + "/real";
  std::string link = dir.path() + "/link";
  ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
  testing::internal::CaptureStderr();
  EXPECT_EQ(trSetTraceFileName(link.c_str()), 959);
  std::string err = testing::internal::GetCapturedStderr();
  delete_TraceObject();
  EXPECT_THAT(err, HasSubstr("ANS1193E The trace file '" + link + "' is a symbolic link"));
  EXPECT_THAT(err, HasSubstr("ANS1191W The symbolic link '" + link + "' was deleted."));
  std::string log = qmxtest::readFile(dir.path() + "/qmxerror.log");
  EXPECT_THAT(log, HasSubstr("ANS1193E"));
  EXPECT_THAT(log, HasSubstr("ANS1191W"));
}

TEST_F(MessageTest, IndexedRepositoryEntries) {
  TempDir dir;
  ASSERT_EQ(Start(), 0);
  std::string repo = dir.path() + "/old.rep";
  std::string bytes(62 + 2 * 11, '\0');
  bytes[62 + 2 * 10] = 0x01;  // message 10 -> 0x0123
  bytes[62 + 2 * 10 + 1] = 0x23;
  { std::ofstream(repo, std::ios::binary) << bytes; }
  unsigned entry = 0;
  EXPECT_EQ(ReadIndex(repo.c_str(), 10, &entry), 0);
  EXPECT_EQ(entry, 0x0123u);
  EXPECT_EQ(ReadIndex(repo.c_str(), 9, &entry), 9999);
  EXPECT_EQ(ReadIndex(repo.c_str(), 500, &entry), 9999);
  ASSERT_EQ(Shown().size(), 2u);
  EXPECT_EQ(Shown()[0].second, "ANS0106E Message index not found for message 9.\n");
  EXPECT_EQ(Shown()[1].second,
            "ANS0105E Error trying to read index for message 500 from "
            "repository '" +
                repo + "'.\n");
  EXPECT_EQ(pGlobalRC->get(), 12);
}

TEST(LanguageNames, NormalisedToCatalogueDirectories) {
  EXPECT_EQ(nlNormaliseLanguage("de"), "DE_DE");
  EXPECT_EQ(nlNormaliseLanguage("ja"), "JA_JP");
  EXPECT_EQ(nlNormaliseLanguage("PT"), "PT_BR");
  EXPECT_EQ(nlNormaliseLanguage("xx"), "EN_US");
  EXPECT_EQ(nlNormaliseLanguage("zh_TW.BIG5"), "Zh_TW");
  EXPECT_EQ(nlNormaliseLanguage("DE_DE.UTF-8"), "DE_DE");
  EXPECT_EQ(nlNormaliseLanguage("C.UTF-8"), "EN_US");
}

TEST(CodePages, UcsRoundTrip) {
  setenv("LC_ALL", "C.UTF-8", 1);
  setlocale(LC_ALL, "");
  const uint16_t ucs[] = {'G', 0x00FC, 'n', 't', 'e', 'r', 0};
  char local[32];
  ASSERT_EQ(nlsUcsToLocal(ucs, local, sizeof local), 7);
  EXPECT_STREQ(local, "G\xC3\xBCnter");
  uint16_t back[16];
  ASSERT_EQ(nlsLocalToUcs(local, back, 16), 6);
  EXPECT_EQ(back[1], 0x00FC);
  EXPECT_EQ(back[6], 0);
  EXPECT_EQ(nlsLocalToUcs("G\xC3\xBCnter", back, 3), -1);  // does not fit
  EXPECT_EQ(nlsLocalToUcs("\xC3(", back, 16), -1);         // not UTF-8
  EXPECT_EQ(nlsUcsToLocal(ucs, local, 4), -1);
}

}  // namespace

namespace {

TEST_F(MessageTest, TrailerAfterTheLastMarkIsKeptApart) {
  ASSERT_EQ(StartTestCatalogue(), 0);
  EXPECT_EQ(Compose(9), "ANS0009I Text with a trailer.\n");
  psMutexGuard g(&nls_mutex);
  NLSMsg* m = GetMsg(9, false);
  ASSERT_NE(m, nullptr);
  EXPECT_STREQ(m->trailer, "TRL");
}

TEST_F(MessageTest, ScheduleModeCopiesEveryMessageToTheScheduleLog) {
  TempDir dir;
  ASSERT_EQ(Start(), 0);
  std::string sched = dir.path() + "/sched.log";
  DLogFile::InitializeLogFile(DLogFile::schedLogFile, 0, "", 0, 'D', 0, 0);
  ASSERT_EQ(DLogFile::schedLogFile.utOpenOutputFile(sched.c_str()), 0);
  nlprintf(9033, "/a");  // not copied: schedule mode is off
  nlSetScheduleMode(1);
  nlprintf(9033, "/b");
  nlSetScheduleMode(0);
  DLogFile::schedLogFile.utCloseOutputFile();
  std::string log = qmxtest::readFile(sched);
  EXPECT_THAT(log, ::testing::Not(HasSubstr("'/a'")));
  EXPECT_THAT(log, HasSubstr("ANS9033I The recall mode of '/b' was set."));
}

TEST_F(MessageTest, ThreadsNeverInterleaveLogLines) {
  TempDir dir;
  ASSERT_EQ(Start("AMENG", 3), 0);  // a small cache: lookups evict each other
  OpenErrorLog(dir.path() + "/qmxerror.log");
  const unsigned nums[] = {9178, 9126, 9527, 9545};
  std::vector<std::thread> threads;
  for (unsigned t = 0; t < 4; ++t) {
    threads.emplace_back([t, &nums] {
      for (int i = 0; i < 150; ++i) {
        char* s = nullptr;
        nlsprintf(&s, nums[(t + i) % 4], "prog", "/some/path", "why");
        if (s != nullptr) LogMsg(s);
        free(s);
      }
    });
  }
  for (std::thread& th : threads) th.join();
  std::istringstream log(qmxtest::readFile(dir.path() + "/qmxerror.log"));
  std::string line;
  int lines = 0;
  while (std::getline(log, line)) {
    ++lines;
    EXPECT_THAT(line, ::testing::MatchesRegex("[0-9/]+ [0-9:]+ ANS95?[0-9]+E .*"));
  }
  EXPECT_EQ(lines, 600);
}

}  // namespace

namespace {

TEST_F(MessageTest, EnvironmentLocaleChoosesTheNationalCatalogue) {
  // A utility client only reads the environment; the code set suffix is cut.
  setenv("LC_ALL", "de_DE.UTF-8", 1);
  nlInitInfo_t info = {};
  ASSERT_EQ(nlinit("AMENG", 10, nltest::ClientBinDir().c_str(), 9, 3, 1, 1, &info, nullptr), 0);
  EXPECT_STREQ(info.locale, "DE_DE.UTF-8");
  EXPECT_EQ(info.dateFormat, 3);
  EXPECT_STREQ(Language, "DE_DE");
  EXPECT_THAT(Compose(1107, "-x"), StartsWith("ANS1107E Die Option oder das Argument '-x'"));
  EXPECT_TRUE(Shown().empty());
  setDateFmt(1);
}

TEST_F(MessageTest, BannerAndCopyrightLines) {
  ASSERT_EQ(Start(), 0);
  EXPECT_EQ(Compose(9006, 3, 1, 0, 2, " ", "11/21/2026"),
            "NQB Space Management Client, version 3.1.0.2 11/21/2026\n");
  EXPECT_EQ(Compose(15756), "This program may be used only as its license allows.");
  EXPECT_EQ(pGlobalRC->get(), 0);  // display texts never raise the return code
}

}  // namespace

namespace {

TEST_F(MessageTest, TraceTimeStampsUseTheClientDateFormat) {
  TempDir dir;
  std::string trace = dir.path() + "/trace.out";
  ASSERT_EQ(nlinit("AMENG", 10, nltest::ClientBinDir().c_str(), 5, 3, 3, 1, nullptr, nullptr), 0);
  new_TraceObject(ctCLSpaceMGT, 0, nullptr);
  ASSERT_EQ(trEnable("GENERAL", 1), 0);  // the first enable adds TIMESTAMP
  ASSERT_EQ(trBegin(trace.c_str(), 0), 0);
  trPrintf("here.cpp", 7, "stamped\n");
  trClose(1);
  delete_TraceObject();
  setDateFmt(1);
  setTimeFmt(1);
  std::string t = qmxtest::readFile(trace);
  size_t at = t.find("stamped");
  ASSERT_NE(at, std::string::npos);
  size_t bol = t.rfind('\n', at) + 1;
  int y, mo, d, h, mi, sec;
  EXPECT_EQ(sscanf(t.c_str() + bol, "%4d-%2d-%2d %2d.%2d.%2d.", &y, &mo, &d, &h, &mi, &sec), 6)
      << t.substr(bol, at - bol);
}

}  // namespace
