// Output files, with and without a file system that has files without names.
#include "host/space/output_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <set>

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
        folder_ = mkdtemp(name.data());
    }
    ~OutputFiles() override { fs::remove_all(folder_); }

    std::set<std::string> names() const {
        std::set<std::string> found;
        for (const auto &entry : fs::directory_iterator(folder_))
            found.insert(entry.path().filename());
        return found;
    }
    static std::string text(const fs::path &file) {
        std::ifstream in(file);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    static mode_t mode(const fs::path &file) {
        struct stat status {};
        stat(file.c_str(), &status);
        return status.st_mode & 07777;
    }

    fs::path folder_;
};

TEST_P(OutputFiles, AreReplacedWholeAndKeepTheirPermissions) {
    std::ofstream(folder_ / "older") << "older";
    chmod((folder_ / "older").c_str(), 04640);
    fs::create_symlink("older", folder_ / "link");
    const mode_t former = umask(022);
    for (const char *const name : {"link", "new"}) {
        const std::set<std::string> before = names();
        OutputFile output(folder_ / name);
        output.write([&](const Sink &sink) {
            sink("one\n");
            sink("two\n");
            EXPECT_EQ(names().size(), before.size() + (GetParam() ? 0 : 1));
            EXPECT_EQ(text(folder_ / "older"),
                      name == std::string("link") ? "older" : "one\ntwo\n");
        });
        EXPECT_EQ(text(folder_ / name), "one\ntwo\n");
    }
    umask(former);
    EXPECT_EQ(names(), (std::set<std::string>{"link", "new", "older"}));
    EXPECT_TRUE(fs::is_symlink(folder_ / "link"));
    EXPECT_EQ(mode(folder_ / "older"), 0640U);
    EXPECT_EQ(mode(folder_ / "new"), 0644U);
}

TEST_P(OutputFiles, TakeANameThatIsPlantedWhileTheyAreWritten) {
    std::ofstream(folder_ / "other") << "other";
    OutputFile output(folder_ / "new");
    fs::create_symlink("other", folder_ / "new");
    output.write([](const Sink &sink) { sink("text"); });
    EXPECT_EQ(text(folder_ / "new") + text(folder_ / "other"), "textother");
}

TEST_P(OutputFiles, LeaveNothingBehindWhenTheyAreNotCompleted) {
    std::ofstream(folder_ / "older") << "older";
    OutputFile output(folder_ / "older");
    EXPECT_THROW(output.write([](const Sink &) { throw std::bad_alloc(); }), std::bad_alloc);
    EXPECT_EQ(names(), std::set<std::string>{"older"});
    EXPECT_EQ(text(folder_ / "older"), "older");
}

INSTANTIATE_TEST_SUITE_P(WithoutNames, OutputFiles, ::testing::Bool());

}  // namespace host::tests
