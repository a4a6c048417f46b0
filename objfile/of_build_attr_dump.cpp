// The text and XML listings of a build-attribute table, and the names of the
// well-known tags of the public ABI vendors.
#include <string>

#include "objfile/of_build_attr.h"
#include "support/name_table.h"
#include "support/xml_writer.h"

namespace OFE {

namespace {

const NAME_ENTRY TAG_NAMES[] = {
    {OFBA_SCOPE_FILE, "Tag_File"},
    {OFBA_SCOPE_SECTION, "Tag_Section"},
    {OFBA_SCOPE_SYMBOL, "Tag_Symbol"},
    {4, "Tag_CPU_raw_name"},
    {5, "Tag_CPU_name"},
    {6, "Tag_CPU_arch"},
    {7, "Tag_CPU_arch_profile"},
    {8, "Tag_ARM_ISA_use"},
    {9, "Tag_THUMB_ISA_use"},
    {10, "Tag_FP_arch"},
    {11, "Tag_WMMX_arch"},
    {12, "Tag_Advanced_SIMD_arch"},
    {13, "Tag_PCS_config"},
    {14, "Tag_ABI_PCS_R9_use"},
    {15, "Tag_ABI_PCS_RW_data"},
    {16, "Tag_ABI_PCS_RO_data"},
    {17, "Tag_ABI_PCS_GOT_use"},
    {18, "Tag_ABI_PCS_wchar_t"},
    {19, "Tag_ABI_FP_rounding"},
    {20, "Tag_ABI_FP_denormal"},
    {21, "Tag_ABI_FP_exceptions"},
    {22, "Tag_ABI_FP_user_exceptions"},
    {23, "Tag_ABI_FP_number_model"},
    {24, "Tag_ABI_align_needed"},
    {25, "Tag_ABI_align_preserved"},
    {26, "Tag_ABI_enum_size"},
    {27, "Tag_ABI_HardFP_use"},
    {28, "Tag_ABI_VFP_args"},
    {29, "Tag_ABI_WMMX_args"},
    {30, "Tag_ABI_optimization_goals"},
    {31, "Tag_ABI_FP_optimization_goals"},
    {32, "Tag_compatibility"},
    {34, "Tag_CPU_unaligned_access"},
    {36, "Tag_FP_HP_extension"},
    {38, "Tag_ABI_FP_16bit_format"},
    {42, "Tag_MPextension_use"},
    {44, "Tag_DIV_use"},
    {46, "Tag_DSP_extension"},
    {64, "Tag_nodefaults"},
    {65, "Tag_also_compatible_with"},
    {66, "Tag_T2EE_use"},
    {67, "Tag_conformance"},
    {68, "Tag_Virtualization_use"},
    {OFBA_TAG_BITFIELD_LAYOUT, "Tag_bitfield_layout"},
};

// Text as it stands, but bytes that are not printable ASCII as \xNN, so that
// a hostile string cannot garble the listing.
std::string printable(const std::string &text) {
  std::string out;
  for (unsigned char c : text) {
    if (c >= 0x20 && c < 0x7F) {
      out += static_cast<char>(c);
    } else {
      char buf[8];
      snprintf(buf, sizeof buf, "\\x%02X", c);
      out += buf;
    }
  }
  return out;
}

std::string value_text(const OFBA_ATTR &attr) {
  std::string number = std::to_string(attr.number);
  std::string text = "\"" + printable(attr.text) + "\"";
  switch (attr.kind) {
  case OFBA_VALUE_KIND::NUMBER: return number;
  case OFBA_VALUE_KIND::STRING: return text;
  default: return number + ", " + text;
  }
}

std::string index_text(const OFBA_ATTR_LIST &list) {
  std::string out;
  for (uint32_t index : list.get_indexes())
    out += (out.empty() ? "" : " ") + std::to_string(index);
  return out;
}

}  // namespace

std::string ofba_tag_name(uint32_t tag) {
  if (const char *name = lookup_name(TAG_NAMES, tag, nullptr))
    return name;
  return "Tag_" + std::to_string(tag);
}

void OF_BUILD_ATTR_TABLE::dump(FILE *stream, const std::string &file_name) const {
  if (file_name.empty())
    fputs("\n Build Attributes\n", stream);
  else
    fprintf(stream, "\n Build Attributes in \"%s\"\n", file_name.c_str());
  for (const auto &v : vendors_) {
    fprintf(stream, "\n   Vendor: \"%s\"", printable(v->get_name()).c_str());
    if (v->is_opaque()) {
      fprintf(stream, " (%zu bytes, not interpreted)\n", v->get_opaque_content().size());
      continue;
    }
    fputc('\n', stream);
    for (const auto &list : v->lists_) {
      std::string heading = ofba_tag_name(list->get_scope());
      if (list->get_scope() != OFBA_SCOPE_FILE)
        heading += ": " + index_text(*list);
      if (list->is_opaque()) {
        fprintf(stream, "     %s (%zu bytes, not interpreted)\n", heading.c_str(), list->get_opaque_payload().size());
        continue;
      }
      fprintf(stream, "     %s\n", heading.c_str());
      for (const OFBA_ATTR &attr : list->attrs_)
        fprintf(stream, "       %-32s %s\n", ofba_tag_name(attr.tag).c_str(), value_text(attr).c_str());
    }
  }
}

void OF_BUILD_ATTR_TABLE::dump_xml(XML_WRITER &xml) const {
  xml.open("build_attributes", {{"vendors", std::to_string(vendors_.size())}});
  for (const auto &v : vendors_) {
    if (v->is_opaque()) {
      xml.empty("vendor", {{"name", v->get_name()}, {"bytes", std::to_string(v->get_opaque_content().size())}});
      continue;
    }
    xml.open("vendor", {{"name", v->get_name()}});
    for (const auto &list : v->lists_) {
      std::string scope = ofba_tag_name(list->get_scope());
      if (list->is_opaque()) {
        xml.empty("list", {{"scope", scope}, {"bytes", std::to_string(list->get_opaque_payload().size())}});
        continue;
      }
      xml.open("list", {{"scope", scope}, {"indexes", index_text(*list)}});
      for (const OFBA_ATTR &attr : list->attrs_) {
        std::string name = ofba_tag_name(attr.tag);
        std::string tag = std::to_string(attr.tag);
        switch (attr.kind) {
        case OFBA_VALUE_KIND::NUMBER:
          xml.empty("attribute", {{"tag", tag}, {"name", name}, {"number", std::to_string(attr.number)}});
          break;
        case OFBA_VALUE_KIND::STRING:
          xml.empty("attribute", {{"tag", tag}, {"name", name}, {"string", attr.text}});
          break;
        default:
          xml.empty("attribute",
                    {{"tag", tag}, {"name", name}, {"number", std::to_string(attr.number)}, {"string", attr.text}});
        }
      }
      xml.close();
    }
    xml.close();
  }
  xml.close();
}

}  // namespace OFE
