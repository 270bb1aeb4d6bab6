#include "tools/fleet/fleet.h"

#include <array>
#include <filesystem>
#include <ostream>

#include "host/base/input.h"
#include "host/base/log.h"
#include "tools/fleet/fleet_store.h"
#include "tools/fleet/report_files.h"
#include "tools/fleet/report_input.h"
#include "tools/fleet/report_reader.h"
#include "tools/fleet/write_forms.h"

namespace fleet {
namespace {

// A machine is named by its file; where a file has several reports, by the line too.
std::string machine_of(const std::string &file, std::size_t line) {
    const std::string name = std::filesystem::path(file).stem().string();
    return line == 0 ? name : name + ":" + std::to_string(line);
}

class Fleet {
public:
    // Reports that cannot be read are logged, and counted.
    void read_file(const std::string &file) {
        try {
            ReportInput in(file);
            read_reports(in, file);
            in.check();
        } catch (const host::InputError &error) {
            complain(error);
        }
    }

    void count_unreadable(std::size_t count) { unreadable_ += count; }

    Database &finish() {
        store_.finish(devices_, unreadable_);
        return store_.database();
    }

    std::size_t read() const { return read_; }
    std::size_t unreadable() const { return unreadable_; }

private:
    void read_reports(ReportInput &in, const std::string &file) {
        bool more = in.has_more();
        in.check();
        if (!more)
            in.refuse("has no report");
        for (bool is_first = true; more; is_first = false) {
            const std::size_t line = in.next_line();
            try {
                const MachineReport report = read_report(in, devices_);
                more = in.has_more();
                store_.add(report, machine_of(file, is_first && !more ? 0 : line), file);
                ++read_;
            } catch (const host::InputError &error) {
                in.check();
                complain(error);
                in.skip_report();
                more = in.has_more();
            }
        }
    }

    void complain(const host::InputError &error) {
        host::log_error(error.what());
        ++unreadable_;
    }

    Devices devices_;
    FleetStore store_;
    std::size_t read_ = 0, unreadable_ = 0;
};

constexpr auto WRITERS =
    std::array{write_table, write_json, write_csv, write_html};  // in the order of Form

}  // namespace

int run(const Options &options, std::ostream &out) {
    host::open_log(host::log_level(false, 0, false));
    Fleet fleet;
    fleet.count_unreadable(for_each_report_file(
        options.reports, [&](const std::string &file) { fleet.read_file(file); }));
    if (fleet.read() == 0)
        throw host::InputError("no report could be read");
    WRITERS[static_cast<std::size_t>(options.form)](out, fleet.finish());
    if (!out.flush())
        throw host::InputError("standard output: cannot be written");
    return fleet.unreadable() == 0 ? EXIT_ALL : EXIT_SOME;
}

}  // namespace fleet
