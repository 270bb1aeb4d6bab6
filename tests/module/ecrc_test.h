// Shared by the tests of the ECRC feature.
#pragma once

#include "features/ecrc/control.h"
#include "tests/support/faults.h"
#include "tests/support/module_test.h"

namespace host::tests {

constexpr std::uint32_t BOTH_CAP = GEN_CAP | CHK_CAP, BOTH_ON = GEN_ON | CHK_ON;

class EcrcTest : public ModuleTest {
protected:
    static inline module::feature_t &feature = module::feature_list[module::ROW_ECRC];

    // Returns every entry in list order, as the feature file says it: "1.0.0:+:= 2.17:=:- ", the
    // second in ARI form.
    static std::string recorded() {
        std::string text;
        for (const auto *link = feature.list.first; link; link = link->next) {
            const auto *entry = static_cast<const module::ecrc_entry *>(link);
            text += feature_file_name(entry->bdf);
            for (const auto setting : {entry->gen, entry->chk})
                text += setting > 0 ? ":+" : setting < 0 ? ":-" : ":=";
            text += ' ';
        }
        return text;
    }

    static bool list_locked() { return is_locked(feature.list.lock); }
};

}  // namespace host::tests
