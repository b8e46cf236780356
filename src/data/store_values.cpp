#include "data/store_values.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace tavrin {

namespace {

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

// Reads exactly `count` decimal digits at `pos`.
std::optional<int> digits(std::string_view text, std::size_t pos, std::size_t count) {
    if (pos + count > text.size()) return std::nullopt;
    int value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const char c = text[pos + i];
        if (c < '0' || c > '9') return std::nullopt;
        value = value * 10 + (c - '0');
    }
    return value;
}

}  // namespace


std::optional<Uuid> uuidFromString(std::string_view text) {
    if (text.size() != 36) return std::nullopt;
    Uuid uuid;
    std::size_t byte = 0;
    for (std::size_t i = 0; i < text.size();) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i] != '-') return std::nullopt;
            ++i;
            continue;
        }
        const int high = hexDigit(text[i]);
        const int low = i + 1 < text.size() ? hexDigit(text[i + 1]) : -1;
        if (high < 0 || low < 0) return std::nullopt;
        uuid.bytes[byte++] = static_cast<std::uint8_t>(high * 16 + low);
        i += 2;
    }
    return uuid;
}

Uuid uuidConstant(std::string_view text) {
    auto uuid = uuidFromString(text);
    if (!uuid) std::abort();
    return *uuid;
}

Date storedPrecision(Date date) { return std::chrono::floor<std::chrono::milliseconds>(date); }

std::string isoDateString(Date date) {
    using namespace std::chrono;
    const auto ms = floor<milliseconds>(date);
    const auto day = floor<days>(ms);
    const year_month_day ymd{day};
    const hh_mm_ss<milliseconds> time{ms - day};
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", static_cast<int>(ymd.year()),
                       static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()), time.hours().count(),
                       time.minutes().count(), time.seconds().count(), time.subseconds().count());
}

std::optional<Date> dateFromISOString(std::string_view text) {
    using namespace std::chrono;
    // YYYY-MM-DDTHH:MM:SS, then an optional fraction, then "Z".
    auto y = digits(text, 0, 4), mo = digits(text, 5, 2), d = digits(text, 8, 2);
    auto h = digits(text, 11, 2), mi = digits(text, 14, 2), s = digits(text, 17, 2);
    if (!y || !mo || !d || !h || !mi || !s || text[4] != '-' || text[7] != '-' || (text[10] != 'T' && text[10] != ' ') ||
        text[13] != ':' || text[16] != ':')
        return std::nullopt;
    if (*h > 23 || *mi > 59 || *s > 60) return std::nullopt;
    const year_month_day ymd{year{*y}, month{static_cast<unsigned>(*mo)}, day{static_cast<unsigned>(*d)}};
    if (!ymd.ok()) return std::nullopt;
    std::size_t pos = 19;
    std::int64_t fractionNanos = 0;
    if (pos < text.size() && text[pos] == '.') {
        ++pos;
        std::int64_t scale = 100'000'000;
        std::size_t start = pos;
        while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
            fractionNanos += (text[pos] - '0') * scale;
            scale /= 10;
            ++pos;
        }
        if (pos == start) return std::nullopt;
    }
    if (pos + 1 != text.size() || text[pos] != 'Z') return std::nullopt;
    const auto tp = sys_days{ymd} + hours{*h} + minutes{*mi} + seconds{*s};
    return time_point_cast<system_clock::duration>(tp + duration_cast<system_clock::duration>(nanoseconds{fractionNanos}));
}

namespace storeValue {

StoreValue text(std::string value) { return value; }
StoreValue optionalText(const std::optional<std::string>& value) {
    return value ? StoreValue{*value} : StoreValue{};
}
StoreValue integer(std::int64_t value) { return value; }
StoreValue flag(bool value) { return std::int64_t{value ? 1 : 0}; }
StoreValue real(double value) { return value; }
StoreValue uuid(const Uuid& value) { return value.uuidString(); }
StoreValue optionalUuid(const std::optional<Uuid>& value) { return value ? uuid(*value) : StoreValue{}; }
StoreValue date(Date value) { return isoDateString(value); }
StoreValue optionalDate(const std::optional<Date>& value) { return value ? date(*value) : StoreValue{}; }
StoreValue bytes(const std::optional<Blob>& value) { return value ? StoreValue{*value} : StoreValue{}; }
StoreValue textList(const std::vector<std::string>& value) { return nlohmann::json(value).dump(); }

std::string asText(const StoreValue& value, std::string_view fallback) {
    if (auto* s = std::get_if<std::string>(&value)) return *s;
    if (auto* i = std::get_if<std::int64_t>(&value)) return std::to_string(*i);
    if (auto* d = std::get_if<double>(&value)) return fmt::format("{}", *d);
    if (auto* b = std::get_if<Blob>(&value)) return std::string(b->begin(), b->end());
    return std::string(fallback);
}

std::optional<std::string> asOptionalText(const StoreValue& value) {
    if (isNull(value)) return std::nullopt;
    return asText(value);
}

std::int64_t asInteger(const StoreValue& value, std::int64_t fallback) {
    if (auto* i = std::get_if<std::int64_t>(&value)) return *i;
    if (auto* d = std::get_if<double>(&value)) {
        if (*d >= -9.2e18 && *d <= 9.2e18) return static_cast<std::int64_t>(*d);
        return fallback;
    }
    if (auto* s = std::get_if<std::string>(&value)) {
        char* end = nullptr;
        errno = 0;
        const long long parsed = std::strtoll(s->c_str(), &end, 10);
        if (errno == 0 && end != s->c_str() && *end == '\0') return parsed;
    }
    return fallback;
}

std::optional<std::int64_t> asOptionalInteger(const StoreValue& value) {
    if (isNull(value)) return std::nullopt;
    return asInteger(value);
}

bool asFlag(const StoreValue& value, bool fallback) {
    if (isNull(value) || std::holds_alternative<Blob>(value)) return fallback;
    if (auto* d = std::get_if<double>(&value)) return *d != 0.0;
    if (auto* s = std::get_if<std::string>(&value)) {
        if (*s == "true") return true;
        if (*s == "false") return false;
    }
    return asInteger(value, fallback ? 1 : 0) != 0;
}

double asReal(const StoreValue& value, double fallback) {
    if (auto* d = std::get_if<double>(&value)) return *d;
    if (auto* i = std::get_if<std::int64_t>(&value)) return static_cast<double>(*i);
    if (auto* s = std::get_if<std::string>(&value)) {
        char* end = nullptr;
        const double parsed = std::strtod(s->c_str(), &end);
        if (end != s->c_str() && *end == '\0') return parsed;
    }
    return fallback;
}

Uuid asUuid(const StoreValue& value) { return asOptionalUuid(value).value_or(Uuid{}); }

std::optional<Uuid> asOptionalUuid(const StoreValue& value) {
    if (auto* s = std::get_if<std::string>(&value)) return uuidFromString(*s);
    return std::nullopt;
}

Date asDate(const StoreValue& value) { return asOptionalDate(value).value_or(Date{}); }

std::optional<Date> asOptionalDate(const StoreValue& value) {
    if (auto* s = std::get_if<std::string>(&value)) return dateFromISOString(*s);
    return std::nullopt;
}

std::optional<Blob> asBytes(const StoreValue& value) {
    if (auto* b = std::get_if<Blob>(&value)) return *b;
    if (auto* s = std::get_if<std::string>(&value)) return Blob(s->begin(), s->end());
    return std::nullopt;
}

std::vector<std::string> asTextList(const StoreValue& value) {
    std::vector<std::string> out;
    const auto* s = std::get_if<std::string>(&value);
    if (!s) return out;
    if (!jsonNestingWithin(*s, 1)) return out;
    const auto parsed = nlohmann::json::parse(*s, nullptr, false);
    if (!parsed.is_array()) return out;
    for (const auto& element : parsed)
        if (element.is_string()) out.push_back(element.get<std::string>());
    return out;
}

bool isNull(const StoreValue& value) { return std::holds_alternative<std::monostate>(value); }

std::string describe(const StoreValue& value) {
    if (isNull(value)) return "null";
    if (auto* b = std::get_if<Blob>(&value)) return fmt::format("<{} bytes>", b->size());
    return asText(value);
}

}  // namespace storeValue

}  // namespace tavrin
