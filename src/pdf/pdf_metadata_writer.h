#pragma once
// The writer for PDF. It removes Info attributes, outline and links as the profile says, clears
// annotation authorship, rewrites the file, then replaces the Info dictionary by an incremental
// update, blanks the superseded one, and refuses the output unless every check of a long chain
// holds: the Info reads clean, annotations read clean, no XMP stream, no embedded files, no
// scripts, no JPEG metadata, and no removed value anywhere in the file's strings.

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "model/metadata_reader.h"
#include "pdf/pdf_byte_layer.h"
#include "pdf/pdf_document.h"
#include "pdf/pdf_errors.h"

namespace tavrin {

class PDFMetadataWriter : public MetadataWriter {
public:
    struct InfoKeyMapping {
        PDFInfoAttribute attribute;
        MetadataCategory category;
    };
    // The order of every walk, and of the entries in a written Info dictionary.
    static const std::vector<InfoKeyMapping>& infoKeyMappings();
    // Producer and the two dates: a PDF writer may put its own values there.
    static bool isReinjected(PDFInfoAttribute attribute);

    struct InMemoryScrubResult {
        std::vector<MetadataItem> removed;
        std::vector<MetadataItem> retained;
        // Every text taken out of annotations (authors, unique names, contents): none may be
        // found in the output.
        std::set<std::string> removedValues;
    };

    std::set<FileType> supportedTypes() const override { return {FileType::pdf}; }
    // Throws PipelineError: readFailed or writeFailed around a PDFWriterError, or
    // outputVerificationFailed. The output stays at `destination` after a failed check; the
    // caller removes it.
    CleaningResult cleanMetadata(const std::filesystem::path& source, const std::filesystem::path& destination,
                                 const CleaningProfile& profile) const override;

    // Info, navigation and annotations of an open document, without saving.
    static InMemoryScrubResult scrubInMemory(PDFDocument& document, const CleaningProfile& profile);

    static MetadataItem infoItem(PDFInfoAttribute attribute, const MetadataValue& value);
    static void scrubInfoAttributes(PDFDocumentAttributes& attributes, const CleaningProfile& profile,
                                    std::vector<MetadataItem>& removed, std::vector<MetadataItem>& retained);
    static void applyLinkPreservation(PDFDocument& document, const PDFLinkPreservationOptions& options,
                                      std::vector<MetadataItem>& removed, std::vector<MetadataItem>& retained);
    // Authors (/T, except on form widgets, where it names the field), unique names (/NM), dates
    // and the words of markup; a pop-up is treated with its annotation.
    static void scrubAnnotations(PDFDocument& document, const CleaningProfile& profile,
                                 std::vector<MetadataItem>& removed, std::vector<MetadataItem>& retained,
                                 std::set<std::string>* removedValues = nullptr);

    // Appends the Info update, blanks the old Info and runs the verification chain on `at`.
    // Nothing when every check holds; otherwise why not, in words.
    static std::optional<std::string> scrubReinjectedInfo(const std::filesystem::path& at, const CleaningProfile& profile,
                                    const PDFDocumentAttributes& originalAttributes,
                                    const std::set<std::string>& removedValues);
    // The entries the new Info holds: the document's own values of everything kept.
    static std::optional<std::vector<pdfBytes::KeptInfoEntry>> keptInfoEntries(
        const PDFDocumentAttributes& originalAttributes, const CleaningProfile& profile);

    // Checks of a re-opened document.
    static bool readsAsClean(const PDFDocumentAttributes& attributes, const CleaningProfile& profile);
    // As readsAsClean, ignoring the reinjected attributes (for encrypted output).
    static bool identifyingInfoVerifiesClean(const PDFDocumentAttributes& attributes, const CleaningProfile& profile);
    static bool annotationsReadClean(PDFDocument& document, const CleaningProfile& profile);
    // The first annotation that does not read clean, as "object 6 0: annotation author (/T) remains".
    static std::optional<std::string> annotationProblem(PDFDocument& document, const CleaningProfile& profile);
    static bool confirmsNoEmbeddedFiles(PDFDocument& document);
    static bool confirmsNoMetadataStream(PDFDocument& document);
    static bool confirmsNoImageMetadata(PDFDocument& document);

    // Text values the profile removes from the Info (reinjected attributes excepted) and from
    // annotations: none of them may survive anywhere in the output's strings.
    static std::set<std::string> removedIdentifyingInfoValues(const PDFDocumentAttributes& originalAttributes,
                                                              const CleaningProfile& profile);
    // Values of fewer than five characters are ignored: they would match by chance.
    static bool forensicScanConfirmsNoResidue(const std::filesystem::path& at,
                                              const std::set<std::string>& removedValues);

private:
    static CleaningResult cleanOpened(const std::filesystem::path& source, const std::filesystem::path& destination,
                                      const CleaningProfile& profile);
    static CleaningResult cleanPlain(PDFDocument& document, const std::filesystem::path& source,
                                     const std::filesystem::path& destination, const CleaningProfile& profile);
    // A file with only an owner password: cleaned, and written under AES-256 with the same
    // permissions and a fresh random owner password.
    static CleaningResult cleanOwnerRestricted(PDFDocument& document, const std::filesystem::path& source,
                                               const std::filesystem::path& destination,
                                               const CleaningProfile& profile);
};

}  // namespace tavrin
