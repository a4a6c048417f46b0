#include "support/tool_name.h"

#include <string>

namespace {

std::string &tool_name() {
  static std::string name = "arvela";
  return name;
}

}  // namespace

void set_tool_name(const char *name) { tool_name() = name ? name : "arvela"; }

const char *get_tool_name() { return tool_name().c_str(); }
