// Whole runs of the program on a machine of files, each in a process of its own. The kernel's
// events come through a pipe.
#include "host/cli/run.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <csignal>
#include <functional>
#include <iostream>
#include <nlohmann/json.hpp>
#include <thread>

#include "host/base/descriptor_io.h"
#include "host/space/dump.h"
#include "host/watch/event_groups.h"
#include "tests/live/kernel_pipe.h"
#include "tests/live/live_machine.h"
#include "tools/check/check.h"

namespace host::tests {

constexpr RoutingId PORT = at(0, 1), CARD = at(1), OTHER_CARD = at(2);

static int input[2];  // a pipe

static uid_t user = 0;

extern "C" uid_t __wrap_geteuid() {
    return user;
}

class Runs : public LiveMachine {
protected:
    Runs() {
        EXPECT_EQ(pipe2(kernel, O_DIRECT | O_NONBLOCK) + pipe(input), 0);
        write(folder / "features.cfg", "MPS=all:max\nECRC=all:+:+\n");
        fs::current_path(folder);
    }
    ~Runs() override { fs::current_path("/"); }

    void start(const std::string &arguments) {
        const Words all =
            words("hoplar --report json -m " MODULE ",--config=features.cfg " + arguments);
        std::vector<const char *> argv;
        for (const std::string &word : all)
            argv.push_back(word.c_str());
        if ((child = fork()) != 0)
            return;
        alarm(300);  // hangs by then
        dup2(input[0], STDIN_FILENO);
        if (!freopen("out", "w", stdout) || !freopen("messages", "w", stderr))
            std::exit(-1);
        try {
            auto options = parse_options(static_cast<int>(argv.size()), argv.data(), std::cout);
            options->source.sysfs = sysfs.folder();
            std::exit(run(*options, std::cin, std::cout));
        } catch (const std::exception &error) {
            std::exit(refuse(error));
        }
    }
    int finish(const std::string &arguments = "") {
        if (!arguments.empty())
            start(arguments);
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    // Makes two domains that are alike, and returns the second one.
    Sysfs plug_domains() {
        plug("0.1:4>1-1=1 1.0:0>0-0=1");
        Sysfs other(1, sysfs.folder());
        for (const RoutingId id : {PORT, CARD}) {
            fs::create_directory(other.file(id, "").parent_path());
            for (const char *const name : {"config", "reset", "reset_method"})
                fs::copy(sysfs.file(id, name), other.file(id, name));
        }
        return other;
    }
    void await(const std::function<bool()> &has_come) {
        for (int tries = 0; !has_come(); ++tries) {
            ASSERT_LT(tries, 6000) << read("messages");
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    // Returns what the control socket answers.
    static std::string ask(const std::string &line) {
        const Descriptor client(socket(AF_UNIX, SOCK_STREAM, 0));
        const sockaddr_un address{.sun_family = AF_UNIX, .sun_path = "control"};
        EXPECT_EQ(
            connect(client.number(), reinterpret_cast<const sockaddr *>(&address), sizeof address),
            0);
        write_whole(client.number(), line + '\n');
        shutdown(client.number(), SHUT_WR);
        return read_whole(client.number());
    }
    nlohmann::json report() { return nlohmann::json::parse(read("out"), nullptr, false); }
    bool says(const std::string &line) { return read("messages").find(line) != std::string::npos; }

    // Returns the bytes of a dump, without titles.
    static std::string bytes(const fs::path &dump) {
        std::istringstream in(read(dump));
        std::string text;
        for (std::string line; std::getline(in, line);)
            text += line.find(": ") < 4 ? line + '\n' : "";
        return text;
    }

    pid_t child = 0;
};

TEST_F(Runs, PlanAndWriteWhatADumpOfTheMachineGives) {
    const std::string example = EXAMPLES "server.lspci";
    const Dump whole = read_dump(example, std::vector{0U});
    const DumpedDomain &dump = whole.domains.at(0);
    for (const RoutingId id : dump.image->functions())
        plug(id, dump.image->bytes(id));
    EXPECT_EQ(finish("-o wanted -F " + example), EXIT_DONE);
    const auto rows = [&] {
        auto functions = report()["functions"];
        for (auto &function : functions)
            function.erase("name");  // the dump has others than libpci
        return functions;
    };
    auto wanted = rows();
    wanted[1]["driver"] = "pcieport";
    replace(PORT, "driver", "../pcieport");
    const auto is_as_before = [&](RoutingId id) {
        const std::vector<std::uint8_t> bytes = dump.image->bytes(id);
        return read(sysfs.file(id, "config")) == std::string(bytes.begin(), bytes.end());
    };
    for (const bool written : {false, true}) {
        EXPECT_EQ(finish(written ? "--live --write -o live" : "--live -o live"), EXIT_DONE);
        EXPECT_EQ(rows(), wanted);
        EXPECT_EQ(bytes("live"), bytes("wanted"));
        EXPECT_EQ(std::ranges::all_of(dump.image->functions(), is_as_before), !written);
    }
}

TEST_F(Runs, CheckAFeatureFileOnTheMachine) {
    plug("0.1:4>1-1 1.0:0");
    write("features.cfg", "MPS=1.0.0:512\n");
    check::Options options;
    options.live = true;
    options.source.sysfs = sysfs.folder();
    options.files = {"features.cfg"};
    std::ostringstream out;
    EXPECT_EQ(check::run(options, std::cin, out), check::EXIT_REMARKS);
    EXPECT_EQ(out.str(),
              "features.cfg:1: warning: 512 bytes are dropped for 01:00.0, below root port "
              "00:01.0 the limit is 128 (of 00:01.0 and 01:00.0): write max or 128\n");
}

TEST_F(Runs, WriteEveryDomainThatIsChosen) {
    const Sysfs other = plug_domains();
    const auto size_bits = [](const Sysfs &domain) {
        return read(domain.file(PORT, "config"))[DEVCTL_AT] |
               read(domain.file(CARD, "config"))[DEVCTL_AT] << 8;
    };
    for (const auto &[domains, bits] : {std::pair("0001", 0), std::pair("all", 0x2020)}) {
        EXPECT_EQ(finish(std::string("--live --write --domain ") + domains), EXIT_DONE);
        EXPECT_EQ(size_bits(sysfs), bits);
        EXPECT_EQ(size_bits(other), 0x2020);
    }
    EXPECT_EQ(report()["functions"].size(), 4);
}

TEST_F(Runs, SayWhatIsInTheWay) {
    write("flr", "flr 01:00.0\n");
    write("remove", "remove 00:01.0\n");
    const auto cut = [&](RoutingId id, unsigned size) {
        fs::resize_file(sysfs.file(id, "config"), size);
    };
    const auto make_busy = [&] {
        replace(CARD, "driver", "../nic"), poke(CARD, pci::COMMAND, "\4");
    };
    const std::string write = "--live --write ", live = "--live ", flr = write + "-e flr",
                      refused = "error: 01:00.0: cannot be reset (flr): ";
    constexpr int NOT_ALL = EXIT_NOT_ALL_DONE, BAD = EXIT_BAD_INPUT;
    const std::tuple<std::function<void()>, std::string, int, std::string> rows[] = {
        {[&] { fs::create_symlink("..", sysfs.folder() / "devices/0001:00:00.0"); }, write, 0,
         "warning: --live: 1 function of domain 0001 left out, domain 0000 is served"},
        {make_busy, write, NOT_ALL,
         "would get another payload size under traffic on 01:00.0 (nic): nothing"},
        {make_busy, write + "--busy skip --strict", NOT_ALL,
         "is not reached: 128 bytes on 01:00.0 and 00:01.0: left alone: traffic on 01:00.0 "
         "(nic)\n"},
        {[&] { replace(CARD, "reset", "/dev/full"); }, flr, NOT_ALL,
         refused + "No space left on device; the kernel offers: bus\n"},
        {[&] { replace(CARD, "reset_method", ""); }, flr, NOT_ALL,
         refused + "No such file or directory; the kernel names no reset for it\n"},
        {[] {}, write + "-e remove", BAD,
         "remove 00:01.0: on live hardware functions come and go by"},
        {[&] { forbid_writes(CARD); }, write, NOT_ALL,
         "error: 01:00.0: write at 0x48: Operation not permitted (is the kernel locked down?)\n"},
        {[&] { cut(CARD, 0x49); }, write, NOT_ALL, "01:00.0: read at 0x48: Input/output error\n"},
        {[&] { cut(PORT, 64), cut(CARD, 64); }, live, BAD, "the kernel shows no more than headers"},
        {[&] { unplug(PORT); }, live + "--domain 0", BAD,
         "error: --live: no PCI functions on this machine"},
        {[&] { user = 1000; }, live, BAD, "error: --live: only root can read"}};
    for (const auto &[happens, arguments, status, line] : rows) {
        plug("0.1:4>1-1=1");
        plug("1.0:0>0-0=1");
        happens();
        EXPECT_EQ(finish(arguments), status) << line;
        EXPECT_TRUE(says(line)) << read("messages") << line;
    }
    user = 0;
}

TEST_F(Runs, StayAndFollowWhatHappensUntilTheyAreToldToEnd) {
    // The server takes events before it takes a line.
    using Events = std::vector<std::string>;
    const auto tell = [&](const Events &events, const std::string &line, const char *answer) {
        for (const std::string &event : events)
            EXPECT_GT(::write(kernel[1], event.data(), event.size()), 0);
        EXPECT_GT(::write(input[1], (line + '\n').data(), line.size() + 1), 0);
        await([&] { return says(answer); });
    };
    const auto plug_card = [&](RoutingId id) {
        plug(id, config_bytes({.id = id, .payload_cap = 1, .aer = GEN_CAP | CHK_CAP}, false));
    };
    plug("0.1:4>1-1=1 0.2:4>2-2");
    plug_card(CARD), plug_card(OTHER_CARD);
    start("--live --write --watch -e - --control control -v -v");
    await([&] { return says("Enable Features module init, Success"); });
    poke(CARD, DEVCTL_AT, {"\0", 1});
    tell({}, "flr 01:00.0", "event standard input:1: flr 01:00.0");
    await([&] { return read(sysfs.file(CARD, "config"))[DEVCTL_AT] == '\x20'; });

    const std::string path = " /devices/pci0000:00/0000:00:02.0/0000:02:00.0";
    unplug(OTHER_CARD);
    tell({"remove" + path}, "", "removed below 00:02.0: 02:00.0\n");
    tell({}, "flr 02:00.0", "input:3: the function has been removed");  // and all is compared
    plug_card(OTHER_CARD);
    tell({"add" + path + " again", "change" + path, "add /devices/pci0000:00"}, "", "");
    std::this_thread::sleep_for(2 * EventGroups::QUIET);
    tell({}, "flr 02:00.0", "input:5: the function has been removed");
    tell({"add" + path}, "",
         "inserted below 00:02.0: 02:00.0; modules changed ECRC on 1 function,");
    EXPECT_EQ(read(sysfs.file(OTHER_CARD, "config")).substr(AER_CONTROL_AT, 2), "\xE0\x01");

    unplug(CARD);
    tell({"lost"}, "flr 01:00.0", "warning: the kernel dropped events: everything is looked at");
    await([&] { return says("removed on bus 00: 01:00.0\n"); });
    kill(child, SIGHUP);
    await([&] { return says("warning: SIGHUP is ignored"); });
    kill(child, SIGTERM);
    EXPECT_EQ(finish(), EXIT_NOT_ALL_DONE) << read("messages");  // the last reset
    EXPECT_EQ(report()["functions"][2]["mps"]["after"], nullptr);
}

// Half of the functions are root ports and the others cards, one below each. An insertion costs the
// same whatever else there is: what has come, and its port.
TEST_F(Runs, AccessAMachineNoMoreThanTheyMust) {
    using Counts = std::array<int, 3>;  // reads, writes, opens
    const struct {
        unsigned ports;
        Counts start, report, insertion;
    } rows[] = {{25, {1101, 150, 50}, {150, 0, 0}, {22, 2, 1}},
                {250, {11001, 1500, 500}, {1500, 0, 0}, {22, 2, 1}}};
    constexpr RoutingId LAST_PORT = at(0, 3, 1), LAST = at(25);
    const auto accesses = [] {
        const auto found = nlohmann::json::parse(ask("report"))["accesses"];
        return Counts{found["reads"], found["writes"], found["opens"]};
    };
    const auto minus = [](Counts all, const Counts &some) {
        std::ranges::transform(all, some, all.begin(), std::minus());
        return all;
    };
    const auto plug_it = [&](FunctionSpec spec) {
        spec.payload_cap = 1;
        spec.aer = GEN_CAP | CHK_CAP;
        plug(spec.id, config_bytes(spec, false));
    };
    for (const auto &row : rows) {
        for (std::uint8_t n = 1; n <= row.ports; ++n) {
            plug_it({.id = at(0, n / 8, n % 8), .port = 4, .secondary = n});
            plug_it({.id = at(n)});
        }
        start("--live --write --watch --control control -v");
        await([&] { return fs::exists("control") && says("module init, Success"); });
        const Counts first = accesses(), second = accesses(), report = minus(second, first);
        EXPECT_EQ(minus(first, report), row.start);
        EXPECT_EQ(report, row.report);
        unplug(LAST), plug_it({.id = LAST});
        const std::string event = "add /devices/pci0000:00/" + kernel_address(0, LAST_PORT) + "/" +
                                  kernel_address(0, LAST);
        EXPECT_GT(::write(kernel[1], event.data(), event.size()), 0);
        await([&] { return says("inserted below 00:03.1: 19:00.0; modules changed ECRC on 1"); });
        EXPECT_EQ(minus(minus(accesses(), second), report), row.insertion);
        kill(child, SIGTERM);
        EXPECT_EQ(finish(), EXIT_DONE);
    }
}

TEST_F(Runs, StayAboveTheServersOfEveryDomain) {
    const Sysfs other = plug_domains();
    start("--live --write --watch -e - --control control --domain all -v");
    await(
        [&] { return fs::exists("control") && says("domain 0001: Enable Features module init"); });
    const auto bits = [&](const Sysfs &domain) {
        return read(domain.file(CARD, "config"))[DEVCTL_AT];
    };
    await([&] { return bits(other) == '\x20'; });
    std::ofstream(other.file(CARD, "config"), std::ios::in).seekp(DEVCTL_AT) << '\0';
    EXPECT_EQ(ask("flr 0001:01:00.0"), "ok\n");
    EXPECT_EQ(bits(other), '\x20');
    EXPECT_TRUE(says("domain 0001: event control:1: flr 0001:01:00.0"));
    const std::string all = ask("status");
    EXPECT_TRUE(all.starts_with("domain 0000: 1 of 1 modules run; 2 functions, 2 changed")) << all;
    EXPECT_NE(all.find("; domain 0001: 1 of 1"), std::string::npos) << all;
    EXPECT_EQ(nlohmann::json::parse(ask("report"))["functions"].size(), 4);
    EXPECT_EQ(ask("flr 0002:01:00.0\nnothing"),
              "error: control:1: not in a domain that is served: flr 0002:01:00.0\n"
              "error: control:2: unknown word (flr, bus-reset, status, report, help): nothing\n");
    EXPECT_GT(::write(input[1], "flr 01:0.9\n", 11), 0);
    await([&] { return says("error: domain 0000: standard input:1: not a function's address"); });

    std::ifstream children("/proc/" + std::to_string(child) + "/task/" + std::to_string(child) +
                           "/children");
    pid_t first = 0, second = 0;
    children >> first >> second;
    ASSERT_GT(second, 0);
    kill(second, SIGKILL);
    await([&] { return says("domain 0001: the server has ended, those of other domains go on"); });
    EXPECT_EQ(ask("status").find("0001"), std::string::npos);
    kill(child, SIGTERM);
    EXPECT_EQ(finish(), EXIT_BAD_INPUT);
    EXPECT_TRUE(says("domain 0001: the server was ended by signal 9 (Killed)"));
    EXPECT_EQ(report()["functions"].size(), 2);
    EXPECT_FALSE(fs::exists("control"));
}

}  // namespace host::tests
