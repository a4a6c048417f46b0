#include "support/xml_writer.h"

#include "support/printable.h"

void XML_WRITER::declaration() { fputs("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n", out_); }

void XML_WRITER::indent() {
  for (size_t i = 0; i < open_.size(); i++)
    fputs("  ", out_);
}

void XML_WRITER::start_tag(const char *name, ATTRIBUTES attributes) {
  indent();
  fprintf(out_, "<%s", name);
  for (const auto &[key, value] : attributes)
    fprintf(out_, " %s=\"%s\"", key, escape(value).c_str());
}

void XML_WRITER::open(const char *name, ATTRIBUTES attributes) {
  start_tag(name, attributes);
  fputs(">\n", out_);
  open_.push_back(name);
}

void XML_WRITER::close() {
  if (open_.empty())
    return;
  const char *name = open_.back();
  open_.pop_back();
  indent();
  fprintf(out_, "</%s>\n", name);
}

void XML_WRITER::element(const char *name, std::string_view text, ATTRIBUTES attributes) {
  start_tag(name, attributes);
  fprintf(out_, ">%s</%s>\n", escape(text).c_str(), name);
}

void XML_WRITER::empty(const char *name, ATTRIBUTES attributes) {
  start_tag(name, attributes);
  fputs("/>\n", out_);
}

std::string XML_WRITER::escape(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (unsigned char c : text) {
    switch (c) {
    case '&': out += "&amp;"; break;
    case '<': out += "&lt;"; break;
    case '>': out += "&gt;"; break;
    case '"': out += "&quot;"; break;
    default: append_ascii_printable(out, c);
    }
  }
  return out;
}

std::string XML_WRITER::hex(uint64_t value, int digits) {
  char buf[24];
  snprintf(buf, sizeof buf, "0x%0*llx", digits, static_cast<unsigned long long>(value));
  return buf;
}
