#include <algorithm>
#include <array>

#include "platform/pci_access.h"

namespace {

struct ErrorText {
    pci_err_t code;
    const char *text;
};

constexpr std::array<ErrorText, 12> TEXTS = {{
    {PCI_OK, "Success"},
    {PCI_ERR_NOTHING_TO_DO, "Nothing to do"},
    {PCI_ERR_IO, "Input/output error"},
    {PCI_ERR_NO_MEMORY, "Out of memory"},
    {PCI_ERR_FILE_UNREADABLE, "File cannot be read"},
    {PCI_ERR_NO_DEVICE, "No such device"},
    {PCI_ERR_INVALID, "Invalid argument"},
    {PCI_ERR_NOT_SUPPORTED, "Not supported"},
    {PCI_ERR_ALREADY, "Already in the requested state"},
    {PCI_ERR_NO_BUSCFG_SYMBOL, "Host symbol not found"},
    {PCI_ERR_INCOMPATIBLE, "Incompatible version"},
    {PCI_ERR_NO_BUSCFG_OBJECT, "No bus configuration object"},
}};

}  // namespace

const char *pci_strerror(pci_err_t code) {
    const auto has_code = [code](const ErrorText &entry) { return entry.code == code; };
    const auto *entry = std::find_if(TEXTS.begin(), TEXTS.end(), has_code);
    if (entry != TEXTS.end())
        return entry->text;
    return "Unknown error";
}
