#include "handoff/tavrin_url.h"

#include <algorithm>
#include <cctype>
#include <cstdint>

namespace tavrin {

namespace {

bool isUnreserved(unsigned char c) {
    return std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~';
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool isSchemeText(std::string_view s) {
    if (s.empty() || !std::isalpha(static_cast<unsigned char>(s.front()))) return false;
    return std::all_of(s.begin(), s.end(), [](char ch) {
        const auto c = static_cast<unsigned char>(ch);
        return std::isalnum(c) || c == '+' || c == '-' || c == '.';
    });
}

std::string lowercased(std::string_view s) {
    std::string out(s);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return out;
}

bool isEnabledValue(const std::optional<std::string>& value) {
    if (!value) return false;
    const auto lower = lowercased(*value);
    return std::any_of(std::begin(TavrinURL::enabledHandoffValues), std::end(TavrinURL::enabledHandoffValues),
                       [&](std::string_view v) { return v == lower; });
}

const URLQueryItem* firstItem(const std::vector<URLQueryItem>& items, std::string_view name) {
    for (const auto& item : items)
        if (item.name == name) return &item;
    return nullptr;
}

bool isShareRequested(const std::vector<URLQueryItem>& items) {
    const auto* item = firstItem(items, "share");
    return item && isEnabledValue(item->value);
}

// A value becomes a file only when it is a usable path: not empty and free of NUL, which would
// cut the path short where the system reads it.
std::vector<std::filesystem::path> fileItems(const std::vector<URLQueryItem>& items) {
    std::vector<std::filesystem::path> files;
    for (const auto& item : items) {
        if (item.name != "file" || !item.value || item.value->empty()) continue;
        if (item.value->find('\0') != std::string::npos) continue;
        files.emplace_back(*item.value);
    }
    return files;
}

bool hasSchemeAndHost(const URLParts& parts, std::string_view host) {
    return parts.scheme && *parts.scheme == TavrinURL::scheme && parts.host && *parts.host == host;
}

std::string standardized(const std::filesystem::path& p) { return p.lexically_normal().string(); }

std::string fileQuery(const std::string& path) { return "file=" + percentEncode(path); }

std::string presetAndShare(const std::optional<std::string>& presetName, bool shareOnly) {
    std::string tail;
    if (presetName) tail += "&preset=" + percentEncode(*presetName);
    if (shareOnly) tail += "&share=1";
    return tail;
}

// Packs the encoded "file=" items greedily into URLs of `head` + items joined by "&" + `tail`.
std::vector<std::string> pack(const std::vector<std::filesystem::path>& fileURLs, const std::string& head,
                              const std::string& tail, std::size_t maximumURLLength) {
    std::vector<std::string> result;
    std::string current;
    for (const auto& file : fileURLs) {
        const auto item = fileQuery(standardized(file));
        const std::size_t joined = head.size() + current.size() + (current.empty() ? 0 : 1) + item.size() + tail.size();
        if (current.empty() || joined <= maximumURLLength) {
            if (!current.empty()) current += '&';
            current += item;
        } else {
            result.push_back(head + current + tail);
            current = item;
        }
    }
    if (!current.empty()) result.push_back(head + current + tail);
    return result;
}

}  // namespace

std::string percentEncode(std::string_view text) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(text.size());
    for (char ch : text) {
        const auto c = static_cast<unsigned char>(ch);
        if (isUnreserved(c) || c == '/') {
            out += ch;
        } else {
            out += '%';
            out += digits[c >> 4];
            out += digits[c & 0xF];
        }
    }
    return out;
}

std::optional<std::string> percentDecode(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
            continue;
        }
        if (i + 2 >= text.size()) return std::nullopt;
        const int hi = hexValue(text[i + 1]);
        const int lo = hexValue(text[i + 2]);
        if (hi < 0 || lo < 0) return std::nullopt;
        out += static_cast<char>(hi * 16 + lo);
        i += 2;
    }
    return out;
}

URLParts URLParts::parse(std::string_view url) {
    URLParts parts;
    // The fragment is no part of anything the scheme reads.
    if (const auto hash = url.find('#'); hash != std::string_view::npos) url = url.substr(0, hash);
    std::string_view rest = url;
    if (const auto colon = rest.find(':'); colon != std::string_view::npos && isSchemeText(rest.substr(0, colon))) {
        parts.scheme = std::string(rest.substr(0, colon));
        rest.remove_prefix(colon + 1);
    }
    if (rest.substr(0, 2) == "//") {
        rest.remove_prefix(2);
        const auto end = rest.find_first_of("/?");
        std::string_view authority = rest.substr(0, end);
        rest = end == std::string_view::npos ? std::string_view{} : rest.substr(end);
        if (const auto at = authority.rfind('@'); at != std::string_view::npos) authority.remove_prefix(at + 1);
        if (const auto port = authority.rfind(':'); port != std::string_view::npos) authority = authority.substr(0, port);
        parts.host = std::string(authority);
    }
    const auto question = rest.find('?');
    if (question == std::string_view::npos) return parts;
    std::string_view query = rest.substr(question + 1);
    parts.queryItems.emplace();
    if (query.empty()) return parts;
    std::size_t start = 0;
    while (start <= query.size()) {
        const auto amp = query.find('&', start);
        const auto piece = query.substr(start, amp == std::string_view::npos ? std::string_view::npos : amp - start);
        URLQueryItem item;
        const auto equals = piece.find('=');
        auto name = percentDecode(piece.substr(0, equals));
        item.name = name && isValidUTF8(*name) ? *name : std::string{};
        if (equals != std::string_view::npos) {
            auto value = percentDecode(piece.substr(equals + 1));
            if (value && isValidUTF8(*value)) item.value = std::move(*value);
        }
        parts.queryItems->push_back(std::move(item));
        if (amp == std::string_view::npos) break;
        start = amp + 1;
    }
    return parts;
}

std::vector<std::filesystem::path> fileURLsFromURIList(std::string_view text, std::size_t maximumItems) {
    std::vector<std::filesystem::path> files;
    std::size_t start = 0;
    while (start < text.size() && files.size() < maximumItems) {
        auto end = text.find('\n', start);
        if (end == std::string_view::npos) end = text.size();
        std::string_view line = text.substr(start, end - start);
        start = end + 1;
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t')) line.remove_suffix(1);
        if (line.empty() || line.front() == '#') continue;
        std::string_view rest;
        if (line.substr(0, 7) == "file://") rest = line.substr(7);
        else continue;
        if (rest.substr(0, 9) == "localhost") rest.remove_prefix(9);
        if (rest.empty() || rest.front() != '/') continue;
        auto path = percentDecode(rest);
        if (!path || path->find('\0') != std::string::npos) continue;
        files.emplace_back(*path);
    }
    return files;
}

namespace TavrinURL {

std::string appURL(bool requestsExternalHandoff) {
    return requestsExternalHandoff ? "tavrin://app?handoff=1" : "tavrin://app";
}

std::string enqueueURL(const std::vector<std::filesystem::path>& fileURLs) {
    if (fileURLs.empty()) return appURL(false);
    return pack(fileURLs, "tavrin://enqueue?", "", std::string::npos).front();
}

std::optional<std::string> enqueueURLIfNeeded(const std::vector<std::filesystem::path>& fileURLs) {
    if (fileURLs.empty()) return std::nullopt;
    return enqueueURL(fileURLs);
}

std::vector<std::string> enqueueURLs(const std::vector<std::filesystem::path>& fileURLs, std::size_t maximumURLLength) {
    return pack(fileURLs, "tavrin://enqueue?", "", maximumURLLength);
}

std::string openURL(const std::filesystem::path& fileURL) {
    return "tavrin://open?" + fileQuery(standardized(fileURL));
}

std::optional<std::string> cleanURL(const std::vector<std::filesystem::path>& fileURLs,
                                    const std::optional<std::string>& presetName, bool shareOnly) {
    if (fileURLs.empty()) return std::nullopt;
    return pack(fileURLs, "tavrin://clean?", presetAndShare(presetName, shareOnly), std::string::npos).front();
}

std::vector<std::string> cleanURLs(const std::vector<std::filesystem::path>& fileURLs,
                                   const std::optional<std::string>& presetName, bool shareOnly,
                                   std::size_t maximumURLLength) {
    return pack(fileURLs, "tavrin://clean?", presetAndShare(presetName, shareOnly), maximumURLLength);
}

std::optional<CleanRequest> cleanRequest(std::string_view url) {
    const auto parts = URLParts::parse(url);
    if (!hasSchemeAndHost(parts, "clean") || !parts.queryItems || parts.queryItems->empty()) return std::nullopt;
    CleanRequest request;
    request.fileURLs = fileItems(*parts.queryItems);
    if (request.fileURLs.empty()) return std::nullopt;
    if (const auto* preset = firstItem(*parts.queryItems, "preset"); preset && preset->value && !preset->value->empty())
        request.presetName = preset->value;
    request.shareOnly = isShareRequested(*parts.queryItems);
    return request;
}

std::vector<std::filesystem::path> enqueueFileURLs(std::string_view url) {
    const auto parts = URLParts::parse(url);
    if (!hasSchemeAndHost(parts, "enqueue") || !parts.queryItems) return {};
    return fileItems(*parts.queryItems);
}

std::optional<std::filesystem::path> openFileURL(std::string_view url) {
    const auto parts = URLParts::parse(url);
    if (!hasSchemeAndHost(parts, "open") || !parts.queryItems) return std::nullopt;
    auto files = fileItems(*parts.queryItems);
    if (files.empty()) return std::nullopt;
    return files.front();
}

bool requestsExternalHandoff(std::string_view url) {
    const auto parts = URLParts::parse(url);
    if (!hasSchemeAndHost(parts, "app") || !parts.queryItems) return false;
    const auto* item = firstItem(*parts.queryItems, "handoff");
    return item && isEnabledValue(item->value);
}

}  // namespace TavrinURL

}  // namespace tavrin
