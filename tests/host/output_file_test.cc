// Output files, with and without a file system that has files without names.
#include "host/space/output_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

namespace {
bool has_unnamed_files = true;
}

// The linker's --wrap option sends every call of the program here.
extern "C" int __real_openat(int folder, const char *name, int flags, mode_t mode);
extern "C" int __wrap_openat(int folder, const char *name, int flags, mode_t mode);
extern "C" int __wrap_openat(int folder, const char *name, int flags, mode_t mode) {
    if (has_unnamed_files || (flags & O_TMPFILE) != O_TMPFILE)
        return __real_openat(folder, name, flags, mode);
    errno = EOPNOTSUPP;
    return -1;
}

namespace host::tests {

namespace fs = std::filesystem;

class OutputFiles : public ::testing::TestWithParam<bool> {
protected:
    OutputFiles() {
        has_unnamed_files = GetParam();
        std::string name = fs::temp_directory_path() / "output_file.XXXXXX";
        fs::current_path(mkdtemp(name.data()));
        std::ofstream("older") << "older";
        fs::create_symlink("older", "link");
    }
    ~OutputFiles() override {
        const fs::path folder = fs::current_path();
        fs::current_path("/");
        fs::remove_all(folder);
    }

    static std::set<std::string> names() {
        std::set<std::string> found;
        for (const auto &entry : fs::directory_iterator("."))
            found.insert(entry.path().filename());
        return found;
    }
    // Returns the permissions of a file and its content.
    static std::string content(const char *file) {
        struct stat status {};
        stat(file, &status);
        std::ostringstream text;
        text << std::oct << (status.st_mode & 07777) << ' ' << std::ifstream(file).rdbuf();
        return text.str();
    }
};

TEST_P(OutputFiles, AreReplacedWholeAndKeepTheirPermissions) {
    chmod("older", 04640);
    const mode_t former = umask(022);
    const auto write_half = [](const Sink &sink) {
        sink("half");
        throw std::bad_alloc();
    };
    EXPECT_THROW(OutputFile("link").write(write_half), std::bad_alloc);
    EXPECT_EQ(content("older"), "4640 older");
    OutputFile("link").write([](const Sink &sink) {
        sink("one ");
        EXPECT_EQ(names().size(), GetParam() ? 2U : 3U);
        EXPECT_EQ(content("older"), "4640 older");
        sink("two");
    });
    EXPECT_EQ(content("older"), "640 one two");
    OutputFile planted("new");
    fs::create_symlink("older", "new");
    planted.write([](const Sink &sink) { sink("text"); });
    umask(former);
    EXPECT_EQ(content("new") + content("older"), "644 text640 one two");
    EXPECT_EQ(names(), (std::set<std::string>{"link", "new", "older"}));
    EXPECT_TRUE(fs::is_symlink("link"));
}

INSTANTIATE_TEST_SUITE_P(WithoutNames, OutputFiles, ::testing::Bool());

}  // namespace host::tests
