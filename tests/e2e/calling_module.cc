// A module that calls what its host exports. Each argument is a call, NAME:NUMBER:..., hexadecimal.
// What comes back is printed, and the numbers, of which those that were passed by address may have
// changed.
#include <array>
#include <charconv>
#include <concepts>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "platform/bridge.h"
#include "platform/buscfg.h"
#include "platform/module.h"
#include "platform/pci_access.h"
#include "platform/server.h"

namespace {

using Numbers = std::array<std::uint32_t, 5>;

std::uint32_t call_word = CAP_CALL_WORD;

// Returns the capability object that a call with this result has made; it is freed at the end.
// Throws the error.
template <typename Object>
Object *keep(pci_err_t error, pci_cap_t *const &object) {
    static std::vector<std::unique_ptr<void, decltype(&std::free)>> kept;
    if (error != PCI_OK)
        throw error;
    kept.emplace_back(object, std::free);
    object->call_word = CAP_CALL_WORD;
    return reinterpret_cast<Object *>(object);
}

template <typename Object>
Object *object_of(bdf_t bdf) {
    pci_cap_t *object = nullptr;
    const int index = pci_device_find_capid(bdf, CAPID_PCIE);
    auto *const pcie = keep<pcie_cap_t>(pci_device_read_cap(bdf, &object, index), object);
    if constexpr (std::same_as<Object, pcie_cap_t>)
        return pcie;
    const int ext = pcie->ops->find_ext_cap(pcie, std::same_as<Object, aer_cap_t> ? EXT_CAPID_AER
                                                                                  : EXT_CAPID_RCEC);
    return keep<Object>(pcie->ops->read_ext_cap(pcie, &object, ext), object);
}

// Takes the next number. Returns it, where it is, or the object of the function with this address.
template <typename Parameter>
Parameter take(std::uint32_t *&next) {
    std::uint32_t &number = *next++;
    using Value = std::remove_pointer_t<Parameter>;
    if constexpr (std::same_as<Parameter, bdf_token>) {
        return pci::token_of(number);
    } else if constexpr (std::integral<Parameter>) {
        return static_cast<Parameter>(number);
    } else if constexpr (std::integral<Value> || std::is_void_v<Value>) {
        return reinterpret_cast<Parameter>(&number);
    } else if constexpr (std::same_as<Value, bridge_rec>) {
        return number != 0 ? find_bridge_bdf(nullptr, number) : nullptr;
    } else {
        Parameter object = object_of<Value>(number);
        object->head.call_word = call_word;
        return object;
    }
}

void show(std::integral auto value) {
    std::printf(" -> %x", static_cast<std::uint32_t>(value));
}
void show(const char *text) {
    std::printf(" -> %s", text);
}
void show(const bridge_rec *bridge) {
    bridge ? std::printf(" -> %x kind %u class %x, %u children, %u functions", bridge->bdf,
                         bridge->bridge_kind, bridge->class_code, bridge->num_children,
                         bridge->num_devs)
           : std::printf(" -> none");
}
void show(const event_agent_t *agent) {
    const event_capset_t *const set = agent ? agent->capset : nullptr;
    set ? std::printf(" -> %x%s%s%s", set->device->bdf, set->msi ? " msi" : "",
                      set->msix ? " msix" : "", set->rcec ? " rcec" : "")
        : std::printf(" -> none");
}

template <typename Result, typename... Parameters>
void call(Result (*function)(Parameters...), Numbers numbers) {
    std::uint32_t *next = numbers.data();
    const std::tuple<Parameters...> arguments{take<Parameters>(next)...};
    show(std::apply(function, arguments));
    for (const std::uint32_t *number = numbers.data(); number != next; ++number)
        std::printf(" %x", *number);
}
template <auto FUNCTION>
void exported(const Numbers &numbers) {
    call(FUNCTION, numbers);
}
template <typename Object, auto OPERATION>
void operation(const Numbers &numbers) {
    call(object_of<Object>(numbers[0])->ops->*OPERATION, numbers);
}

std::uint32_t read_cap(bdf_t bdf, int index) {
    pci_cap_t *object = nullptr;
    return keep<pci_cap_t>(pci_device_read_cap(bdf, &object, index), object)->offset;
}

std::uint32_t read_ext_cap(bdf_t bdf, int index) {
    pci_cap_t *object = nullptr;
    auto *const pcie = object_of<pcie_cap_t>(bdf);
    return keep<pci_cap_t>(pcie->ops->read_ext_cap(pcie, &object, index), object)->offset;
}

void on_reset(std::uint32_t, bdf_t, int) {
    std::puts("hook");
}

pci_err_t add_hook(std::uint32_t kind, bool has_hook) {
    auto *const block = static_cast<buscfg_hook_reg_t *>(std::calloc(1, sizeof(buscfg_hook_reg_t)));
    block->kind = kind;
    block->hook = has_hook ? reinterpret_cast<buscfg_hook_t>(on_reset) : nullptr;
    const pci_err_t error = buscfg->add_hook(block);
    if (error != PCI_OK)
        std::free(block);
    return error;
}

const std::map<std::string, void (*)(const Numbers &)> CALLS = {
    {"word", [](const Numbers &numbers) { call_word = numbers[0]; }},
    {"error", exported<pci_strerror>},
    {"find", exported<pci_device_find>},
    {"type", exported<pci_device_get_type>},
    {"cap-index", exported<pci_device_find_capid>},
    {"cap", exported<read_cap>},
    {"multi", exported<pci_device_is_multi_func>},
    {"vid", exported<pci_device_read_vid>},
    {"cmd", exported<pci_device_read_cmd>},
    {"status", exported<pci_device_read_status>},
    {"secondary", exported<pci_device_read_sec_busnum>},
    {"control", exported<pci_device_read_bridge_ctrl>},
    {"write-cmd", exported<pci_device_write_cmd>},
    {"write-control", exported<pci_device_write_bridge_ctrl>},
    {"above", exported<find_parent_bridge>},
    {"bridge", exported<find_bridge_bdf>},
    {"to-bus", exported<find_bridge_sec_busnum>},
    {"bus-below", exported<cached_param_get_sec_busnum>},
    {"owner", exported<hoplar_get_id>},
    {"next-ari", exported<enum_next_ari_func>},
    {"agent", exported<find_event_agent>},
    {"hook", exported<add_hook>},
    {"read", [](const Numbers &numbers) { call(pci_hw->cfg_read, numbers); }},
    {"write", [](const Numbers &numbers) { call(pci_hw->cfg_write, numbers); }},
    {"ext-index", operation<pcie_cap_t, &pcie_cap_ops_t::find_ext_cap>},
    {"ext", exported<read_ext_cap>},
    {"port-type", operation<pcie_cap_t, &pcie_cap_ops_t::get_port_type>},
    {"devcap", operation<pcie_cap_t, &pcie_cap_ops_t::read_devcap>},
    {"devctl", operation<pcie_cap_t, &pcie_cap_ops_t::read_devctl>},
    {"write-devctl", operation<pcie_cap_t, &pcie_cap_ops_t::write_devctl>},
    {"linkcap", operation<pcie_cap_t, &pcie_cap_ops_t::read_linkcap>},
    {"linkctl", operation<pcie_cap_t, &pcie_cap_ops_t::read_linkctl>},
    {"write-linkctl", operation<pcie_cap_t, &pcie_cap_ops_t::write_linkctl>},
    {"chk-on", operation<aer_cap_t, &aer_cap_ops_t::ecrc_chk_enable>},
    {"chk-off", operation<aer_cap_t, &aer_cap_ops_t::ecrc_chk_disable>},
    {"gen-on", operation<aer_cap_t, &aer_cap_ops_t::ecrc_gen_enable>},
    {"gen-off", operation<aer_cap_t, &aer_cap_ops_t::ecrc_gen_disable>},
    {"serves", operation<rcec_cap_t, &rcec_cap_ops_t::is_associated>},
};

void run(const std::string &text) {
    Numbers numbers{};
    std::size_t at = text.find(':');
    const auto function = CALLS.at(text.substr(0, at));
    for (std::size_t i = 0; at != std::string::npos; at = text.find(':', at + 1))
        std::from_chars(&text[at + 1], text.data() + text.size(), numbers.at(i++), 16);
    std::printf("%s", text.c_str());
    try {
        function(numbers);
    } catch (pci_err_t error) {
        std::printf(" -> %s", pci_strerror(error));
    }
    std::puts("");
}

}  // namespace

std::uint32_t server_mod_version() {
    return BAD_VERSION;
}

pci_err_t server_mod_init(const mod_init_args_t *args) {
    for (std::uint32_t i = 0; i < args->argc; ++i)
        run(args->argv[i]);
    return PCI_OK;
}
