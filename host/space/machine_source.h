// Opens the source of a machine: a dump, a snapshot of this machine, or this machine itself.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/space/config_image.h"
#include "host/space/dump.h"
#include "host/space/live_space.h"
#include "host/space/output_file.h"

namespace host {

// Stands for standard input in place of a file; a file of that name is "./-".
constexpr const char *STANDARD_INPUT = "-";

struct SourceOptions {
    std::optional<std::filesystem::path> dump;  // or STANDARD_INPUT; nullopt: this machine
    bool write = false;                         // write to this machine, otherwise to a snapshot of
                                                // it
    DomainChoice domains = std::vector{0U};
    bool domains_are_default = true;        // users are told then what is left out
    std::filesystem::path sysfs = PCI_BUS;  // the kernel's files about this machine
};

struct MachineSource {
    std::string name;  // for messages
    unsigned domain = 0;
    std::unique_ptr<LiveSpace> live;     // null: a dump
    std::unique_ptr<ConfigImage> image;  // what is worked on; null: this machine itself

    bool is_written() const { return image == nullptr; }
    ConfigSpace &space() const;

    // Writes configuration space as it is now as a dump. Throws DumpError.
    void write_dump_to(OutputFile &file) const;
};

// Opens a source for each domain, in ascending order; reads a dump from `in` where the options say
// so. Logs as warnings what a dump lacks and, where one domain is served, what is left out. Throws
// DumpError, LiveError.
std::vector<MachineSource> open_sources(const SourceOptions &options, std::istream &in);

// Does the same where the options choose one domain.
MachineSource open_source(const SourceOptions &options, std::istream &in);

// Returns "12 accesses to configuration space failed", for live hardware so far; empty when none
// did.
std::string failures_text(const MachineSource &source);

// Logs that text as an error; returns false when any access has failed. Each failure has been
// handled and need not show elsewhere, so the exit status tells of them all.
bool report_failures(const MachineSource &source);

}  // namespace host
