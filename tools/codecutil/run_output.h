// Output files of one run. Each is written under a temporary name in its own
// folder (".NAME.part") and renamed into place only when the run succeeds, so
// a failed or interrupted run leaves no partial file under a final name.
#pragma once

#include <string>

namespace codecutil_tool {

// The temporary name `final_path` is written under.
std::string staged_path(const std::string& final_path);

// Registers `final_path` as an output of this run; returns staged_path().
std::string stage_output(const std::string& final_path);

// Renames every staged output into place when `status` is 0, else removes
// them; returns `status`, or 1 when a rename failed (reported).
int finish_outputs(int status);

// SIGINT and SIGTERM remove the staged files and exit with 130.
void remove_outputs_on_signal();

}  // namespace codecutil_tool
