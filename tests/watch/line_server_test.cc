// Lines that come in over real sockets, and their answers. Server and clients are one thread, so
// that nothing depends on time.
#include "host/watch/line_server.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <filesystem>

namespace host::tests {
namespace {

class LineServerTest : public ::testing::Test {
protected:
    ~LineServerTest() override { std::filesystem::remove_all(folder); }

    Descriptor new_client() const {
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
        path.string().copy(address.sun_path, sizeof address.sun_path - 1);
        Descriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0));
        EXPECT_EQ(connect(made.number(), reinterpret_cast<sockaddr *>(&address), sizeof address),
                  0);
        return made;
    }

    // One round of the server. False when there was nothing to do.
    bool round() {
        std::vector<pollfd> waiting;
        server.wait_for(waiting);
        const bool any = poll(waiting.data(), waiting.size(), 0) > 0;
        server.serve(waiting);
        return any;
    }
    void settle() {
        int rounds = 0;
        while (round())
            ASSERT_LT(++rounds, 10000);
    }

    // Sends as much as there is room for, and lets the server see to it.
    void say(const Descriptor &client, std::string_view text) {
        send(client.number(), text.data(), text.size(), MSG_NOSIGNAL);
        settle();
    }

    // What the server has sent so far, with "." behind it when it has closed the connection.
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
    LineServer server{&control, [](const std::string &line, const std::string &origin) {
                          return LineServer::Outcome{.answer = origin + " " + line,
                                                     .failed = line == "bad"};
                      }};
};

TEST_F(LineServerTest, AnswersEachLineByOne) {
    using namespace std::string_literals;
    const std::pair<std::vector<std::string>, std::string> rows[] = {
        {{"a\nb\n\n"}, "control a\ncontrol b\ncontrol \n"},
        {{"a", "b", "\nc"}, "control ab\n"},
        {{"a\nb", ""}, "control a\ncontrol b\n."},  // half closed
        {{""}, "."},
        {{"a\0b\n"s}, "control a\0b\n"s},
    };
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

TEST_F(LineServerTest, KeepsNothingOfClientsThatAreGone) {
    settle();
    const auto before = open_files();
    for (int i = 0; i < 1000; ++i)
        say(new_client(), i % 2 == 0 ? "a\nb\nc" : "");
    settle();
    EXPECT_EQ(open_files(), before);
}

}  // namespace
}  // namespace host::tests
