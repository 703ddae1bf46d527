#pragma once

#include "SqliteDatabase.h"
#include "SqliteTransaction.h"

#include <mutex>
#include <optional>
#include <string>
#include <type_traits>

namespace pmssandbox {

/// The service's one SQLite connection and the lock that serialises it. Every request runs as one
/// transaction through read() or write(); the tables belong to the classes that use them.
///
/// A file is kept in write-ahead-log mode with synchronous=NORMAL: a commit is atomic and survives the
/// process being killed at any point; only an operating-system crash may lose the last few commits.
class StateDatabase {
public:
    /// Opens `file`, creating it when new; nullopt opens a private in-memory database. Throws SqliteError.
    explicit StateDatabase(const std::optional<std::string>& file);
    /// Folds the write-ahead log back into the file before the connection closes.
    ~StateDatabase();
    StateDatabase(const StateDatabase&) = delete;
    StateDatabase& operator=(const StateDatabase&) = delete;

    /// For the table classes, which are used only inside read() and write().
    SqliteDatabase& connection() { return database_; }

    /// Runs `work` in one transaction holding the write lock; an exception rolls it back.
    template <class Work>
    decltype(auto) write(Work&& work) {
        return transact(true, work);
    }
    /// Runs `work` in one read transaction.
    template <class Work>
    decltype(auto) read(Work&& work) {
        return transact(false, work);
    }

    /// Inside a transaction: the seed text the database was made from; nullopt when it is new.
    std::optional<std::string> seedText();
    void setSeedText(const std::string& text);

private:
    template <class Work>
    auto transact(bool forWriting, Work& work) {
        std::lock_guard lock(mutex_);
        SqliteTransaction transaction(database_, forWriting);
        if constexpr (std::is_void_v<std::invoke_result_t<Work&>>) {
            work();
            transaction.commit();
        } else {
            auto result = work();
            transaction.commit();
            return result;
        }
    }

    std::mutex mutex_;
    SqliteDatabase database_;
    bool inFile_;
};

}  // namespace pmssandbox
