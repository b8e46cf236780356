#include "office/office_output_verifier.h"

#include <set>
#include <vector>

#include "image/image_metadata_reader.h"
#include "image/image_metadata_writer.h"
#include "office/office_hidden_content_detector.h"
#include "office/office_media_scrubber.h"
#include "office/office_metadata_reader.h"
#include "office/office_package.h"
#include "office/office_package_check.h"
#include "office/office_part_classifier.h"
#include "office/office_residue_verifier.h"
#include "office/office_saved_path_scrubber.h"
#include "office/office_xml_document.h"
#include "office/office_xml_scrubber.h"
#include "zip/archive.h"

namespace tavrin {

namespace {

using Bytes = std::vector<std::uint8_t>;

bool isThumbnailPath(const std::string& lower) { return lower.starts_with("docprops/thumbnail."); }

using Failure = std::optional<std::string>;

bool profileRemoves(const CleaningProfile& profile, MetadataCategory category) {
    return profile.categoriesToRemove.count(category) > 0;
}

Failure hiddenContentResidue(const Archive& archive) {
    namespace D = OfficeHiddenContentDetector;
    const auto headersAndFooters = D::headerFooterFindings(archive);
    if (!headersAndFooters.orphaned.empty()) return "headers or footers no section uses remain";
    if (!headersAndFooters.inactive.inactiveReferences.empty()) return "word/document.xml: header or footer references no page shows remain";
    if (!D::detectSettingsLatentData(archive).empty()) return "word/settings.xml: document variables, mail merge or template data remain";
    if (const auto paths = D::printerSettingsPaths(archive); !paths.empty()) return *paths.begin() + ": printer settings remain";
    if (const auto paths = D::hiddenWorksheetPaths(archive); !paths.empty()) return *paths.begin() + ": a hidden sheet remains";
    if (const auto paths = D::hiddenSlidePaths(archive); !paths.empty()) return *paths.begin() + ": a hidden slide remains";
    return std::nullopt;
}

bool mediaPrefixed(const std::string& lower) {
    for (const auto& root : OfficeMediaScrubber::officeMediaRoots())
        if (lower.starts_with(root)) return true;
    return false;
}

Failure verifyMediaEntry(const std::string& path, const Bytes& data, bool isDecodable, const CleaningProfile& profile) {
    if (!OfficeMediaScrubber::profileRemovesImageMetadata(profile)) return std::nullopt;
    if (!isDecodable) return path + ": the image could not be decoded to prove it free of metadata";
    const auto items = ImageMetadataReader::removableItems(data);
    if (!items) return path + ": the image's metadata could not be read";
    for (const auto& item : *items) {
        // Profiles name image keys both as the writer's "imageio.<prefix>.<key>" and bare.
        MetadataItem prefixed = item;
        prefixed.id = "imageio." + item.id;
        if (profile.shouldRemove(item) || profile.shouldRemove(prefixed))
            return path + ": image metadata remains (" + item.id + ")";
    }
    return std::nullopt;
}

Failure verifyXMLEntry(const Bytes& data, const std::string& path, const CleaningProfile& profile,
                       const std::set<std::string>& vanishStyleIDs) {
    const std::string lower = lowerCasedPath(path);
    if (!(lower.starts_with("word/") || lower.starts_with("xl/") || lower.starts_with("ppt/"))) return std::nullopt;
    auto document = OfficeXMLDocument::parse(data);
    if (!document || !document->rootElement()) return path + ": not well-formed XML";
    const XMLElement root = *document->rootElement();
    using V = OfficeResidueVerifier;
    if (profileRemoves(profile, MetadataCategory::documentHistory)) {
        if (V::documentHistoryResidue(root)) return path + ": revision history remains";
        if (V::rsidResidue(root)) return path + ": revision identifiers remain";
    }
    if (profileRemoves(profile, MetadataCategory::authorIdentity)) {
        const bool identityPart = OfficePartClassifier::isCommentContentPart(path) ||
                                  OfficePartClassifier::isCommentRosterPart(path) || lower == "xl/revisions/usernames.xml";
        if (identityPart ? V::identityResidue(root) : V::revisionAuthorshipResidue(root))
            return path + ": author names remain";
        if (lower == "xl/workbook.xml" && OfficeSavedPathScrubber::residue(root))
            return path + ": the path the workbook was saved under remains";
        if (lower.starts_with("xl/externallinks/") && OfficeSavedPathScrubber::residue(root))
            return path + ": the linked workbook's other addresses remain";
    }
    if (profileRemoves(profile, MetadataCategory::commentsAnnotations)) {
        if (V::commentResidue(root)) return path + ": comments remain";
        if (!vanishStyleIDs.empty() && OfficeXMLScrubber::containsStyleVanishResidue(root, vanishStyleIDs))
            return path + ": text in hidden comment styles remains";
    }
    if (profileRemoves(profile, MetadataCategory::timestamps) && V::timestampResidue(root)) return path + ": timestamps remain";
    return std::nullopt;
}

Failure verifyEntry(const Archive& archive, const Entry& entry, const CleaningProfile& profile,
                    const std::set<std::string>& vanishStyleIDs) {
    const std::string& path = entry.path();
    const std::string lower = lowerCasedPath(path);
    if (profileRemoves(profile, MetadataCategory::commentsAnnotations) && OfficePartClassifier::isCommentContentPart(path))
        return path + ": the comments part remains";
    if (profileRemoves(profile, MetadataCategory::thumbnails) && isThumbnailPath(lower)) return path + ": the thumbnail remains";
    Bytes data;
    try {
        data = extractEntry(archive, entry);
    } catch (const ArchiveError& error) {
        return path + ": " + error.description();
    }
    const bool decodable = image::sniffImageFormat(data).has_value() && ImageMetadataWriter::isDecodableImageData(data);
    if (mediaPrefixed(lower) || decodable || OfficeMediaScrubber::hasKnownMediaExtension(path))
        return verifyMediaEntry(path, data, decodable, profile);
    if (lower.ends_with(".xml")) return verifyXMLEntry(data, path, profile, vanishStyleIDs);
    return std::nullopt;
}

}  // namespace

std::optional<std::string> outputVerificationFailure(const std::filesystem::path& output,
                                                                     const CleaningProfile& profile) {
    try {
        const Archive archive(output, Archive::AccessMode::read);
        // A package that is not whole is checked no further: the other checks read it as whole.
        if (auto reason = OfficePackageCheck::inconsistency(archive)) return reason;
        const auto tree = OfficeMetadataReader().readMetadata(output);
        for (const auto& item : tree.allItems())
            if (profile.shouldRemove(item)) return item.key + ": " + item.displayName + " remains";
        if (profileRemoves(profile, MetadataCategory::hiddenContent))
            if (auto reason = hiddenContentResidue(archive)) return reason;
        std::set<std::string> vanishStyleIDs;
        if (profileRemoves(profile, MetadataCategory::commentsAnnotations) && archiveEntry("word/styles.xml", archive)) {
            const auto styles = partText(archive, "word/styles.xml");
            if (!styles) return "word/styles.xml: the part could not be read";
            vanishStyleIDs = OfficeXMLScrubber::vanishStyleIDs(styles);
        }
        for (const auto& entry : archive)
            if (entry.type() == EntryType::file)
                if (auto reason = verifyEntry(archive, entry, profile, vanishStyleIDs)) return reason;
        return std::nullopt;
    } catch (const std::exception& error) {
        return std::string("the cleaned copy could not be read back: ") + error.what();
    } catch (...) {
        return "the cleaned copy could not be read back";
    }
}

}  // namespace tavrin
