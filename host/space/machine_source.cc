#include "host/space/machine_source.h"

#include <map>
#include <utility>

#include "host/base/address.h"
#include "host/base/log.h"
#include "host/base/words.h"
#include "host/space/dump.h"

namespace host {
namespace {

// "domain 0002", "domains 0002, 10000"
std::string domains_text(const std::map<unsigned, std::size_t> &counts) {
    std::vector<std::string> texts;
    for (const auto &[domain, count] : counts)
        texts.push_back(domain_text(domain));
    return (texts.size() == 1 ? "domain " : "domains ") + join(texts, ", ");
}

// Users who have chosen domains know that there are others.
void warn_about_left_out(const std::string &source, const std::map<unsigned, std::size_t> &left_out,
                         const SourceOptions &options) {
    if (left_out.empty() || !options.domains_are_default)
        return;
    std::size_t count = 0;
    for (const auto &[domain, functions] : left_out)
        count += functions;
    log_warning(source + ": " + functions_text(count) + " of " + domains_text(left_out) +
                " left out, domain " + domain_text(options.domains->front()) +
                " is served (choose with --domain)");
}

void warn_about_dump(const std::string &name, const DumpedDomain &dump) {
    if (dump.header_only != 0)
        log_warning(name + ": " + functions_text(dump.header_only) +
                    " without capability data, nothing can be set there; a full dump: "
                    "sudo lspci -xxxx > FILE");
}

// "server.lspci", where several domains are served "server.lspci, domain 0002"
std::string source_name(const std::string &source, unsigned domain, std::size_t count) {
    return count == 1 ? source : source + ", domain " + domain_text(domain);
}

std::vector<MachineSource> open_saved(const SourceOptions &options, std::istream &in) {
    const bool is_input = *options.dump == STANDARD_INPUT;
    const std::string file = is_input ? "standard input" : options.dump->string();
    Dump dump =
        is_input ? read_dump(in, file, options.domains) : read_dump(*options.dump, options.domains);
    warn_about_left_out(file, dump.left_out, options);
    std::vector<MachineSource> sources;
    for (auto &[domain, dumped] : dump.domains) {
        warn_about_dump(source_name(file, domain, dump.domains.size()), dumped);
        sources.push_back({file, domain, nullptr, std::move(dumped.image)});
    }
    return sources;
}

MachineSource open_live(const SourceOptions &options, unsigned domain) {
    const auto mode = options.write ? LiveSpace::Mode::READ_AND_WRITE : LiveSpace::Mode::READ;
    MachineSource source{.name = "--live",
                         .domain = domain,
                         .live = std::make_unique<LiveSpace>(domain, mode, options.sysfs),
                         .image = nullptr};
    if (!options.write)
        source.image = source.live->snapshot();
    return source;
}

std::vector<MachineSource> open_live(const SourceOptions &options) {
    auto others = Sysfs(0, options.sysfs).domains();
    std::vector<unsigned> chosen;
    if (options.domains)
        chosen = *options.domains;
    else
        for (const auto &[domain, count] : others)
            chosen.push_back(domain);
    if (chosen.empty())
        chosen.push_back(0);  // there is no function; opening it tells why
    std::vector<MachineSource> sources;
    for (const unsigned domain : chosen) {
        sources.push_back(open_live(options, domain));
        others.erase(domain);
    }
    warn_about_left_out("--live", others, options);
    if (!options.write)
        log_info("--live without --write: a plan, nothing is written to this machine");
    return sources;
}

}  // namespace

ConfigSpace &MachineSource::space() const {
    return image ? static_cast<ConfigSpace &>(*image) : *live;
}

void MachineSource::write_dump_to(OutputFile &file) const {
    write_dump(file, image ? *image : *live->snapshot());
}

std::vector<MachineSource> open_sources(const SourceOptions &options, std::istream &in) {
    return options.dump ? open_saved(options, in) : open_live(options);
}

MachineSource open_source(const SourceOptions &options, std::istream &in) {
    return std::move(open_sources(options, in).front());
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
