// The build states an object file moves through (open, locked, formatted,
// saved) and the write pipeline every format shares. OBJECT_FILE::write()
// moves the object to the saved state, and each step up runs the format's
// hooks in a fixed order (load, and a check that the file held all that its
// headers said; sections, symbols, tables that depend on both, strings;
// then the layout; then the bytes).
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

bool OBJECT_FILE::missing_step(const char *step) {
  set_error(OF_ERR_INTERNAL, "%s: %s is not supported for %s files", message_name(), step, format_name(get_format()));
  return false;
}

bool OBJECT_FILE::load_for_writing() { return missing_step("loading for writing"); }
bool OBJECT_FILE::prepare_sections() { return missing_step("preparing sections for writing"); }
bool OBJECT_FILE::prepare_symbols() { return missing_step("preparing symbols for writing"); }
bool OBJECT_FILE::prepare_dependents() { return missing_step("preparing relocations and groups for writing"); }
bool OBJECT_FILE::prepare_strings() { return missing_step("preparing string tables for writing"); }
bool OBJECT_FILE::lay_out() { return missing_step("laying out"); }
bool OBJECT_FILE::write_out(FILE *) { return missing_step("writing"); }

bool OBJECT_FILE::read_whole() {
  if (was_read_completely())
    return true;
  // What the file does not hold would go out as zeros: a copy that looks
  // whole and is not.
  set_error(OF_ERR_MALFORMED, "%s: could not be read completely: %s runs past the end of the file",
            message_name(), get_short_read().c_str());
  return false;
}

bool OBJECT_FILE::promote_state(uint32_t target) {
  switch (target) {
  case OF_STATE_LOCKED:
    return load_for_writing() && read_whole() && prepare_sections() && prepare_symbols() && prepare_dependents() &&
           prepare_strings();
  case OF_STATE_FORMATTED:
    return lay_out();
  case OF_STATE_SAVED:
    return output_ ? write_out(output_) : refuse_without_output() == 0;
  default:
    return false;
  }
}

int OBJECT_FILE::write(FILE *stream) {
  if (!stream)
    return refuse_without_output();
  if (set_state(OF_STATE_OPEN) != 0)
    return -1;
  FILE *previous = output_;
  output_ = stream;
  int result = set_state(OF_STATE_SAVED);
  output_ = previous;
  if (result == 0 && fflush(stream) != 0) {
    set_write_error();
    result = -1;
  }
  return result;
}

int OBJECT_FILE::write_to_path(const char *path) {
  return to_path(path, "wb", "the object file", [this](FILE *stream) { return write(stream); });
}

}  // namespace OFE
