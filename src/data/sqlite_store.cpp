#include "data/sqlite_store.h"

#include <chrono>
#include <thread>

#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <unistd.h>

#include <SQLiteCpp/SQLiteCpp.h>
#include <fmt/format.h>
#include <sqlite3.h>

#include "data/store_error.h"

namespace tavrin {

namespace {

constexpr const char* kCollation = "LOCALIZED_STANDARD";

std::string sqlName(std::string_view name) { return fmt::format("\"{}\"", name); }

const char* sqlType(ColumnKind kind) {
    switch (kind) {
        case ColumnKind::text: return "TEXT";
        case ColumnKind::integer: return "INTEGER";
        case ColumnKind::real: return "REAL";
        case ColumnKind::blob: return "BLOB";
    }
    return "";
}

// The definition of a column. `adding` is for ALTER TABLE: a column with no schema-level default
// cannot be NOT NULL there, and rows written before it existed read it as null, which the
// record reads as its fall-back.
std::string columnSQL(const ColumnSpec& column, bool isId, bool adding) {
    std::string sql = fmt::format("{} {}", sqlName(column.name), sqlType(column.kind));
    if (isId) return sql + " NOT NULL UNIQUE";
    if (!column.nullable && (!adding || column.defaultSQL)) sql += " NOT NULL";
    if (column.defaultSQL) sql += " DEFAULT " + *column.defaultSQL;
    if (column.references) sql += " REFERENCES " + *column.references + " DEFERRABLE INITIALLY DEFERRED";
    return sql;
}

int collate(void*, int lengthA, const void* a, int lengthB, const void* b) {
    return localizedStandardCompare(std::string_view(static_cast<const char*>(a), static_cast<std::size_t>(lengthA)),
                                    std::string_view(static_cast<const char*>(b), static_cast<std::size_t>(lengthB)));
}

class SQLiteStore final : public StoreBackend {
public:
    SQLiteStore(const Schema& schema, const ModelConfiguration& configuration);
    std::vector<StoreRow> fetchRows(const TableSpec& table, const FetchRequest& request,
                                    std::optional<std::int64_t> limit) override;
    std::int64_t fetchCount(const TableSpec& table, const FetchRequest& request) override;
    void commit(const std::vector<StoreChange>& changes) override;
    std::string location() const override { return location_.string(); }
    bool updateIfEqual(const TableSpec& table, const std::string& id, std::size_t column, const StoreValue& expected,
                       const StoreValue& value) override;

private:
    [[noreturn]] void fail(const SQLite::Exception& e, bool opening) const;
    SQLite::Statement& statement(const std::string& sql);
    // An insert that replaces a row with the same id; built once per table, since a large save
    // runs it for every row.
    SQLite::Statement& insertStatement(const TableSpec& table);
    void bind(SQLite::Statement& s, int index, const StoreValue& value);
    static StoreValue read(const SQLite::Column& column);
    std::string whereSQL(const FetchRequest& request, std::vector<StoreValue>& arguments) const;
    void prepareSchema(const Schema& schema);

    std::filesystem::path location_;
    bool inMemory_;
    std::mutex mutex_;
    std::unique_ptr<SQLite::Database> db_;
    std::map<std::string, std::unique_ptr<SQLite::Statement>> statements_;
    std::map<const TableSpec*, SQLite::Statement*> insertStatements_;
};

namespace {

template <typename Step>
void retryWhileBusy(Step&& step) {
    const auto deadline = std::chrono::steady_clock::now() + kStoreBusyTimeout;
    for (;;) {
        try {
            step();
            return;
        } catch (const SQLite::Exception& e) {
            const int code = e.getErrorCode() & 0xff;
            if ((code != SQLITE_BUSY && code != SQLITE_LOCKED) || std::chrono::steady_clock::now() >= deadline) throw;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

}  // namespace

SQLiteStore::SQLiteStore(const Schema& schema, const ModelConfiguration& configuration)
    : location_(configuration.isStoredInMemoryOnly ? std::filesystem::path(":memory:") : configuration.url),
      inMemory_(configuration.isStoredInMemoryOnly) {
    if (!inMemory_) {
        std::error_code ec;
        std::filesystem::path directory = location_.parent_path();
        if (directory.empty()) directory = ".";
        if (!std::filesystem::is_directory(directory, ec))
            throw StoreError::directoryNotWritable(directory, "it does not exist");
        if (::access(directory.c_str(), W_OK | X_OK) != 0)
            throw StoreError::directoryNotWritable(directory, std::strerror(errno));
        const auto status = std::filesystem::status(location_, ec);
        if (std::filesystem::exists(status)) {
            if (!std::filesystem::is_regular_file(status)) throw StoreError::cannotOpen(location_, "it is not a file");
            if (::access(location_.c_str(), R_OK | W_OK) != 0)
                throw StoreError::cannotOpen(location_, std::strerror(errno));
        }
    }
    try {
        db_ = std::make_unique<SQLite::Database>(location_.string(),
                                                 SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE | SQLite::OPEN_NOMUTEX,
                                                 static_cast<int>(kStoreBusyTimeout.count()));
        sqlite3_extended_result_codes(db_->getHandle(), 0);
        if (sqlite3_create_collation_v2(db_->getHandle(), kCollation, SQLITE_UTF8, nullptr, collate, nullptr) !=
            SQLITE_OK)
            throw SQLite::Exception(db_->getHandle(), SQLITE_ERROR);
        db_->exec("PRAGMA foreign_keys = ON");
        // Two processes opening a new store at once can meet where SQLite answers "busy" without
        // waiting (a reader that must become the writer): such steps are tried again within the
        // busy time-out.
        retryWhileBusy([&] {
            if (inMemory_) return;
            const std::string mode = db_->execAndGet("PRAGMA journal_mode = WAL").getString();
            if (mode != "wal") throw StoreError::cannotOpen(location_, "the store refused write-ahead logging");
        });
        // In write-ahead mode NORMAL syncs at checkpoints, not at each commit: a killed process
        // still loses no committed transaction (the log is in the system's hands), and the store
        // stays consistent through a power loss, which may cost the last commits only.
        db_->exec("PRAGMA synchronous = NORMAL");
        retryWhileBusy([&] { prepareSchema(schema); });
    } catch (const SQLite::Exception& e) {
        fail(e, true);
    }
}

void SQLiteStore::fail(const SQLite::Exception& e, bool opening) const {
    const int code = e.getErrorCode() & 0xff;
    if (code == SQLITE_NOTADB) throw StoreError::notADatabase(location_);
    if (code == SQLITE_CORRUPT) throw StoreError::damaged(location_, e.what());
    if (code == SQLITE_CANTOPEN || code == SQLITE_READONLY || code == SQLITE_PERM) {
        std::filesystem::path directory = location_.parent_path();
        if (!inMemory_ && ::access(directory.empty() ? "." : directory.c_str(), W_OK | X_OK) != 0)
            throw StoreError::directoryNotWritable(directory, std::strerror(errno));
    }
    if (opening) throw StoreError::cannotOpen(location_, e.what());
    throw StoreError::operationFailed(location_, e.what());
}

void SQLiteStore::prepareSchema(const Schema& schema) {
    // One writer at a time brings the tables up to date; another process opening at the same
    // moment waits for it within the busy time-out and then finds nothing to do.
    SQLite::Transaction transaction(*db_, SQLite::TransactionBehavior::IMMEDIATE);
    const int version = db_->execAndGet("PRAGMA user_version").getInt();
    for (const TableSpec* table : schema.tables) {
        db_->exec(createTableSQL(*table));
        std::set<std::string> present;
        SQLite::Statement info(*db_, fmt::format("PRAGMA table_info({})", sqlName(table->name)));
        while (info.executeStep()) present.insert(info.getColumn(1).getString());
        for (std::size_t i = 0; i < table->columns.size(); ++i) {
            const ColumnSpec& column = table->columns[i];
            if (present.count(column.name)) continue;
            db_->exec(fmt::format("ALTER TABLE {} ADD COLUMN {}", sqlName(table->name), columnSQL(column, i == 0, true)));
        }
        for (const IndexSpec& index : table->indexes)
            db_->exec(fmt::format("CREATE INDEX IF NOT EXISTS {} ON {} ({})", sqlName(index.name), sqlName(table->name),
                                  index.columns));
    }
    if (version < kStoreSchemaVersion) db_->exec(fmt::format("PRAGMA user_version = {}", kStoreSchemaVersion));
    transaction.commit();
}

SQLite::Statement& SQLiteStore::statement(const std::string& sql) {
    auto& slot = statements_[sql];
    if (!slot) {
        slot = std::make_unique<SQLite::Statement>(*db_, sql);
    } else {
        slot->reset();
        slot->clearBindings();
    }
    return *slot;
}

SQLite::Statement& SQLiteStore::insertStatement(const TableSpec& table) {
    if (auto it = insertStatements_.find(&table); it != insertStatements_.end()) {
        it->second->reset();
        it->second->clearBindings();
        return *it->second;
    }
    std::string columns, values, updates;
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
        const std::string name = sqlName(table.columns[i].name);
        columns += (i ? ", " : "") + name;
        values += i ? ", ?" : "?";
        if (i) updates += (i > 1 ? ", " : "") + name + " = excluded." + name;
    }
    auto& s = statement(fmt::format("INSERT INTO {} ({}) VALUES ({}) ON CONFLICT(\"id\") DO UPDATE SET {}",
                                    sqlName(table.name), columns, values, updates));
    insertStatements_[&table] = &s;
    return s;
}

void SQLiteStore::bind(SQLite::Statement& s, int index, const StoreValue& value) {
    std::visit(
        [&](const auto& v) {
            using V = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<V, std::monostate>) {
                s.bind(index);
            } else if constexpr (std::is_same_v<V, std::int64_t>) {
                s.bind(index, static_cast<int64_t>(v));
            } else if constexpr (std::is_same_v<V, double>) {
                s.bind(index, v);
            } else if constexpr (std::is_same_v<V, std::string>) {
                s.bind(index, v);
            } else {
                s.bind(index, v.data(), static_cast<int>(v.size()));
            }
        },
        value);
}

StoreValue SQLiteStore::read(const SQLite::Column& column) {
    const int type = column.getType();
    if (type == SQLITE_INTEGER) return std::int64_t{column.getInt64()};
    if (type == SQLITE_FLOAT) return column.getDouble();
    if (type == SQLITE_TEXT) return column.getString();
    if (type == SQLITE_BLOB) {
        const auto* data = static_cast<const std::uint8_t*>(column.getBlob());
        return Blob(data, data + column.getBytes());
    }
    return StoreValue{};
}

std::string SQLiteStore::whereSQL(const FetchRequest& request, std::vector<StoreValue>& arguments) const {
    if (!request.predicate || request.predicate->conditions.empty()) return {};
    std::string sql = " WHERE ";
    bool first = true;
    for (const auto& c : request.predicate->conditions) {
        if (!first) sql += " AND ";
        first = false;
        switch (c.op) {
            case Predicate::Op::equal: sql += sqlName(c.column) + " = ?"; break;
            case Predicate::Op::notEqual: sql += sqlName(c.column) + " != ?"; break;
            case Predicate::Op::in: {
                sql += sqlName(c.column) + " IN (";
                for (std::size_t i = 0; i < c.values.size(); ++i) sql += i ? ", ?" : "?";
                sql += ")";
                break;
            }
        }
        arguments.insert(arguments.end(), c.values.begin(), c.values.end());
    }
    return sql;
}

std::vector<StoreRow> SQLiteStore::fetchRows(const TableSpec& table, const FetchRequest& request,
                                             std::optional<std::int64_t> limit) {
    std::string sql = "SELECT ";
    for (std::size_t i = 0; i < table.columns.size(); ++i) sql += (i ? ", " : "") + sqlName(table.columns[i].name);
    sql += " FROM " + sqlName(table.name);
    std::vector<StoreValue> arguments;
    sql += whereSQL(request, arguments);
    if (!request.sortBy.empty()) {
        sql += " ORDER BY ";
        for (const auto& s : request.sortBy) {
            sql += sqlName(s.column);
            if (s.comparator == SortComparator::localizedStandard) sql += fmt::format(" COLLATE {}", kCollation);
            sql += s.order == SortOrder::reverse ? " DESC, " : ", ";
        }
        // Equal keys keep the order of arrival, in the direction of the last key.
        sql += request.sortBy.back().order == SortOrder::reverse ? "rowid DESC" : "rowid";
    }
    if (limit) sql += " LIMIT ?";

    std::lock_guard lock(mutex_);
    try {
        auto& s = statement(sql);
        int index = 1;
        for (const auto& a : arguments) bind(s, index++, a);
        if (limit) s.bind(index, static_cast<int64_t>(*limit));
        std::vector<StoreRow> rows;
        while (s.executeStep()) {
            StoreRow row;
            row.reserve(table.columns.size());
            for (int c = 0; c < static_cast<int>(table.columns.size()); ++c) row.push_back(read(s.getColumn(c)));
            rows.push_back(std::move(row));
        }
        s.reset();
        return rows;
    } catch (const SQLite::Exception& e) {
        fail(e, false);
    }
}

std::int64_t SQLiteStore::fetchCount(const TableSpec& table, const FetchRequest& request) {
    std::vector<StoreValue> arguments;
    const std::string sql = "SELECT count(*) FROM " + sqlName(table.name) + whereSQL(request, arguments);
    std::lock_guard lock(mutex_);
    try {
        auto& s = statement(sql);
        int index = 1;
        for (const auto& a : arguments) bind(s, index++, a);
        std::int64_t count = s.executeStep() ? s.getColumn(0).getInt64() : 0;
        s.reset();
        if (request.fetchLimit) count = std::min(count, std::max<std::int64_t>(0, *request.fetchLimit));
        return count;
    } catch (const SQLite::Exception& e) {
        fail(e, false);
    }
}

void SQLiteStore::commit(const std::vector<StoreChange>& changes) {
    std::lock_guard lock(mutex_);
    try {
        // IMMEDIATE takes the write lock first, so a busy store is waited for (busy time-out)
        // instead of failing when a read would later turn into a write.
        SQLite::Transaction transaction(*db_, SQLite::TransactionBehavior::IMMEDIATE);
        for (const auto& change : changes) {
            const TableSpec& table = *change.table;
            switch (change.kind) {
                case StoreChange::Kind::insert: {
                    auto& s = insertStatement(table);
                    for (std::size_t i = 0; i < change.row.size(); ++i) bind(s, static_cast<int>(i + 1), change.row[i]);
                    s.exec();
                    break;
                }
                case StoreChange::Kind::update: {
                    std::string sets;
                    for (std::size_t i = 0; i < change.changed.size(); ++i)
                        sets += (i ? ", " : "") + sqlName(table.columns[change.changed[i]].name) + " = ?";
                    auto& s = statement(fmt::format("UPDATE {} SET {} WHERE \"id\" = ?", sqlName(table.name), sets));
                    int index = 1;
                    for (std::size_t c : change.changed) bind(s, index++, change.row[c]);
                    s.bind(index, change.id);
                    s.exec();
                    break;
                }
                case StoreChange::Kind::remove: {
                    auto& s = statement(fmt::format("DELETE FROM {} WHERE \"id\" = ?", sqlName(table.name)));
                    s.bind(1, change.id);
                    s.exec();
                    break;
                }
            }
        }
        transaction.commit();
    } catch (const SQLite::Exception& e) {
        fail(e, false);
    }
}

bool SQLiteStore::updateIfEqual(const TableSpec& table, const std::string& id, std::size_t column,
                                const StoreValue& expected, const StoreValue& value) {
    std::lock_guard lock(mutex_);
    try {
        const std::string name = sqlName(table.columns.at(column).name);
        auto& s = statement(fmt::format("UPDATE {} SET {} = ? WHERE \"id\" = ? AND {} IS ?", sqlName(table.name), name, name));
        bind(s, 1, value);
        s.bind(2, id);
        bind(s, 3, expected);
        const int changed = s.exec();
        return changed > 0;
    } catch (const SQLite::Exception& e) {
        fail(e, false);
    }
}

}  // namespace

std::string createTableSQL(const TableSpec& table) {
    std::string sql = fmt::format("CREATE TABLE IF NOT EXISTS {} (", sqlName(table.name));
    for (std::size_t i = 0; i < table.columns.size(); ++i)
        sql += (i ? ", " : "") + columnSQL(table.columns[i], i == 0, false);
    return sql + ")";
}

std::shared_ptr<StoreBackend> openSQLiteStore(const Schema& schema, const ModelConfiguration& configuration) {
    return std::make_shared<SQLiteStore>(schema, configuration);
}

ModelContainer::ModelContainer(const Schema& schema, const ModelConfiguration& configuration)
    : configuration_(configuration),
      backend_(openSQLiteStore(schema, configuration)),
      mainContext_(std::make_unique<ModelContext>(backend_)) {}

std::unique_ptr<ModelContext> ModelContainer::makeContext() const { return std::make_unique<ModelContext>(backend_); }

}  // namespace tavrin
