#include "hsm/cmd/list_records.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "testing/temp_dir.h"

namespace {

struct Read {
  std::vector<std::string> records;
  std::vector<bool> cuts;
  int end = 0;  // next()'s last result
};

class ListRecordsTest : public ::testing::Test {
 protected:
  // Opens a file holding |bytes| and starts a reader on it.
  ListRecords& Open(const std::string& bytes) {
    if (fd_ >= 0) close(fd_);
    fd_ = open(tmp_.write("list", bytes).c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_GE(fd_, 0);
    reader_.emplace(fd_);
    EXPECT_EQ(reader_->start(), 0);
    return *reader_;
  }
  Read All(size_t maxBytes) {
    Read r;
    std::string rec;
    bool cut = false;
    while ((r.end = reader_->next(maxBytes, &rec, &cut)) == 1) {
      r.records.push_back(rec);
      r.cuts.push_back(cut);
    }
    return r;
  }
  void TearDown() override {
    if (fd_ >= 0) close(fd_);
  }

  qmxtest::TempDir tmp_{"qmxrecords."};
  int fd_ = -1;
  std::optional<ListRecords> reader_;
};

TEST_F(ListRecordsTest, NewlineListsGiveLinesAndTheLastNeedsNoNewline) {
  EXPECT_FALSE(Open("a b\n\n  c\r\nlast").nulSeparated());
  Read r = All(100);
  EXPECT_EQ(r.records, (std::vector<std::string>{"a b", "", "  c\r", "last"}));
  EXPECT_EQ(r.end, 0);
  Open("");
  EXPECT_TRUE(All(100).records.empty());
}

TEST_F(ListRecordsTest, ANulInTheFirstBlockMakesEveryRecordNulSeparatedAndVerbatim) {
  EXPECT_TRUE(Open(std::string("one\nline\0 two \0\0\tthree", 22)).nulSeparated());
  Read r = All(100);
  EXPECT_EQ(r.records, (std::vector<std::string>{"one\nline", " two ", "", "\tthree"}));
}

TEST_F(ListRecordsTest, ANulOnlyAfterTheFirstBlockLeavesTheListNewlineSeparated) {
  std::string text(kListBlock, 'x');
  text += std::string("\ny\0z\n", 5);
  EXPECT_FALSE(Open(text).nulSeparated());
  Read r = All(2 * kListBlock);
  ASSERT_EQ(r.records.size(), 2u);
  EXPECT_EQ(r.records[0].size(), kListBlock);
  EXPECT_EQ(r.records[1], std::string("y\0z", 3));
}

TEST_F(ListRecordsTest, RecordsAcrossBlocksAreWholeAndLongOnesAreCutToTheBound) {
  // A name that straddles the end of the first block, then one far longer
  // than the bound, then a short one that must not be lost behind it.
  std::string first(kListBlock - 3, 'a');
  std::string across = "bbbbbbbb";
  std::string longOne(3 * kListBlock, 'c');
  Open(first + "\n" + across + "\n" + longOne + "\nshort\n");
  Read r = All(kListBlock);
  ASSERT_EQ(r.records.size(), 4u);
  EXPECT_EQ(r.records[1], across);
  EXPECT_FALSE(r.cuts[1]);
  EXPECT_EQ(r.records[2], std::string(kListBlock, 'c'));
  EXPECT_TRUE(r.cuts[2]);
  EXPECT_EQ(r.records[3], "short");
  EXPECT_FALSE(r.cuts[3]);
}

TEST_F(ListRecordsTest, ByteOrderMarks) {
  // UTF-8: skipped; UTF-16 and UTF-32 (which hold NULs): reported.
  EXPECT_FALSE(Open("\xEF\xBB\xBFname\n").wide());
  EXPECT_EQ(All(100).records, (std::vector<std::string>{"name"}));
  EXPECT_TRUE(Open(std::string("\xFF\xFEn\0", 4)).wide());
  EXPECT_TRUE(Open(std::string("\xFE\xFF\0n", 4)).wide());
  EXPECT_TRUE(Open(std::string("\0\0\xFE\xFF", 4)).wide());
  EXPECT_FALSE(Open(std::string("\0\0\xFE\x01", 4)).wide());
}

TEST_F(ListRecordsTest, APipeIsReadAsFarAsItsWriterGot) {
  int p[2];
  ASSERT_EQ(pipe2(p, O_CLOEXEC), 0);
  ASSERT_EQ(write(p[1], "first\nsec", 9), 9);
  ListRecords r(p[0]);
  ASSERT_EQ(r.start(), 0);
  std::string rec;
  bool cut = false;
  // The first record is there without waiting for the rest of the pipe.
  ASSERT_EQ(r.next(100, &rec, &cut), 1);
  EXPECT_EQ(rec, "first");
  ASSERT_EQ(write(p[1], "ond\n", 4), 4);
  close(p[1]);
  ASSERT_EQ(r.next(100, &rec, &cut), 1);
  EXPECT_EQ(rec, "second");
  EXPECT_EQ(r.next(100, &rec, &cut), 0);
  close(p[0]);
}

TEST_F(ListRecordsTest, ReadErrorsAreReturnedWithTheirErrno) {
  int fd = open(tmp_.write("wo", "x\n").c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  ListRecords r(fd);
  errno = 0;
  EXPECT_EQ(r.start(), -1);
  EXPECT_EQ(errno, EBADF);
  close(fd);
}

}  // namespace
