// POOL: an arena from which many small objects are taken and which is freed
// only as a whole. The archive keeps its names, member records and index
// entries here, so tearing it down is one call however many members it has.
#pragma once

#include <cstddef>
#include <string_view>

struct POOL_BLOCK;

class POOL {
public:
  explicit POOL(size_t first_block = 1024);
  ~POOL();
  POOL(const POOL &) = delete;
  POOL &operator=(const POOL &) = delete;

  // Zero-filled memory aligned for any object type.
  void *alloc(size_t size);
  // A zero-terminated copy of the text.
  char *strdup(std::string_view text);

  template <typename T> T *make() { return new (alloc(sizeof(T))) T(); }

private:
  POOL_BLOCK *head_ = nullptr;
  size_t next_size_;
};
