#include "objfile/of_state.h"

#include "objfile/of_file.h"
#include "support/name_table.h"

namespace OFE {

namespace {
const NAME_ENTRY STATE_NAMES[] = {
    {OF_STATE_OPEN, "open"}, {OF_STATE_LOCKED, "locked"}, {OF_STATE_FORMATTED, "formatted"}, {OF_STATE_SAVED, "saved"}};
}  // namespace

const char *state_name(uint32_t state) { return lookup_name(STATE_NAMES, state, "unknown"); }

int OF_STATE_MACHINE::require_state_at_most(uint32_t state) {
  if (state_ <= state)
    return 0;
  owner_->set_error(OF_ERR_INVALID_REQUEST,
                    "this OBJECT_FILE object is currently in the %s state, and must be in at most the %s state "
                    "to perform the requested operation ",
                    state_name(state_), state_name(state));
  return -1;
}

int OF_STATE_MACHINE::require_state_at_least(uint32_t state) {
  if (state_ >= state)
    return 0;
  owner_->set_error(OF_ERR_INVALID_REQUEST,
                    "this OBJECT_FILE object is currently in the %s state, and must be in at least the %s state "
                    "to perform the requested operation ",
                    state_name(state_), state_name(state));
  return -1;
}

int OF_STATE_MACHINE::set_state(uint32_t state) {
  while (state_ > state) {
    uint32_t target = state_ - 1;
    if (!can_revert(target)) {
      owner_->set_error(OF_ERR_INVALID_REQUEST,
                        "this OBJECT_FILE object is currently in the %s state, and cannot revert to the %s state "
                        "to perform the requested operation ",
                        state_name(state_), state_name(target));
      return -1;
    }
    if (!revert_state(target)) {
      owner_->set_error(OF_ERR_INTERNAL,
                        "an error was encountered while reverting an OBJECT_FILE object from the %s to the %s state",
                        state_name(state_), state_name(target));
      return -1;
    }
    state_ = target;
  }
  while (state_ < state) {
    uint32_t target = state_ + 1;
    if (!promote_state(target)) {
      owner_->set_error(OF_ERR_INTERNAL,
                        "an error was encountered while progressing an OBJECT_FILE object from the %s to the %s state",
                        state_name(state_), state_name(target));
      return -1;
    }
    state_ = target;
  }
  return 0;
}

bool OF_STATE_MACHINE::promote_state(uint32_t) { return true; }
bool OF_STATE_MACHINE::can_revert(uint32_t) { return true; }
bool OF_STATE_MACHINE::revert_state(uint32_t) { return true; }

}  // namespace OFE
