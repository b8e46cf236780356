// The incremental update that replaces the Info dictionary, and its value encoding.
#include "pdf/pdf_byte_layer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

#include "model/pipeline_error.h"
#include "pdf/text_encoding.h"
#include "pdf/pdf_byte_scan.h"

namespace tavrin::pdfBytes {

using namespace detail;

// MARK: the update

std::optional<std::string> encodePDFInfoValue(const MetadataValue& value) {
    switch (value.kind()) {
        case MetadataValue::Kind::date: {
            const std::time_t t = std::chrono::system_clock::to_time_t(value.asDate());
            std::tm tm{};
            if (!::gmtime_r(&t, &tm)) return std::nullopt;
            const int year = tm.tm_year + 1900;
            if (year < 0 || year > 9999) return std::nullopt;
            char buffer[48];
            std::snprintf(buffer, sizeof buffer, "(D:%04d%02d%02d%02d%02d%02d+00'00')", year, tm.tm_mon + 1,
                          tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec);
            return std::string(buffer);
        }
        case MetadataValue::Kind::string: {
            auto units = utf16Units(value.asString());
            if (!units) return std::nullopt;
            std::string out = "<FEFF";
            char buffer[8];
            for (std::uint16_t unit : *units) {
                std::snprintf(buffer, sizeof buffer, "%04X", static_cast<unsigned>(unit));
                out += buffer;
            }
            out += '>';
            return out;
        }
        case MetadataValue::Kind::array: {
            std::string joined;
            bool first = true;
            for (const auto& element : value.asArray()) {
                if (element.kind() != MetadataValue::Kind::string) return std::nullopt;
                if (!first) joined += ", ";
                joined += element.asString();
                first = false;
            }
            return encodePDFInfoValue(MetadataValue::string(joined));
        }
        case MetadataValue::Kind::number:
        case MetadataValue::Kind::integer:
        case MetadataValue::Kind::boolean:
        case MetadataValue::Kind::data:
        case MetadataValue::Kind::dictionary:
        case MetadataValue::Kind::null:
            return std::nullopt;
    }
    return std::nullopt;
}

std::optional<std::vector<std::uint8_t>> makeInfoOverrideUpdate(const ParsedTrailer& trailer,
                                                                const std::vector<KeptInfoEntry>& keeping) {
    const std::int64_t objectNumber = trailer.size;
    std::string dictionary;
    if (keeping.empty()) {
        dictionary = "<< >>";
    } else {
        dictionary = "<< ";
        for (std::size_t i = 0; i < keeping.size(); ++i) {
            if (i > 0) dictionary += ' ';
            dictionary += '/' + keeping[i].pdfKey + ' ' + keeping[i].encoded;
        }
        dictionary += " >>";
    }
    const std::string object = std::to_string(objectNumber) + " 0 obj\n" + dictionary + "\nendobj\n";
    // The update is written as ISO Latin-1; everything we encode is ASCII, and anything else
    // would be a value we cannot write faithfully.
    if (!isAscii(object) || !isAscii(trailer.rootRef) || !isAscii(trailer.prevStartxref)) return std::nullopt;

    const std::int64_t objectOffset = trailer.fileSize + (trailer.endsWithNewline ? 0 : 1);
    // A cross-reference entry has room for ten digits of offset.
    if (objectOffset > 9999999999LL) return std::nullopt;
    const std::int64_t xrefOffset = objectOffset + static_cast<std::int64_t>(object.size());

    char entry[32];
    std::snprintf(entry, sizeof entry, "%010lld 00000 n \n", static_cast<long long>(objectOffset));
    std::string tail = "xref\n0 1\n0000000000 65535 f \n";
    tail += std::to_string(objectNumber) + " 1\n";
    tail += entry;
    tail += "trailer\n<< /Size " + std::to_string(objectNumber + 1) + " /Root " + trailer.rootRef + " /Info " +
            std::to_string(objectNumber) + " 0 R " + "/Prev " + trailer.prevStartxref + " >>\n";
    tail += "startxref\n" + std::to_string(xrefOffset) + "\n%%EOF\n";

    std::vector<std::uint8_t> update;
    update.reserve(object.size() + tail.size() + 1);
    if (!trailer.endsWithNewline) update.push_back(0x0A);
    append(update, object);
    append(update, tail);
    return update;
}

std::optional<std::vector<std::uint8_t>> makeInfoOverrideUpdate(const std::filesystem::path& fileAt,
                                                                const std::vector<KeptInfoEntry>& keeping) {
    auto trailer = parseTrailer(fileAt);
    if (!trailer) return std::nullopt;
    return makeInfoOverrideUpdate(*trailer, keeping);
}

void appendUpdate(std::span<const std::uint8_t> update, const std::filesystem::path& toFileAt) {
    const int fd = ::open(toFileAt.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd < 0) {
        const int err = errno;
        throw FileSystemError("Cannot write " + toFileAt.filename().string() + ": " + std::strerror(err), err);
    }
    std::size_t done = 0;
    while (done < update.size()) {
        const ssize_t n = ::write(fd, update.data() + done, update.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            const int err = n < 0 ? errno : EIO;
            ::close(fd);
            throw FileSystemError("Cannot write " + toFileAt.filename().string() + ": " + std::strerror(err), err);
        }
        done += static_cast<std::size_t>(n);
    }
    if (::close(fd) != 0) {
        const int err = errno;
        throw FileSystemError("Cannot write " + toFileAt.filename().string() + ": " + std::strerror(err), err);
    }
}

}  // namespace tavrin::pdfBytes
