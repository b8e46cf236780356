#pragma once
// Office packages built in code for the tests, the sample files and the fuzz corpus.

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace tavrin::testing {

class OfficePackageBuilder {
public:
    OfficePackageBuilder& add(std::string path, std::string content) {
        parts_.emplace_back(std::move(path), std::move(content));
        return *this;
    }
    // The package written with our ZIP writer, parts deflated in the order added.
    std::vector<std::uint8_t> bytes() const;
    void write(const std::filesystem::path& path) const;
    const std::vector<std::pair<std::string, std::string>>& parts() const { return parts_; }

private:
    std::vector<std::pair<std::string, std::string>> parts_;
};

enum class OfficeKind { docx, xlsx, pptx };

// The property parts, with dirty values a cleaner must find.
std::string coreProperties();
std::string appProperties(OfficeKind kind);
std::string customProperties();

// A minimal valid package of the kind, with content types, relationships and a main part.
OfficePackageBuilder minimalPackage(OfficeKind kind);
// A minimal package plus every property part, a macro project, an embedded OLE object,
// custom XML and (for workbooks) an external link and a data connection.
OfficePackageBuilder dirtyPackage(OfficeKind kind);

// The bytes of an OLE compound file header, as an embedded object starts.
std::string oleCompoundHeader();

}  // namespace tavrin::testing
