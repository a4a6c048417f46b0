#include "objfile/elf/elf_verdef.h"

#include "objfile/elf/elf_section.h"
#include "support/xml_writer.h"
#include "support/printable.h"

namespace OFE {

std::string elf_verdef_version_name(uint16_t version) {
  if (version == 0)
    return "VER_DEF_NONE";
  if (version == 1)
    return "VER_DEF_CURRENT";
  char text[24];
  snprintf(text, sizeof text, "VER_DEF_0x%04hx", version);
  return text;
}

std::vector<std::string> elf_version_flag_names(uint16_t flags) {
  std::vector<std::string> names;
  if (flags & VER_FLG_BASE)
    names.push_back("VER_FLG_BASE");
  if (flags & VER_FLG_WEAK)
    names.push_back("VER_FLG_WEAK");
  if (uint16_t rest = flags & ~(VER_FLG_BASE | VER_FLG_WEAK)) {
    char text[24];
    snprintf(text, sizeof text, "VER_FLG_0x%04hx", rest);
    names.push_back(text);
  }
  return names;
}

const ELF_VERDEF *ELF_VERDEF_TABLE::find_index(uint16_t index) const {
  for (const ELF_VERDEF &d : entries_)
    if ((d.index & 0x7FFF) == (index & 0x7FFF))
      return &d;
  return nullptr;
}

void ELF_VERDEF_TABLE::dump(FILE *stream) {
  if (!section_)
    return;
  fprintf(stream, "\n Version Definition Records in \"%s\"\n\n", printable(section_->get_name()).c_str());
  for (const ELF_VERDEF &d : entries_) {
    fprintf(stream, "  %-26s%s\n", "Version:", elf_verdef_version_name(d.version).c_str());
    fprintf(stream, "  %-26s%u\n", "Index:", d.index);
    fprintf(stream, "  %-26s0x%04x\n", "Flags:", d.flags);
    for (const std::string &flag : elf_version_flag_names(d.flags))
      fprintf(stream, "  %-26s%s\n", "Flag:", flag.c_str());
    fprintf(stream, "  %-26s0x%08x\n", "Hash Value:", d.hash);
    fprintf(stream, "  %-26s%u\n", "# Aux Entries:", static_cast<unsigned>(d.names.size()));
    for (size_t i = 0; i < d.names.size(); i++) {
      char label[32];
      snprintf(label, sizeof label, "Version Name %u:", static_cast<unsigned>(i));
      fprintf(stream, "  %-26s%s\n", label, d.names[i].text.c_str());
    }
    fputc('\n', stream);
  }
}

void ELF_VERDEF_TABLE::dump_xml(XML_WRITER &xml) {
  if (!section_)
    return;
  xml.open("version_definitions", {{"section", section_->get_name()}});
  for (const ELF_VERDEF &d : entries_) {
    xml.open("definition", {{"version", elf_verdef_version_name(d.version)},
                            {"index", std::to_string(d.index)},
                            {"flags", XML_WRITER::hex(d.flags, 4)},
                            {"hash", XML_WRITER::hex(d.hash)}});
    for (const ELF_VERSION_NAME &n : d.names)
      xml.empty("name", {{"text", n.text}});
    xml.close();
  }
  xml.close();
}

}  // namespace OFE
