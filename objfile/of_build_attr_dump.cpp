// The text and XML listings of a build-attribute table, and the names of the
// well-known tags of the public ABI vendors.
#include <initializer_list>
#include <string>

#include "objfile/of_build_attr.h"
#include "support/name_table.h"
#include "support/printable.h"
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
    {48, "Tag_MVE_arch"},
    {68, "Tag_Virtualization_use"},
    {OFBA_TAG_BITFIELD_LAYOUT, "Tag_bitfield_layout"},
};

// What the numbers of the public ABI's ("aeabi") attributes mean, by value
// from 0, as the ABI names them.
struct VALUE_NAMES {
  uint32_t tag;
  std::initializer_list<const char *> names;
};

const VALUE_NAMES AEABI_VALUE_NAMES[] = {
    {6, {"Pre-v4", "v4", "v4T", "v5T", "v5TE", "v5TEJ", "v6", "v6KZ", "v6T2", "v6K", "v7", "v6-M", "v6S-M", "v7E-M",
         "v8", "v8-R", "v8-M.baseline", "v8-M.mainline", "v8.1-A", "v8.2-A", "v8.3-A", "v8.1-M.mainline", "v9"}},
    {8, {"No", "Yes"}},
    {9, {"No", "Thumb-1", "Thumb-2", "Yes"}},
    {10, {"No", "VFPv1", "VFPv2", "VFPv3", "VFPv3-D16", "VFPv4", "VFPv4-D16", "FP for ARMv8", "FPv5/FP-D16 for ARMv8"}},
    {12, {"No", "NEONv1", "NEONv1 with Fused-MAC", "NEON for ARMv8", "NEON for ARMv8.1"}},
    {14, {"V6", "SB", "TLS", "Unused"}},
    {15, {"Absolute", "PC-relative", "SB-relative", "None"}},
    {16, {"Absolute", "PC-relative", "None"}},
    {17, {"None", "direct", "GOT-indirect"}},
    {19, {"Unused", "Needed"}},
    {20, {"Unused", "Needed", "Sign only"}},
    {21, {"Unused", "Needed"}},
    {22, {"Unused", "Needed"}},
    {23, {"Unused", "Finite", "RTABI", "IEEE 754"}},
    {24, {"None", "8-byte", "4-byte"}},
    {25, {"None", "8-byte, except leaf SP", "8-byte"}},
    {26, {"Unused", "small", "int", "forced to int"}},
    {27, {"As Tag_FP_arch", "SP only", "Reserved", "Deprecated"}},
    {28, {"AAPCS", "VFP registers", "custom", "compatible"}},
    {30, {"None", "Prefer Speed", "Aggressive Speed", "Prefer Size", "Aggressive Size", "Prefer Debug",
          "Aggressive Debug"}},
    {34, {"None", "v6"}},
    {42, {"Not Allowed", "Allowed"}},
    {44, {"Allowed in Thumb-ISA, v7-R or v7-M", "Not allowed", "Allowed in v7-A with integer division extension"}},
    {46, {"Follow architecture", "Allowed"}},
    {48, {"No MVE", "MVE Integer only", "MVE Integer and FP"}},
    {68, {"Not Allowed", "TrustZone", "Virtualization Extensions", "TrustZone and Virtualization Extensions"}},
};

// The meaning of a number of the public ABI's attributes; null for a value
// or a tag it does not name. The architecture profile is a letter.
const char *aeabi_value_name(uint32_t tag, uint64_t value) {
  if (tag == 7)
    return value == 0 ? "None" : value == 'A' ? "Application" : value == 'R' ? "Realtime"
         : value == 'M' ? "Microcontroller" : value == 'S' ? "Application or Realtime" : nullptr;
  for (const VALUE_NAMES &v : AEABI_VALUE_NAMES)
    if (v.tag == tag)
      return value < v.names.size() ? v.names.begin()[value] : nullptr;
  return nullptr;
}

std::string value_text(const OFBA_ATTR &attr, bool aeabi) {
  std::string number = std::to_string(attr.number);
  if (const char *meaning = aeabi ? aeabi_value_name(attr.tag, attr.number) : nullptr)
    number += std::string(" (") + meaning + ")";
  std::string text = "\"" + ascii_printable(attr.text) + "\"";
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
    fprintf(stream, "\n   Vendor: \"%s\"", ascii_printable(v->get_name()).c_str());
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
        fprintf(stream, "       %-32s %s\n", ofba_tag_name(attr.tag).c_str(),
                value_text(attr, v->get_name() == "aeabi").c_str());
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
