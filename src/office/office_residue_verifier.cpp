#include "office/office_residue_verifier.h"

#include <cctype>
#include <functional>
#include <vector>

#include "office/office_package.h"
#include "office/office_xml_scrubber.h"

namespace tavrin {

namespace {


// Pre-order over `root` and every element below it; true at the first element `test` accepts.
bool anyElement(const XMLElement& root, const std::function<bool(const XMLElement&)>& test) {
    std::vector<XMLElement> stack{root};
    while (!stack.empty()) {
        const XMLElement element = stack.back();
        stack.pop_back();
        if (test(element)) return true;
        const auto children = element.children();
        for (auto child = children.rbegin(); child != children.rend(); ++child)
            if (auto e = child->asElement()) stack.push_back(*e);
    }
    return false;
}

bool anyAttribute(const XMLElement& element, const std::function<bool(const XMLNode&)>& test) {
    for (const auto& attribute : element.attributes())
        if (test(attribute)) return true;
    return false;
}

bool isUnicodeWhitespace(char32_t c) {
    return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
           (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F || c == 0x3000;
}

// Whether the UTF-8 text holds a character that is not white space. Bytes that do not decode
// count as text, which errs on the side of residue.
bool hasNonWhitespace(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const std::size_t length = lead < 0x80 ? 1 : (lead >> 5) == 0x6 ? 2 : (lead >> 4) == 0xE ? 3 : (lead >> 3) == 0x1E ? 4 : 0;
        if (length == 0 || i + length > text.size()) return true;
        char32_t c = length == 1 ? lead : lead & (0x7F >> length);
        for (std::size_t k = 1; k < length; ++k) c = (c << 6) | (static_cast<unsigned char>(text[i + k]) & 0x3F);
        if (!isUnicodeWhitespace(c)) return true;
        i += length;
    }
    return false;
}

}  // namespace

const OfficeResidueVerifier::NameSet& OfficeResidueVerifier::revisionAttributeNames() {
    static const NameSet names{"author", "date"};
    return names;
}
const OfficeResidueVerifier::NameSet& OfficeResidueVerifier::cellRevisionElementNames() {
    static const NameSet names{"cellIns", "cellDel", "cellMerge"};
    return names;
}
const OfficeResidueVerifier::NameSet& OfficeResidueVerifier::revisionAuthorshipAttributeNames() {
    static const NameSet names{"author", "userId", "initials"};
    return names;
}
const OfficeResidueVerifier::NameSet& OfficeResidueVerifier::universalIdentityNames() {
    static const NameSet names{"author", "userId", "initials", "email"};
    return names;
}
const OfficeResidueVerifier::NameSet& OfficeResidueVerifier::rosterScopedIdentityNames() {
    static const NameSet names{"name", "displayName", "providerId", "userProvider", "userProviderId"};
    return names;
}
const OfficeResidueVerifier::NameSet& OfficeResidueVerifier::rosterAuthorElementNames() {
    static const NameSet names{"author", "person", "people", "userinfo", "presenceinfo"};
    return names;
}
const OfficeResidueVerifier::NameSet& OfficeResidueVerifier::timestampAttributeNames() {
    static const NameSet names{"date", "dateUtc", "dt", "dT"};
    return names;
}
const OfficeResidueVerifier::NameSet& OfficeResidueVerifier::commentElementNames() {
    static const NameSet names{"comment",          "comments",        "commentList", "commentReference",
                               "commentRangeStart", "commentRangeEnd", "commentRange", "cm",
                               "cmLst",            "threadedComment", "threadedComments"};
    return names;
}
const OfficeResidueVerifier::NameSet& OfficeResidueVerifier::hiddenTextElementNames() {
    static const NameSet names{"vanish", "specVanish"};
    return names;
}

bool OfficeResidueVerifier::isRosterAuthorElement(const XMLElement& element) {
    const std::string lower = lowerCasedPath(element.localName());
    return rosterAuthorElementNames().count(lower) || lower.ends_with("author") || lower.ends_with("person") ||
           lower.ends_with("userinfo");
}

bool OfficeResidueVerifier::isRevisionElementName(std::string_view name) {
    if (name.ends_with("Change")) return true;
    if (name.ends_with("RangeStart") || name.ends_with("RangeEnd")) return !name.starts_with("comment");
    return name == "ins" || name == "del" || name == "delText" || name == "delInstrText" || name.starts_with("move") ||
           cellRevisionElementNames().count(name) > 0;
}

bool OfficeResidueVerifier::isDrawingMLElement(const XMLElement& element) {
    if (element.prefix() == "a") return true;
    const std::string uri = element.uri();
    if (uri.empty()) return false;
    return uri.find("drawingml") != std::string::npos || uri.ends_with("/a") || uri == "urn:a";
}

bool OfficeResidueVerifier::rsidResidue(const XMLElement& root) {
    return anyElement(root, [](const XMLElement& element) {
        const std::string name = element.localName();
        if (name == "rsid" || name == "rsids") return true;
        return anyAttribute(element, [](const XMLNode& attribute) { return attribute.localName().starts_with("rsid"); });
    });
}

bool OfficeResidueVerifier::documentHistoryResidue(const XMLElement& root) {
    return anyElement(root, [](const XMLElement& element) {
        const std::string name = element.localName();
        if (name.empty()) return false;
        if (name.starts_with("move") && isDrawingMLElement(element)) return false;
        if (isRevisionElementName(name)) return true;
        if (name == "trackChange" || name.ends_with("Revision"))
            return anyAttribute(element, [](const XMLNode& attribute) {
                return revisionAttributeNames().count(attribute.localName()) && !attribute.stringValue().empty();
            });
        return false;
    });
}

bool OfficeResidueVerifier::identityResidueOnElement(const XMLElement& element) {
    const bool isRoster = isRosterAuthorElement(element);
    const bool attributeResidue = anyAttribute(element, [&](const XMLNode& attribute) {
        const std::string name = attribute.localName();
        const bool inScope = universalIdentityNames().count(name) || (isRoster && rosterScopedIdentityNames().count(name));
        return inScope && !attribute.stringValue().empty();
    });
    if (attributeResidue) return true;
    const std::string name = element.localName();
    const bool textInScope = isRoster || universalIdentityNames().count(name) || name == "lastModifiedBy";
    return textInScope && hasNonWhitespace(element.stringValue());
}

bool OfficeResidueVerifier::identityResidue(const XMLElement& root) {
    return anyElement(root, [](const XMLElement& element) { return identityResidueOnElement(element); });
}

bool OfficeResidueVerifier::revisionAuthorshipResidue(const XMLElement& root) {
    return anyElement(root, [](const XMLElement& element) {
        if (anyAttribute(element, [](const XMLNode& attribute) {
                return revisionAuthorshipAttributeNames().count(attribute.localName()) && !attribute.stringValue().empty();
            }))
            return true;
        return element.localName() == "lastModifiedBy" && !element.stringValue().empty();
    });
}

bool OfficeResidueVerifier::commentResidue(const XMLElement& root) {
    return anyElement(root, [](const XMLElement& element) {
        const std::string name = element.localName();
        if (commentElementNames().count(name)) return true;
        if (!hiddenTextElementNames().count(name)) return false;
        // A marker without "val" is on.
        const auto value = attributeValue(element, "val");
        if (!value) return true;
        return !OfficeXMLScrubber::isSTOnOffFalse(*value);
    });
}

bool OfficeResidueVerifier::timestampResidue(const XMLElement& root) {
    return anyElement(root, [](const XMLElement& element) {
        return anyAttribute(element, [](const XMLNode& attribute) {
            return timestampAttributeNames().count(attribute.localName()) && !attribute.stringValue().empty();
        });
    });
}

}  // namespace tavrin
