// The bookkeeping of a unit of work: which records a context holds, which of them changed, and
// how its own pending changes show in its fetches. SQL lives in sqlite_store.cpp.

#include <algorithm>
#include <set>
#include <stdexcept>

#include "data/store.h"

namespace tavrin {

namespace {

std::string idOf(const StoreRow& row) { return storeValue::asText(row.at(0)); }

int compareValues(const StoreValue& a, const StoreValue& b, SortComparator comparator) {
    if (comparator == SortComparator::localizedStandard && std::holds_alternative<std::string>(a) &&
        std::holds_alternative<std::string>(b))
        return localizedStandardCompare(std::get<std::string>(a), std::get<std::string>(b));
    // SQLite's order of storage classes: null, numbers, text, bytes.
    auto rank = [](const StoreValue& v) {
        if (std::holds_alternative<std::monostate>(v)) return 0;
        if (std::holds_alternative<std::int64_t>(v) || std::holds_alternative<double>(v)) return 1;
        if (std::holds_alternative<std::string>(v)) return 2;
        return 3;
    };
    if (rank(a) != rank(b)) return rank(a) < rank(b) ? -1 : 1;
    switch (rank(a)) {
        case 0: return 0;
        case 1: {
            const double x = storeValue::asReal(a), y = storeValue::asReal(b);
            return x < y ? -1 : (y < x ? 1 : 0);
        }
        case 2: return std::get<std::string>(a).compare(std::get<std::string>(b)) < 0 ? -1 : (a == b ? 0 : 1);
        default: return std::get<Blob>(a) < std::get<Blob>(b) ? -1 : (a == b ? 0 : 1);
    }
}

}  // namespace

std::size_t TableSpec::columnIndex(std::string_view column) const {
    for (std::size_t i = 0; i < columns.size(); ++i)
        if (columns[i].name == column) return i;
    throw std::out_of_range("no column " + std::string(column) + " in " + name);
}

Predicate Predicate::equal(std::string column, StoreValue value) {
    return Predicate{{Condition{std::move(column), Op::equal, {std::move(value)}}}};
}
Predicate Predicate::notEqual(std::string column, StoreValue value) {
    return Predicate{{Condition{std::move(column), Op::notEqual, {std::move(value)}}}};
}
Predicate Predicate::in(std::string column, std::vector<StoreValue> values) {
    return Predicate{{Condition{std::move(column), Op::in, std::move(values)}}};
}
Predicate&& Predicate::andAlso(Predicate other) && {
    for (auto& c : other.conditions) conditions.push_back(std::move(c));
    return std::move(*this);
}

bool Predicate::matches(const TableSpec& table, const StoreRow& row) const {
    for (const auto& c : conditions) {
        const StoreValue& value = row.at(table.columnIndex(c.column));
        // As in SQL, a null never equals anything.
        const bool found = !storeValue::isNull(value) &&
                           std::any_of(c.values.begin(), c.values.end(), [&](const StoreValue& v) {
                               return compareValues(value, v, SortComparator::standard) == 0;
                           });
        const bool holds = c.op == Op::notEqual ? (!storeValue::isNull(value) && !found) : found;
        if (!holds) return false;
    }
    return true;
}

int localizedStandardCompare(std::string_view a, std::string_view b) {
    auto lower = [](unsigned char c) { return (c >= 'A' && c <= 'Z') ? c + 32 : c; };
    auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    std::size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (isDigit(a[i]) && isDigit(b[j])) {
            std::size_t si = i, sj = j;
            while (si < a.size() && a[si] == '0') ++si;
            while (sj < b.size() && b[sj] == '0') ++sj;
            std::size_t ei = si, ej = sj;
            while (ei < a.size() && isDigit(a[ei])) ++ei;
            while (ej < b.size() && isDigit(b[ej])) ++ej;
            if (ei - si != ej - sj) return ei - si < ej - sj ? -1 : 1;
            if (int c = a.substr(si, ei - si).compare(b.substr(sj, ej - sj)); c != 0) return c < 0 ? -1 : 1;
            i = ei;
            j = ej;
            continue;
        }
        const int x = lower(static_cast<unsigned char>(a[i])), y = lower(static_cast<unsigned char>(b[j]));
        if (x != y) return x < y ? -1 : 1;
        ++i;
        ++j;
    }
    if (i < a.size()) return 1;
    if (j < b.size()) return -1;
    // Equal but for case or leading zeros: fall back on bytes so the order is total.
    const int c = a.compare(b);
    return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

ModelContext::ModelContext(std::shared_ptr<StoreBackend> backend) : backend_(std::move(backend)) {}

std::string ModelContext::key(const TableSpec& table, const std::string& id) { return table.name + "\n" + id; }

ModelContext::Tracked* ModelContext::findTracked(const TableSpec& table, const void* object) {
    const auto it = tracked_.find(key(table, idOf(table.toRow(object))));
    if (it == tracked_.end() || it->second.object.get() != object) {
        // The id may have been changed after tracking: look by identity.
        for (auto& [k, t] : tracked_)
            if (t.object.get() == object) return &t;
        return nullptr;
    }
    return &it->second;
}

bool ModelContext::isPending(const Tracked& t) const {
    return !t.stored || t.deleted || t.table->toRow(t.object.get()) != *t.stored;
}

void ModelContext::insertObject(const TableSpec& table, std::shared_ptr<void> object) {
    const std::string k = key(table, idOf(table.toRow(object.get())));
    auto it = tracked_.find(k);
    if (it != tracked_.end()) {
        // Ids are unique: a second record with a stored record's id replaces it.
        it->second.object = std::move(object);
        it->second.deleted = false;
        return;
    }
    std::string id = idOf(table.toRow(object.get()));
    tracked_.emplace(k, Tracked{&table, std::move(object), std::nullopt, std::move(id), false, nextSequence_++});
}

void ModelContext::deleteObject(const TableSpec& table, const std::shared_ptr<void>& object) {
    const StoreRow row = table.toRow(object.get());
    const std::string id = idOf(row);
    if (Tracked* t = findTracked(table, object.get())) {
        if (!t->stored) {
            std::erase_if(tracked_, [&](const auto& entry) { return &entry.second == t; });
        } else {
            t->deleted = true;
        }
    } else {
        tracked_.emplace(key(table, id), Tracked{&table, object, row, id, true, nextSequence_++});
    }
    // Nullify: records of this context that point at the deleted one lose the reference now, so
    // that a later save does not write it back; stored rows follow by the foreign key's rule.
    for (const auto& rule : table.nullifiedOnDelete) {
        const TableSpec* child = rule.table();
        const std::size_t column = child->columnIndex(rule.column);
        for (auto& [k, t] : tracked_) {
            if (t.table != child) continue;
            StoreRow childRow = child->toRow(t.object.get());
            if (storeValue::asOptionalText(childRow[column]) == id) {
                childRow[column] = StoreValue{};
                child->assignRow(t.object.get(), childRow);
            }
        }
    }
}

std::vector<std::shared_ptr<void>> ModelContext::fetchObjects(const TableSpec& table, const FetchRequest& request) {
    std::vector<const Tracked*> pending;
    for (const auto& [k, t] : tracked_)
        if (t.table == &table && isPending(t)) pending.push_back(&t);

    std::optional<std::int64_t> limit = request.fetchLimit;
    if (limit && *limit < 0) limit = 0;
    // Pending deletions and changes may push stored rows out of the result: ask for that many more.
    const std::optional<std::int64_t> storeLimit =
        limit ? std::optional<std::int64_t>(*limit + static_cast<std::int64_t>(pending.size())) : std::nullopt;
    const auto rows = backend_->fetchRows(table, request, storeLimit);

    std::vector<std::shared_ptr<void>> result;
    std::set<std::string> seen;
    for (const auto& row : rows) {
        const std::string k = key(table, idOf(row));
        seen.insert(k);
        auto it = tracked_.find(k);
        if (it != tracked_.end()) {
            Tracked& t = it->second;
            if (t.deleted) continue;
            if (isPending(t) && request.predicate && !request.predicate->matches(table, table.toRow(t.object.get())))
                continue;
            result.push_back(t.object);
            continue;
        }
        auto object = table.fromRow(row);
        // What was read, as the record writes it back: a value that reads as a fall-back does
        // not count as a change.
        StoreRow stored = table.toRow(object.get());
        tracked_.emplace(k, Tracked{&table, object, std::move(stored), idOf(row), false, nextSequence_++});
        result.push_back(std::move(object));
    }
    if (pending.empty()) return result;

    for (const Tracked* t : pending) {
        if (t->deleted) continue;
        const StoreRow row = table.toRow(t->object.get());
        if (seen.count(key(table, idOf(row)))) continue;
        if (request.predicate && !request.predicate->matches(table, row)) continue;
        result.push_back(t->object);
    }
    if (!request.sortBy.empty()) {
        std::vector<std::pair<StoreRow, std::shared_ptr<void>>> keyed;
        for (auto& object : result) keyed.emplace_back(table.toRow(object.get()), object);
        std::vector<std::size_t> columns;
        for (const auto& s : request.sortBy) columns.push_back(table.columnIndex(s.column));
        std::stable_sort(keyed.begin(), keyed.end(), [&](const auto& x, const auto& y) {
            for (std::size_t i = 0; i < columns.size(); ++i) {
                int c = compareValues(x.first[columns[i]], y.first[columns[i]], request.sortBy[i].comparator);
                if (request.sortBy[i].order == SortOrder::reverse) c = -c;
                if (c != 0) return c < 0;
            }
            return false;
        });
        result.clear();
        for (auto& [row, object] : keyed) result.push_back(std::move(object));
    }
    if (limit && static_cast<std::int64_t>(result.size()) > *limit) result.resize(static_cast<std::size_t>(*limit));
    return result;
}

std::int64_t ModelContext::fetchCountOf(const TableSpec& table, const FetchRequest& request) {
    const bool anyPending = std::any_of(tracked_.begin(), tracked_.end(), [&](const auto& entry) {
        return entry.second.table == &table && isPending(entry.second);
    });
    if (!anyPending) return backend_->fetchCount(table, request);
    FetchRequest unlimited{request.predicate, {}, std::nullopt};
    const auto all = fetchObjects(table, unlimited);
    const auto count = static_cast<std::int64_t>(all.size());
    return request.fetchLimit ? std::min(count, std::max<std::int64_t>(0, *request.fetchLimit)) : count;
}

bool ModelContext::hasChanges() const {
    return std::any_of(tracked_.begin(), tracked_.end(), [&](const auto& entry) { return isPending(entry.second); });
}

void ModelContext::save() { saveTracked(nullptr); }

void ModelContext::save(const std::vector<std::shared_ptr<void>>& only) {
    std::set<const void*> objects;
    for (const auto& object : only) objects.insert(object.get());
    saveTracked(&objects);
}

void ModelContext::saveTracked(const std::set<const void*>* only) {
    std::vector<const Tracked*> ordered;
    for (const auto& [k, t] : tracked_)
        if (!only || only->count(t.object.get())) ordered.push_back(&t);
    std::sort(ordered.begin(), ordered.end(), [](const Tracked* a, const Tracked* b) { return a->sequence < b->sequence; });

    std::vector<StoreChange> changes;
    std::vector<StoreRow> rows(ordered.size());
    for (std::size_t i = 0; i < ordered.size(); ++i) {
        const Tracked& t = *ordered[i];
        rows[i] = t.table->toRow(t.object.get());
        if (t.deleted) {
            if (t.stored) changes.push_back({StoreChange::Kind::remove, t.table, t.storeId, {}, {}});
        } else if (!t.stored) {
            changes.push_back({StoreChange::Kind::insert, t.table, idOf(rows[i]), rows[i], {}});
        } else if (rows[i] != *t.stored) {
            StoreChange change{StoreChange::Kind::update, t.table, t.storeId, rows[i], {}};
            for (std::size_t c = 0; c < rows[i].size(); ++c)
                if (c >= t.stored->size() || rows[i][c] != (*t.stored)[c]) change.changed.push_back(c);
            changes.push_back(std::move(change));
        }
    }
    if (!changes.empty()) backend_->commit(changes);

    std::map<const Tracked*, std::size_t> rowOf;
    for (std::size_t i = 0; i < ordered.size(); ++i) rowOf[ordered[i]] = i;
    for (auto it = tracked_.begin(); it != tracked_.end();) {
        Tracked& t = it->second;
        if (!rowOf.count(&t)) {  // not part of this save
            ++it;
            continue;
        }
        // A record nobody holds any more need not be remembered; fetching it again reads it anew.
        if (t.deleted || t.object.use_count() == 1) {
            it = tracked_.erase(it);
            continue;
        }
        t.stored = rows[rowOf.at(&t)];
        ++it;
    }
}

void ModelContext::refresh() {
    std::erase_if(tracked_, [&](const auto& entry) { return !isPending(entry.second); });
}

void ModelContext::rollback() {
    for (auto it = tracked_.begin(); it != tracked_.end();) {
        Tracked& t = it->second;
        if (!t.stored) {
            it = tracked_.erase(it);
            continue;
        }
        t.deleted = false;
        if (t.table->toRow(t.object.get()) != *t.stored) t.table->assignRow(t.object.get(), *t.stored);
        if (t.object.use_count() == 1) {
            it = tracked_.erase(it);
            continue;
        }
        ++it;
    }
}

}  // namespace tavrin
