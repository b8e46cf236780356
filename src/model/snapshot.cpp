#include "model/snapshot.h"

#include "model/text_encoding.h"

#include <cmath>

namespace tavrin {

using nlohmann::json;

namespace {

// Seconds between 1970-01-01 and 2001-01-01, the epoch of stored dates.
constexpr double kReferenceEpoch = 978307200.0;
constexpr int kMaxValueDepth = 256;

const char* kBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string base64Encode(const std::vector<std::uint8_t>& in) {
    std::string out;
    out.reserve((in.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 2 < in.size(); i += 3) {
        std::uint32_t v = (in[i] << 16) | (in[i + 1] << 8) | in[i + 2];
        out += kBase64[v >> 18];
        out += kBase64[(v >> 12) & 63];
        out += kBase64[(v >> 6) & 63];
        out += kBase64[v & 63];
    }
    if (i + 1 == in.size()) {
        std::uint32_t v = in[i] << 16;
        out += kBase64[v >> 18];
        out += kBase64[(v >> 12) & 63];
        out += "==";
    } else if (i + 2 == in.size()) {
        std::uint32_t v = (in[i] << 16) | (in[i + 1] << 8);
        out += kBase64[v >> 18];
        out += kBase64[(v >> 12) & 63];
        out += kBase64[(v >> 6) & 63];
        out += '=';
    }
    return out;
}

std::vector<std::uint8_t> base64Decode(const std::string& in, const json& context) {
    std::vector<std::uint8_t> out;
    std::uint32_t acc = 0;
    int bits = 0;
    std::size_t padding = 0;
    for (char c : in) {
        if (c == '=') {
            ++padding;
            continue;
        }
        const char* p = std::strchr(kBase64, c);
        if (c == '\0' || !p || padding) throw json::other_error::create(501, "invalid base64 data", &context);
        acc = (acc << 6) | static_cast<std::uint32_t>(p - kBase64);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<std::uint8_t>((acc >> bits) & 0xFF));
        }
    }
    if (in.size() % 4 != 0 || padding > 2) throw json::other_error::create(501, "invalid base64 data", &context);
    return out;
}

json valueToJson(const MetadataValue& v, int depth) {
    if (depth > kMaxValueDepth) throw json::other_error::create(501, "value nested too deeply", nullptr);
    using K = MetadataValue::Kind;
    auto wrap = [](const char* name, json payload) { return json{{name, json{{"_0", std::move(payload)}}}}; };
    switch (v.kind()) {
        case K::string: return wrap("string", validUTF8(v.asString()));
        case K::number: return wrap("number", v.asNumber());
        case K::integer: return wrap("integer", v.asInteger());
        case K::date: {
            const double seconds =
                std::chrono::duration<double>(v.asDate().time_since_epoch()).count() - kReferenceEpoch;
            return wrap("date", seconds);
        }
        case K::boolean: return wrap("bool", v.asBool());
        case K::data: return wrap("data", base64Encode(v.asData()));
        case K::array: {
            json a = json::array();
            for (const auto& e : v.asArray()) a.push_back(valueToJson(e, depth + 1));
            return wrap("array", std::move(a));
        }
        case K::dictionary: {
            json o = json::object();
            for (const auto& [k, e] : v.asDictionary()) o[validUTF8(k)] = valueToJson(e, depth + 1);
            return wrap("dictionary", std::move(o));
        }
        case K::null: return json{{"null", json::object()}};
    }
    return json();
}

MetadataValue valueFromJson(const json& j, int depth) {
    if (depth > kMaxValueDepth) throw json::other_error::create(501, "value nested too deeply", &j);
    if (!j.is_object() || j.size() != 1)
        throw json::type_error::create(302, "a metadata value must be an object with exactly one key", &j);
    const auto entry = j.begin();
    const std::string name = entry.key();
    const json& body = entry.value();
    if (name == "null") return MetadataValue::null();
    const json& p = body.at("_0");
    if (name == "string") return MetadataValue::string(p.get<std::string>());
    if (name == "number") return MetadataValue::number(p.get<double>());
    if (name == "integer") return MetadataValue::integer(p.get<std::int64_t>());
    if (name == "bool") return MetadataValue::boolean(p.get<bool>());
    if (name == "date") {
        const double seconds = p.get<double>() + kReferenceEpoch;
        // Nanoseconds since 1970 in 64 bits reach about 9.2e9 seconds either way.
        if (!std::isfinite(seconds) || std::fabs(seconds) > 9e9)
            throw json::other_error::create(501, "date out of range", &j);
        return MetadataValue::date(Date(std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds))));
    }
    if (name == "data") return MetadataValue::data(base64Decode(p.get<std::string>(), j));
    if (name == "array") {
        MetadataValue::Array a;
        for (const auto& e : p) a.push_back(valueFromJson(e, depth + 1));
        return MetadataValue::array(std::move(a));
    }
    if (name == "dictionary") {
        MetadataValue::Dictionary d;
        for (const auto& [k, e] : p.items()) d.emplace(k, valueFromJson(e, depth + 1));
        return MetadataValue::dictionary(std::move(d));
    }
    throw json::other_error::create(501, "unknown metadata value case " + name, &j);
}

template <typename E>
E enumFrom(const json& j, std::optional<E> (*parse)(std::string_view)) {
    auto v = parse(j.get<std::string>());
    if (!v) throw json::other_error::create(501, "unknown value " + j.dump(), &j);
    return *v;
}

}  // namespace

void to_json(json& j, const MetadataValue& value) { j = valueToJson(value, 0); }
void from_json(const json& j, MetadataValue& value) { value = valueFromJson(j, 0); }

void to_json(json& j, const MetadataItem& item) {
    j = {{"id", validUTF8(item.id)},
         {"key", validUTF8(item.key)},
         {"displayName", validUTF8(item.displayName)},
         {"value", item.value},
         {"category", std::string(rawValue(item.category))},
         {"source", std::string(rawValue(item.source))},
         {"isRemovable", item.isRemovable}};
}

void from_json(const json& j, MetadataItem& item) {
    item.id = j.at("id").get<std::string>();
    item.key = j.at("key").get<std::string>();
    item.displayName = j.at("displayName").get<std::string>();
    item.value = j.at("value").get<MetadataValue>();
    item.category = enumFrom<MetadataCategory>(j.at("category"), &metadataCategoryFromRawValue);
    item.source = enumFrom<MetadataSource>(j.at("source"), &metadataSourceFromRawValue);
    item.isRemovable = j.at("isRemovable").get<bool>();
}

void to_json(json& j, const MetadataTreeNode& node) {
    j = {{"id", validUTF8(node.id)}, {"label", validUTF8(node.label)}};
    if (node.item) j["item"] = *node.item;
    json children = json::array();
    for (const auto& child : node.children) children.push_back(child);
    j["children"] = std::move(children);
    if (node.category) j["category"] = std::string(rawValue(*node.category));
}

void from_json(const json& j, MetadataTreeNode& node) {
    node.id = j.at("id").get<std::string>();
    node.label = j.at("label").get<std::string>();
    node.item = j.contains("item") ? std::optional<MetadataItem>(j.at("item").get<MetadataItem>()) : std::nullopt;
    node.children.clear();
    for (const auto& child : j.at("children")) node.children.push_back(child.get<MetadataTreeNode>());
    node.category = j.contains("category")
                        ? std::optional<MetadataCategory>(
                              enumFrom<MetadataCategory>(j.at("category"), &metadataCategoryFromRawValue))
                        : std::nullopt;
}

void to_json(json& j, const MetadataTree& tree) {
    j = {{"rootNodes", tree.rootNodes},
         {"sourceURL", fileURLString(tree.sourceURL)},
         {"fileType", std::string(rawValue(tree.fileType))}};
}

void from_json(const json& j, MetadataTree& tree) {
    tree.rootNodes = j.at("rootNodes").get<std::vector<MetadataTreeNode>>();
    tree.sourceURL = pathFromFileURLString(j.at("sourceURL").get<std::string>());
    tree.fileType = enumFrom<FileType>(j.at("fileType"), &fileTypeFromRawValue);
}

void to_json(json& j, const MetadataSummary& summary) { j = {{"removableCounts", summary.removableCounts}}; }
void from_json(const json& j, MetadataSummary& summary) {
    summary.removableCounts = j.at("removableCounts").get<std::map<std::string, std::int64_t>>();
}

std::string fileURLString(const std::filesystem::path& path) {
    static const char* hex = "0123456789ABCDEF";
    std::string out = "file://";
    std::error_code ec;
    auto absolute = std::filesystem::absolute(path, ec);
    if (ec) absolute = path;
    for (unsigned char c : absolute.string()) {
        if (std::isalnum(c) || std::strchr("/-._~!$&'()*+,;=:@", c)) {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 15];
        }
    }
    return out;
}

std::filesystem::path pathFromFileURLString(const std::string& text) {
    if (text.rfind("file://", 0) != 0) return text;
    std::string out;
    for (std::size_t i = 7; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
            out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

}  // namespace tavrin
