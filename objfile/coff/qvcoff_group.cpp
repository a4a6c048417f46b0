#include "objfile/coff/qvcoff_group.h"

#include "objfile/coff/qvcoff_file.h"
#include "objfile/coff/qvcoff_section.h"
#include "objfile/of_symbol.h"
#include "support/xml_writer.h"
#include "support/printable.h"

namespace OFE {

QVCOFF_GROUP_TABLE::QVCOFF_GROUP_TABLE(QVCOFF_SECTION *section)
    : OF_GROUP_TABLE(section->get_file()), section_(section) {
  DATA_MAP *data = section->get_data();
  if (!data || data->size() < 8)
    return;
  data->set_position(0);
  flag_ = data->read_u32() != 0;
  signature_ = data->read_u32();
  QVCOFF_SECTION_TABLE *sections = section->get_file()->get_qvcoff_section_table();
  for (uint64_t at = 8; at + 4 <= data->size(); at += 4) {
    uint32_t member = data->read_u32();
    members_.push_back(member);
    if (QVCOFF_SECTION *s = sections->get_qvcoff_section(member))
      s->set_owning_group(this);
  }
}

std::string QVCOFF_GROUP_TABLE::get_name() const { return section_->get_name(); }

int QVCOFF_GROUP_TABLE::add_member(uint32_t section_index) {
  return apply_change(section_->begin_change(), [&] {
    members_.push_back(section_index);
    if (QVCOFF_SECTION *s = section_->get_file()->get_qvcoff_section_table()->get_qvcoff_section(section_index))
      s->set_owning_group(this);
  });
}

OF_SYMBOL *QVCOFF_GROUP_TABLE::get_signature() {
  return signature_ ? section_->get_file()->get_symbol_table()->get_symbol(signature_) : nullptr;
}

int QVCOFF_GROUP_TABLE::set_signature(OF_SYMBOL *symbol) {
  return apply_change(section_->begin_change(), [&] { signature_ = symbol ? symbol->get_index() : 0; });
}

int QVCOFF_GROUP_TABLE::set_comdat(bool comdat) {
  return apply_change(section_->begin_change(), [&] { flag_ = comdat; });
}

void QVCOFF_GROUP_TABLE::follow_symbols(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) {
  if (signature_ != 0 && &symbols == section_->get_file()->get_symbol_table())
    signature_ = map.follow(signature_);
}

bool QVCOFF_GROUP_TABLE::encode() {
  if (!check_signature(signature_))
    return false;
  DATA_MAP data(section_->get_file()->byte_order());
  data.write_u32(flag_ ? 1 : 0);
  data.write_u32(signature_);
  for (uint32_t member : members_)
    data.write_u32(member);
  const uint8_t *bytes = data.slice(0, data.size());
  return section_->set_data(bytes, static_cast<uint32_t>(data.size())) == 0;
}

void QVCOFF_GROUP_TABLE::dump(FILE *stream) {
  fprintf(stream, "\n Group \"%s\"\n\n", printable(get_name()).c_str());
  fprintf(stream, "  %-26s%s\n", "Kind:", get_kind_name());
  fprintf(stream, "  %-26s%u\n", "Flag:", flag_ ? 1 : 0);
  dump_members(stream, signature_);
}

void QVCOFF_GROUP_TABLE::dump_xml(XML_WRITER &xml) {
  OF_SYMBOL *signature = get_signature();
  xml.open("group", {{"name", get_name()}, {"kind", get_kind_name()}});
  xml.element("flag", flag_ ? "1" : "0");
  xml.element("signature", signature ? signature->get_name() : "", {{"index", std::to_string(signature_)}});
  for (uint32_t i = 0; i < members_.size(); i++) {
    OF_SECTION *member = get_member(i);
    xml.element("member", member ? member->get_name() : "", {{"index", std::to_string(members_[i])}});
  }
  xml.close();
}

}  // namespace OFE
