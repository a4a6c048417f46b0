// The registry of index holders: every table that holds section or symbol
// indexes is on its file's list while it lives, so that the write pipeline
// can hand it the published maps.
#include "objfile/of_index_map.h"

#include "objfile/of_file.h"

namespace OFE {

OF_INDEX_HOLDER::OF_INDEX_HOLDER(OBJECT_FILE *file) : file_(file) {
  if (file_)
    file_->add_index_holder(this);
}

OF_INDEX_HOLDER::~OF_INDEX_HOLDER() {
  if (file_)
    file_->remove_index_holder(this);
}

void OBJECT_FILE::remove_index_holder(OF_INDEX_HOLDER *holder) {
  std::erase(index_holders_, holder);
}

}  // namespace OFE
