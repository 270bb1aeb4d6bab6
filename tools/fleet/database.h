// A database of its own for each object, which SQLite keeps in memory while it is small and in an
// unnamed temporary file otherwise. Memory stays the same however much is in it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace fleet {

// All calls throw std::runtime_error where the database fails: in practice when the folder of
// temporary files is full.
class Statement {
public:
    Statement(sqlite3 *database, std::string_view sql);

    // Binds the values in their order, runs the statement to its end, and forgets them.
    template <typename... Values>
    void run(const Values &...values) {
        begin(values...);
        while (step())
            ;
    }

    // Binds the values for step(), which returns false behind the last row.
    template <typename... Values>
    void begin(const Values &...values) {
        reset();
        int place = 0;
        (bind(++place, values), ...);
    }
    bool step();

    // A column of the row, from 0. Text stays valid until the next step.
    int columns() const;
    const char *name(int column) const;
    std::int64_t number(int column) const;
    double real(int column) const;
    std::string_view text(int column) const;
    enum class Type { NONE, INTEGER, REAL, TEXT };
    Type type(int column) const;

private:
    struct Finalize {
        void operator()(sqlite3_stmt *statement) const;
    };

    void reset();
    void bind(int place, std::int64_t value);
    void bind(int place, double value);
    void bind(int place, std::string_view value);  // which stays valid until the statement has run
    void bind_null(int place);
    template <typename Value>
    void bind(int place, const std::optional<Value> &value) {
        if (value)
            bind(place, *value);
        else
            bind_null(place);
    }
    void check(int result) const;

    sqlite3 *database_;
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

class Database {
public:
    // Creates the tables.
    explicit Database(const char *schema);

    Statement prepare(std::string_view sql) { return {database_.get(), sql}; }
    void execute(const char *statements);
    std::int64_t last_id() const;  // of the row that was inserted last

private:
    struct Close {
        void operator()(sqlite3 *database) const;
    };

    std::unique_ptr<sqlite3, Close> database_;
};

}  // namespace fleet
