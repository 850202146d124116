#include "database.h"

#include <stdexcept>

namespace
{

[[noreturn]] void fail(sqlite3 *db)
{
    throw std::runtime_error(std::string("database: ") + sqlite3_errmsg(db));
}

} // namespace

Database::Database(const std::string &fileName)
{
    if (sqlite3_open(fileName.c_str(), &db) != SQLITE_OK) {
        const std::string message = sqlite3_errmsg(db);
        sqlite3_close(db);
        throw std::runtime_error("database " + fileName + ": " + message);
    }
}

Database::~Database()
{
    sqlite3_close(db);
}

void Database::execute(const char *sql)
{
    if (sqlite3_exec(db, sql, nullptr, nullptr, nullptr) != SQLITE_OK)
        fail(db);
}

Statement::Statement(Database &database, const char *sql)
{
    if (sqlite3_prepare_v2(database.get(), sql, -1, &statement, nullptr) != SQLITE_OK)
        fail(database.get());
}

Statement::~Statement()
{
    sqlite3_finalize(statement);
}

bool Statement::step()
{
    const int result = sqlite3_step(statement);
    if (result != SQLITE_ROW && result != SQLITE_DONE)
        fail(sqlite3_db_handle(statement));
    return result == SQLITE_ROW;
}

void Statement::run()
{
    while (step()) { }
    sqlite3_reset(statement);
}

std::string Statement::bytes(int column) const
{
    const void *data = sqlite3_column_blob(statement, column);
    const int size = sqlite3_column_bytes(statement, column);
    return data ? std::string(static_cast<const char *>(data), static_cast<size_t>(size))
                : std::string();
}

void Statement::bind(int index, int64_t value)
{
    if (sqlite3_bind_int64(statement, index, value) != SQLITE_OK)
        fail(sqlite3_db_handle(statement));
}

void Statement::bind(int index, double value)
{
    if (sqlite3_bind_double(statement, index, value) != SQLITE_OK)
        fail(sqlite3_db_handle(statement));
}

void Statement::bind(int index, const std::string &value)
{
    // A blob, so that a value with a NUL keeps all its bytes.
    if (sqlite3_bind_blob64(statement, index, value.data(), value.size(), SQLITE_STATIC)
        != SQLITE_OK)
        fail(sqlite3_db_handle(statement));
}
