#include "services/staging_service.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>

#include "model/uuid.h"
#include "services/file_access_error.h"

namespace tavrin {

namespace stdfs = std::filesystem;

namespace {

std::optional<std::string> realPath(const stdfs::path& path) {
    char* resolved = ::realpath(path.c_str(), nullptr);
    if (!resolved) return std::nullopt;
    std::string text(resolved);
    std::free(resolved);
    return text;
}

bool existsFollowingLinks(const stdfs::path& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0;
}

// The extension without its dot, as a URL's path extension: "a.tar.gz" gives "gz", "README"
// gives "".
std::string pathExtension(const stdfs::path& url) {
    const auto ext = url.filename().extension().string();
    return ext.empty() ? std::string() : ext.substr(1);
}

}  // namespace

StagingService::StagingService(stdfs::path stagingDirectory, std::shared_ptr<FileCoordinating> coordinator,
                               std::shared_ptr<FileOperations> files)
    : stagingDirectory_(std::move(stagingDirectory)), coordinator_(std::move(coordinator)), files_(std::move(files)) {}

std::string StagingService::canonicalizedPath(const stdfs::path& url) {
    auto standardized = url.lexically_normal();
    if (standardized.has_filename() == false && standardized.has_parent_path()) standardized = standardized.parent_path();
    if (existsFollowingLinks(standardized)) {
        if (auto resolved = realPath(standardized)) return *resolved;
    }
    const auto parent = standardized.parent_path();
    auto resolvedParent = parent.empty() ? std::nullopt : realPath(parent);
    return ((resolvedParent ? stdfs::path(*resolvedParent) : parent) / standardized.filename()).string();
}

bool StagingService::isInsideStaging(const stdfs::path& url) const {
    const auto root = canonicalizedPath(stagingDirectory_);
    const auto candidate = canonicalizedPath(url);
    return candidate == root || candidate.starts_with(root + "/");
}

std::optional<stdfs::path> StagingService::containedLocation(const stdfs::path& url) const {
    if (!isInsideStaging(url)) return std::nullopt;
    // The test above works on the standardized path; the kernel resolves "link/.." physically.
    // So the operation gets the directory the kernel would really use, tested again.
    const auto name = url.filename();
    if (name.empty() || name == "." || name == "..") return std::nullopt;
    const auto parent = realPath(url.parent_path().empty() ? stdfs::path(".") : url.parent_path());
    if (!parent) return std::nullopt;
    const auto root = canonicalizedPath(stagingDirectory_);
    auto location = stdfs::path(*parent) / name;
    if (!location.string().starts_with(root + "/")) return std::nullopt;
    return location;
}

stdfs::path StagingService::ensureStagingDirectory() const {
    files_->createDirectories(stagingDirectory_);
    return stagingDirectory_;
}

stdfs::path StagingService::stageCopy(const stdfs::path& source) const {
    ensureStagingDirectory();
    // The user's name is not kept: a fresh identifier rules out collisions.
    const auto destination = stagingDirectory_ / (Uuid::random().uuidString() + "." + pathExtension(source));
    coordinator_->coordinateReadingSync(source, [&](const stdfs::path& coordinated) { files_->copyFile(coordinated, destination); });
    return destination;
}

void StagingService::deleteIfExists(const std::optional<stdfs::path>& url) const noexcept {
    if (!url) return;
    try {
        // The staging directory itself is not "inside" for a deletion.
        const auto location = containedLocation(*url);
        if (!location) return;
        std::error_code error;
        if (!stdfs::exists(stdfs::symlink_status(*location, error))) return;
        files_->removeItem(*location);
    } catch (...) {
        // Deletions in staging are not critical; a leftover is swept with the directory.
    }
}

stdfs::path StagingService::replaceStagedCopy(const stdfs::path& stagedURL, const stdfs::path& source) const {
    return replaceStagedCopy(stagedURL, source, nullptr);
}

stdfs::path StagingService::replaceStagedCopy(const stdfs::path& stagedURL, const stdfs::path& source,
                                              const std::atomic<bool>* abandoned) const {
    const auto location = containedLocation(stagedURL);
    if (!location) throw FileAccessError(FileAccessError::Code::fileWriteNoPermission, stagedURL);
    auto temporaryName = "." + Uuid::random().uuidString() + ".replacement";
    if (const auto ext = pathExtension(stagedURL); !ext.empty()) temporaryName += "." + ext;
    const auto temporary = location->parent_path() / temporaryName;
    try {
        // A copy that failed half-way is removed too: no temporary outlives a failure.
        files_->copyFile(source, temporary);
        if (abandoned && abandoned->load()) {
            // The caller timed out while the copy was made: its result is dropped.
            files_->removeItem(temporary);
            return stagedURL;
        }
        std::error_code error;
        if (stdfs::exists(stdfs::symlink_status(*location, error))) files_->replaceItem(*location, temporary);
        else files_->moveItem(temporary, *location);
    } catch (...) {
        try {
            files_->removeItem(temporary);
        } catch (...) {
        }
        throw;
    }
    return stagedURL;
}

bool StagingService::shouldFallBackToStagedCopy(std::exception_ptr error) {
    try {
        if (error) std::rethrow_exception(error);
    } catch (const FileAccessError& e) {
        using C = FileAccessError::Code;
        return e.code() == C::fileReadNoPermission || e.code() == C::fileReadNoSuchFile || e.code() == C::fileNoSuchFile;
    } catch (...) {
    }
    return false;
}

StagedInputRefresh StagingService::refreshStagedInput(const StagedInputRequest& request,
                                                      const CloudFileMaterializer& materializer, double timeout) const {
    const auto staged = request.stagedURL;
    if (!request.beginResolvedOriginalFileAccess) return StagedInputRefresh{staged, std::nullopt};

    bool accessing = false;
    const auto stop = [&] {
        if (accessing && request.stopAccess) request.stopAccess();
        accessing = false;
    };
    try {
        const auto original = request.beginResolvedOriginalFileAccess();
        accessing = true;
        materializer.materialize(original, timeout);
        if (original.lexically_normal() != staged.lexically_normal()) {
            // The body may outlive this call after a time-out, so it holds copies of what it uses,
            // and a copy it finishes after the caller gave up is not swapped in.
            auto abandoned = std::make_shared<std::atomic<bool>>(false);
            try {
                coordinator_->coordinateReading(
                    original, timeout, [self = *this, staged, abandoned](const stdfs::path& coordinated) {
                        self.replaceStagedCopy(staged, coordinated, abandoned.get());
                    });
            } catch (...) {
                *abandoned = true;
                throw;
            }
        }
        struct stat info {};
        if (::stat(original.c_str(), &info) != 0) throw FileAccessError::reading(original, errno);
        stop();
        return StagedInputRefresh{staged, static_cast<std::int64_t>(info.st_size)};
    } catch (const CloudMaterializationError&) {
        stop();
        throw;
    } catch (...) {
        stop();
        // A moved or unreadable user's file never stops a clean of the copy we have.
        if (shouldFallBackToStagedCopy(std::current_exception())) return StagedInputRefresh{staged, std::nullopt};
        throw;
    }
}

}  // namespace tavrin
