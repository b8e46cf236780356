#pragma once
// The second look at a rewritten XML part: whether anything of a category that should be gone
// is still in it. Every predicate walks all elements, the root included, with an explicit
// stack, and stops at the first hit. Local names are compared case-sensitively.

#include <set>
#include <string>
#include <string_view>

#include "office/xml_document.h"

namespace tavrin {

struct OfficeResidueVerifier {
    using NameSet = std::set<std::string, std::less<>>;

    static const NameSet& revisionAttributeNames();            // author, date
    static const NameSet& cellRevisionElementNames();          // cellIns, cellDel, cellMerge
    static const NameSet& revisionAuthorshipAttributeNames();  // author, userId, initials
    static const NameSet& universalIdentityNames();            // author, userId, initials, email
    static const NameSet& rosterScopedIdentityNames();         // name, displayName, providerId, …
    static const NameSet& rosterAuthorElementNames();          // author, person, people, …
    static const NameSet& timestampAttributeNames();           // date, dateUtc, dt, dT
    static const NameSet& commentElementNames();               // comment, comments, … threadedComments
    static const NameSet& hiddenTextElementNames();            // vanish, specVanish

    // A "rsid"/"rsids" element, or any attribute whose local name starts with "rsid".
    static bool rsidResidue(const XMLElement& root);
    // Tracked changes: revision elements, and revision records that still name an author or date.
    static bool documentHistoryResidue(const XMLElement& root);
    // Names, ids, initials or e-mail addresses in identity attributes, roster attributes, or the
    // text of identity and roster elements.
    static bool identityResidue(const XMLElement& root);
    static bool identityResidueOnElement(const XMLElement& element);
    // Authorship attributes, or a non-empty lastModifiedBy.
    static bool revisionAuthorshipResidue(const XMLElement& root);
    // Comment markup, or hidden text that is switched on.
    static bool commentResidue(const XMLElement& root);
    // A non-empty date attribute.
    static bool timestampResidue(const XMLElement& root);

    static bool isRosterAuthorElement(const XMLElement& element);
    static bool isRevisionElementName(std::string_view name);
    // DrawingML (prefix "a", or a DrawingML namespace), whose "move…" names are no revisions.
    static bool isDrawingMLElement(const XMLElement& element);
};

}  // namespace tavrin
