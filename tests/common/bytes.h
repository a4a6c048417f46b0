// BYTES: builds binary test inputs field by field in either byte order.
//   BYTES(BIG).u32(1).u16(2).str("abc").pad(4)
#pragma once

#include <cstdint>
#include <string>

namespace testing_support {

enum TEST_ORDER { LITTLE, BIG };

class BYTES {
public:
  explicit BYTES(TEST_ORDER order = LITTLE) : order_(order) {}

  BYTES &u8(uint32_t v) { data_.push_back(static_cast<char>(v & 0xFF)); return *this; }
  BYTES &u16(uint32_t v) { return put(v, 2); }
  BYTES &u32(uint32_t v) { return put(v, 4); }
  BYTES &u64(uint64_t v) { return put(v, 8); }
  // The string's bytes, without a terminator.
  BYTES &raw(const std::string &s) { data_ += s; return *this; }
  // The string's bytes and a terminating zero byte.
  BYTES &str(const std::string &s) { data_ += s; data_.push_back('\0'); return *this; }
  // Exactly n bytes: the string cut or zero-padded to n.
  BYTES &fixed(const std::string &s, size_t n) {
    std::string f = s.substr(0, n);
    f.resize(n, '\0');
    data_ += f;
    return *this;
  }
  BYTES &zeros(size_t n) { data_.append(n, '\0'); return *this; }
  // Zero bytes up to the next multiple of `align`.
  BYTES &pad(size_t align) {
    while (data_.size() % align)
      data_.push_back('\0');
    return *this;
  }

  size_t size() const { return data_.size(); }
  const std::string &bytes() const { return data_; }
  operator const std::string &() const { return data_; }

private:
  BYTES &put(uint64_t v, int width) {
    for (int i = 0; i < width; i++) {
      int shift = order_ == LITTLE ? 8 * i : 8 * (width - 1 - i);
      data_.push_back(static_cast<char>((v >> shift) & 0xFF));
    }
    return *this;
  }

  TEST_ORDER order_;
  std::string data_;
};

}  // namespace testing_support
