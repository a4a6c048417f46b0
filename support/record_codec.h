// One codec for every fixed-size on-disk record.
//
// A record is a plain struct of native fields named as the format names them,
// with a static constexpr member template that hands each field, in on-disk
// order, to a visitor (constexpr so that record_size() is a constant):
//
//   struct ELF_SYMBOL_RECORD {
//     uint32_t st_name;                // offset into the linked string table
//     ...
//     template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
//       f(r.st_name); f(r.st_value); ...
//     }
//   };
//   static_assert(record_size<ELF_SYMBOL_RECORD>() == 16);
//
// A field's width is that of its type: 8, 16, 32 or 64-bit integers, signed
// or not, or std::array<uint8_t, N> for byte strings, which are copied as
// they stand. decode() and encode() are the only code that orders bytes, so
// no field is ever swapped by hand.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "support/byte_order.h"

namespace record_codec_detail {

template <class T> struct is_byte_array : std::false_type {};
template <size_t N> struct is_byte_array<std::array<uint8_t, N>> : std::true_type {};

template <class T> constexpr size_t field_width() {
  using F = std::remove_cvref_t<T>;
  if constexpr (is_byte_array<F>::value) {
    return std::tuple_size<F>::value;
  } else {
    static_assert(std::is_integral_v<F> && sizeof(F) <= 8, "record fields are integers or byte arrays");
    return sizeof(F);
  }
}

}  // namespace record_codec_detail

// Bytes the record occupies on disk.
template <class R> constexpr size_t record_size() {
  R r{};
  size_t n = 0;
  R::visit_fields(r, [&n](auto &field) { n += record_codec_detail::field_width<decltype(field)>(); });
  return n;
}

// Decodes record_size<R>() bytes.
template <class R> R decode(const uint8_t *bytes, BYTE_ORDERING order) {
  R r{};
  size_t at = 0;
  R::visit_fields(r, [&](auto &field) {
    using F = std::remove_cvref_t<decltype(field)>;
    constexpr size_t width = record_codec_detail::field_width<F>();
    if constexpr (record_codec_detail::is_byte_array<F>::value)
      memcpy(field.data(), bytes + at, width);
    else
      field = static_cast<F>(read_uint(bytes + at, width, order));
    at += width;
  });
  return r;
}

// Encodes into record_size<R>() bytes at `out`.
template <class R> void encode(const R &rec, BYTE_ORDERING order, uint8_t *out) {
  size_t at = 0;
  R::visit_fields(rec, [&](const auto &field) {
    using F = std::remove_cvref_t<decltype(field)>;
    constexpr size_t width = record_codec_detail::field_width<F>();
    if constexpr (record_codec_detail::is_byte_array<F>::value)
      memcpy(out + at, field.data(), width);
    else
      write_uint(out + at, static_cast<uint64_t>(field), width, order);
    at += width;
  });
}

template <class R> std::array<uint8_t, record_size<R>()> encode(const R &rec, BYTE_ORDERING order) {
  std::array<uint8_t, record_size<R>()> out{};
  encode(rec, order, out.data());
  return out;
}
