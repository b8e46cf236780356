#include "pdf/pdf_support.h"

#include "pdf/pdf_metadata_reader.h"
#include "pdf/pdf_metadata_writer.h"
#include "pdf/pdf_password_processor.h"

namespace tavrin {

namespace {

class NativePDFSupport final : public PDFSupport {
public:
    std::shared_ptr<const MetadataReader> reader() const override { return reader_; }
    std::shared_ptr<const MetadataWriter> writer() const override { return writer_; }
    bool isEncrypted(const std::filesystem::path& at) const override { return PDFPasswordProcessor::needsPassword(at); }
    CleaningResult cleanEncrypted(const std::filesystem::path& source, const std::filesystem::path& output,
                                  const std::string& password, const CleaningProfile& profile,
                                  const PDFPasswordPolicy& policy) const override {
        return PDFPasswordProcessor().cleanEncrypted(source, output, password, profile, policy);
    }
    CleaningResult addPassword(const std::filesystem::path& source, const std::filesystem::path& output,
                               const CleaningProfile& profile, const PDFPasswordPolicy& policy) const override {
        return PDFPasswordProcessor().addPassword(source, output, profile, policy);
    }
    CleaningResult removePassword(const std::filesystem::path& source, const std::filesystem::path& output,
                                  const std::string& password, const CleaningProfile& profile) const override {
        return PDFPasswordProcessor().removePassword(source, output, password, profile);
    }

private:
    std::shared_ptr<const MetadataReader> reader_ = std::make_shared<PDFMetadataReader>();
    std::shared_ptr<const MetadataWriter> writer_ = std::make_shared<PDFMetadataWriter>();
};

}  // namespace

const PDFSupport& PDFSupport::native() {
    static const NativePDFSupport support;
    return support;
}

}  // namespace tavrin
