#include "office/office_xml_document.h"

#include "office/office_text_encoding.h"

namespace tavrin {

namespace {

// Index of the `>` that closes markup starting at `from`, with quoted `>` skipped; npos when
// the text ends first.
std::size_t closingBracket(std::string_view text, std::size_t from) {
    char quote = 0;
    for (std::size_t i = from; i < text.size(); ++i) {
        const char c = text[i];
        if (quote) {
            if (c == quote) quote = 0;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '>') {
            return i;
        }
    }
    return std::string_view::npos;
}

bool isXMLSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

// The length of a match of encoding\s*=\s*("[^"]*"|'[^']*') (case-insensitive) at `at`, or 0.
std::size_t encodingAttributeAt(std::string_view text, std::size_t at) {
    static constexpr std::string_view word = "encoding";
    if (text.size() - at < word.size()) return 0;
    for (std::size_t k = 0; k < word.size(); ++k)
        if (lower(text[at + k]) != word[k]) return 0;
    std::size_t i = at + word.size();
    while (i < text.size() && isXMLSpace(text[i])) ++i;
    if (i >= text.size() || text[i] != '=') return 0;
    ++i;
    while (i < text.size() && isXMLSpace(text[i])) ++i;
    if (i >= text.size() || (text[i] != '"' && text[i] != '\'')) return 0;
    const std::size_t close = text.find(text[i], i + 1);
    if (close == std::string_view::npos) return 0;
    return close + 1 - at;
}

}  // namespace

bool OfficeXMLDocument::nestingDepthWithinLimit(std::string_view text) {
    std::size_t depth = 0;
    std::size_t i = 0;
    for (;;) {
        const std::size_t open = text.find('<', i);
        if (open == std::string_view::npos) return true;
        const std::size_t next = open + 1;
        if (next < text.size() && (text[next] == '?' || text[next] == '!')) {
            // Comments and CDATA end at their own terminators; other declarations at ">".
            std::size_t end;
            if (text.substr(next, 3) == "!--") {
                end = text.find("-->", next + 3);
                if (end != std::string_view::npos) end += 2;
            } else if (text.substr(next, 8) == "![CDATA[") {
                end = text.find("]]>", next + 8);
                if (end != std::string_view::npos) end += 2;
            } else {
                end = closingBracket(text, next);
            }
            if (end == std::string_view::npos) return true;
            i = end + 1;
        } else if (next < text.size() && text[next] == '/') {
            if (depth > 0) --depth;
            const std::size_t end = closingBracket(text, next);
            if (end == std::string_view::npos) return true;
            i = end + 1;
        } else {
            const std::size_t end = closingBracket(text, next);
            const bool empty = end != std::string_view::npos && text[end - 1] == '/';
            if (!empty && ++depth > maximumNestingDepth) return false;
            if (end == std::string_view::npos) return true;  // a cut-off start tag counts as open
            i = end + 1;
        }
    }
}

std::pair<std::string, std::size_t> OfficeXMLDocument::utf8Declaration(std::string_view text) {
    if (text.substr(0, 5) != "<?xml") return {"", 0};
    const std::size_t declarationEnd = text.find("?>");
    if (declarationEnd == std::string_view::npos) return {"", 0};
    std::string out;
    std::size_t i = 0;
    bool rewritten = false;
    while (i < declarationEnd) {
        if (const std::size_t length = encodingAttributeAt(text.substr(0, declarationEnd), i)) {
            out += "encoding=\"UTF-8\"";
            i += length;
            rewritten = true;
        } else {
            out.push_back(text[i++]);
        }
    }
    if (!rewritten) return {"", 0};
    return {out, declarationEnd};
}

std::string OfficeXMLDocument::rewriteEncodingDeclarationToUTF8(std::string_view text) {
    const auto [declaration, rest] = utf8Declaration(text);
    std::string out;
    out.reserve(declaration.size() + text.size() - rest);
    out += declaration;
    out.append(text.substr(rest));
    return out;
}

std::optional<XMLDocument> OfficeXMLDocument::parseText(std::string_view text, const XMLDocument::ParseOptions& options) {
    if (!nestingDepthWithinLimit(text)) return std::nullopt;
    const auto [declaration, rest] = utf8Declaration(text);
    const std::string_view pieces[] = {declaration, text.substr(rest)};
    try {
        return XMLDocument(pieces, options);
    } catch (const XMLDocumentError&) {
        return std::nullopt;
    }
}

bool OfficeXMLDocument::scanText(std::string_view text, const std::function<void(const XMLStartTag&)>& visit) {
    if (!nestingDepthWithinLimit(text)) return false;
    const auto [declaration, rest] = utf8Declaration(text);
    const std::string_view pieces[] = {declaration, text.substr(rest)};
    return XMLDocument::scanStartTags(pieces, visit);
}

std::optional<XMLDocument> OfficeXMLDocument::parse(std::span<const std::uint8_t> bytes) {
    const auto text = OfficeTextEncoding::decodeXML(bytes);
    if (!text) return std::nullopt;
    return parseText(*text);
}

std::vector<std::uint8_t> OfficeXMLDocument::serialize(XMLDocument& document) {
    document.setCharacterEncoding("UTF-8");
    return document.xmlData();
}

void forEachElement(const XMLElement& root, const std::function<void(XMLElement&)>& visit) {
    std::vector<XMLElement> stack{root};
    while (!stack.empty()) {
        XMLElement element = stack.back();
        stack.pop_back();
        visit(element);
        const auto children = element.children();
        for (auto child = children.rbegin(); child != children.rend(); ++child)
            if (auto e = child->asElement()) stack.push_back(*e);
    }
}

}  // namespace tavrin
