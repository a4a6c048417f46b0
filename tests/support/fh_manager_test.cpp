// The file-handle manager keeps any number of files usable through at most
// MAX_OPEN_STREAMS streams: evicted files come back where they stood, pinned
// and adopted files stay, and the standard streams are never closed.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <string>
#include <vector>

#include "common/process.h"
#include "support/fh_manager.h"

using testing_support::TEMP_DIR;

namespace {

// `count` files of five letters each, a different letter in each, opened for reading.
std::vector<MANAGED_FILE *> open_many(const TEMP_DIR &dir, int count) {
  std::vector<MANAGED_FILE *> files;
  for (int i = 0; i < count; i++) {
    files.push_back(managed_open(dir.write("file" + std::to_string(i), std::string(5, char('a' + i))).c_str(), "rb"));
    EXPECT_NE(files.back(), nullptr) << i;
    EXPECT_LE(managed_open_stream_count(), MAX_OPEN_STREAMS);
  }
  return files;
}

void close_all(const std::vector<MANAGED_FILE *> &files) {
  for (MANAGED_FILE *f : files)
    EXPECT_EQ(managed_close(f), 0);
}

}  // namespace

// One byte of each in turn, so every reader is evicted and reopened between
// two of its reads; a writer evicted twice continues where it stopped (its
// first part still in the stdio buffer when it goes).
TEST(FileHandleManager, EvictedFilesContinueWhereTheyStood) {
  TEMP_DIR dir;
  MANAGED_FILE *out = managed_open((dir / "out.bin").c_str(), "wb");
  ASSERT_NE(out, nullptr);
  ASSERT_EQ(fwrite("first;", 1, 6, managed_stream(out)), 6u);
  std::vector<MANAGED_FILE *> files = open_many(dir, 20);
  ASSERT_EQ(out->stream, nullptr) << "the writer should have been evicted";
  ASSERT_EQ(fwrite("second;", 1, 7, managed_stream(out)), 7u);
  std::vector<std::string> got(files.size());
  for (int round = 0; round < 5; round++)
    for (size_t i = 0; i < files.size(); i++) {
      FILE *s = managed_stream(files[i]);
      ASSERT_NE(s, nullptr);
      got[i] += char(fgetc(s));
      EXPECT_LE(managed_open_stream_count(), MAX_OPEN_STREAMS);
    }
  ASSERT_EQ(fwrite("third", 1, 5, managed_stream(out)), 5u);
  EXPECT_EQ(managed_close(out), 0);
  EXPECT_EQ(dir.read("out.bin"), "first;second;third");
  for (size_t i = 0; i < files.size(); i++)
    EXPECT_EQ(got[i], std::string(5, char('a' + i))) << i;
  close_all(files);
  EXPECT_EQ(managed_open_stream_count(), 0);
  EXPECT_EQ(managed_open((dir / "absent").c_str(), "rb"), nullptr);
  EXPECT_EQ(managed_open((dir / "no/dir/file").c_str(), "wb"), nullptr);
}

// Pinned files stay open however many come and go; with every stream
// pinned an open fails, and unpinning one makes room again.
TEST(FileHandleManager, PinnedFilesStayOpen) {
  TEMP_DIR dir;
  std::vector<MANAGED_FILE *> pinned = open_many(dir, MAX_OPEN_STREAMS);
  for (MANAGED_FILE *f : pinned)
    set_pinned(f, true);
  FILE *stream = managed_stream(pinned[0]);
  EXPECT_EQ(fgetc(stream), 'a');
  EXPECT_EQ(managed_open(dir.write("one_more", "m").c_str(), "rb"), nullptr);
  EXPECT_EQ(managed_open_stream_count(), MAX_OPEN_STREAMS);
  set_pinned(pinned[3], false);
  std::vector<MANAGED_FILE *> others = open_many(dir, 2 * MAX_OPEN_STREAMS);
  EXPECT_EQ(pinned[3]->stream, nullptr);
  EXPECT_EQ(managed_stream(pinned[0]), stream);
  EXPECT_EQ(pinned[0]->reopen_count, 0u);
  EXPECT_EQ(fgetc(stream), 'a');
  close_all(others);
  close_all(pinned);
}

// An adopted stream reads from the descriptor it was given, however many
// files come and go: even with its path now naming another file, it is
// never reopened by that path.
TEST(FileHandleManager, AdoptedStreamKeepsItsDescriptor) {
  TEMP_DIR dir;
  FILE *stream = fopen(dir.write("lib", "the file that was locked").c_str(), "rb");
  ASSERT_NE(stream, nullptr);
  MANAGED_FILE *adopted = managed_adopt(stream, (dir / "lib").c_str());
  ASSERT_NE(adopted, nullptr);
  std::filesystem::rename(dir.write("replacement", "another file at the same path"), dir / "lib");
  std::vector<MANAGED_FILE *> others = open_many(dir, 2 * MAX_OPEN_STREAMS);
  for (MANAGED_FILE *f : others)
    ASSERT_NE(fgetc(managed_stream(f)), EOF);
  EXPECT_EQ(managed_stream(adopted), stream);
  char text[64] = "";
  EXPECT_NE(fgets(text, sizeof text, managed_stream(adopted)), nullptr);
  EXPECT_STREQ(text, "the file that was locked");
  close_all(others);
  EXPECT_EQ(managed_close(adopted), 0);
}

TEST(FileHandleManager, StandardStreamsAreNeverClosed) {
  MANAGED_FILE *out = managed_stdout();
  ASSERT_NE(out, nullptr);
  for (MANAGED_FILE *f : {out, managed_stderr(), managed_stdin()})
    EXPECT_EQ(managed_close(f), 0);
  // Still the same record and a working stream.
  EXPECT_EQ(managed_stdout(), out);
  EXPECT_EQ(managed_stream(managed_stdout()), stdout);
  EXPECT_NE(fcntl(fileno(stdout), F_GETFD), -1);
  EXPECT_GE(fputs("\n", stdout), 0);
  EXPECT_EQ(fflush(stdout), 0);
  EXPECT_EQ(managed_stream(managed_stderr()), stderr);
  EXPECT_EQ(managed_stream(managed_stdin()), stdin);
}
