// OF_STATE_MACHINE: the build state of an object file or of one of its tables.
//
// An object moves up through open → locked → formatted → saved as it is
// prepared, laid out and written; each step up is a promote_state() hook,
// each step down a revert_state() hook. Editing operations require a state
// at most "open" or "locked", so a file that has been laid out is changed
// only after reverting. Failures become the owning object's pending error.
#pragma once

#include <cstdint>
#include <type_traits>

namespace OFE {

class OBJECT_FILE;

enum OF_STATE : uint32_t {
  OF_STATE_OPEN = 0,
  OF_STATE_LOCKED = 1,
  OF_STATE_FORMATTED = 2,
  OF_STATE_SAVED = 3,
};

// "open", "locked", "formatted", "saved", else "unknown".
const char *state_name(uint32_t state);

class OF_STATE_MACHINE {
public:
  explicit OF_STATE_MACHINE(OBJECT_FILE *owner) : owner_(owner) {}
  virtual ~OF_STATE_MACHINE() = default;

  // The current state (OF_STATE).
  uint32_t get_state() const { return state_; }
  // The object whose pending error receives this machine's failures.
  OBJECT_FILE *get_owner() const { return owner_; }

  // 0, or -1 with error 5 when the state is above (below) `state`.
  [[nodiscard]] int require_state_at_most(uint32_t state);
  [[nodiscard]] int require_state_at_least(uint32_t state);
  // Steps up or down one state at a time through the hooks; on a failing
  // step the machine stays in the last state reached and the result is -1.
  [[nodiscard]] int set_state(uint32_t state);
  // Before an edit of what the lay-out is made from (a section, its
  // contents, a segment): a formatted or saved object goes back to
  // "locked". False, with the error pending, when that is refused.
  [[nodiscard]] bool begin_change() { return state_ <= OF_STATE_LOCKED || set_state(OF_STATE_LOCKED) == 0; }

  // Runs the build step that leads into `target`; false on failure.
  [[nodiscard]] virtual bool promote_state(uint32_t target);
  // Whether the machine may step down into `target` at all.
  [[nodiscard]] virtual bool can_revert(uint32_t target);
  // Undoes the build step that led out of `target`; false on failure.
  [[nodiscard]] virtual bool revert_state(uint32_t target);

protected:
  // Jumps to a state without running any hook (for resets).
  void force_state(uint32_t state) { state_ = state; }

private:
  uint32_t state_ = OF_STATE_OPEN;
  OBJECT_FILE *owner_;
};

// The one shape of a setter: `edit` runs only when the change was allowed
// (`allowed`, the owner's begin_change(), evaluated first). 0, or -1 with
// the error pending; an edit that can itself fail returns its own 0 or -1.
template <class EDIT> [[nodiscard]] int apply_change(bool allowed, EDIT &&edit) {
  if (!allowed)
    return -1;
  if constexpr (std::is_void_v<decltype(edit())>) {
    edit();
    return 0;
  } else {
    return edit();
  }
}

}  // namespace OFE
