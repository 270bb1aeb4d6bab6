// The lines that clients of a server that stays send, and their answers.
#include "host/cli/stay.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "host/exports/serve.h"
#include "tests/support/test_machine.h"

namespace host::tests {

TEST(Stay, AnswersEventsAndQuestions) {
    MachineSource source{.name = "", .live = nullptr, .image = std::make_unique<ConfigImage>()};
    for (const FunctionSpec &function : functions("0.1:4>1-1 1.0:0 2.0:0"))
        source.image->add(function.id, "", config_bytes(function, false));
    Machine machine(*source.image);
    const Serving serving(machine, ManagedBuses(256, true));
    const auto player = player_for(source, machine);
    Report report = begin_report(machine, 0);
    const std::vector<ModuleResult> modules = {{.file = "a\n", .version = {}, .result = 0}};
    const Stay served{source, 0, machine, *player, modules, report};
    const std::string unknown = "error: control:7: unknown word (flr, bus-reset, status, report, "
                                "help): ";
    const std::pair<std::string, std::string> rows[] = {
        {"flr 01:00.0", "ok"},
        {" # flr 09:00.0", "ok"},
        {"flr 09:00.0", "error: control:7: no such function: flr 09:00.0"},
        {"flr 01:00.0 \x9b", "error: control:7: STATUS is no number: flr 01:00.0 \\x9b"},
        {"stop", unknown + "stop"},
        {"status all", "error: control:7: too many words: status all"},
        {"status # now", "1 of 1 modules run; 3 functions, 1 changed; no access failed; "
                         "since 2001-09-09T01:46:40Z"}};
    source.image->write(at(2), DEVCTL_AT, 2, 5U << 5);
    for (const auto &[text, answer] : rows)
        EXPECT_EQ(execute({text, "control", 7, true}, served, 1000000000).answer, answer);
    keep_messages(1000);
    for (int number = 0; number < 10'000; ++number)
        log_info(std::to_string(number) + "\033");
    const std::string line = execute({"report", "control", 1, true}, served, 0).answer;
    EXPECT_EQ(line.find('\n'), line.npos);
    const auto json = nlohmann::json::parse(line);
    EXPECT_EQ(json["functions"][2]["mps"]["after"], 4096);
    EXPECT_EQ(json["modules"][0]["file"], "a\n");
    const auto messages = json["messages"];
    EXPECT_EQ(messages["list"].back()["text"], "9999\\x1b");
    EXPECT_GE(messages["left_out"], 10'000 - 1000 / 5);
    keep_messages(0);
    EXPECT_TRUE(
        execute({"help", "control", 1, true}, served, 0).answer.starts_with("flr FUNCTION"));
    EXPECT_EQ(execute({"status", "standard input", 2, false}, served, 0).answer,
              "error: standard input:2: unknown event (insert, remove, flr, bus-reset): status");
}

}  // namespace host::tests
