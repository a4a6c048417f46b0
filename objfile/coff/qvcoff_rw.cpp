#include "objfile/coff/qvcoff_rw.h"

#include <algorithm>
#include <cstring>

namespace OFE {

namespace {

template <class R> QVCOFF_AUX decode_as(const uint8_t *bytes, BYTE_ORDERING order) {
  return decode<R>(bytes, order);
}

bool is_v01(OF_FORMAT_VERSION version) { return version == OF_VERSION_COFF0 || version == OF_VERSION_COFF1; }

}  // namespace

QVCOFF_AUX decode_aux(const uint8_t *bytes, QVCOFF_AUX_FORMAT format, BYTE_ORDERING order) {
  switch (format) {
  case AUX_TAG: return decode_as<QVCOFF_AUX_TAG_RECORD>(bytes, order);
  case AUX_EOS: return decode_as<QVCOFF_AUX_EOS_RECORD>(bytes, order);
  case AUX_FUNCTION: return decode_as<QVCOFF_AUX_FUNCTION_RECORD>(bytes, order);
  case AUX_SCOPE: return decode_as<QVCOFF_AUX_SCOPE_RECORD>(bytes, order);
  case AUX_ARRAY: return decode_as<QVCOFF_AUX_ARRAY_RECORD>(bytes, order);
  case AUX_TYPEDEF: return decode_as<QVCOFF_AUX_TYPEDEF_RECORD>(bytes, order);
  case AUX_FILE: return decode_as<QVCOFF_AUX_FILE_RECORD>(bytes, order);
  case AUX_SECTION: return decode_as<QVCOFF_AUX_SECTION_RECORD>(bytes, order);
  default: return std::monostate{};
  }
}

std::array<uint8_t, QVCOFF_AUX_SIZE> encode_aux(const QVCOFF_AUX &aux, BYTE_ORDERING order) {
  std::array<uint8_t, QVCOFF_AUX_SIZE> out{};
  std::visit(
      [&](const auto &rec) {
        if constexpr (!std::is_same_v<std::remove_cvref_t<decltype(rec)>, std::monostate>)
          encode(rec, order, out.data());
      },
      aux);
  return out;
}

uint32_t qvcoff_file_header_size(OF_FORMAT_VERSION version) {
  switch (version) {
  case OF_VERSION_COFF0: return QVCOFF_FILE_HEADER_SIZE_V0;
  case OF_VERSION_COFF1:
  case OF_VERSION_COFF2: return QVCOFF_FILE_HEADER_SIZE;
  default: return 0;
  }
}

uint32_t qvcoff_section_header_size(OF_FORMAT_VERSION version) {
  if (is_v01(version))
    return QVCOFF_SECTION_HEADER_SIZE_V01;
  return version == OF_VERSION_COFF2 ? QVCOFF_SECTION_HEADER_SIZE_V2 : 0;
}

uint32_t qvcoff_reloc_size(OF_FORMAT_VERSION version) {
  switch (version) {
  case OF_VERSION_COFF0: return QVCOFF_RELOC_SIZE_V0;
  case OF_VERSION_COFF1:
  case OF_VERSION_COFF2: return QVCOFF_RELOC_SIZE;
  default: return 0;
  }
}

std::optional<QVCOFF_FILE_HEADER> decode_file_header(const uint8_t *bytes, OF_FORMAT_VERSION version,
                                                     BYTE_ORDERING order) {
  if (version == OF_VERSION_COFF0) {
    auto r = decode<QVCOFF_FILE_HEADER_V0_RECORD>(bytes, order);
    return QVCOFF_FILE_HEADER{0, r.f_nscns, r.f_timdat, r.f_symptr, r.f_nsyms, r.f_opthdr, r.f_flags, r.f_magic};
  }
  if (version == OF_VERSION_COFF1 || version == OF_VERSION_COFF2) {
    auto r = decode<QVCOFF_FILE_HEADER_RECORD>(bytes, order);
    return QVCOFF_FILE_HEADER{r.f_version, r.f_nscns,  r.f_timdat, r.f_symptr,
                              r.f_nsyms,   r.f_opthdr, r.f_flags,  r.f_target_id};
  }
  return std::nullopt;
}

bool encode_file_header(const QVCOFF_FILE_HEADER &h, OF_FORMAT_VERSION version, BYTE_ORDERING order,
                        uint8_t *out) {
  if (version == OF_VERSION_COFF0) {
    QVCOFF_FILE_HEADER_V0_RECORD r{h.f_target_id, h.f_nscns, h.f_timdat, h.f_symptr,
                                   h.f_nsyms,     h.f_opthdr, h.f_flags};
    encode(r, order, out);
    return true;
  }
  if (version == OF_VERSION_COFF1 || version == OF_VERSION_COFF2) {
    QVCOFF_FILE_HEADER_RECORD r{h.f_version, h.f_nscns,  h.f_timdat, h.f_symptr,
                                h.f_nsyms,   h.f_opthdr, h.f_flags,  h.f_target_id};
    encode(r, order, out);
    return true;
  }
  return false;
}

std::optional<QVCOFF_SECTION_HEADER> decode_section_header(const uint8_t *bytes, OF_FORMAT_VERSION version,
                                                           BYTE_ORDERING order) {
  if (is_v01(version)) {
    auto r = decode<QVCOFF_SECTION_HEADER_V01_RECORD>(bytes, order);
    return QVCOFF_SECTION_HEADER{r.s_name,   r.s_paddr,  r.s_vaddr,  r.s_size,  r.s_scnptr, r.s_relptr,
                                 r.s_lnnoptr, r.s_nreloc, r.s_nlnno, r.s_flags, 0,          r.s_page};
  }
  if (version == OF_VERSION_COFF2) {
    auto r = decode<QVCOFF_SECTION_HEADER_V2_RECORD>(bytes, order);
    return QVCOFF_SECTION_HEADER{r.s_name,   r.s_paddr,  r.s_vaddr,  r.s_size,  r.s_scnptr, r.s_relptr,
                                 r.s_lnnoptr, r.s_nreloc, r.s_nlnno, r.s_flags, r.s_mwidth, r.s_page};
  }
  return std::nullopt;
}

bool encode_section_header(const QVCOFF_SECTION_HEADER &h, OF_FORMAT_VERSION version, BYTE_ORDERING order,
                           uint8_t *out) {
  if (is_v01(version)) {
    // The narrower fields keep their low bits; the section setters warn
    // about values that do not fit before they get here.
    QVCOFF_SECTION_HEADER_V01_RECORD r{h.s_name,
                                       h.s_paddr,
                                       h.s_vaddr,
                                       h.s_size,
                                       h.s_scnptr,
                                       h.s_relptr,
                                       h.s_lnnoptr,
                                       static_cast<uint16_t>(h.s_nreloc),
                                       static_cast<uint16_t>(h.s_nlnno),
                                       static_cast<uint16_t>(h.s_flags),
                                       0,
                                       static_cast<uint8_t>(h.s_page)};
    encode(r, order, out);
    return true;
  }
  if (version == OF_VERSION_COFF2) {
    QVCOFF_SECTION_HEADER_V2_RECORD r{h.s_name,   h.s_paddr,  h.s_vaddr, h.s_size,   h.s_scnptr, h.s_relptr,
                                      h.s_lnnoptr, h.s_nreloc, h.s_nlnno, h.s_flags, h.s_mwidth, 0,
                                      h.s_page};
    encode(r, order, out);
    return true;
  }
  return false;
}

bool name_is_inline(const std::array<uint8_t, 8> &name) {
  return name[0] != 0 || name[1] != 0 || name[2] != 0 || name[3] != 0;
}

uint32_t name_string_offset(const std::array<uint8_t, 8> &name, BYTE_ORDERING order) {
  return read_u32(name.data() + 4, order);
}

std::array<uint8_t, 8> string_name_field(uint32_t offset, BYTE_ORDERING order) {
  std::array<uint8_t, 8> field{};
  write_u32(field.data() + 4, offset, order);
  return field;
}

std::array<uint8_t, 8> inline_name_field(const std::string &name) {
  std::array<uint8_t, 8> field{};
  std::copy_n(name.begin(), std::min<size_t>(name.size(), field.size()), field.begin());
  return field;
}

std::string inline_name(const std::array<uint8_t, 8> &name) {
  const char *text = reinterpret_cast<const char *>(name.data());
  return std::string(text, strnlen(text, name.size()));
}

}  // namespace OFE
