#include "support/record_codec.h"

#include <gtest/gtest.h>

#include "common/bytes.h"

using namespace testing_support;

namespace {

struct SAMPLE_RECORD {
  std::array<uint8_t, 3> tag;  // copied as it stands
  uint8_t kind;
  uint16_t half;
  uint32_t word;
  int32_t addend;  // signed fields keep their sign
  uint64_t wide;

  bool operator==(const SAMPLE_RECORD &) const = default;

  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.tag); f(r.kind); f(r.half); f(r.word); f(r.addend); f(r.wide);
  }
};
static_assert(record_size<SAMPLE_RECORD>() == 22);

const uint8_t *u8p(const std::string &s) { return reinterpret_cast<const uint8_t *>(s.data()); }

class CodecTest : public testing::TestWithParam<TEST_ORDER> {
protected:
  BYTE_ORDERING order() const { return GetParam() == BIG ? BYTE_ORDERING::BIG : BYTE_ORDERING::LITTLE; }
};

TEST_P(CodecTest, DecodesFieldsInOrderAndWidth) {
  std::string image =
      BYTES(GetParam()).raw("abc").u8(7).u16(0x1234).u32(0x89ABCDEF).u32(0xFFFFFFFE).u64(0x0102030405060708ull);
  SAMPLE_RECORD r = decode<SAMPLE_RECORD>(u8p(image), order());
  EXPECT_EQ(r, (SAMPLE_RECORD{{'a', 'b', 'c'}, 7, 0x1234, 0x89ABCDEF, -2, 0x0102030405060708ull}));
  // ...and encoding gives the same bytes back.
  auto out = encode(r, order());
  EXPECT_EQ(std::string(out.begin(), out.end()), image);
  EXPECT_EQ(decode<SAMPLE_RECORD>(out.data(), order()), r);
}

INSTANTIATE_TEST_SUITE_P(BothOrders, CodecTest, testing::Values(LITTLE, BIG));

TEST(ByteOrder, UnalignedReadsAndWrites) {
  uint8_t buf[7] = {0, 0x12, 0x34, 0x56, 0x78, 0, 0};
  EXPECT_EQ(read_u32(buf + 1, BYTE_ORDERING::LITTLE), 0x78563412u);
  EXPECT_EQ(read_u32(buf + 1, BYTE_ORDERING::BIG), 0x12345678u);
  EXPECT_EQ(read_u16(buf + 1, BYTE_ORDERING::BIG), 0x1234u);
  write_u16(buf + 5, 0xBEEF, BYTE_ORDERING::LITTLE);
  EXPECT_EQ(buf[5], 0xEF);
  EXPECT_EQ(buf[6], 0xBE);
  write_u32(buf + 1, 0xA1B2C3D4, BYTE_ORDERING::BIG);
  EXPECT_EQ(buf[1], 0xA1);
  EXPECT_EQ(buf[4], 0xD4);
}

}  // namespace
