#include "handoff/url_dispatch.h"

#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tavrin {

namespace {

std::optional<std::string> rejectionReason(const std::filesystem::path& path) {
    if (!path.is_absolute()) return "not an absolute path";
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return "no such file";
    if (S_ISDIR(info.st_mode)) return "a folder, not a file";
    if (!S_ISREG(info.st_mode)) return "not a regular file";
    if (::access(path.c_str(), R_OK) != 0) return "not readable";
    return std::nullopt;
}

}  // namespace

AdmittedFiles admitFiles(const std::vector<std::filesystem::path>& candidates) {
    AdmittedFiles result;
    for (const auto& candidate : candidates) {
        const auto path = candidate.lexically_normal();
        if (auto reason = rejectionReason(path)) result.rejected.push_back({path, std::move(*reason)});
        else result.files.push_back(path);
    }
    return result;
}

int dispatchTavrinURL(std::string_view url, TavrinURLHandler& handler) {
    const auto parts = URLParts::parse(url);
    if (!parts.scheme || *parts.scheme != TavrinURL::scheme || !parts.host)
        return handler.unrecognized(url, "not a tavrin: link");
    const std::string& host = *parts.host;
    if (host == "app") return handler.openApp(TavrinURL::requestsExternalHandoff(url));
    if (host == "enqueue") {
        const auto files = TavrinURL::enqueueFileURLs(url);
        if (files.empty()) return handler.unrecognized(url, "the link names no file");
        return handler.enqueue(admitFiles(files));
    }
    if (host == "open") {
        const auto file = TavrinURL::openFileURL(url);
        if (!file) return handler.unrecognized(url, "the link names no file");
        return handler.open(admitFiles({*file}));
    }
    if (host == "clean") {
        auto request = TavrinURL::cleanRequest(url);
        if (!request) return handler.unrecognized(url, "the link names no file");
        auto admitted = admitFiles(request->fileURLs);
        request->fileURLs = std::move(admitted.files);
        return handler.clean(*request, admitted.rejected);
    }
    return handler.unrecognized(url, "unknown command");
}

std::string printable(std::string_view text, std::size_t limit) {
    std::string out;
    const bool truncated = text.size() > limit;
    if (truncated) text = text.substr(0, limit);
    std::size_t i = 0;
    while (i < text.size()) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c >= 0x80) {
            // Keep whole UTF-8 sequences; escape anything else byte by byte.
            std::size_t length = (c & 0xE0) == 0xC0 ? 2 : (c & 0xF0) == 0xE0 ? 3 : (c & 0xF8) == 0xF0 ? 4 : 0;
            if (length && i + length <= text.size() && isValidUTF8(text.substr(i, length))) {
                out.append(text.substr(i, length));
                i += length;
                continue;
            }
            out += fmt::format("\\x{:02X}", c);
        } else if (c < 0x20 || c == 0x7F || c == '\\') {
            out += c == '\\' ? std::string("\\\\") : fmt::format("\\x{:02X}", c);
        } else {
            out += static_cast<char>(c);
        }
        ++i;
    }
    if (truncated) out += "…";
    return out;
}

}  // namespace tavrin
