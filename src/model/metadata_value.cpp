#include "model/metadata_value.h"

#include <ctime>
#include <fmt/core.h>
#include <functional>

#include "model/text_encoding.h"

namespace tavrin {

void makeValidUTF8(std::string& text) {
    if (!isValidUTF8(text)) text = validUTF8(text);
}

std::optional<std::string> MetadataValue::stringValue() const {
    if (auto* s = std::get_if<std::string>(&v_)) return *s;
    return std::nullopt;
}

std::optional<double> MetadataValue::doubleValue() const {
    if (auto* d = std::get_if<double>(&v_)) return *d;
    if (auto* i = std::get_if<std::int64_t>(&v_)) return static_cast<double>(*i);
    return std::nullopt;
}

std::optional<Date> MetadataValue::dateValue() const {
    if (auto* d = std::get_if<Date>(&v_)) return *d;
    return std::nullopt;
}

std::string formatLocalDate(Date date) {
    std::time_t t = std::chrono::system_clock::to_time_t(date);
    std::tm tm{};
    if (!localtime_r(&t, &tm)) return "—";
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M", &tm);
    return buf;
}

std::string MetadataValue::description() const {
    switch (kind()) {
        case Kind::string: return asString();
        case Kind::number: {
            char buf[64];
            std::snprintf(buf, sizeof buf, "%g", asNumber());
            return buf;
        }
        case Kind::integer: return std::to_string(asInteger());
        case Kind::date: return formatLocalDate(asDate());
        case Kind::boolean: return asBool() ? "Yes" : "No";
        case Kind::data: return fmt::format("{} bytes", asData().size());
        case Kind::array: return fmt::format("[{} items]", asArray().size());
        case Kind::dictionary: return fmt::format("{{{} entries}}", asDictionary().size());
        case Kind::null: return "\u2014";
    }
    return {};
}

std::size_t MetadataValue::hash() const {
    std::size_t acc = v_.index();
    switch (kind()) {
        case Kind::string: hashCombine(acc, std::hash<std::string>{}(asString())); break;
        case Kind::number: hashCombine(acc, std::hash<double>{}(asNumber())); break;
        case Kind::integer: hashCombine(acc, std::hash<std::int64_t>{}(asInteger())); break;
        case Kind::date: hashCombine(acc, std::hash<std::int64_t>{}(asDate().time_since_epoch().count())); break;
        case Kind::boolean: hashCombine(acc, asBool()); break;
        case Kind::data:
            hashCombine(acc, std::hash<std::string_view>{}(std::string_view(
                              reinterpret_cast<const char*>(asData().data()), asData().size())));
            break;
        case Kind::array:
            for (const auto& e : asArray()) hashCombine(acc, e.hash());
            break;
        case Kind::dictionary:
            for (const auto& [k, e] : asDictionary()) {
                hashCombine(acc, std::hash<std::string>{}(k));
                hashCombine(acc, e.hash());
            }
            break;
        case Kind::null: break;
    }
    return acc;
}

}  // namespace tavrin
