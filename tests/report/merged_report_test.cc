// One report of several domains.
#include "host/report/merged_report.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "host/report/report_json.h"

namespace host::tests {

TEST(MergedReport, CountsMessagesThatItDoesNotHave) {
    Report part;
    part.messages = {.counts = {.error = 2, .debug = 1}, .kept = {{2, 0, true, "of a domain"}}};
    std::ostringstream text;
    write_json(text, part);
    const LogRecord own = {.counts = {.error = 5, .info = 1}, .kept = {{2, 0, true, "of none"}}};
    const auto merged = nlohmann::json::parse(merged_json_line({{0, text.str()}}, own));
    const auto &messages = merged["messages"];
    EXPECT_EQ(messages["error"], 7);
    EXPECT_EQ(messages["left_out"], 2 + 5);
    EXPECT_EQ(messages["list"].size(), 2);
}

}  // namespace host::tests
