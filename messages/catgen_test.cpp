#include "messages/catgen.h"

#include <gmock/gmock.h>

#include <fstream>
#include <sstream>

using ::testing::HasSubstr;

namespace {

std::map<unsigned, catMessage_t> Parse(const std::string& src, std::vector<std::string>* errors) {
  std::map<unsigned, catMessage_t> m;
  catParseSource("t.msg", src, &m, errors);
  return m;
}

std::string OneError(const std::string& src) {
  std::vector<std::string> errors;
  Parse(src, &errors);
  return errors.size() == 1 ? errors[0] : "<" + std::to_string(errors.size()) + " errors>";
}

std::map<unsigned, catMessage_t> Load(const char* name) {
  std::ifstream in(std::string(QMX_MESSAGES_SOURCE_DIR) + "/" + name);
  std::ostringstream s;
  s << in.rdbuf();
  std::vector<std::string> errors;
  std::map<unsigned, catMessage_t> m;
  EXPECT_TRUE(catParseSource(name, s.str(), &m, &errors));
  for (const std::string& e : errors) ADD_FAILURE() << e;
  return m;
}

TEST(CatalogueSource, EntriesWithInsertsEscapesAndContinuations) {
  std::vector<std::string> errors;
  auto m = Parse(
      "# comment\n"
      "\n"
      "9531 E %s %s %s %s | {3}: session '{1}' ({2}): {4}.\n"
      "15755 Z %d | Copyright {1}.\\c\n"
      "9329 Z |  Mode   Name   \n"
      "9139 Z | Usage: a\\n\\\n"
      "  -r x\\tb \\{c\\} \\\\\n",
      &errors);
  ASSERT_TRUE(errors.empty()) << errors[0];
  ASSERT_EQ(m.size(), 4u);
  EXPECT_EQ(m.at(9329).pieces[0], " Mode   Name\n");  // one blank after the bar is the separator
  const catMessage_t& s = m.at(9531);
  EXPECT_EQ(s.severity, 'E');
  EXPECT_EQ(s.inserts.size(), 4u);
  EXPECT_EQ(s.order, (std::vector<unsigned char>{2, 0, 1, 3}));
  EXPECT_EQ(s.pieces, (std::vector<std::string>{"", ": session '", "' (", "): ", ".\n"}));
  EXPECT_EQ(m.at(15755).pieces.back(), ".");  // \c: no newline
  EXPECT_EQ(m.at(9139).pieces[0], "Usage: a\n  -r x\tb {c} \\\n");
  EXPECT_EQ(m.at(9139).line, 6);
}

TEST(CatalogueSource, BadEntriesAreNamedWithTheirLine) {
  EXPECT_EQ(OneError("\n12x E | t\n"),
            "t.msg:2: the message number '12x' is not a number from 1 to 99999");
  EXPECT_EQ(OneError("100000 E | t\n"),
            "t.msg:1: the message number '100000' is not a number from 1 to 99999");
  EXPECT_EQ(OneError("12 Q | t\n"), "t.msg:1: the severity 'Q' is not one of Z T R K I W E S L M");
  EXPECT_EQ(OneError("12 E %q | t {1}\n"),
            "t.msg:1: the insert format '%q' is not a single printf conversion");
  EXPECT_EQ(OneError("12 E %s | t {2}\n"),
            "t.msg:1: insert {2} does not exist: the message declares 1 insert(s)");
  EXPECT_EQ(OneError("12 E %s | t {1} {1}\n"), "t.msg:1: insert {1} is placed twice");
  EXPECT_EQ(OneError("12 E %s %d | t {1}\n"),
            "t.msg:1: insert {2} is declared but not placed in the text");
  EXPECT_EQ(OneError("12 E | a { b\n"),
            "t.msg:1: '{' must open an insert such as {1} (write \\{ for a brace)");
  EXPECT_EQ(OneError("12 E | a } b\n"), "t.msg:1: unmatched '}' (write \\} for a brace)");
  EXPECT_EQ(OneError("12 E | a \\q\n"), "t.msg:1: unknown escape \\q");
  EXPECT_EQ(OneError("12 E | a\\c b\n"), "t.msg:1: \\c may only end the text");
  EXPECT_EQ(OneError("12 E |   \n"), "t.msg:1: the message has no text");
  EXPECT_EQ(OneError("12 E text\n"), "t.msg:1: expected '<number> <severity> [inserts] | <text>'");
  EXPECT_EQ(OneError("12 E | a\n12 E | b\n"),
            "t.msg:2: message 12 is defined twice (first at line 1)");
  EXPECT_EQ(OneError("12 E | a\\\n"), "t.msg:1: the last entry ends in a continuation backslash");
  // Every bad entry is reported, not only the first.
  std::vector<std::string> errors;
  Parse("1 Q | a\n2 E | ok\n3 Q | b\n", &errors);
  EXPECT_EQ(errors.size(), 2u);
}

TEST(CatalogueSource, TranslationsMustMatchTheEnglishInserts) {
  std::vector<std::string> e;
  auto en = Parse("1 E %s %d | a {1} {2}\n2 W | b\n", &e);
  auto good = Parse("1 E %s %d | x {2} {1}\n", &e);
  auto bad = Parse("1 E %d %s | x {1} {2}\n2 E | y\n3 I | z\n", &e);
  ASSERT_TRUE(e.empty());
  EXPECT_TRUE(catCheckAgainst("de.msg", good, en, &e));
  EXPECT_FALSE(catCheckAgainst("de.msg", bad, en, &e));
  ASSERT_EQ(e.size(), 3u);
  EXPECT_EQ(e[0], "de.msg:1: message 1 takes other inserts than the English one");
  EXPECT_EQ(e[1], "de.msg:2: message 2 has severity E but the English one has W");
  EXPECT_EQ(e[2], "de.msg:3: message 3 has no English original");
}

TEST(CatalogueSource, CompilerInputEscapesControlBytesAndDigitsAfterThem) {
  std::vector<std::string> e;
  auto m = Parse("11159 W %d | {1}0 a\\\\b\n7 Z | x\n", &e);
  ASSERT_TRUE(e.empty());
  std::string out = catWriteCompilerInput("t.msg", m);
  EXPECT_THAT(out, HasSubstr("$set 1\n"));
  // Display texts keep their identifier in the catalogue; it is dropped when read.
  EXPECT_THAT(out, HasSubstr("\n7 ANS0007Z \\001x\\n\n"));
  // The slot before "0" is an octal escape, so the digit is escaped too.
  EXPECT_THAT(out, HasSubstr("\\020\\060 a\\\\b\\n\n"));
  EXPECT_THAT(out, HasSubstr("\n11159 ANS11159W \\002\\021\\020"));
}

TEST(CatalogueSource, EveryMessageTheClientIssuesHasAnEnglishText) {
  auto en = Load("EN_US.msg");
  const unsigned used[] = {
      1038,  1075,  1079,  1081,  1107,  1190,  1191,  1193,  1216,  1246,  1398,  1691,
      1824,  1831,  1867,  1871,  2046,  2171,  5184,  7901,  9006,  9012,  9020,  9030,
      9031,  9032,  9033,  9085,  9096,  9106,  9117,  9125,  9126,  9138,  9139,  9178,
      9184,  9205,  9219,  9313,  9329,  9505,  9511,  9512,  9527,  9528,  9531,  9534,
      9535,  9538,  9545,  9880,  9881,  9999,  11159, 11290, 14005, 14031, 15755, 15756,
      20007, 20023, 20024, 20025, 20026, 20027, 20028, 20037, 20051, 20052, 20765, 20768,
      21301, 1399,  14006, 14007, 14010, 14011, 14012, 14013, 14014, 14015, 14016, 14020,
  };
  for (unsigned n : used) EXPECT_EQ(en.count(n), 1u) << "message " << n;
  // The option-error messages, one per option return code.
  for (unsigned n = 1030; n <= 1037; ++n) EXPECT_EQ(en.count(n), 1u) << n;
  // Display texts never show an identifier or raise the return code.
  for (unsigned n : {9006u, 9138u, 9139u, 9205u, 9219u, 9329u, 15755u, 15756u, 14010u, 14011u,
                     14012u, 14013u, 14014u, 14015u, 14016u}) {
    EXPECT_EQ(en.at(n).severity, 'Z') << n;
  }
  // The trace facility's link messages must reach the error log.
  for (unsigned n : {1190u, 1191u, 1193u})
    EXPECT_NE(std::string("WES").find(en.at(n).severity), std::string::npos);
}

TEST(CatalogueSource, GermanCoversWhatTheAttributeCommandPrints) {
  auto en = Load("EN_US.msg");
  auto de = Load("DE_DE.msg");
  std::vector<std::string> e;
  EXPECT_TRUE(catCheckAgainst("DE_DE.msg", de, en, &e));
  for (const std::string& s : e) ADD_FAILURE() << s;
  const unsigned attr[] = {1038,  1075,  1079,  1081,  1107,  1190,  1191,  1193,  1216, 1246,
                           1398,  1691,  1824,  2171,  5184,  7901,  9006,  9012,  9030, 9031,
                           9032,  9033,  9085,  9096,  9117,  9126,  9138,  9139,  9178, 9184,
                           9205,  9219,  9313,  9329,  9505,  9511,  9512,  9531,  9534, 9535,
                           9538,  9999,  11159, 14005, 14031, 15755, 15756, 21301, 1399, 14006,
                           14007, 14010, 14011, 14012, 14013, 14014, 14015, 14016, 14020};
  for (unsigned n : attr) {
    ASSERT_EQ(de.count(n), 1u) << "message " << n;
    if (n == 9219) continue;  // the separator line has no words
    EXPECT_NE(de.at(n).text, en.at(n).text) << "message " << n << " is not translated";
  }
}

}  // namespace
