#pragma once
// The values a store row holds, and the text forms that keep a store readable in the `sqlite3`
// shell: identifiers as upper-case UUID text, dates as ISO 8601 UTC text, lists as JSON arrays.
// Every decoder here reads untrusted store contents and never throws: what it cannot read falls
// back to a fixed value.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "model/uuid.h"

#include "model/json_nesting.h"

namespace tavrin {

using Date = std::chrono::system_clock::time_point;
using Blob = std::vector<std::uint8_t>;

// One column value: null, integer, real, text or bytes, as SQLite stores them.
using StoreValue = std::variant<std::monostate, std::int64_t, double, std::string, Blob>;
using StoreRow = std::vector<StoreValue>;

// Canonical or lower-case "E621E1F8-C36C-495A-93FC-0C247A3E6E5F"; anything else gives none.
std::optional<Uuid> uuidFromString(std::string_view text);
// For constants written in code: an unparsable text is a programmer's fault and aborts.
Uuid uuidConstant(std::string_view text);

// "2024-03-05T14:02:07.123Z": fixed width, so text order is time order.
std::string isoDateString(Date date);
std::optional<Date> dateFromISOString(std::string_view text);
// Milliseconds are what the store keeps; dates compare equal after a round trip when cut to them.
Date storedPrecision(Date date);


namespace storeValue {

StoreValue text(std::string value);
StoreValue optionalText(const std::optional<std::string>& value);
StoreValue integer(std::int64_t value);
StoreValue flag(bool value);
StoreValue real(double value);
StoreValue uuid(const Uuid& value);
StoreValue optionalUuid(const std::optional<Uuid>& value);
StoreValue date(Date value);
StoreValue optionalDate(const std::optional<Date>& value);
StoreValue bytes(const std::optional<Blob>& value);
StoreValue textList(const std::vector<std::string>& value);

// Readers with their fall-backs. A value of another storage class is converted where SQLite
// would convert it, and otherwise reads as the fall-back.
std::string asText(const StoreValue& value, std::string_view fallback = {});
std::optional<std::string> asOptionalText(const StoreValue& value);
std::int64_t asInteger(const StoreValue& value, std::int64_t fallback = 0);
std::optional<std::int64_t> asOptionalInteger(const StoreValue& value);
bool asFlag(const StoreValue& value, bool fallback = false);
double asReal(const StoreValue& value, double fallback = 0.0);
Uuid asUuid(const StoreValue& value);  // unreadable: the all-zero UUID
std::optional<Uuid> asOptionalUuid(const StoreValue& value);
Date asDate(const StoreValue& value);  // unreadable: the epoch
std::optional<Date> asOptionalDate(const StoreValue& value);
std::optional<Blob> asBytes(const StoreValue& value);
// A JSON array of texts; anything else, or any element that is no text, is left out.
std::vector<std::string> asTextList(const StoreValue& value);

bool isNull(const StoreValue& value);
// A short form for messages and `--json`-less listings.
std::string describe(const StoreValue& value);

}  // namespace storeValue

}  // namespace tavrin
