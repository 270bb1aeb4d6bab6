// The feature file: which lines reach which parser, and where a file ends.
#include "module/config_file.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

#include "feature_file/value_text.h"
#include "module/stack_room.h"
#include "tests/support/faults.h"
#include "tests/support/module_test.h"

namespace host::tests {

const std::string NO_ROOM = "MAKE_TMP_STRING alloca() failed";

// Every row's parser notes its arguments and overwrites the value.
class ConfigFile : public ModuleTest {
protected:
    ConfigFile() {
        for (module::feature_t &row : module::feature_list)
            row.param_parse = [](const char *keyword, char *value, module::feature_t *given) {
                calls += std::to_string(given - module::feature_list) + ' ' + keyword + '=' +
                         value + '\n';
                std::memset(value, ':', std::strlen(value));
            };
    }

    // Parses a text and returns the messages between those that mark start and end.
    std::string parse(std::string_view text) {
        const std::string start = "I0 ++ Feature Config file 'features.cfg' parse start ++\n";
        const std::string end = "I0 ++ Feature Config file 'features.cfg' parse end ++\n";
        calls.clear();
        EXPECT_EQ(module::parse_feature_config(file(text).c_str()), 0U);
        const std::string lines = messages();
        EXPECT_TRUE(lines.starts_with(start) && lines.ends_with(end)) << lines;
        return lines.substr(start.size(), lines.size() - start.size() - end.size());
    }

    static inline std::string calls;  // lines "row keyword=value"
};

static std::string unknown(const std::string &keyword) {
    return "W0 Unknown feature parameter '" + keyword + "', ignoring\n";
}
static std::string no_value(const std::string &keyword) {
    return "W0 No feature parameter for '" + keyword + "', ignoring\n";
}

TEST_F(ConfigFile, HandsEachLineToTheFeatureThatItsKeywordNames) {
    using namespace std::string_literals;
    const std::tuple<std::string, std::string, std::string, std::string> rows[] = {
        {"any letter case, as written", "FB2B=on\naspm=1\nMPS=all:max\nmPs=1\nEcRC=all:+:+\n",
         "0 FB2B=on\n1 aspm=1\n2 MPS=all:max\n2 mPs=1\n3 EcRC=all:+:+\n", ""},
        {"comments, blank lines, blanks", "# MPS=1\n\n \t\n  \t# ECRC=x\n \tECRC= \t5.17:+:=\n",
         "3 ECRC=5.17:+:=\n", ""},
        {"lines without = or keyword", "MPS\n=1\n \t=ECRC\nMPS all:max\nASPM=2", "1 ASPM=2\n", ""},
        {"unknown keywords", "FOO=1\nMPS=1.0.0:128\nMPSS=1\nECR=1\nECRC-2=1\n", "2 MPS=1.0.0:128\n",
         unknown("FOO") + unknown("MPSS") + unknown("ECR") + unknown("ECRC-2")},
        {"no value", "Mps=\nECRC= \t\nASPM=!1\nMPS=*\nECRC=*\n", "3 ECRC=*\n",
         no_value("Mps") + no_value("ECRC") + no_value("ASPM") + no_value("MPS")},
        {"the first = counts", "ECRC=0.0:=:-\nFB2B=a=b\n", "3 ECRC=0.0:=:-\n0 FB2B=a\n", ""},
        {"a value ends where the feature says", "MPS=3.0.0:256 trailing words\nECRC=1.*:+:=,x\n",
         "2 MPS=3.0.0:256\n3 ECRC=1.*:+:=\n", ""},
        {"CR LF", "\r\nMPS=all:max\r\nECRC=\r\nFOO=1\r\nECRC=all:+:+\r\n",
         "2 MPS=all:max\n3 ECRC=all:+:+\n", no_value("ECRC") + unknown("FOO")},
        {"byte order mark", "\xEF\xBB\xBFMPS=1\n\xEF\xBB\xBF# MPS=2\n\xEF\xBB\xBF", "2 MPS=1\n",
         ""},
        {"zero bytes", "\0\0\n\0A=1\nx\0y\nMPS=1\0:2\n# \0\nFOO=1"s, "2 MPS=1\n", unknown("FOO")}};
    for (const auto &[name, text, handed, log] : rows) {
        SCOPED_TRACE(name);
        EXPECT_EQ(parse(text), log);
        EXPECT_EQ(calls, handed);
    }
    module::feature_list[module::ROW_ASPM].param_parse = nullptr;
    EXPECT_EQ(parse("ASPM=1\nASPM=\nFB2B=2\n"), no_value("ASPM"));
    EXPECT_EQ(calls, "0 FB2B=2\n");
}

TEST_F(ConfigFile, ReadsFilesOfWholePagesToTheirLastByteAndNotFurther) {
    const std::string all = "3 ECRC=all:+:+\n";
    const std::tuple<std::string, std::string, std::string> rows[] = {
        {"# comment", "", ""},
        {"ECRC=all:+:+", all, ""},
        {"ECRC=all:+:+\n", all, ""},
        {"MPS=", "", no_value("MPS")},
        {"ECRC=all:+:+\n \t", all, ""}};
    for (const std::size_t size : {4095U, 4096U, 8192U})
        for (const auto &[ending, handed, log] : rows) {
            SCOPED_TRACE(std::to_string(size) + " bytes ending in '" + ending + "'");
            const std::string start = "FB2B=1\n#";
            const std::string comment(size - ending.size() - start.size() - 1, '=');
            EXPECT_EQ(parse(start + comment + '\n' + ending), log);
            EXPECT_EQ(calls, "0 FB2B=1\n" + handed);
        }
}

TEST_F(ConfigFile, ReportsUnusableFilesAndKeepsNoneOpen) {
    const std::string empty = file("", "empty.cfg"), good = file("#", "good.cfg");
    const std::string directory = std::filesystem::path(empty).parent_path();
    const std::string fifo = directory + "/fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const std::tuple<const char *, pci_err_t, std::string> rows[] = {
        {nullptr, 22, "E0 No config file parameter provided\n"},
        {"", 22, "E0 No config file parameter provided\n"},
        {"/nowhere/x.cfg", 17,
         "E0 Unable to access file '/nowhere/x.cfg' for parsing, No such file or directory\n"},
        {empty.c_str(), 0, ""},
        {directory.c_str(), 0, ""},  // can be opened, but not mapped
        {fifo.c_str(), 0, ""},       // nobody writes
        {good.c_str(), 0,
         "I0 ++ Feature Config file 'good.cfg' parse start ++\n"
         "I0 ++ Feature Config file 'good.cfg' parse end ++\n"}};
    const auto open_files = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const std::ptrdiff_t before = open_files();
    ::alarm(120);  // ends the program when opening waits
    for (const auto &[path, result, log] : rows) {
        EXPECT_EQ(module::parse_feature_config(path), result);
        EXPECT_EQ(messages(), log);
    }
    ::alarm(0);
    EXPECT_EQ(open_files(), before);
    const auto mapped_pages = [] {
        long pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        return pages;
    };
    constexpr long TIMES = 1000;
    const long pages_before = mapped_pages();
    for (long i = 0; i < TIMES; ++i)
        EXPECT_EQ(module::parse_feature_config(directory.c_str()), 0U);
    EXPECT_LT(mapped_pages() - pages_before, TIMES);
    std::ifstream maps("/proc/self/maps");
    const std::string mapped(std::istreambuf_iterator<char>(maps), {});
    EXPECT_EQ(mapped.find("good.cfg"), std::string::npos);
}

TEST_F(ConfigFile, SaysWhenATokenDoesNotFitTheStack) {
    const std::string huge(std::size_t{16} << 20, 'a');
    EXPECT_EQ(parse("ECRC=" + huge + "\n" + huge + "=1\nMPS=" + huge + "\n"), unknown(NO_ROOM));
    EXPECT_EQ(calls, "3 ECRC=" + NO_ROOM + "\n2 MPS=" + NO_ROOM + "\n");
}

// The room of a line's copies is not given back while the file is parsed.
TEST_F(ConfigFile, ReadsManyLinesOnASmallStack) {
    std::string text, said, expected;
    for (unsigned i = 0; i < 200'000; ++i)
        text += "A=1\n";
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 256 * 1024);
    std::function<void()> work = [&] { said = parse(text); };
    const auto run = [](void *task) -> void * {
        (*static_cast<std::function<void()> *>(task))();
        return nullptr;
    };
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
    pthread_join(thread, nullptr);
    const std::size_t read = said.find(unknown(NO_ROOM)) / unknown("A").size();
    for (unsigned i = 0; i < 200'000; ++i)
        expected += unknown(i < read ? "A" : NO_ROOM);
    EXPECT_TRUE(said == expected && read < 20'000) << read;
}

// The lowest address where it is known; half of the limit where it is not, but of 8 MiB at most;
// and nothing where no limit is known either.
TEST(StackRoom, ReachesToTheLowestAddressOrACautiousGuess) {
    const auto here = [] { return static_cast<const char *>(__builtin_frame_address(0)); };
    const auto depth = [&] { return static_cast<double>(here() - module::stack_floor()); };
    constexpr double MIB = 1 << 20, NEAR = 1 << 16;
    pthread_attr_t attributes;
    void *lowest = nullptr;
    std::size_t size = 0;
    ASSERT_EQ(pthread_getattr_np(pthread_self(), &attributes), 0);
    pthread_attr_getstack(&attributes, &lowest, &size);
    pthread_attr_destroy(&attributes);
    EXPECT_EQ(module::stack_floor(), lowest);
    rlimit usual = {};
    getrlimit(RLIMIT_STACK, &usual);
    for (const unsigned mib : {2U, 8U, 32U}) {
        const rlimit limit = {rlim_t{mib} << 20, usual.rlim_max};
        setrlimit(RLIMIT_STACK, &limit);
        fail_calls(1, FOREVER, "pthread_getattr_np");
        EXPECT_NEAR(depth(), MIB * std::min(mib, 8U) / 2, NEAR);
    }
    setrlimit(RLIMIT_STACK, &usual);
    fail_calls(1, FOREVER);
    EXPECT_NEAR(depth(), 0, NEAR);
    fail_calls(0);
    const auto left = [&](std::size_t below) {
        return static_cast<double>(module::__stackavail(here() - below));
    };
    EXPECT_NEAR(left(module::STACK_RESERVE + 1'000'000), 1'000'000, NEAR);
    EXPECT_EQ(left(module::STACK_RESERVE / 2), 0);
}

TEST(ValueCharacters, AreTheFeaturesOrTheDefault) {
    const auto accepted_by = [](name_char_t predicate) {
        std::string accepted;
        for (int c = 0; c < 256; ++c)
            if (predicate(static_cast<char>(c)))
                accepted += static_cast<char>(c);
        return accepted;
    };
    const std::string most = "+-.0123456789:ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    EXPECT_EQ(accepted_by(module::valid_param_val_char), most);
    EXPECT_EQ(accepted_by(module::feature_list[module::ROW_MPS].valid_param_char), most);
    EXPECT_EQ(accepted_by(module::feature_list[module::ROW_ECRC].valid_param_char),
              "*" + replaced(most, ":", ":="));
    EXPECT_EQ(module::feature_list[module::ROW_FB2B].valid_param_char, nullptr);
    EXPECT_EQ(module::feature_list[module::ROW_ASPM].valid_param_char, nullptr);
    for (unsigned row = 0; row < module::num_features; ++row) {
        const name_char_t own = module::feature_list[row].valid_param_char;
        EXPECT_EQ(module::value_chars(static_cast<module::feature_row>(row)),
                  own ? own : module::valid_param_val_char);
    }
}

}  // namespace host::tests
