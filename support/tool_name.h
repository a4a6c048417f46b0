// The name of the tool the library runs in, for the messages that tell the
// user which program to update. Set once by the tool at start-up.
#pragma once

// Default "arvela". A null name restores the default.
void set_tool_name(const char *name);
const char *get_tool_name();
