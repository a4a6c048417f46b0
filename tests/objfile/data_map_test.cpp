#include "objfile/data_map.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "common/bytes.h"
#include "common/msg_capture.h"
#include "objfile/test_object.h"

using namespace testing_support;
using OFE::DATA_MAP;

namespace {

// A temporary stream holding `bytes`, closed with the object.
struct TEMP_STREAM {
  FILE *f = tmpfile();
  explicit TEMP_STREAM(const std::string &bytes) { fwrite(bytes.data(), 1, bytes.size(), f); rewind(f); }
  ~TEMP_STREAM() { fclose(f); }
  std::string contents() {
    fflush(f);
    long keep = ftell(f);
    rewind(f);
    std::string s;
    int c;
    while ((c = fgetc(f)) != EOF)
      s.push_back(static_cast<char>(c));
    fseek(f, keep, SEEK_SET);
    return s;
  }
};

// Reads past the end yield zero and still move the cursor; a string
// without its NUL reads as empty.
TEST(DataMap, ReadsPastTheEndYieldZeroAndMoveTheCursor) {
  DATA_MAP m = map_of(LITTLE, BYTES().u8(1).u8(2).u8(3));
  m.set_position(2);
  EXPECT_EQ(m.read_u16(), 0u);
  EXPECT_EQ(m.get_position(), 4u);  // size + 1
  char dest[4] = {9, 9, 9, 9};
  m.set_position(1);
  m.read_bytes(dest, 4);  // only 2 are there: all four come back zero
  EXPECT_EQ(std::string(dest, 4), std::string(4, '\0'));
  EXPECT_EQ(m.get_position(), 5u);
  m.set_position(1);
  EXPECT_EQ(m.get_byte(1), 3);
  EXPECT_EQ(m.get_byte(2), 0);
  EXPECT_EQ(m.get_position(), 1u);
  EXPECT_EQ(m.slice(1, 3), nullptr);
  EXPECT_EQ(m.slice(UINT64_MAX, 2), nullptr);
  ASSERT_NE(m.slice(1, 2), nullptr);
  // No bytes are there, even in an empty map; past the end they are not.
  EXPECT_NE(DATA_MAP().slice(0, 0), nullptr);
  EXPECT_EQ(DATA_MAP().slice(1, 0), nullptr);

  DATA_MAP c = map_of(LITTLE, BYTES().str("ab").str("").raw("cd"));
  for (auto [text, position] : {std::pair{"ab", 3u}, {"", 4u}, {"", 7u} /* no NUL */, {"", 8u} /* past the end */}) {
    EXPECT_STREQ(c.read_cstring(), text);
    EXPECT_EQ(c.get_position(), position);
  }
}

// Writes grow the map in its byte order, which survives clearing.
TEST(DataMap, WritesGrowTheMapInItsByteOrder) {
  DATA_MAP m(BYTE_ORDERING::BIG);
  m.write_u16(0x0102);
  m.set_byte_order(BYTE_ORDERING::LITTLE);
  m.write_u32(0x03040506);
  m.set_position(10);
  m.write_u8(7);
  EXPECT_EQ(m.size(), 11u);
  EXPECT_TRUE(m.is_modified());
  m.write_cstring("x");
  EXPECT_EQ(contents(m), BYTES(BIG).u16(0x0102).bytes() + BYTES().u32(0x03040506).bytes() + std::string(4, '\0') +
                             "\x07x" + std::string(1, '\0'));
  m.set_byte_order(BYTE_ORDERING::BIG);
  m.clear();
  m.assign("\x01\x02", 2);
  EXPECT_EQ(m.read_u16(), 0x0102u);
  EXPECT_EQ(OFE::byte_ordering_name(m.byte_order()), std::string("big endian"));
}

TEST(DataMap, Uleb128) {
  DATA_MAP m;
  for (uint32_t v : {127u, 128u, 0u, 0xFFFFFFFFu})
    m.write_uleb128(v);
  ASSERT_EQ(m.size(), 1u + 2 + 1 + 5);
  EXPECT_EQ(contents(m).substr(0, 4), "\x7F\x80\x01" + std::string(1, '\0'));
  m.set_position(0);
  for (uint32_t v : {127u, 128u, 0u, 0xFFFFFFFFu})
    EXPECT_EQ(m.read_uleb128(), v);
}

// A stream region is read when first touched, the stream's position put
// back; a short region reads as zeros; a negative offset is refused.
TEST(DataMap, LoadsLazilyFromTheStreamRegion) {
  MSG_CAPTURE cap;
  TEMP_STREAM s(BYTES().raw("HEADER").u32(0xCAFEBABE).raw("TAIL"));
  fseek(s.f, 2, SEEK_SET);
  DATA_MAP m;
  m.attach(s.f, 6, 4);
  EXPECT_FALSE(m.is_loaded());
  EXPECT_EQ(m.read_u32(), 0xCAFEBABEu);
  EXPECT_TRUE(m.is_loaded());
  EXPECT_EQ(ftell(s.f), 2);
  EXPECT_EQ(m.read_u8(), 0);  // the region ends before "TAIL"
  m.unload();  // unmodified stream-backed bytes are dropped and read again
  EXPECT_FALSE(m.is_loaded());
  m.set_position(0);
  EXPECT_EQ(m.read_u16(), 0xBABEu);

  DATA_MAP past;
  past.attach(s.f, 10, 8);
  EXPECT_EQ(past.read_u32(), 0x4C494154u);  // "TAIL"
  EXPECT_EQ(past.read_u32(), 0u);
  EXPECT_EQ(past.size(), 8u);
  DATA_MAP negative;
  negative.attach(s.f, -4, 4);
  EXPECT_EQ(negative.read_u32(), 0u);
  EXPECT_EQ(cap.err(), ">> application error: pfseeko called with SEEK_SET, but offset is negative\n");
}

TEST(DataMap, SavePadsWithZerosToTheCount) {
  MSG_CAPTURE cap;
  TEMP_STREAM s("");
  DATA_MAP m = map_of(LITTLE, "abc");
  m.set_position(1);
  EXPECT_EQ(m.save(s.f, 5), 0);
  EXPECT_EQ(s.contents(), std::string("bc") + std::string(3, '\0'));
  EXPECT_EQ(m.get_position(), 1u);
  EXPECT_EQ(m.save(s.f, 0), 0);
  // Only padding: every byte goes out, yet the result is -1.
  m.set_position(3);
  EXPECT_EQ(m.save(s.f, 2), -1);
  EXPECT_EQ(s.contents(), std::string("bc") + std::string(5, '\0'));
  // Fewer than available: cut to the count.
  m.set_position(0);
  EXPECT_EQ(m.save(s.f, 2), 0);
  EXPECT_EQ(s.contents().substr(7), "ab");
  EXPECT_EQ(cap.err(), "");
}

TEST(DataMap, DumpHex) {
  DATA_MAP m = map_of(LITTLE, std::string("ABCDEFGHIJKLMNO\x01q", 17));
  EXPECT_EQ(printed([&](FILE *f) { EXPECT_EQ(m.dump_hex(f, 17), 0); }),
            "00000000:  41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 01 ABCDEFGHIJKLMNO.\n"
            "00000010:  71 " + std::string(15 * 3, ' ') + "q\n");
  m.set_position(16);  // offsets count from the cursor
  EXPECT_EQ(printed([&](FILE *f) {
              EXPECT_EQ(m.dump_hex(f, 1), 0);
              EXPECT_EQ(m.dump_hex(f, 0), 0);
            }),
            "00000000:  71 " + std::string(45, ' ') + "q\n");
  MSG_CAPTURE cap;
  EXPECT_EQ(printed([&](FILE *f) { EXPECT_EQ(m.dump_hex(f, 0x100000000ull), -1); }), "");
  EXPECT_EQ(cap.err(), ">> application error: saving a single DATA_MAP with more than 4GB; unsupported\n");
}

TEST(CheckedIo, RefusalsReportAndDoNothing) {
  MSG_CAPTURE cap;
  TEMP_STREAM s("xy");
  char buf[2];
  EXPECT_EQ(OFE::pfread(nullptr, 1, 1, s.f), 0u);
  EXPECT_EQ(OFE::pfread(buf, 1, 1, nullptr), 0u);
  EXPECT_EQ(OFE::pfwrite(nullptr, 1, 1, s.f), 0u);
  EXPECT_EQ(OFE::pfwrite(buf, 0, 1, s.f), 0u);
  EXPECT_EQ(OFE::pfwrite(buf, 1, 0, s.f), 0u);
  EXPECT_EQ(OFE::pfwrite(buf, 1, 1, nullptr), 0u);
  EXPECT_EQ(OFE::pfseek(nullptr, 0, SEEK_SET), -1);
  EXPECT_EQ(OFE::pfseek(s.f, -1, SEEK_SET), -1);
  EXPECT_EQ(OFE::pfseeko(nullptr, 0, SEEK_SET), -1);
  EXPECT_EQ(OFE::pftell(nullptr), -1);
  EXPECT_EQ(OFE::pftello(nullptr), -1);
  EXPECT_EQ(cap.err(),
            ">> application error: pfread called with a NULL buffer pointer\n"
            ">> application error: pfread called with a NULL FILE pointer\n"
            ">> application error: pfwrite called with a NULL buffer pointer\n"
            ">> application error: pfwrite called requesting zero-size elements\n"
            ">> application error: pfwrite called requesting zero elements\n"
            ">> application error: pfwrite called with a NULL FILE pointer\n"
            ">> application error: pfseek called with a NULL FILE pointer\n"
            ">> application error: pfseek called with SEEK_SET, but offset is negative\n"
            ">> application error: pfseeko called with a NULL FILE pointer\n"
            ">> application error: pftell called with a NULL FILE pointer\n"
            ">> application error: pftello called with a NULL FILE pointer\n");
  EXPECT_EQ(ftell(s.f), 0);
}

TEST(CheckedIo, SystemFailuresCarryTheErrorText) {
  MSG_CAPTURE cap;
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  FILE *r = fdopen(fds[0], "r");
  FILE *w = fdopen(fds[1], "w");
  EXPECT_EQ(OFE::pftell(r), -1);
  EXPECT_NE(OFE::pfseek(r, 1, SEEK_CUR), 0);
  fclose(r);
  // Writing to a pipe nobody reads: a short write, and the count reported
  // unless quiet.
  signal(SIGPIPE, SIG_IGN);
  setvbuf(w, nullptr, _IONBF, 0);
  EXPECT_EQ(OFE::pfwrite("ab", 1, 2, w), 0u);
  EXPECT_EQ(OFE::pfwrite("ab", 1, 2, w, true), 0u);
  EXPECT_EQ(cap.err(), ">> application error: call to pftell failed:  Illegal seek\n"
                       ">> application error: call to pfseek failed:  Illegal seek\n"
                       ">> application error: pfwrite only wrote 0 elements; 2 were requested\n");
  fclose(w);
}

}  // namespace
