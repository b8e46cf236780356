#pragma once
// A typed value found in a file's metadata, shared by every reader and writer.

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace tavrin {

using Date = std::chrono::system_clock::time_point;

// Replaces ill-formed UTF-8 in `text` by U+FFFD, in place (see text_encoding.h).
void makeValidUTF8(std::string& text);

class MetadataValue {
public:
    using Array = std::vector<MetadataValue>;
    using Dictionary = std::map<std::string, MetadataValue>;
    using Bytes = std::vector<std::uint8_t>;
    struct Null {
        bool operator==(const Null&) const = default;
    };

    // The cases, in declared order; the index of each is its position in the variant.
    enum class Kind { string, number, integer, date, boolean, data, array, dictionary, null };

    MetadataValue() : v_(Null{}) {}
    // Text from a file: ill-formed UTF-8 becomes U+FFFD here, so every text of the model is valid
    // UTF-8. Bytes that must stay exact belong in `data`.
    static MetadataValue string(std::string s) {
        makeValidUTF8(s);
        return MetadataValue(FromStorage{}, std::move(s));
    }
    static MetadataValue number(double d) { return MetadataValue(FromStorage{}, d); }
    static MetadataValue integer(std::int64_t i) { return MetadataValue(FromStorage{}, i); }
    static MetadataValue date(Date d) { return MetadataValue(FromStorage{}, d); }
    static MetadataValue boolean(bool b) { return MetadataValue(FromStorage{}, b); }
    static MetadataValue data(Bytes b) { return MetadataValue(FromStorage{}, std::move(b)); }
    static MetadataValue array(Array a) { return MetadataValue(FromStorage{}, std::move(a)); }
    static MetadataValue dictionary(Dictionary d) { return MetadataValue(FromStorage{}, std::move(d)); }
    static MetadataValue null() { return MetadataValue(); }

    Kind kind() const { return static_cast<Kind>(v_.index()); }

    // Text of a `string`; absent for every other case.
    std::optional<std::string> stringValue() const;
    // The double of a `number`, or an `integer` converted; absent otherwise.
    std::optional<double> doubleValue() const;
    std::optional<Date> dateValue() const;

    // Accessors for the payload of a known case. REQUIRES: kind() matches.
    const std::string& asString() const { return std::get<std::string>(v_); }
    double asNumber() const { return std::get<double>(v_); }
    std::int64_t asInteger() const { return std::get<std::int64_t>(v_); }
    Date asDate() const { return std::get<Date>(v_); }
    bool asBool() const { return std::get<bool>(v_); }
    const Bytes& asData() const { return std::get<Bytes>(v_); }
    const Array& asArray() const { return std::get<Array>(v_); }
    const Dictionary& asDictionary() const { return std::get<Dictionary>(v_); }

    // The text shown to people ("Yes", "3 bytes", "[2 items]", "—", …).
    std::string description() const;

    // Case by case: a `number` never equals an `integer`.
    bool operator==(const MetadataValue& other) const { return v_ == other.v_; }

    std::size_t hash() const;

private:
    using Storage = std::variant<std::string, double, std::int64_t, Date, bool, Bytes, Array, Dictionary, Null>;
    struct FromStorage {};
    MetadataValue(FromStorage, Storage value) : v_(std::move(value)) {}
    Storage v_;
};

// Mixes `value` into the running hash `acc` (the usual golden-ratio combine).
inline void hashCombine(std::size_t& acc, std::size_t value) {
    acc ^= value + 0x9e3779b97f4a7c15ULL + (acc << 6) + (acc >> 2);
}

// "2024-03-05 14:02" in local time: the user-visible form of a date.
std::string formatLocalDate(Date date);

}  // namespace tavrin
