#pragma once
// Cleans password-protected PDFs, adds a password to a cleaned PDF, and removes one. All three
// share `cleanAndWrite`: metadata is scrubbed in memory, the document is written with the wanted
// protection, and the output is re-opened and verified. Callers write into a private folder and
// publish only after success (TavrinEngine::runPasswordOperation).

#include <filesystem>
#include <set>
#include <string>

#include "model/cleaning_result.h"
#include "pdf/pdf_document.h"
#include "pdf/pdf_errors.h"
#include "pdf/pdf_metadata_writer.h"
#include "pdf/pdf_password_policy.h"
#include "pdf/pdf_rewriter.h"

namespace tavrin {

class PDFPasswordProcessor {
public:
    struct Request {
        PDFDocument& document;  // open and unlocked
        std::filesystem::path source;
        std::filesystem::path output;
        CleaningProfile profile;
        PDFPasswordPolicy policy;
        bool sourceWasEncrypted = false;
        // Kept from the source instead of the restricted set (a file with only an owner password).
        std::optional<PDFPermissions> permissions;
    };

    // All throw PDFPasswordError; a wrong password is reported before anything is written.
    CleaningResult cleanEncrypted(const std::filesystem::path& source, const std::filesystem::path& output,
                                  const std::string& password, const CleaningProfile& profile,
                                  const PDFPasswordPolicy& policy) const;
    CleaningResult addPassword(const std::filesystem::path& source, const std::filesystem::path& output,
                               const CleaningProfile& profile, const PDFPasswordPolicy& policy) const;
    CleaningResult removePassword(const std::filesystem::path& source, const std::filesystem::path& output,
                                  const std::string& password, const CleaningProfile& profile) const;

    // False when the file does not open; a file that needs a password counts as encrypted.
    static bool isEncrypted(const std::filesystem::path& at);
    // True only when the file does not open without a password (a user password is set).
    static bool needsPassword(const std::filesystem::path& at);

    static CleaningResult cleanAndWrite(const Request& request);
    // Re-opens `at` and proves the protection and the removals. Throws PDFPasswordError, whose
    // detail says what was found.
    static void verifyOutput(const std::filesystem::path& at, const CleaningProfile& profile,
                             const PDFPasswordPolicy& policy, const std::set<std::string>& originalValues,
                             const std::optional<PDFPermissions>& permissions = std::nullopt);
    // Author, title, subject, keywords and creator values of the (decrypted) attributes.
    static std::set<std::string> identifyingValues(const PDFDocumentAttributes& attributes);
    // Every string object of the decrypted document, searched for the removed values: the raw
    // bytes of an encrypted file cannot be scanned.
    static bool decryptedStringsConfirmNoResidue(PDFDocument& document, const std::set<std::string>& removedValues);
};

}  // namespace tavrin
