// Compares what feature files ask for with what the registers hold.
#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "host/report/request_report.h"
#include "host/requests/view.h"

namespace host {

// A feature file as it was when the modules were started.
struct FeatureFile {
    std::string name;
    std::string text;      // all bytes
    std::string unusable;  // why nothing of it can be read; empty when it can
};

// Reads a file; one that the module would read nothing of is unusable.
FeatureFile open_feature_file(const std::filesystem::path &file);

// Returns the checksums of files that are not unusable.
std::vector<FileChecksum> checksums_of(std::span<const FeatureFile> files);

// Returns a report for each line of the files, which the module has read in this order, from the
// state of functions at the end (FunctionReport::after). A file that is unusable has one of its
// own.
std::vector<RequestReport> judge(std::span<const FeatureFile> files, const MachineView &view);

// Returns "FILE:LINE: LINE (WHAT IT ASKS FOR) is not reached: REASON", as users read it.
std::string fault_text(const RequestReport &request);

}  // namespace host
