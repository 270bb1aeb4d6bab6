// Preloaded into QEMU, whose functions have neither payload sizes nor ASPM: gives them both.
//
// The number that ends a device's "id", as in nic-512, is the largest payload that it supports;
// without a number it is 128 bytes. Max_Payload_Size, Max_Read_Request_Size and ASPM Control then
// take what is written, except in virtual functions. Resets clear them, but for what a
// function-level reset leaves alone: Max_Payload_Size and ASPM Control.
//
// QEMU calls its functions directly, so they must be entered by a jump that is written over their
// first instructions. These instructions, and those that tell where a device has its registers,
// must be as expected: otherwise QEMU ends with status 77 before it has begun.
#include <sys/mman.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

using namespace std::string_view_literals;
using Initialise = int(void *device, std::uint8_t at, std::uint8_t type, std::uint8_t port,
                       void **error);
using Reset = void(void *device);

extern "C" {  // QEMU's; null where it has none
[[gnu::weak]] extern Initialise pcie_cap_init;
[[gnu::weak]] extern Initialise pcie_cap_v1_init;  // leaves `error` alone
[[gnu::weak]] extern Reset pcie_cap_lnkctl_init, pcie_cap_lnkctl_reset, msi_reset;
[[gnu::weak]] extern void *pcie_sriov_get_pf(void *device);
[[gnu::weak]] extern const char *object_get_canonical_path_component(const void *device);
}

namespace {

// In the PCI Express capability.
constexpr int DEVCAP = 0x04, DEVCTL = 0x08, LNKCTL = 0x10;
constexpr std::uint16_t DEVCTL_PAYLOAD = 0x00E0, DEVCTL_READ_REQUEST = 0x7000,
                        DEVCTL_READ_REQUEST_512 = 0x2000, DEVCTL_INITIATE_FLR = 0x8000;
constexpr std::uint8_t LNKCTL_ASPM = 0x03;

constexpr std::string_view JUMP = "\xff\x25\0\0\0\0"sv;  // to the address behind it
constexpr std::size_t STUB_SIZE = 64;
constexpr std::uintptr_t PAGE_SIZE = 4096;
constexpr int ALL = PROT_READ | PROT_WRITE | PROT_EXEC;

Initialise *original_init, *original_v1_init;
Reset *original_reset;
// In QEMU's record of a device.
std::uint32_t capability_offset, registers_offset, write_mask_offset;

[[noreturn]] void skip(const char *reason) {
    std::fprintf(stderr, "skipped: unknown QEMU: %s\n", reason);
    std::_Exit(77);
}

// '.' stands for any byte.
void expect(const char *name, const char *function, std::string_view code) {
    for (std::size_t i = 0; i < code.size(); i++)
        if (!function || (code[i] != '.' && function[i] != code[i]))
            skip(name);
}

template <typename T>
T get(const void *from, std::size_t offset) {
    T value;
    std::memcpy(&value, static_cast<const char *>(from) + offset, sizeof value);
    return value;
}

template <typename T>
char *put(void *to, T value) {
    std::memcpy(to, &value, sizeof value);
    return static_cast<char *>(to) + sizeof value;
}

// The bytes of the device's PCI Express capability, or their write masks.
std::uint8_t *express(void *device, std::uint32_t offset) {
    return get<std::uint8_t *>(device, offset) + get<std::uint8_t>(device, capability_offset);
}

void set_control(std::uint8_t *capability, unsigned bits, unsigned value) {
    const unsigned control = get<std::uint16_t>(capability, DEVCTL);
    put(capability + DEVCTL, static_cast<std::uint16_t>((control & ~bits) | value));
}

std::uint8_t payload_code(const void *device) {
    const char *id = object_get_canonical_path_component(device);
    const char *number = id ? std::strrchr(id, '-') : nullptr;
    const unsigned size = number ? static_cast<unsigned>(std::atoi(number + 1)) : 0;
    return static_cast<std::uint8_t>(size < 128 ? 0 : std::bit_width(size) - 8);
}

int open_registers(void *device, int position) {
    if (position < 0)
        return position;
    void *physical = pcie_sriov_get_pf(device);
    express(device, registers_offset)[DEVCAP] |= payload_code(physical ? physical : device);
    if (physical)
        return position;
    set_control(express(device, registers_offset), 0, DEVCTL_READ_REQUEST_512);
    set_control(express(device, write_mask_offset), 0, DEVCTL_PAYLOAD | DEVCTL_READ_REQUEST);
    express(device, write_mask_offset)[LNKCTL] |= LNKCTL_ASPM;
    return position;
}

template <Initialise *&ORIGINAL>
int init(void *device, std::uint8_t at, std::uint8_t type, std::uint8_t port, void **error) {
    return open_registers(device, ORIGINAL(device, at, type, port, error));
}

// QEMU clears the bit that initiates a function-level reset after it.
void reset(void *device) {
    original_reset(device);
    if (get<std::uint8_t>(device, capability_offset) == 0 || pcie_sriov_get_pf(device))
        return;
    std::uint8_t *const capability = express(device, registers_offset);
    set_control(capability, DEVCTL_READ_REQUEST, DEVCTL_READ_REQUEST_512);
    if (get<std::uint16_t>(capability, DEVCTL) & DEVCTL_INITIATE_FLR)
        return;
    set_control(capability, DEVCTL_PAYLOAD, 0);
    capability[LNKCTL] &= static_cast<std::uint8_t>(~LNKCTL_ASPM);
}

// Makes `function`, which begins with `code`, go to `replacement` by way of a stub, which also
// holds what is returned: a function that does as this one did.
template <typename Function>
Function *replace(const char *name, Function *function, std::string_view code,
                  Function *replacement, char *stub) {
    char *const entry = reinterpret_cast<char *>(function);
    expect(name, entry, code);
    const std::ptrdiff_t distance = stub - (entry + 5);
    char *const page = entry - reinterpret_cast<std::uintptr_t>(entry) % PAGE_SIZE;
    if (distance != static_cast<int>(distance) || mprotect(page, 2 * PAGE_SIZE, ALL) != 0)
        skip("cannot be changed");
    char *const original = put(stub + JUMP.copy(stub, JUMP.size()), replacement);
    char *const back = original + std::string_view(entry, code.size()).copy(original, code.size());
    put(back + JUMP.copy(back, JUMP.size()), entry + code.size());
    *entry = '\xe9';
    put(entry + 1, static_cast<int>(distance));
    return reinterpret_cast<Function *>(original);
}

// The code of the two that are not replaced holds the offsets.
[[gnu::constructor]] void start() {
    const char *const init_code = reinterpret_cast<const char *>(pcie_cap_lnkctl_init);
    const char *const reset_code = reinterpret_cast<const char *>(pcie_cap_lnkctl_reset);
    expect("pcie_cap_lnkctl_init", init_code,
           "\x0f\xb6\x87....\x48\x8b\x97....\x81\x4c\x02\x10\xc0\0\0\0\xc3"sv);
    expect("pcie_cap_lnkctl_reset", reset_code,
           "\x0f\xb6\x87....\x48\x8b\x97....\x81\x64\x02\x10\x3f\xff\xff\xff\xc3"sv);
    if (!pcie_sriov_get_pf || !object_get_canonical_path_component)
        skip("names are missing");
    capability_offset = get<std::uint32_t>(init_code, 3);
    write_mask_offset = get<std::uint32_t>(init_code, 10);
    registers_offset = get<std::uint32_t>(reset_code, 10);

    // Jumps of five bytes reach two gigabytes.
    const std::uintptr_t near = reinterpret_cast<std::uintptr_t>(init_code) - (256U << 20);
    void *const page =
        mmap(std::bit_cast<void *>(near), PAGE_SIZE, ALL, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED)
        skip("no memory");
    char *const stub = static_cast<char *>(page);
    original_init = replace("pcie_cap_init", pcie_cap_init, "\x41\x57\x41\x56\x41\x55\x41\x54"sv,
                            init<original_init>, stub);
    original_v1_init =
        replace("pcie_cap_v1_init", pcie_cap_v1_init, "\x41\x54\x55\x53\x48\x83\xec\x20"sv,
                init<original_v1_init>, stub + STUB_SIZE);
    original_reset = replace("msi_reset", msi_reset, "\x48\x89\xf8\xf6\x87....\x01"sv, reset,
                             stub + 2 * STUB_SIZE);
}

}  // namespace
