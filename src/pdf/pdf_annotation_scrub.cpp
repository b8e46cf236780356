// The writer's work on annotations: links removed or kept as the profile says, authorship, unique
// names, dates and the words of markup cleared, and the check that none of it reads back.
#include "pdf/pdf_metadata_writer.h"

#include <algorithm>

#include "pdf/pdf_date.h"
#include "pdf/pdf_navigation_inspector.h"

namespace tavrin {

namespace {

const std::set<std::string>& markupAnnotationTypes() {
    static const std::set<std::string> types = {"Text",   "FreeText", "Highlight", "Underline", "StrikeOut",
                                                "Squiggly", "Ink",    "Square",    "Circle",    "Line",
                                                "Polygon",  "PolyLine", "Stamp",   "Popup"};
    return types;
}

const std::set<std::string>& fileBearingAnnotationTypes() {
    static const std::set<std::string> types = {"FileAttachment", "Sound", "Movie", "Screen", "RichMedia", "3D"};
    return types;
}

MetadataItem writerItem(std::string id, std::string displayName, MetadataValue value, MetadataCategory category,
                        bool removable) {
    return MetadataItem{id, id, std::move(displayName), std::move(value), category, MetadataSource::pdfKit, removable};
}

MetadataItem annotationAuthorItem(const std::string& author) {
    return writerItem("PDF.Annotation.Author", "Annotation Author", MetadataValue::string(author),
                      MetadataCategory::authorIdentity, true);
}

MetadataItem annotationDateItem(MetadataValue value) {
    return writerItem("PDF.Annotation.ModificationDate", "Annotation ModificationDate", std::move(value),
                      MetadataCategory::timestamps, true);
}

MetadataItem annotationContentsItem(const std::string& contents) {
    return writerItem("PDF.Annotation.Contents", "Annotation Contents", MetadataValue::string(contents),
                      MetadataCategory::commentsAnnotations, true);
}

// What an annotation says about who wrote it, when, and what.
struct AnnotationFacts {
    std::optional<std::string> author;    // /T; on a form widget it is the field's name instead
    std::optional<std::string> name;      // /NM, the unique name an editor gave it
    std::optional<MetadataValue> date;
    std::optional<std::string> contents;  // markup annotations only
};

// What the profile removes from annotations; the tests look at the item kind, not its value.
struct AnnotationRemovals {
    bool author = false;
    bool date = false;
    bool contents = false;
};

std::optional<MetadataValue> annotationDate(QPDFObjectHandle annotation) {
    for (const char* key : {"/M", "/CreationDate"}) {
        auto text = stringValue(annotation.getKey(key));
        if (!text || text->empty()) continue;
        if (auto date = parsePDFDate(*text)) return MetadataValue::date(*date);
        return MetadataValue::string(*text);
    }
    return std::nullopt;
}

AnnotationFacts factsOf(QPDFObjectHandle annotation, const std::string& subtype) {
    AnnotationFacts facts;
    if (subtype != "Widget") {
        auto author = stringValue(annotation.getKey("/T"));
        if (author && !author->empty()) facts.author = *author;
    }
    auto name = stringValue(annotation.getKey("/NM"));
    if (name && !name->empty()) facts.name = *name;
    facts.date = annotationDate(annotation);
    if (markupAnnotationTypes().count(subtype)) {
        auto contents = stringValue(annotation.getKey("/Contents"));
        if (contents && !contents->empty()) facts.contents = *contents;
    }
    return facts;
}

AnnotationRemovals removalsOf(const CleaningProfile& profile) {
    return {profile.shouldRemove(annotationAuthorItem("")),
            profile.shouldRemove(annotationDateItem(MetadataValue::string(""))),
            profile.shouldRemove(annotationContentsItem(""))};
}

// Empties an annotation taken off its page, and its pop-up: nothing it said may stay in the file
// through another reference to it.
void blankRemovedAnnotation(QPDFObjectHandle annotation) {
    QPDFObjectHandle popup = annotation.getKey("/Popup");
    for (QPDFObjectHandle dictionary : {annotation, popup}) {
        if (!dictionary.isDictionary()) continue;
        for (const auto& key : dictionary.getKeys())
            if (key != "/Type" && key != "/Subtype") dictionary.removeKey(key);
    }
}

}  // namespace

void PDFMetadataWriter::applyLinkPreservation(PDFDocument& document, const PDFLinkPreservationOptions& options,
                                              std::vector<MetadataItem>& removed,
                                              std::vector<MetadataItem>& retained) {
    const auto history = MetadataCategory::documentHistory;
    if (auto catalog = document.catalog()) {
        QPDFObjectHandle outlines = catalog->getKey("/Outlines");
        if (outlines.isDictionary()) {
            const auto count = PDFNavigationInspector::countOutlineChildren(outlines);
            MetadataItem item = writerItem("PDF.Navigation.Outline", "Navigation Outline",
                                           MetadataValue::string(std::to_string(count) + " bookmark(s)"), history, false);
            if (options.preserveNavigation) {
                retained.push_back(std::move(item));
            } else {
                catalog->removeKey("/Outlines");
                removed.push_back(std::move(item));
            }
        }
    }
    for (QPDFObjectHandle page : document.pages()) {
        QPDFObjectHandle annots = page.getKey("/Annots");
        if (!annots.isArray()) continue;
        std::vector<QPDFObjectHandle> kept;
        std::vector<QPDFObjectHandle> dropped;
        bool changed = false;
        for (QPDFObjectHandle annotation : annots.getArrayAsVector()) {
            if (!annotation.isDictionary() || annotationSubtype(annotation) != "Link") {
                kept.push_back(annotation);
                continue;
            }
            const auto kind = PDFNavigationInspector::classify(annotation);
            const bool external = kind.kind == PDFNavigationInspector::LinkKind::Kind::externalURL;
            MetadataItem item =
                external ? writerItem("PDF.Navigation.ExternalHyperlink", "Navigation ExternalHyperlink",
                                      MetadataValue::string(kind.url), history, false)
                         : writerItem("PDF.Navigation.InternalLink", "Navigation InternalLink",
                                      MetadataValue::string("internal navigation"), history, false);
            const bool keep = external ? options.preserveExternalHyperlinks : options.preserveNavigation;
            if (keep) {
                kept.push_back(annotation);
                retained.push_back(std::move(item));
            } else {
                changed = true;
                dropped.push_back(annotation);
                removed.push_back(std::move(item));
            }
        }
        if (!changed) continue;
        // A removed link's pop-up goes with it.
        std::set<QPDFObjGen> popups;
        for (QPDFObjectHandle annotation : dropped) {
            QPDFObjectHandle popup = annotation.getKey("/Popup");
            if (popup.isIndirect()) popups.insert(popup.getObjGen());
        }
        std::erase_if(kept, [&](QPDFObjectHandle a) { return a.isIndirect() && popups.count(a.getObjGen()); });
        for (QPDFObjectHandle annotation : dropped) blankRemovedAnnotation(annotation);
        page.replaceKey("/Annots", QPDFObjectHandle::newArray(kept));
    }
}

void PDFMetadataWriter::scrubAnnotations(PDFDocument& document, const CleaningProfile& profile,
                                         std::vector<MetadataItem>& removed, std::vector<MetadataItem>& retained,
                                         std::set<std::string>* removedValues) {
    const AnnotationRemovals removes = removalsOf(profile);
    const auto note = [&](const std::string& value) {
        if (removedValues) removedValues->insert(value);
    };
    document.forEachAnnotation([&](std::size_t, QPDFObjectHandle, QPDFObjectHandle annotation) {
        const std::string subtype = annotationSubtype(annotation);
        const AnnotationFacts facts = factsOf(annotation, subtype);
        if (facts.author) (removes.author ? removed : retained).push_back(annotationAuthorItem(*facts.author));
        if (removes.author) {
            // The unique name goes with the author: editors often build it from the user's name.
            if (facts.author) note(*facts.author);
            if (facts.name) note(*facts.name);
            if (subtype != "Widget") annotation.removeKey("/T");
            annotation.removeKey("/NM");
        }
        if (facts.date) (removes.date ? removed : retained).push_back(annotationDateItem(*facts.date));
        if (removes.date) {
            annotation.removeKey("/M");
            annotation.removeKey("/CreationDate");
        }
        if (facts.contents) {
            MetadataItem item = annotationContentsItem(*facts.contents);
            if (removes.contents) {
                // The rich-text form repeats the words, and a free-text box draws them in its
                // appearance; the shape of every other markup stays.
                note(*facts.contents);
                annotation.removeKey("/Contents");
                annotation.removeKey("/RC");
                if (subtype == "FreeText") annotation.removeKey("/AP");
                removed.push_back(std::move(item));
            } else {
                retained.push_back(std::move(item));
            }
        }
    });
}

std::optional<std::string> PDFMetadataWriter::annotationProblem(PDFDocument& document,
                                                                const CleaningProfile& profile) {
    const AnnotationRemovals removes = removalsOf(profile);
    std::optional<std::string> problem;
    try {
        document.forEachAnnotation([&](std::size_t, QPDFObjectHandle, QPDFObjectHandle annotation) {
            if (problem) return;
            const std::string subtype = annotationSubtype(annotation);
            const AnnotationFacts facts = factsOf(annotation, subtype);
            const std::string where = objectLabel(annotation) + ": ";
            // An embedded payload cannot be proven clean, whatever the profile says.
            if (fileBearingAnnotationTypes().count(subtype))
                problem = where + subtype + " annotation carries a file or media";
            else if (facts.author && removes.author)
                problem = where + "annotation author (/T) remains";
            else if (facts.name && removes.author)
                problem = where + "annotation name (/NM) remains";
            else if (facts.date && removes.date)
                problem = where + "annotation date remains";
            else if (facts.contents && removes.contents)
                problem = where + "annotation contents remain";
        });
    } catch (const std::exception& e) {
        return std::string("annotations cannot be read: ") + e.what();
    }
    return problem;
}

bool PDFMetadataWriter::annotationsReadClean(PDFDocument& document, const CleaningProfile& profile) {
    return !annotationProblem(document, profile);
}

}  // namespace tavrin
