#include "support/zalloc.h"

#include <cstring>
#include <new>
#include <cstdlib>

#include "support/safealloc.h"

struct POOL_BLOCK {
  POOL_BLOCK *next;
  size_t size;  // usable bytes after the header
  size_t used;
};

static constexpr size_t ALIGN = alignof(std::max_align_t);
static constexpr size_t HEADER = (sizeof(POOL_BLOCK) + ALIGN - 1) / ALIGN * ALIGN;

POOL::POOL(size_t first_block) : next_size_(first_block) {}

POOL::~POOL() {
  while (head_) {
    POOL_BLOCK *next = head_->next;
    free(head_);
    head_ = next;
  }
}

void *POOL::alloc(size_t size) {
  size = (size + ALIGN - 1) / ALIGN * ALIGN;
  if (!head_ || head_->size - head_->used < size) {
    // Blocks double in size so that a pool with many entries needs few of them.
    size_t block = next_size_;
    while (block < size)
      block *= 2;
    next_size_ = block * 2;
    auto *b = static_cast<POOL_BLOCK *>(safe_malloc(HEADER + block));
    b->next = head_;
    b->size = block;
    b->used = 0;
    head_ = b;
  }
  char *p = reinterpret_cast<char *>(head_) + HEADER + head_->used;
  head_->used += size;
  memset(p, 0, size);
  return p;
}

char *POOL::strdup(std::string_view text) {
  auto *p = static_cast<char *>(alloc(text.size() + 1));
  memcpy(p, text.data(), text.size());
  return p;
}
