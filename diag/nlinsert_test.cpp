#include "diag/nlinsert.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>

namespace {

nlInsert_t Ins(const char* fmt) {
  nlInsert_t i;
  EXPECT_EQ(nlParseInsertFormat(fmt, &i), 0) << fmt;
  return i;
}

std::string Compose(const nlBody_t& body, ...) {
  va_list ap;
  va_start(ap, body);
  std::string out;
  EXPECT_EQ(nlComposeBody(body, ap, &out), 0);
  va_end(ap);
  return out;
}

nlBody_t RoundTrip(const std::vector<nlInsert_t>& ins, const std::vector<unsigned char>& order,
                   const std::vector<std::string>& pieces) {
  std::string body;
  EXPECT_EQ(nlEncodeBody(ins, order, pieces, &body), 0);
  for (char c : body) EXPECT_NE(c, '\0');  // the catalogue compiler stores C strings
  nlBody_t b;
  EXPECT_EQ(nlDecodeBody(body.c_str(), &b), 0);
  return b;
}

TEST(InsertFormat, ClassifiesConversions) {
  struct {
    const char* fmt;
    nlInsertType_t type;
    unsigned stars;
    bool wide;
  } rows[] = {
      {"%s", nlitPointer, 0, false},   {"%-20s", nlitPointer, 0, false},
      {"%.*s", nlitPointer, 1, false}, {"%*.*s", nlitPointer, 2, false},
      {"%ls", nlitPointer, 0, true},   {"%p", nlitPointer, 0, false},
      {"%d", nlitInt, 0, false},       {"%04X", nlitInt, 0, false},
      {"%hu", nlitInt, 0, false},      {"%c", nlitInt, 0, false},
      {"%lu", nlitInt64, 0, false},    {"%llX", nlitInt64, 0, false},
      {"%zu", nlitInt64, 0, false},    {"%*d", nlitInt, 1, false},
      {"%.2f", nlitDouble, 0, false},  {"%g", nlitDouble, 0, false},
  };
  for (const auto& r : rows) {
    nlInsert_t i;
    ASSERT_EQ(nlParseInsertFormat(r.fmt, &i), 0) << r.fmt;
    EXPECT_EQ(i.type, r.type) << r.fmt;
    EXPECT_EQ(i.stars, r.stars) << r.fmt;
    EXPECT_EQ(i.wide, r.wide) << r.fmt;
  }
  for (const char* bad : {"%", "s", "%%", "%n", "%1$s", "%s%d", "%d ", "%k", "%Lf", "%lls"}) {
    nlInsert_t i;
    EXPECT_EQ(nlParseInsertFormat(bad, &i), 109) << bad;
  }
}

TEST(InsertTable, RoundTripKeepsOrderAndComposesInSlotOrder) {
  // Three inserts, placed as 3rd, 1st, 2nd: every order entry in the first
  // five bytes, one of them zero (a placeholder byte).
  nlBody_t b = RoundTrip({Ins("%s"), Ins("%d"), Ins("%s")}, {2, 0, 1}, {"[", "|", "|", "]\n"});
  ASSERT_EQ(b.inserts.size(), 3u);
  EXPECT_EQ(b.order, (std::vector<unsigned char>{2, 0, 1}));
  EXPECT_EQ(Compose(b, "one", 2, "three"), "[three|one|2]\n");
}

TEST(InsertTable, ZeroOrderEntriesBeyondTheFirstFiveBytes) {
  std::vector<nlInsert_t> ins(6, Ins("%d"));
  nlBody_t b = RoundTrip(ins, {5, 4, 3, 2, 1, 0}, {"", ",", ",", ",", ",", ",", "."});
  EXPECT_EQ(Compose(b, 0, 1, 2, 3, 4, 5), "5,4,3,2,1,0.");
}

TEST(InsertTable, StarsSixtyFourBitAndDoubles) {
  nlBody_t b = RoundTrip({Ins("%*d"), Ins("%llu"), Ins("%.2f"), Ins("%.*s")}, {0, 1, 2, 3},
                         {"<", ">", " ", " ", "!"});
  EXPECT_EQ(Compose(b, 5, 42, 18446744073709551615ull, 3.14159, 3, "abcdef"),
            "<   42>18446744073709551615 3.14 abc!");
}

TEST(InsertTable, WideStringsAreCleaned) {
  setlocale(LC_ALL, "C.UTF-8");
  nlBody_t b = RoundTrip({Ins("%ls")}, {0}, {"name=", ";"});
  EXPECT_EQ(Compose(b,
                    L"a\tb\x1b"
                    L"c"),
            "name=a?b?c;");
  EXPECT_EQ(Compose(b, L"gr\u00fc\u00df"), "name=gr\u00fc\u00df;");
  setlocale(LC_ALL, "C");
  // A locale that cannot show the character still gives a readable text.
  EXPECT_EQ(Compose(b, L"gr\u00fc"), "name=gr?;");
}

TEST(InsertTable, LongInsertsGrowTheBuffer) {
  nlBody_t b = RoundTrip({Ins("%s")}, {0}, {"(", ")"});
  std::string big(10000, 'x');
  EXPECT_EQ(Compose(b, big.c_str()), "(" + big + ")");
  EXPECT_EQ(Compose(b, static_cast<const char*>(nullptr)), "((null))");
}

TEST(InsertTable, BodyWithoutInsertsIsCopiedAsIs) {
  nlBody_t b = RoundTrip({}, {}, {"100% done\n"});
  EXPECT_EQ(Compose(b), "100% done\n");
}

TEST(InsertTable, EncoderRefusesInconsistentInput) {
  std::string body;
  EXPECT_EQ(nlEncodeBody({Ins("%s")}, {0}, {"only one piece"}, &body), 109);
  EXPECT_EQ(nlEncodeBody({Ins("%s")}, {1}, {"a", "b"}, &body), 109);
  EXPECT_EQ(nlEncodeBody({Ins("%s")}, {0}, {"a\x10", "b"}, &body), 109);
  EXPECT_EQ(nlEncodeBody({}, {}, {"\x02 starts like a table"}, &body), 109);
  std::vector<nlInsert_t> many(16, Ins("%d"));
  std::vector<unsigned char> order(16);
  std::vector<std::string> pieces(17);
  for (unsigned i = 0; i < 16; ++i) order[i] = static_cast<unsigned char>(i);
  EXPECT_EQ(nlEncodeBody(many, order, pieces, &body), 109);
}

TEST(InsertTable, DecoderRejectsDamagedBodies) {
  nlBody_t b;
  EXPECT_EQ(nlDecodeBody("\x03text", &b), 109);                // unknown marker
  EXPECT_EQ(nlDecodeBody("\x02\x01\x10\x10\x10%s", &b), 109);  // format never ends
  EXPECT_EQ(nlDecodeBody("\x02\x01\x05\x10\x10%s\x10"
                         "a\x10"
                         "b",
                         &b),
            109);  // order 5 of 1
  EXPECT_EQ(nlDecodeBody("\x02\x01\x10\x10\x10%s\x10"
                         "no slot",
                         &b),
            109);
  EXPECT_EQ(nlDecodeBody("\x02\x01\x10\x10\x01%s\x10"
                         "a\x10"
                         "b",
                         &b),
            109);  // type vs format
  EXPECT_EQ(nlDecodeBody("\x02\x01\x10\x10\x10%s\x10"
                         "a\x10"
                         "b",
                         &b),
            0);
  EXPECT_EQ(nlInsertTableLength("\x01plain"), 1u);
  EXPECT_EQ(nlInsertTableLength("\x02\x01\x10\x10\x10%s\x10"
                                "a\x10"
                                "b"),
            8u);
}

}  // namespace
