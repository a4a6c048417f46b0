// OF_BUILD_ATTR_TABLE: a file's build attributes, as vendor subsections that
// each hold tagged attribute values. The core only walks the vendor names.
#pragma once

#include <cstdint>
#include <string>

namespace OFE {

class OF_BUILD_ATTR_TABLE {
public:
  virtual ~OF_BUILD_ATTR_TABLE() = default;
  virtual uint32_t get_vendor_count() const = 0;
  virtual std::string get_vendor_name(uint32_t index) const = 0;
};

}  // namespace OFE
