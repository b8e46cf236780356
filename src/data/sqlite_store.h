#pragma once
// The SQLite store behind `StoreBackend`: one table per record type, WAL, synchronous=FULL,
// a busy time-out of 5 s, foreign keys on, the schema version in `PRAGMA user_version`.
// A store that lacks a column gets it with its schema-level default when it opens; there is no
// other migration.

#include <chrono>
#include <memory>

#include "data/store.h"

namespace tavrin {

inline constexpr int kStoreSchemaVersion = 1;
inline constexpr std::chrono::milliseconds kStoreBusyTimeout{5000};

// Throws StoreError naming the file or directory at fault; never deletes or rebuilds a store.
std::shared_ptr<StoreBackend> openSQLiteStore(const Schema& schema, const ModelConfiguration& configuration);

// The CREATE TABLE statement of a table, as the store writes it.
std::string createTableSQL(const TableSpec& table);

}  // namespace tavrin
