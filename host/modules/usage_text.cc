#include "host/modules/usage_text.h"

#include <fcntl.h>
#include <gelf.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <system_error>

#include "host/base/input.h"
#include "host/base/safe_text.h"
#include "host/base/words.h"

namespace host {
namespace {

constexpr std::string_view USAGE_SECTION = "Zantor_usage";
constexpr std::string_view NAME_MARK = "%C";

class File {
public:
    explicit File(const std::filesystem::path &path)
        : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (fd_ < 0)
            throw InputError(path.string() +
                             ": cannot be read: " + std::generic_category().message(errno));
    }
    ~File() { close(fd_); }
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    int fd() const { return fd_; }

private:
    int fd_;
};

struct ElfEnd {
    void operator()(Elf *elf) const { elf_end(elf); }
};
using ElfHandle = std::unique_ptr<Elf, ElfEnd>;

bool is_named(Elf *elf, std::size_t names, Elf_Scn *section, std::string_view name) {
    GElf_Shdr header;
    if (gelf_getshdr(section, &header) == nullptr)
        return false;
    const char *const text = elf_strptr(elf, names, header.sh_name);
    return text != nullptr && text == name;
}

// Returns null when there is no such section.
Elf_Scn *find_section(Elf *elf, std::string_view name) {
    std::size_t names = 0;
    if (elf_getshdrstrndx(elf, &names) != 0)
        return nullptr;
    Elf_Scn *section = nullptr;
    while ((section = elf_nextscn(elf, section)) != nullptr)
        if (is_named(elf, names, section, name))
            return section;
    return nullptr;
}

std::string section_text(const std::filesystem::path &file) {
    const File opened(file);
    elf_version(EV_CURRENT);
    const ElfHandle elf(elf_begin(opened.fd(), ELF_C_READ, nullptr));
    if (elf == nullptr || elf_kind(elf.get()) != ELF_K_ELF)
        throw InputError(file.string() + ": no module: not an ELF file");
    Elf_Scn *const section = find_section(elf.get(), USAGE_SECTION);
    const Elf_Data *const data = section == nullptr ? nullptr : elf_rawdata(section, nullptr);
    if (data == nullptr || data->d_buf == nullptr)
        throw InputError(file.string() + ": has no usage text (section " +
                         std::string(USAGE_SECTION) + ")");
    return {static_cast<const char *>(data->d_buf), data->d_size};
}

}  // namespace

std::string module_usage(const std::filesystem::path &file) {
    std::string text = section_text(file);
    text.erase(text.find_last_not_of('\0') + 1);
    const std::string name =
        file.extension() == ".so" ? file.stem().string() : file.filename().string();
    for (std::size_t at = text.find(NAME_MARK); at != std::string::npos;
         at = text.find(NAME_MARK, at + name.size()))
        text.replace(at, NAME_MARK.size(), name);
    text.erase(text.find_last_not_of('\n') + 1);
    std::string safe;
    for (const std::string_view line : split(text, '\n'))
        safe.append(safe_text(line)).append(1, '\n');
    return safe;
}

}  // namespace host
