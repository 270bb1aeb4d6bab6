// Where a machine comes from: a dump, a snapshot of this machine, or this machine itself.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>

#include "host/space/config_image.h"
#include "host/space/live_space.h"
#include "host/space/output_file.h"

namespace host {

// What stands for standard input in the place of a file; a file of that name is "./-".
constexpr const char *STANDARD_INPUT = "-";

struct SourceOptions {
    std::optional<std::filesystem::path> dump;  // or STANDARD_INPUT; none: this machine
    bool write = false;                         // to this machine; else to a snapshot of it
    unsigned domain = 0;
    std::filesystem::path sysfs = PCI_BUS;  // what the kernel shows of this machine
};

struct MachineSource {
    std::string name;                    // for messages
    std::unique_ptr<LiveSpace> live;     // null: a dump
    std::unique_ptr<ConfigImage> image;  // what is worked on; null: this machine itself

    bool is_written() const { return image == nullptr; }
    ConfigSpace &space() const;

    // Configuration space as it is now, as a dump. Throws DumpError.
    void write_dump_to(OutputFile &file) const;
};

// Reads `in` where the options say so. What a dump lacks, or what is left out, is said in warnings.
// Throws DumpError, LiveError.
MachineSource open_source(const SourceOptions &options, std::istream &in);

// "12 accesses to configuration space failed": of live hardware, so far. Empty when none did.
std::string failures_text(const MachineSource &source);

// Says so in an error; false when any has failed. Each has been handled, and need not have made
// anything else fail: the exit status tells of them all.
bool report_failures(const MachineSource &source);

}  // namespace host
