#include "support/xml_writer.h"

#include <gtest/gtest.h>

#include <cstdlib>


namespace {

std::string written(void (*body)(XML_WRITER &)) {
  char *text = nullptr;
  size_t size = 0;
  FILE *out = open_memstream(&text, &size);
  XML_WRITER xml(out);
  body(xml);
  fclose(out);
  std::string result(text, size);
  free(text);
  return result;
}

TEST(XmlWriter, NestsEscapesAndKeepsHostileBytesWellFormed) {
  std::string out = written([](XML_WRITER &xml) {
    xml.declaration();
    xml.open("file", {{"name", "a<b>&\"c\""}});
    xml.element("symbol", std::string("x\x01y\xE9", 4), {{"index", "3"}});
    xml.empty("none");
    xml.close();
    xml.close();  // nothing left to close: ignored
  });
  EXPECT_EQ(out, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                 "<file name=\"a&lt;b&gt;&amp;&quot;c&quot;\">\n"
                 "  <symbol index=\"3\">x\\x01y\\xE9</symbol>\n"
                 "  <none/>\n"
                 "</file>\n");
  EXPECT_EQ(XML_WRITER::hex(0x1F), "0x0000001f");
}

}  // namespace
