#include "pipeline/pdf_module.h"

#include <dlfcn.h>

#include <stdexcept>
#include <string>
#include <system_error>
#include <variant>

#include <fmt/format.h>

#include "pdf/pdf_errors.h"

namespace tavrin::pdfModule {

namespace {

std::filesystem::path modulePath() {
    std::error_code ec;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (ec) throw std::runtime_error("PDF support cannot be loaded: the program's own location is unknown");
    return program.parent_path().parent_path() / "lib" / "tavrin" / "tavrin-pdf.so";
}

// The support, or the reason it is missing. The module stays loaded for the life of the process.
std::variant<const PDFSupport*, std::string> load() {
    try {
        const auto path = modulePath();
        void* module = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!module) return fmt::format("PDF support cannot be loaded: {}", ::dlerror());
        using Entry = const PDFSupport* (*)();
        auto entry = reinterpret_cast<Entry>(::dlsym(module, "tavrin_pdf_support"));
        const PDFSupport* support = entry ? entry() : nullptr;
        if (!support || support->version() != PDFSupport::interfaceVersion)
            return fmt::format("PDF support cannot be loaded: {} does not match this program", path.string());
        return support;
    } catch (const std::exception& e) {
        return std::string(e.what());
    }
}

class ModuleReader final : public MetadataReader {
public:
    std::set<FileType> supportedTypes() const override { return {FileType::pdf}; }
    bool canRead(const std::filesystem::path& url) const override { return support().reader()->canRead(url); }
    MetadataTree readMetadata(const std::filesystem::path& url) const override {
        return support().reader()->readMetadata(url);
    }
};

class ModuleWriter final : public MetadataWriter {
public:
    std::set<FileType> supportedTypes() const override { return {FileType::pdf}; }
    CleaningResult cleanMetadata(const std::filesystem::path& source, const std::filesystem::path& destination,
                                 const CleaningProfile& profile) const override {
        return support().writer()->cleanMetadata(source, destination, profile);
    }
};

}  // namespace

const PDFSupport& support() {
    static const auto loaded = load();
    // The PDF component's own error, so a password operation raises nothing else; the reader and
    // writer stand-ins pass it on to the pipeline, which wraps it with the file's name.
    if (const auto* reason = std::get_if<std::string>(&loaded))
        throw PDFPasswordError(PDFPasswordError::Case::cannotOpenDocument, *reason);
    return *std::get<const PDFSupport*>(loaded);
}

std::shared_ptr<const MetadataReader> reader() { return std::make_shared<ModuleReader>(); }
std::shared_ptr<const MetadataWriter> writer() { return std::make_shared<ModuleWriter>(); }

}  // namespace tavrin::pdfModule

namespace tavrin {

void registerPDFFormats(FormatRegistry& registry) {
    registry.registerReader(pdfModule::reader());
    registry.registerWriter(pdfModule::writer());
}

}  // namespace tavrin
