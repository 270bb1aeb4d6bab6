// Work in a child process: its result, and its failures.
#include "host/base/child_process.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>

namespace host::tests {
namespace {

std::string fail_with(int signal_number) {
    std::fputs("last words\n", stderr);
    std::raise(signal_number);
    return "";
}

// Returns how the child's end is reported; its messages go to standard error then.
std::string outcome(const std::function<std::string()> &work) {
    try {
        return "returned " + in_child_process(work);
    } catch (const ChildError &error) {
        return error.what();
    }
}

}  // namespace

TEST(ChildProcess, GivesWhatWorkReturnsOrHowItEnded) {
    const struct {
        std::function<std::string()> work;
        std::string outcome, messages;
    } rows[] = {
        {[] { return std::string(100000, 'x'); }, "returned " + std::string(100000, 'x'), ""},
        {[] { return std::string(std::fputs("kept back\n", stderr) < 0 ? "bad" : ""); },
         "returned ", ""},
        {[] { return fail_with(SIGKILL); }, "ended by signal 9 (Killed)", "last words\n"},
        {[]() -> std::string { throw std::runtime_error("why"); }, "ended with status 1",
         "error: why\n"},
        {[]() -> std::string {
             std::set_terminate(std::abort);
             throw 3;
         },
         "ended by signal 6 (Aborted)", ""},
        {[]() -> std::string { _exit(3); }, "ended with status 3", ""},
    };
    int left_behind = 0;
    for (const auto &row : rows) {
        std::signal(SIGCHLD, SIG_IGN);  // a process may inherit this
        testing::internal::CaptureStderr();
        EXPECT_EQ(outcome([&] { return ++left_behind, row.work(); }), row.outcome);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), row.messages);
    }
    EXPECT_EQ(left_behind, 0);
}

}  // namespace host::tests
