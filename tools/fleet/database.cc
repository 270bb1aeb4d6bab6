#include "tools/fleet/database.h"

#include <sqlite3.h>

#include <stdexcept>

namespace fleet {
namespace {

// Nothing is kept beyond the program, so nothing needs a journal; all is one transaction, which
// ends with it. 512 KiB are cached.
constexpr const char *SETTINGS = "PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF;"
                                 "PRAGMA temp_store = FILE; PRAGMA cache_size = -512; BEGIN;";

[[noreturn]] void fail(sqlite3 *database) {
    throw std::runtime_error(std::string("temporary database: ") + sqlite3_errmsg(database));
}

}  // namespace

void Statement::Finalize::operator()(sqlite3_stmt *statement) const {
    sqlite3_finalize(statement);
}

void Database::Close::operator()(sqlite3 *database) const {
    sqlite3_close(database);
}

Statement::Statement(sqlite3 *database, std::string_view sql) : database_(database) {
    sqlite3_stmt *statement = nullptr;
    check(sqlite3_prepare_v2(database, sql.data(), static_cast<int>(sql.size()), &statement,
                             nullptr));
    statement_.reset(statement);
}

bool Statement::step() {
    const int result = sqlite3_step(statement_.get());
    if (result != SQLITE_ROW && result != SQLITE_DONE)
        fail(database_);
    return result == SQLITE_ROW;
}

int Statement::columns() const {
    return sqlite3_column_count(statement_.get());
}

const char *Statement::name(int column) const {
    return sqlite3_column_name(statement_.get(), column);
}

std::int64_t Statement::number(int column) const {
    return sqlite3_column_int64(statement_.get(), column);
}

double Statement::real(int column) const {
    return sqlite3_column_double(statement_.get(), column);
}

std::string_view Statement::text(int column) const {
    const unsigned char *const text = sqlite3_column_text(statement_.get(), column);
    const int bytes = sqlite3_column_bytes(statement_.get(), column);
    return {reinterpret_cast<const char *>(text), static_cast<std::size_t>(bytes)};
}

Statement::Type Statement::type(int column) const {
    switch (sqlite3_column_type(statement_.get(), column)) {
    case SQLITE_NULL:
        return Type::NONE;
    case SQLITE_INTEGER:
        return Type::INTEGER;
    case SQLITE_FLOAT:
        return Type::REAL;
    default:
        return Type::TEXT;
    }
}

void Statement::reset() {
    sqlite3_reset(statement_.get());
    sqlite3_clear_bindings(statement_.get());
}

void Statement::bind(int place, std::int64_t value) {
    check(sqlite3_bind_int64(statement_.get(), place, value));
}

void Statement::bind(int place, double value) {
    check(sqlite3_bind_double(statement_.get(), place, value));
}

void Statement::bind(int place, std::string_view value) {
    check(sqlite3_bind_text64(statement_.get(), place, value.data(), value.size(), SQLITE_STATIC,
                              SQLITE_UTF8));
}

void Statement::bind_null(int place) {
    check(sqlite3_bind_null(statement_.get(), place));
}

void Statement::check(int result) const {
    if (result != SQLITE_OK)
        fail(database_);
}

Database::Database(const char *schema) {
    sqlite3 *database = nullptr;
    const int result = sqlite3_open("", &database);
    database_.reset(database);
    if (result != SQLITE_OK)
        fail(database);
    execute(SETTINGS);
    execute(schema);
}

std::int64_t Database::last_id() const {
    return sqlite3_last_insert_rowid(database_.get());
}

void Database::execute(const char *sql) {
    if (sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK)
        fail(database_.get());
}

}  // namespace fleet
