#pragma once
// The reader for docx, xlsx and pptx: the core, extended and custom property parts, then
// what the hidden-content detectors find. It reads only those parts (and the few the
// detectors name), never the document body or its media. Items have the source `zipXML` and
// equal id and key ("Core.Creator", "App.Company", "Custom.<name>").

#include <cstdint>
#include <exception>
#include <span>
#include <string>
#include <vector>

#include "model/metadata_reader.h"
#include "model/typed_error.h"

namespace tavrin {

enum class OfficeMetadataReaderErrorCase { cannotOpenArchive, xmlParsingFailed, notAnOfficePackage };

class OfficeMetadataReaderError : public TypedError<OfficeMetadataReaderErrorCase> {
public:
    static OfficeMetadataReaderError cannotOpenArchive() { return OfficeMetadataReaderError(Case::cannotOpenArchive, "", ""); }
    // A ZIP of another kind under an Office extension; `reason` says what it is or lacks.
    static OfficeMetadataReaderError notAnOfficePackage(std::string reason) {
        return OfficeMetadataReaderError(Case::notAnOfficePackage, "", std::move(reason));
    }
    static OfficeMetadataReaderError xmlParsingFailed(std::string part, std::string reason) {
        return OfficeMetadataReaderError(Case::xmlParsingFailed, std::move(part), std::move(reason));
    }
    const std::string& part() const { return part_; }
    std::string description() const;

private:
    // `reason` is the detail.
    OfficeMetadataReaderError(Case c, std::string part, std::string reason)
        : TypedError(c, std::move(reason)), part_(std::move(part)) {
        setText(description());
    }
    std::string part_;
};

class OfficeMetadataReader : public MetadataReader {
public:
    std::set<FileType> supportedTypes() const override { return {FileType::docx, FileType::xlsx, FileType::pptx}; }
    // A readable file with a supported extension that opens as a ZIP archive.
    bool canRead(const std::filesystem::path& url) const override;
    // Throws PipelineError (fileTypeUnknown, or readFailed around cannotOpenArchive),
    // OfficeMetadataReaderError for a property part that is not XML, or the ArchiveError of a
    // property part that cannot be extracted.
    MetadataTree readMetadata(const std::filesystem::path& url) const override;

    // The items of each property part; throw xmlParsingFailed for malformed XML.
    static std::vector<MetadataItem> parseCoreXML(std::span<const std::uint8_t> data);
    static std::vector<MetadataItem> parseAppXML(std::span<const std::uint8_t> data);
    static std::vector<MetadataItem> parseCustomXML(std::span<const std::uint8_t> data);
};

}  // namespace tavrin
