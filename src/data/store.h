#pragma once
// The store interface every service and test uses: open a container from a schema and one
// configuration, take a context, then `insert`, `fetch` with a descriptor (predicate, sort,
// limit), `save`, `rollback` and `deleteRecord`.
//
// A context is a unit of work. Records it hands out are shared objects that belong to it: the
// same record fetched twice is the same object, and a change made to it is pending until `save`
// writes every pending insert, change and deletion in one transaction. Until then no other
// context or process sees them; `rollback` drops them and returns changed records to their
// stored values. Fetches of a context see its own pending changes.
//
// A context is used by one thread at a time; contexts of one container may work on different
// threads, and their fetches and saves take turns on the container's connection. Other
// processes may open the same store: a save waits for another process's write within the busy
// time-out instead of failing.
//
// Each record type `T` names its table through `static const TableSpec& table()`.

#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "data/store_values.h"

namespace tavrin {

enum class ColumnKind { text, integer, real, blob };

struct ColumnSpec {
    std::string name;
    ColumnKind kind;
    bool nullable = false;
    // The schema-level default as an SQL literal: a store written before the column existed
    // gets it by ALTER TABLE … ADD COLUMN … DEFAULT when it opens.
    std::optional<std::string> defaultSQL;
    // "MetadataPreset(id) ON DELETE SET NULL", for a relationship.
    std::optional<std::string> references;
};

struct IndexSpec {
    std::string name;
    std::string columns;  // "statusRaw, dateAdded"
};

struct TableSpec {
    std::string name;
    std::vector<ColumnSpec> columns;  // columns[0] is the unique text `id`
    std::vector<IndexSpec> indexes;
    // Relationships whose delete rule is nullify: deleting a row of this table clears the
    // column of the other table that points at it.
    struct Nullify {
        const TableSpec* (*table)();
        std::string column;
    };
    std::vector<Nullify> nullifiedOnDelete;

    StoreRow (*toRow)(const void* object) = nullptr;
    std::shared_ptr<void> (*fromRow)(const StoreRow& row) = nullptr;
    void (*assignRow)(void* object, const StoreRow& row) = nullptr;

    std::size_t columnIndex(std::string_view column) const;  // throws std::out_of_range
};

// Builds the three functions of a table from the record's own `toRow` and `fromRow`.
template <class T>
struct RecordCodec {
    static StoreRow toRow(const void* object) { return static_cast<const T*>(object)->toRow(); }
    static std::shared_ptr<void> fromRow(const StoreRow& row) { return std::make_shared<T>(T::fromRow(row)); }
    static void assignRow(void* object, const StoreRow& row) { static_cast<T*>(object)->assignStored(T::fromRow(row)); }
};

// A conjunction of column tests.
struct Predicate {
    enum class Op { equal, notEqual, in };
    struct Condition {
        std::string column;
        Op op;
        std::vector<StoreValue> values;  // one for equal and notEqual
    };
    std::vector<Condition> conditions;

    static Predicate equal(std::string column, StoreValue value);
    static Predicate notEqual(std::string column, StoreValue value);
    static Predicate in(std::string column, std::vector<StoreValue> values);
    Predicate&& andAlso(Predicate other) &&;
    bool matches(const TableSpec& table, const StoreRow& row) const;
};

enum class SortOrder { forward, reverse };
// `standard` compares stored values (ISO dates compare as time); `localizedStandard` compares
// text as people expect in a list: case-insensitive, with digit runs by their number.
enum class SortComparator { standard, localizedStandard };

struct SortDescriptor {
    std::string column;
    SortOrder order = SortOrder::forward;
    SortComparator comparator = SortComparator::standard;
};

struct FetchRequest {
    std::optional<Predicate> predicate;
    std::vector<SortDescriptor> sortBy;
    std::optional<std::int64_t> fetchLimit;
};

// A fetch of records of type T. Nothing touches the store until a context fetches it.
template <class T>
struct FetchDescriptor : FetchRequest {
    FetchDescriptor() = default;
    FetchDescriptor(std::optional<Predicate> predicate, std::vector<SortDescriptor> sortBy = {},
                    std::optional<std::int64_t> fetchLimit = std::nullopt)
        : FetchRequest{std::move(predicate), std::move(sortBy), fetchLimit} {}
};

// Text order of `localizedStandard`; negative, zero or positive.
int localizedStandardCompare(std::string_view a, std::string_view b);

// The record types of a store, in schema order, and its version.
struct Schema {
    std::string version;  // "1.0.0"
    std::vector<const TableSpec*> tables;
};

struct ModelConfiguration {
    std::string name;
    Schema schema;
    bool isStoredInMemoryOnly = false;
    bool allowsSave = true;
    std::filesystem::path url;  // the store file; empty in memory
};

// One pending write of a save.
struct StoreChange {
    enum class Kind { insert, update, remove };
    Kind kind;
    const TableSpec* table;
    std::string id;
    StoreRow row;                        // insert: every column; update: every column
    std::vector<std::size_t> changed;    // update: the columns that differ from what was read
};

// What a container stands on. The SQLite store is the one implementation; the seam keeps the
// contexts' bookkeeping apart from SQL.
class StoreBackend {
public:
    virtual ~StoreBackend() = default;
    virtual std::vector<StoreRow> fetchRows(const TableSpec& table, const FetchRequest& request,
                                            std::optional<std::int64_t> limit) = 0;
    virtual std::int64_t fetchCount(const TableSpec& table, const FetchRequest& request) = 0;
    // All or nothing, in one transaction.
    virtual void commit(const std::vector<StoreChange>& changes) = 0;
    virtual std::string location() const = 0;
    // Sets `column` of the row `id` to `value` only while the stored row holds `expected`, and
    // says whether it did. The SQLite store does it in one statement, so that of two processes
    // claiming one row exactly one succeeds; this default reads, then writes.
    virtual bool updateIfEqual(const TableSpec& table, const std::string& id, std::size_t column,
                               const StoreValue& expected, const StoreValue& value);
};

class ModelContext {
public:
    explicit ModelContext(std::shared_ptr<StoreBackend> backend);
    ModelContext(const ModelContext&) = delete;
    ModelContext& operator=(const ModelContext&) = delete;

    // A record with the id of a stored one replaces it at save (ids are unique).
    template <class T>
    void insert(const std::shared_ptr<T>& object) {
        insertObject(T::table(), object);
    }

    template <class T>
    std::vector<std::shared_ptr<T>> fetch(const FetchDescriptor<T>& descriptor) {
        std::vector<std::shared_ptr<T>> out;
        for (auto& object : fetchObjects(T::table(), descriptor)) out.push_back(std::static_pointer_cast<T>(object));
        return out;
    }

    template <class T>
    std::int64_t fetchCount(const FetchDescriptor<T>& descriptor) {
        return fetchCountOf(T::table(), descriptor);
    }

    // Deletes at save; the record's relationships follow their delete rules.
    template <class T>
    void deleteRecord(const std::shared_ptr<T>& object) {
        deleteObject(T::table(), object);
    }

    // A conditional write straight to the store, outside this unit of work: the stored row of
    // `object` takes `value` in `column` only while it holds `expected`. On success the record
    // and what the context remembers of it take the value too; false when another writer got
    // there first (the record is then left as it is). Throws StoreError.
    template <class T>
    bool updateIfEqual(const std::shared_ptr<T>& object, std::string_view column, const StoreValue& expected,
                       const StoreValue& value) {
        return updateObjectIfEqual(T::table(), object.get(), column, expected, value);
    }

    // Writes every pending change in one transaction. On failure the changes stay pending and
    // the error (StoreError) is thrown.
    void save();
    // Writes the pending changes of these records only, in one transaction; the others stay
    // pending. For a long unit of work that settles one record at a time: its cost does not grow
    // with every record the context holds.
    void save(const std::vector<std::shared_ptr<void>>& only);
    // Drops pending inserts and deletions and returns changed records to their stored values.
    void rollback();
    // Forgets every record without pending changes, so that the next fetch reads it from the
    // store as another context or process may have saved it. Records with pending changes stay;
    // objects already handed out keep the values they had.
    void refresh();
    bool hasChanges() const;

private:
    struct Tracked {
        const TableSpec* table;
        std::shared_ptr<void> object;
        std::optional<StoreRow> stored;  // absent: inserted in this context
        std::string storeId;              // the id text as the store holds it
        bool deleted = false;
        std::uint64_t sequence = 0;
    };

    void saveTracked(const std::set<const void*>* only);
    void insertObject(const TableSpec& table, std::shared_ptr<void> object);
    void deleteObject(const TableSpec& table, const std::shared_ptr<void>& object);
    std::vector<std::shared_ptr<void>> fetchObjects(const TableSpec& table, const FetchRequest& request);
    std::int64_t fetchCountOf(const TableSpec& table, const FetchRequest& request);
    bool updateObjectIfEqual(const TableSpec& table, void* object, std::string_view column, const StoreValue& expected,
                             const StoreValue& value);
    Tracked* findTracked(const TableSpec& table, const void* object);
    bool isPending(const Tracked& tracked) const;
    static std::string key(const TableSpec& table, const std::string& id);

    std::shared_ptr<StoreBackend> backend_;
    std::map<std::string, Tracked> tracked_;  // table + id
    std::uint64_t nextSequence_ = 0;
};

// An open store. Contexts made from one container share its connection.
class ModelContainer {
public:
    // Opens (and creates) the store; throws StoreError naming the file or directory at fault.
    ModelContainer(const Schema& schema, const ModelConfiguration& configuration);
    // A new unit of work.
    std::unique_ptr<ModelContext> makeContext() const;
    // The context of the main thread, one per container.
    ModelContext& mainContext() const { return *mainContext_; }
    const ModelConfiguration& configuration() const { return configuration_; }
    // Only for tests and diagnostics: the backend's own SQL connection stays private.
    const std::shared_ptr<StoreBackend>& backend() const { return backend_; }

private:
    ModelConfiguration configuration_;
    std::shared_ptr<StoreBackend> backend_;
    std::unique_ptr<ModelContext> mainContext_;
};

}  // namespace tavrin
