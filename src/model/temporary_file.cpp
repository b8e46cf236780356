#include "model/temporary_file.h"

#include <cerrno>
#include <cstring>
#include <fmt/core.h>
#include <sys/stat.h>

#include "model/file_system.h"
#include "model/pipeline_error.h"
#include "model/temporary_directories.h"
#include "model/uuid.h"

namespace tavrin {

namespace {
std::filesystem::path temporaryRoot() { return temporaries::root(); }
}  // namespace

TemporaryFile::TemporaryFile(std::string_view prefix, std::string_view extension, bool autoDelete)
    : url_(temporaryRoot() / fmt::format("{}_{}.{}", prefix, Uuid::random().uuidString(), extension)),
      autoDelete_(autoDelete) {}

TemporaryFile::TemporaryFile(const std::filesystem::path& copyOf, bool autoDelete) : autoDelete_(autoDelete) {
    std::string ext = copyOf.extension().string();
    url_ = temporaryRoot() / fmt::format("tavrin_{}{}", Uuid::random().uuidString(), ext);
    std::error_code ec;
    std::filesystem::copy_file(copyOf, url_, std::filesystem::copy_options::none, ec);
    if (ec) {
        fs::removeItemQuietly(url_);
        throw FileSystemError(fmt::format("Cannot copy {}: {}", copyOf.filename().string(), ec.message()), ec.value());
    }
}

TemporaryFile::~TemporaryFile() {
    if (autoDelete_) fs::removeItemQuietly(url_);
}

std::filesystem::path TemporaryFile::makeTemporaryDirectory(std::string_view prefix) {
    return temporaries::createDirectory(prefix);
}

void TemporaryFile::removeTemporaryDirectory(const std::filesystem::path& directory) noexcept {
    temporaries::removeDirectory(directory);
}

ScopedDirectory::~ScopedDirectory() {
    if (!path_.empty()) temporaries::removeDirectory(path_);
}

}  // namespace tavrin
