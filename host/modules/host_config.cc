#include "host/modules/host_config.h"

#include <algorithm>

#include "host/base/input.h"
#include "host/base/words.h"
#include "platform/config_text.h"

namespace host {
namespace {

constexpr std::string_view RUNTIME_SECTION = "runtime";
constexpr std::string_view MODULE_LIST_KEY = "HOPLAR_MODULE_LIST";

constexpr std::string_view DOMAIN_SECTION = "domain";

class Parser {
public:
    explicit Parser(const std::filesystem::path &file) : file_(file) {}

    void take(std::size_t line, std::string_view text) {
        line_ = line;
        text_ = trim(text);
        if (text_.starts_with('['))
            return take_section();
        // The form of lines in unknown sections is not known, so they are not checked.
        if (!is_unknown_)
            take_key();
    }

    HostConfig result() && {
        if (!errors_.empty())
            throw InputError(errors_);
        return std::move(config_);
    }

private:
    void take_section() {
        // The lines below a malformed header are checked too, so that all faults are reported at
        // once.
        section_ = &config_.modules;
        is_unknown_ = false;
        const auto name = words(text_.substr(1, text_.size() - 2));
        if (!text_.ends_with(']') || name.empty())
            return reject("a section is written as [name]");
        if (name.front() == DOMAIN_SECTION)
            return take_domain(name);
        if (name.size() == 1 && name.front() == RUNTIME_SECTION)
            return;
        is_unknown_ = true;
        warn("unknown section, passed over");
    }

    void take_domain(const std::vector<std::string_view> &name) {
        const auto domain = name.size() == 2 ? parse_hex(name[1]) : std::nullopt;
        if (domain)
            section_ = &config_.of_domain[*domain];
        else
            reject("a domain's section is written as [domain 0002], hexadecimal");
    }

    void take_key() {
        const char *const first = text_.data();
        const char *const equals = find_token('=', first, first + text_.size());
        if (equals == nullptr)
            return reject("neither KEY = VALUE nor [section]");
        const std::string_view key = trim({first, equals});
        std::uint32_t length = 0;
        if (key.empty() || find_name(first, equals - 1, &length, nullptr) == nullptr ||
            length != key.size())
            return reject("no key in front of \"=\"");
        if (key != MODULE_LIST_KEY)
            return warn("unknown key, passed over");
        if (!section_)
            return warn("only read in sections [runtime] and [domain N], passed over");
        take_modules({equals + 1, first + text_.size()});
    }

    void take_modules(std::string_view value) {
        for (const std::string_view word : words(value)) {
            if (word.starts_with('#'))
                return reject("a comment takes a line of its own");
            add_module(word);
        }
    }

    void add_module(std::string_view word) {
        try {
            section_->push_back(parse_module_entry(word, file_.parent_path()));
            section_->back().line = line_;
        } catch (const InputError &error) {
            reject(error.what());
        }
    }

    void reject(std::string_view reason) {
        errors_.push_back(line_complaint(file_.string(), line_, reason, text_));
    }

    void warn(std::string_view reason) {
        config_.warnings.push_back(line_complaint(file_.string(), line_, reason, text_));
    }

    const std::filesystem::path &file_;
    std::size_t line_ = 0;
    std::string_view text_;
    HostConfig config_;
    std::vector<ModuleEntry> *section_ = nullptr;  // what the section lists; null before the first
    bool is_unknown_ = false;                      // the section
    std::vector<std::string> errors_;
};

}  // namespace

const std::vector<ModuleEntry> &HostConfig::modules_of(unsigned domain) const {
    const auto own = of_domain.find(domain);
    return own == of_domain.end() ? modules : own->second;
}

std::vector<ModuleEntry> HostConfig::all_modules() const {
    std::vector<ModuleEntry> all = modules;
    for (const auto &[domain, own] : of_domain)
        all.insert(all.end(), own.begin(), own.end());
    return all;
}

HostConfig read_host_config(const std::filesystem::path &file) {
    return parse_host_config(read_text_file(file), file);
}

HostConfig parse_host_config(const std::string &text, const std::filesystem::path &file) {
    Parser parser(file);
    if (text.empty())
        return std::move(parser).result();
    const char *const last = &text.back();
    const char *counted = text.data();
    std::size_t line = 1;
    for (const char *at = text.data(); at <= last;) {
        at = skip_comment(at);
        const char *const eol = find_eol(at, last);
        if (eol == nullptr)
            break;
        line += static_cast<std::size_t>(std::count(counted, at, '\n'));
        counted = at;
        parser.take(line, {at, eol});
        at = eol + 1;
    }
    return std::move(parser).result();
}

}  // namespace host
