// The file-handle manager keeps any number of files usable through at most
// MAX_OPEN_STREAMS streams: evicted files come back where they stood, pinned
// files stay, and the standard streams are never closed.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <string>
#include <vector>

#include "common/process.h"
#include "support/fh_manager.h"

using testing_support::TEMP_DIR;

namespace {

std::string numbered(int i) { return "file" + std::to_string(i); }

}  // namespace

TEST(FileHandleManager, ManyReadersShareFifteenStreams) {
  TEMP_DIR dir;
  constexpr int N = 20;
  std::vector<MANAGED_FILE *> files;
  for (int i = 0; i < N; i++) {
    std::string text = std::string(5, char('a' + i)) + std::to_string(i);
    dir.write(numbered(i), text);
    files.push_back(managed_open((dir / numbered(i)).c_str(), "rb"));
    ASSERT_NE(files.back(), nullptr) << i;
    EXPECT_LE(managed_open_stream_count(), MAX_OPEN_STREAMS);
  }
  // Read one byte of each in turn, so every file is evicted and reopened
  // between two of its reads.
  std::vector<std::string> got(N);
  for (int round = 0; round < 5; round++)
    for (int i = 0; i < N; i++) {
      FILE *s = managed_stream(files[i]);
      ASSERT_NE(s, nullptr);
      int c = fgetc(s);
      ASSERT_NE(c, EOF);
      got[i] += char(c);
      EXPECT_LE(managed_open_stream_count(), MAX_OPEN_STREAMS);
    }
  for (int i = 0; i < N; i++)
    EXPECT_EQ(got[i], std::string(5, char('a' + i))) << i;
  for (MANAGED_FILE *f : files)
    EXPECT_EQ(managed_close(f), 0);
  EXPECT_EQ(managed_open_stream_count(), 0);
}

TEST(FileHandleManager, EvictedWriterContinuesWhereItStopped) {
  TEMP_DIR dir;
  MANAGED_FILE *out = managed_open((dir / "out.bin").c_str(), "wb");
  ASSERT_NE(out, nullptr);
  ASSERT_EQ(fwrite("first;", 1, 6, managed_stream(out)), 6u);  // still in the stdio buffer

  std::vector<MANAGED_FILE *> others;
  for (int i = 0; i < MAX_OPEN_STREAMS; i++) {
    dir.write(numbered(i), "x");
    others.push_back(managed_open((dir / numbered(i)).c_str(), "rb"));
    ASSERT_NE(others.back(), nullptr);
  }
  ASSERT_EQ(out->stream, nullptr) << "the writer should have been evicted";

  ASSERT_EQ(fwrite("second;", 1, 7, managed_stream(out)), 7u);
  for (MANAGED_FILE *f : others)  // evicts it a second time
    ASSERT_NE(managed_stream(f), nullptr);
  ASSERT_EQ(fwrite("third", 1, 5, managed_stream(out)), 5u);
  EXPECT_EQ(managed_close(out), 0);
  EXPECT_EQ(dir.read("out.bin"), "first;second;third");
  for (MANAGED_FILE *f : others)
    managed_close(f);
}

TEST(FileHandleManager, PinnedFilesStayOpen) {
  TEMP_DIR dir;
  dir.write("pinned", "0123456789");
  MANAGED_FILE *pinned = managed_open((dir / "pinned").c_str(), "rb");
  ASSERT_NE(pinned, nullptr);
  set_pinned(pinned, true);
  FILE *stream = managed_stream(pinned);
  EXPECT_EQ(fgetc(stream), '0');

  std::vector<MANAGED_FILE *> others;
  for (int i = 0; i < 2 * MAX_OPEN_STREAMS; i++) {
    dir.write(numbered(i), "y");
    others.push_back(managed_open((dir / numbered(i)).c_str(), "rb"));
    ASSERT_NE(others.back(), nullptr);
    EXPECT_EQ(pinned->stream, stream) << i;
  }
  EXPECT_EQ(managed_stream(pinned), stream);
  EXPECT_EQ(pinned->reopen_count, 0u);
  EXPECT_EQ(fgetc(stream), '1');
  for (MANAGED_FILE *f : others)
    managed_close(f);
  managed_close(pinned);
}

TEST(FileHandleManager, OpenFailsWhenEveryStreamIsPinned) {
  TEMP_DIR dir;
  std::vector<MANAGED_FILE *> pinned;
  for (int i = 0; i < MAX_OPEN_STREAMS; i++) {
    dir.write(numbered(i), "p");
    pinned.push_back(managed_open((dir / numbered(i)).c_str(), "rb"));
    ASSERT_NE(pinned.back(), nullptr);
    set_pinned(pinned.back(), true);
  }
  dir.write("one_more", "m");
  EXPECT_EQ(managed_open((dir / "one_more").c_str(), "rb"), nullptr);
  EXPECT_EQ(managed_open_stream_count(), MAX_OPEN_STREAMS);

  // Unpinning one makes room again.
  set_pinned(pinned[3], false);
  MANAGED_FILE *more = managed_open((dir / "one_more").c_str(), "rb");
  ASSERT_NE(more, nullptr);
  EXPECT_EQ(pinned[3]->stream, nullptr);
  EXPECT_EQ(fgetc(managed_stream(more)), 'm');
  managed_close(more);
  for (MANAGED_FILE *f : pinned)
    managed_close(f);
}

TEST(FileHandleManager, OpenOfAMissingFileFails) {
  TEMP_DIR dir;
  EXPECT_EQ(managed_open((dir / "absent").c_str(), "rb"), nullptr);
  EXPECT_EQ(managed_open((dir / "no/dir/file").c_str(), "wb"), nullptr);
}

TEST(FileHandleManager, StandardStreamsAreNeverClosed) {
  MANAGED_FILE *out = managed_stdout();
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(managed_stream(out), stdout);
  EXPECT_EQ(managed_close(out), 0);
  EXPECT_EQ(managed_close(managed_stderr()), 0);
  EXPECT_EQ(managed_close(managed_stdin()), 0);
  // Still the same record and a working stream.
  EXPECT_EQ(managed_stdout(), out);
  EXPECT_EQ(managed_stream(managed_stdout()), stdout);
  EXPECT_NE(fcntl(fileno(stdout), F_GETFD), -1);
  EXPECT_GE(fputs("\n", stdout), 0);
  EXPECT_EQ(fflush(stdout), 0);
  EXPECT_EQ(ferror(stdout), 0);
  EXPECT_EQ(managed_stream(managed_stderr()), stderr);
  EXPECT_EQ(managed_stream(managed_stdin()), stdin);
}

// An adopted stream reads from the descriptor it was given, however many
// files come and go: even with its path now naming another file, it is
// never reopened by that path.
TEST(FileHandleManager, AdoptedStreamKeepsItsDescriptor) {
  TEMP_DIR dir;
  dir.write("lib", "the file that was locked");
  FILE *stream = fopen((dir / "lib").c_str(), "rb");
  ASSERT_NE(stream, nullptr);
  MANAGED_FILE *adopted = managed_adopt(stream, (dir / "lib").c_str());
  ASSERT_NE(adopted, nullptr);
  dir.write("replacement", "another file at the same path");
  std::filesystem::rename(dir / "replacement", dir / "lib");

  std::vector<MANAGED_FILE *> others;
  for (int i = 0; i < 2 * MAX_OPEN_STREAMS; i++) {
    dir.write(numbered(i), "x");
    others.push_back(managed_open((dir / numbered(i)).c_str(), "rb"));
    ASSERT_NE(others.back(), nullptr);
    ASSERT_NE(fgetc(managed_stream(others.back())), EOF);
  }
  EXPECT_EQ(managed_stream(adopted), stream);
  char text[64] = "";
  EXPECT_NE(fgets(text, sizeof text, managed_stream(adopted)), nullptr);
  EXPECT_STREQ(text, "the file that was locked");
  for (MANAGED_FILE *f : others)
    managed_close(f);
  EXPECT_EQ(managed_close(adopted), 0);
}
