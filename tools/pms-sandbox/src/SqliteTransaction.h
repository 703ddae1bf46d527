#pragma once

namespace pmssandbox {

class SqliteDatabase;

/// BEGIN on construction; COMMIT by commit(); ROLLBACK when left without committing (an exception).
class SqliteTransaction {
public:
    /// `forWriting` takes the write lock at once (BEGIN IMMEDIATE), so a writer never fails half-way
    /// for want of it.
    SqliteTransaction(SqliteDatabase& database, bool forWriting);
    ~SqliteTransaction();
    SqliteTransaction(const SqliteTransaction&) = delete;
    SqliteTransaction& operator=(const SqliteTransaction&) = delete;

    void commit();

private:
    SqliteDatabase& database_;
    bool open_ = true;
};

}  // namespace pmssandbox
