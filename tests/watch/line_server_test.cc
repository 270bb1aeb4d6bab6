// Lines that arrive over real sockets, and their answers. Server and clients share one thread, so
// that nothing depends on time.
#include "host/watch/line_server.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <filesystem>
#include <fstream>

#include "host/base/input.h"
#include "host/base/log.h"

namespace host::tests {

class LineServerTest : public ::testing::Test {
protected:
    ~LineServerTest() override { std::filesystem::remove_all(folder); }

    // A socket that is connected, or bound, to the path; failures are not checked.
    static Descriptor at(const std::filesystem::path &path,
                         int (*how)(int, const sockaddr *, socklen_t)) {
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
        path.string().copy(address.sun_path, sizeof address.sun_path - 1);
        Descriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0));
        how(made.number(), reinterpret_cast<sockaddr *>(&address), sizeof address);
        return made;
    }
    Descriptor new_client() const { return at(path, connect); }

    // Runs one round of the server. Returns false when there was nothing to do.
    bool round() {
        std::vector<pollfd> waiting;
        server.wait_for(waiting);
        const bool any =
            poll(waiting.data(), waiting.size(), 0) > 0 || (server.due() && *server.due() <= now);
        server.serve(waiting);
        return any;
    }
    void settle() {
        int rounds = 0;
        while (round())
            ASSERT_LT(++rounds, 10000);
    }

    // Sends as much as there is room for, and lets the server handle it.
    void say(const Descriptor &client, std::string_view text) {
        send(client.number(), text.data(), text.size(), MSG_NOSIGNAL);
        settle();
    }

    // Returns what the server has sent so far, with "." behind it when it has closed the
    // connection.
    std::string heard(const Descriptor &client) {
        std::string text, piece(65536, '\0');
        ssize_t count = 0;
        for (; (count = read(client.number(), piece.data(), piece.size())) > 0; settle())
            text.append(piece, 0, static_cast<std::size_t>(count));
        return count == 0 ? text + '.' : text;
    }

    static auto open_files() {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    }

    const std::filesystem::path folder = [] {
        std::string name = std::filesystem::temp_directory_path() / "line_server_XXXXXX";
        return std::filesystem::path(mkdtemp(name.data()));
    }();
    const std::filesystem::path path = folder / "control";
    ControlSocket control{path};
    LineServer::Clock::time_point now = LineServer::Clock::now();
    std::size_t executed = 0, answer_size = 0;
    std::string last;
    std::function<void()> meanwhile = [] {};
    LineServer server{&control,
                      [this](const LineServer::Line &line) {
                          ++executed;
                          last = line.source;
                          if (line.text == "a")
                              meanwhile();
                          std::string answer = std::to_string(line.number) + " " + line.text;
                          answer.resize(std::max(answer.size(), answer_size), '.');
                          return LineServer::Outcome{.answer = answer,
                                                     .failed = line.text == "bad"};
                      },
                      [this] { return now; }};
};

TEST_F(LineServerTest, AnswersEachLineByOne) {
    using namespace std::string_literals;
    const std::string longest(LineBuffer::LONGEST_LINE, 'y');
    const auto too_long = [&](const std::string &line) {
        return "error: control:1: the line is too long: " + line.substr(0, 120) + "...\n";
    };
    const std::pair<std::vector<std::string>, std::string> rows[] = {
        {{"a\nb\n\n"}, "1 a\n2 b\n3 \n"},
        {{"a", "b", "\nc"}, "1 ab\n"},
        {{"a\nb", ""}, "1 a\n2 b\n."},  // half closed
        {{""}, "."},
        {{"a\0b\r\n"s, "\x9b\n"}, "1 a\\x00b\\x0d\n2 \\x9b\n"},
        {{"x", longest + "\na\n"}, too_long("x" + longest) + "2 a\n"},
        {{longest, "x\n"}, too_long(longest)},
        {{longest, longest, longest, ""}, too_long(longest) + "."},
        {{longest + "\n"}, "1 " + longest + "\n"}};
    for (const auto &[sent, answer] : rows) {
        const Descriptor client = new_client();
        for (const std::string &piece : sent) {
            say(client, piece);
            if (piece.empty())
                shutdown(client.number(), SHUT_WR);
        }
        settle();
        EXPECT_EQ(heard(client), answer) << sent.front();
    }
}

TEST_F(LineServerTest, AnswersNothingToAStreamButKnowsWhatFailed) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const Descriptor stream(ends[0]);
    server.read_stream(stream.number());
    const std::pair<std::string, bool> rows[] = {{"a\n", true}, {"bad\nb", false}};
    for (const auto &[text, done] : rows) {
        EXPECT_EQ(write(ends[1], text.data(), text.size()), ssize_t(text.size()));
        settle();
        EXPECT_EQ(server.all_done(), done);
    }
    close(ends[1]);
    settle();
    EXPECT_EQ(executed, 3U);
    EXPECT_EQ(last, "standard input");
    EXPECT_NE(fcntl(stream.number(), F_GETFD), -1);
}

// Clients that flood the server, and clients that do not read their answers, keep no other waiting.
TEST_F(LineServerTest, ServesALineOfEachInTurn) {
    const Descriptor flood = new_client(), other = new_client();
    settle();
    const std::string lines(1000, '\n');
    while (send(flood.number(), lines.data(), lines.size(), 0) > 0)
        static_cast<void>(0);
    send(other.number(), "a\n", 2, 0);
    round();
    EXPECT_EQ(executed, 2U);
    EXPECT_EQ(heard(other), "1 a\n");
    EXPECT_LT(executed, 1000U);
    answer_size = 1000000;
    say(other, "b\nc\n");
    EXPECT_EQ(heard(other).size(), 2 * answer_size + 2);
}

TEST_F(LineServerTest, GivesThePlaceOfTheLongestIdleToOneThatWaits) {
    std::vector<Descriptor> clients(LineServer::MOST_CONNECTIONS);
    for (Descriptor &client : clients) {
        client = new_client();
        settle();
        now += std::chrono::milliseconds(1);
    }
    const Descriptor first = new_client(), second = new_client();
    say(first, "c\n");
    EXPECT_EQ(heard(first), "");
    now += LineServer::IDLE_LIMIT;
    answer_size = 1000000;
    meanwhile = [&] { send(clients[1].number(), "b\n", 2, 0); };
    say(clients[0], "a\n");
    EXPECT_EQ(heard(first).size(), answer_size + 1);
    EXPECT_EQ(heard(clients[1]).size(), answer_size + 1);
    EXPECT_EQ(heard(clients[2]),
              "error: closed, because this connection was idle and another one waits\n.");
    EXPECT_EQ(heard(clients[0]).size(), answer_size + 1);
}

// A sanitizer needs a descriptor to tell what kind of object it sees for the first time.
TEST_F(LineServerTest, WaitsForDescriptors) {
    EXPECT_FALSE(std::generic_category().message(EMFILE).empty());
    const Descriptor client = new_client();
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit lowered{.rlim_cur = static_cast<rlim_t>(client.number()),
                         .rlim_max = limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &lowered);
    const auto errors = log_counts().error;
    for (int seconds = 0; seconds < 3; ++seconds, now += std::chrono::seconds(1))
        say(client, "a\n");
    EXPECT_EQ(log_counts().error, errors + 1);
    setrlimit(RLIMIT_NOFILE, &limit);
    say(client, "b\n");
    EXPECT_EQ(heard(client), "1 a\n2 a\n3 a\n4 b\n");
}

TEST_F(LineServerTest, TakesAndLeavesOnlyAPathOfItsOwn) {
    const std::pair<std::string, std::string> rows[] = {
        {"killed", ""},
        {"control", "another server listens there"},
        {"file", "is there already, and is no socket"},
        {"link", "is there already, and is no socket"},
        {"no/folder", "No such file or directory"},
        {std::string(120, 'x'), "a socket's name has 1 to 107 characters"}};
    at(folder / "killed", bind);
    std::ofstream(folder / "file");
    std::filesystem::create_symlink(folder / "killed", folder / "link");
    for (const auto &[name, refusal] : rows) {
        const std::filesystem::path taken = folder / name;
        const auto before = symlink_status(taken).type();
        try {
            const ControlSocket socket(taken);
            EXPECT_EQ("", refusal) << name;
        } catch (const InputError &error) {
            EXPECT_EQ(error.what(), "--control: " + taken.string() + ": " + refusal);
        }
        EXPECT_EQ(symlink_status(taken).type(),
                  refusal.empty() ? std::filesystem::file_type::not_found : before);
    }
    auto removed = std::make_unique<ControlSocket>(folder / "new");
    std::filesystem::remove(folder / "new");
    const ControlSocket second(folder / "new");
    removed.reset();
    EXPECT_TRUE(exists(folder / "new"));
}

TEST_F(LineServerTest, KeepsNothingOfClientsThatAreGone) {
    settle();
    const auto before = open_files();
    for (int i = 0; i < 1000; ++i)
        say(new_client(), i % 2 == 0 ? "a\nb\nc" : "");
    settle();
    EXPECT_EQ(open_files(), before);
}

}  // namespace host::tests
