#include "tools/fleet/report_files.h"

#include <filesystem>

#include "host/base/log.h"
#include "host/base/safe_text.h"
#include "tools/fleet/database.h"

namespace fleet {
namespace {

namespace fs = std::filesystem;

bool is_report(const fs::directory_entry &entry) {
    std::error_code ignored;
    const fs::path ending = entry.path().extension();
    return (ending == ".json" || ending == ".jsonl" || ending == ".ndjson") &&
           entry.is_regular_file(ignored);
}

// The names of a folder's files may be many: sorting them is the database's.
class SortedFolder {
public:
    explicit SortedFolder(const std::string &folder) : folder_(folder) {}

    std::size_t for_each(const std::function<void(const std::string &file)> &use) {
        read();
        Statement files = database_.prepare("SELECT path FROM file ORDER BY path");
        files.begin();
        bool any = false;
        while (files.step()) {
            use(std::string(files.text(0)));
            any = true;
        }
        if (!any && unreadable_ == 0)
            complain(folder_, "no file in it ends in .json, .jsonl or .ndjson");
        return unreadable_;
    }

private:
    void read() {
        Statement insert = database_.prepare("INSERT INTO file VALUES (?)");
        std::vector<fs::path> folders = {folder_};
        while (!folders.empty()) {
            const fs::path folder = std::move(folders.back());
            folders.pop_back();
            std::error_code error;
            for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
                 entry.increment(error)) {
                std::error_code ignored;
                if (entry->is_directory(ignored) && !entry->is_symlink(ignored))
                    folders.push_back(entry->path());
                else if (is_report(*entry))
                    insert.run(std::string_view(entry->path().native()));
            }
            if (error)
                complain(folder, "cannot be read: " + error.message());
        }
    }

    void complain(const fs::path &folder, const std::string &reason) {
        host::log_error(host::safe_text(folder.string() + ": " + reason));
        ++unreadable_;
    }

    const std::string folder_;
    Database database_{"CREATE TABLE file (path TEXT)"};
    std::size_t unreadable_ = 0;
};

}  // namespace

std::size_t for_each_report_file(const std::vector<std::string> &named,
                                 const std::function<void(const std::string &file)> &use) {
    std::size_t unreadable = 0;
    std::error_code ignored;
    for (const std::string &name : named)
        if (fs::is_directory(name, ignored))
            unreadable += SortedFolder(name).for_each(use);
        else
            use(name);
    return unreadable;
}

}  // namespace fleet
