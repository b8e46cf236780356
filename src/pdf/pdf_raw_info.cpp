#include "pdf/pdf_raw_info.h"

#include <algorithm>

namespace tavrin::pdfBytes {

namespace {

bool isWhitespace(std::uint8_t b) { return b == 0 || b == '\t' || b == '\n' || b == '\f' || b == '\r' || b == ' '; }

bool isDelimiter(std::uint8_t b) {
    return b == '(' || b == ')' || b == '<' || b == '>' || b == '[' || b == ']' || b == '{' || b == '}' ||
           b == '/' || b == '%';
}

std::size_t skipRegular(ByteView data, std::size_t i) {
    while (i < data.size() && !isWhitespace(data[i]) && !isDelimiter(data[i])) ++i;
    return i;
}

}  // namespace

std::vector<std::pair<std::string, std::string>> topLevelStringEntries(ByteView data, std::size_t objectStart) {
    std::vector<std::pair<std::string, std::string>> entries;
    auto open = indexOfDictionaryOpen(data, objectStart);
    if (!open) return entries;
    std::size_t depth = 1;  // dictionaries and arrays alike
    std::size_t i = *open + 2;
    std::string lastKey;    // a name just read at the top level, waiting for its value
    bool haveKey = false;
    while (i < data.size() && depth > 0) {
        const std::uint8_t b = data[i];
        if (isWhitespace(b)) {
            ++i;
        } else if (b == '%') {
            while (i < data.size() && data[i] != '\n' && data[i] != '\r') ++i;
        } else if (b == '/') {
            const std::size_t end = skipRegular(data, i + 1);
            std::string name(reinterpret_cast<const char*>(data.data()) + i + 1, end - i - 1);
            // A name at the top level is a key when no key is waiting, and a value otherwise.
            if (depth == 1 && !haveKey) {
                lastKey = std::move(name);
                haveKey = true;
            } else if (depth == 1) {
                haveKey = false;
            }
            i = end;
        } else if (b == '(' || (b == '<' && (i + 1 >= data.size() || data[i + 1] != '<'))) {
            auto decoded = b == '(' ? decodeLiteralString(data, i) : decodeHexString(data, i);
            if (!decoded) break;
            if (depth == 1 && haveKey) entries.emplace_back(lastKey, std::move(decoded->value));
            if (depth == 1) haveKey = false;
            i = decoded->after;
        } else if (b == '<' || b == '[') {
            if (depth == 1) haveKey = false;  // the value is a structure
            ++depth;
            i += b == '<' ? 2 : 1;
        } else if (b == '>') {
            if (i + 1 >= data.size() || data[i + 1] != '>') break;
            --depth;
            i += 2;
        } else if (b == ']') {
            --depth;
            ++i;
        } else {
            // Numbers, keywords, "12 0 R": a reference is three tokens, and only its first one
            // follows the key.
            const std::size_t end = std::max(skipRegular(data, i), i + 1);
            if (depth == 1 && haveKey) {
                const std::size_t afterNumber = end;
                // Swallow " 0 R" so the next name is read as a key again.
                std::size_t j = afterNumber;
                while (j < data.size() && isWhitespace(data[j])) ++j;
                const std::size_t generationEnd = skipRegular(data, j);
                std::size_t k = generationEnd;
                while (k < data.size() && isWhitespace(data[k])) ++k;
                if (generationEnd > j && k < data.size() && data[k] == 'R' &&
                    (k + 1 >= data.size() || isWhitespace(data[k + 1]) || isDelimiter(data[k + 1]))) {
                    i = k + 1;
                    haveKey = false;
                    continue;
                }
                haveKey = false;
            }
            i = end;
        }
    }
    return entries;
}

}  // namespace tavrin::pdfBytes
