#include "objfile/elf/elf_verneed.h"

#include "objfile/elf/elf_section.h"
#include "support/xml_writer.h"
#include "support/printable.h"

namespace OFE {

const ELF_VNDEP *ELF_VERNEED_TABLE::find_index(uint16_t index, const ELF_VERNEED **file) const {
  for (const ELF_VERNEED &n : entries_)
    for (const ELF_VNDEP &d : n.dependencies)
      if ((d.other & 0x7FFF) == (index & 0x7FFF)) {
        if (file)
          *file = &n;
        return &d;
      }
  return nullptr;
}

void ELF_VERNEED_TABLE::dump(FILE *stream) {
  if (!section_)
    return;
  fprintf(stream, "\n Version Needed Records in \"%s\"\n\n", printable(section_->get_name()).c_str());
  for (const ELF_VERNEED &n : entries_) {
    fprintf(stream, "  %-26s%s\n", "Version:", elf_verdef_version_name(n.version).c_str());
    fprintf(stream, "  %-26s%s\n", "File:", n.file.text.c_str());
    fprintf(stream, "  %-26s%u\n", "# Aux Entries:", static_cast<unsigned>(n.dependencies.size()));
    for (size_t i = 0; i < n.dependencies.size(); i++) {
      const ELF_VNDEP &d = n.dependencies[i];
      fprintf(stream, "  Dependency #%d\n", static_cast<int>(i));
      fprintf(stream, "    %-24s%s\n", "Name:", d.name.text.c_str());
      fprintf(stream, "    %-24s0x%08x\n", "Hash Value:", d.hash);
      fprintf(stream, "    %-24s0x%04x\n", "Flags:", d.flags);
      for (const std::string &flag : elf_version_flag_names(d.flags))
        fprintf(stream, "    %-24s%s\n", "Flag:", flag.c_str());
      fprintf(stream, "    %-24s%u\n", "Other (Index):", d.other);
    }
    fputc('\n', stream);
  }
}

void ELF_VERNEED_TABLE::dump_xml(XML_WRITER &xml) {
  if (!section_)
    return;
  xml.open("version_needs", {{"section", section_->get_name()}});
  for (const ELF_VERNEED &n : entries_) {
    xml.open("file", {{"name", n.file.text}, {"version", elf_verdef_version_name(n.version)}});
    for (const ELF_VNDEP &d : n.dependencies)
      xml.empty("dependency", {{"name", d.name.text},
                               {"hash", XML_WRITER::hex(d.hash)},
                               {"flags", XML_WRITER::hex(d.flags, 4)},
                               {"index", std::to_string(d.other)}});
    xml.close();
  }
  xml.close();
}

}  // namespace OFE
