// The names the archiver calls itself by in its usage text and reports.
#pragma once

// Program name shown in the syntax lines.
inline constexpr const char *TOOL_EXE_NAME = "arvela";
// Command and option letters shown in the syntax line.
inline constexpr const char *TOOL_COMMAND_LETTERS = "arxdt";
inline constexpr const char *TOOL_OPTION_LETTERS = "quvsh";
