// Conditional writes that bypass a context's unit of work: how a queue run claims a file so that
// no two runs, in one process or in two, clean it both.

#include "data/store.h"

namespace tavrin {

bool StoreBackend::updateIfEqual(const TableSpec& table, const std::string& id, std::size_t column,
                                 const StoreValue& expected, const StoreValue& value) {
    FetchRequest request{Predicate::equal(table.columns.at(0).name, storeValue::text(id)), {}, 1};
    auto rows = fetchRows(table, request, 1);
    if (rows.empty() || rows.front().at(column) != expected) return false;
    StoreRow row = rows.front();
    row[column] = value;
    commit({StoreChange{StoreChange::Kind::update, &table, id, row, {column}}});
    return true;
}

bool ModelContext::updateObjectIfEqual(const TableSpec& table, void* object, std::string_view column,
                                       const StoreValue& expected, const StoreValue& value) {
    const std::size_t index = table.columnIndex(column);
    Tracked* tracked = findTracked(table, object);
    const std::string id = tracked ? tracked->storeId : storeValue::asText(table.toRow(object).at(0));
    if (!backend_->updateIfEqual(table, id, index, expected, value)) return false;
    StoreRow row = table.toRow(object);
    row[index] = value;
    table.assignRow(object, row);
    if (tracked && tracked->stored && index < tracked->stored->size()) (*tracked->stored)[index] = value;
    return true;
}

}  // namespace tavrin
