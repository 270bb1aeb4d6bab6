// Finds the files of reports that a command line names.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace fleet {

// Calls `use` with each file of `named`, and with those below its folders, sorted by their names;
// links to folders are not followed. Returns how many folders could not be read, or were named and
// have no report; these are logged.
std::size_t for_each_report_file(const std::vector<std::string> &named,
                                 const std::function<void(const std::string &file)> &use);

}  // namespace fleet
