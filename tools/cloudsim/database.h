#pragma once

#include <cstdint>
#include <sqlite3.h>
#include <string>

/// An SQLite database. One thread at a time. Failures are thrown as std::runtime_error.
class Database
{
public:
    /// @param fileName  ":memory:" for one that goes with the object
    explicit Database(const std::string &fileName);
    ~Database();
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    void execute(const char *sql);
    sqlite3 *get() const { return db; }

private:
    sqlite3 *db = nullptr;
};

/// One prepared statement, for use again and again.
class Statement
{
public:
    Statement(Database &database, const char *sql);
    ~Statement();
    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;

    /// Begins anew with these values for the statement's "?", in their order. Texts are bound as
    /// they stand and must live until the last step.
    template <typename... Values>
    Statement &with(const Values &...values)
    {
        sqlite3_reset(statement);
        int index = 0;
        (bind(++index, values), ...);
        return *this;
    }

    /// @return true when there is a row
    bool step();
    /// Runs it to its end.
    void run();

    int64_t integer(int column) const { return sqlite3_column_int64(statement, column); }
    double real(int column) const { return sqlite3_column_double(statement, column); }
    /// The bytes of a text or a blob.
    std::string bytes(int column) const;

private:
    void bind(int index, int64_t value);
    void bind(int index, uint64_t value) { bind(index, static_cast<int64_t>(value)); }
    void bind(int index, int value) { bind(index, static_cast<int64_t>(value)); }
    void bind(int index, double value);
    void bind(int index, const std::string &value);

    sqlite3_stmt *statement = nullptr;
};
