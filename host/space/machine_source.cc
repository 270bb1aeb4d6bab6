#include "host/space/machine_source.h"

#include "host/base/address.h"
#include "host/base/log.h"
#include "host/base/words.h"
#include "host/space/dump.h"

namespace host {
namespace {

void warn_about_other_domains(const std::string &source, std::size_t count, unsigned domain) {
    if (count != 0)
        log_warning(source + ": " + functions_text(count) + " of other domains left out, domain " +
                    domain_text(domain) + " is served (choose with --domain)");
}

// Warns of what a dump lacks.
void warn_about_dump(const std::string &name, const Dump &dump) {
    warn_about_other_domains(name, dump.other_domains, dump.domain);
    if (dump.header_only != 0)
        log_warning(name + ": " + functions_text(dump.header_only) +
                    " without capability data, nothing can be set on them; a full dump: "
                    "sudo lspci -xxxx > FILE");
}

MachineSource open_saved(const SourceOptions &options, std::istream &in) {
    const bool is_input = *options.dump == STANDARD_INPUT;
    const std::string name = is_input ? "standard input" : options.dump->string();
    Dump dump =
        is_input ? read_dump(in, name, options.domain) : read_dump(*options.dump, options.domain);
    warn_about_dump(name, dump);
    return {.name = name, .live = nullptr, .image = std::move(dump.image)};
}

MachineSource open_live(const SourceOptions &options) {
    MachineSource source{.name = "--live",
                         .live = std::make_unique<LiveSpace>(options.domain, options.sysfs),
                         .image = nullptr};
    warn_about_other_domains(source.name, source.live->sysfs().other_domains(), options.domain);
    if (!options.write) {
        source.image = source.live->snapshot();
        log_info("--live without --write: a plan, nothing is written to this machine");
    }
    return source;
}

}  // namespace

ConfigSpace &MachineSource::space() const {
    return image ? static_cast<ConfigSpace &>(*image) : *live;
}

void MachineSource::write_dump_to(OutputFile &file) const {
    write_dump(file, image ? *image : *live->snapshot());
}

MachineSource open_source(const SourceOptions &options, std::istream &in) {
    return options.dump ? open_saved(options, in) : open_live(options);
}

std::string failures_text(const MachineSource &source) {
    const std::uint64_t count = source.is_written() ? source.live->failures() : 0;
    if (count == 0)
        return {};
    return std::to_string(count) + (count == 1 ? " access" : " accesses") +
           " to configuration space failed";
}

bool report_failures(const MachineSource &source) {
    const std::string text = failures_text(source);
    if (!text.empty())
        log_error(text);
    return text.empty();
}

}  // namespace host
