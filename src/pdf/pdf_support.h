#pragma once
// Everything the program asks of the PDF subsystem, behind one interface that names no qpdf type.
// The program reaches it through a module loaded on first use (pipeline/pdf_module.h): qpdf and the
// TLS library it links would otherwise be loaded by every run, PDF or not, at about ten
// milliseconds each time.

#include <filesystem>
#include <memory>
#include <string>

#include "model/cleaning_profile.h"
#include "model/cleaning_result.h"
#include "model/metadata_reader.h"
#include "pdf/pdf_password_policy.h"

namespace tavrin {

class PDFSupport {
public:
    // Raised when the module and the program were built from different sources.
    static constexpr int interfaceVersion = 1;

    virtual ~PDFSupport() = default;
    virtual int version() const { return interfaceVersion; }
    virtual std::shared_ptr<const MetadataReader> reader() const = 0;
    virtual std::shared_ptr<const MetadataWriter> writer() const = 0;
    // As PDFPasswordProcessor's operations of the same names; all throw PDFPasswordError.
    // `isEncrypted` is true when the file needs a password to open: a file restricted only by an
    // owner password opens without one, and a plain clean keeps its restrictions.
    virtual bool isEncrypted(const std::filesystem::path& at) const = 0;
    virtual CleaningResult cleanEncrypted(const std::filesystem::path& source, const std::filesystem::path& output,
                                          const std::string& password, const CleaningProfile& profile,
                                          const PDFPasswordPolicy& policy) const = 0;
    virtual CleaningResult addPassword(const std::filesystem::path& source, const std::filesystem::path& output,
                                       const CleaningProfile& profile, const PDFPasswordPolicy& policy) const = 0;
    virtual CleaningResult removePassword(const std::filesystem::path& source, const std::filesystem::path& output,
                                          const std::string& password, const CleaningProfile& profile) const = 0;

    // The subsystem's own implementation, for code linked with it directly.
    static const PDFSupport& native();
};

}  // namespace tavrin

// The module's one exported symbol.
extern "C" const tavrin::PDFSupport* tavrin_pdf_support();
