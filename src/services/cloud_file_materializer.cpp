#include "services/cloud_file_materializer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "model/pipeline_error.h"

namespace tavrin {

// ---- DefaultCloudFileResourceProvider

bool DefaultCloudFileResourceProvider::isUbiquitousItem(const std::filesystem::path&) const { return false; }

std::optional<UbiquitousDownloadingStatus> DefaultCloudFileResourceProvider::downloadingStatus(
    const std::filesystem::path&) const {
    return std::nullopt;
}

bool DefaultCloudFileResourceProvider::isPlaceholder(const std::filesystem::path& url) const {
    struct stat info {};
    if (::stat(url.c_str(), &info) != 0) return false;
    return S_ISREG(info.st_mode) && info.st_size > 0 && info.st_blocks == 0;
}

void DefaultCloudFileResourceProvider::startDownloadingUbiquitousItem(const std::filesystem::path& url) const {
    throw FileSystemError(fmt::format("Cannot download {}: no cloud storage of that kind here", url.string()), ENOTSUP);
}

// ---- CloudMaterializationError

CloudMaterializationError::CloudMaterializationError(Case c, std::string fileName)
    : case_(c), fileName_(std::move(fileName)) {
    text_ = description();
}

CloudMaterializationError CloudMaterializationError::downloadTimedOut(std::string fileName) {
    return CloudMaterializationError(Case::downloadTimedOut, std::move(fileName));
}

CloudMaterializationError CloudMaterializationError::downloadFailed(std::string fileName) {
    return CloudMaterializationError(Case::downloadFailed, std::move(fileName));
}

std::string CloudMaterializationError::description() const {
    switch (case_) {
        case Case::downloadTimedOut:
            return "Couldn't download " + fileName_ + " from cloud storage \u2014 the download timed out.";
        case Case::downloadFailed:
            return "Couldn't download " + fileName_ + " from cloud storage.";
    }
    return {};
}

// ---- CloudFileMaterializer

CloudFileMaterializer::CloudFileMaterializer()
    : CloudFileMaterializer(std::make_shared<DefaultCloudFileResourceProvider>(), std::make_shared<FileCoordinator>(),
                            std::make_shared<SystemClock>()) {}

CloudFileMaterializer::CloudFileMaterializer(std::shared_ptr<const CloudFileResourceProviding> resourceProvider,
                                             std::shared_ptr<FileCoordinating> coordinator,
                                             std::shared_ptr<Clock> clock)
    : resourceProvider_(std::move(resourceProvider)), coordinator_(std::move(coordinator)), clock_(std::move(clock)) {}

namespace {

bool isDownloaded(std::optional<UbiquitousDownloadingStatus> status) {
    return status == UbiquitousDownloadingStatus::current || status == UbiquitousDownloadingStatus::downloaded;
}

}  // namespace

CloudDownloadState CloudFileMaterializer::downloadState(const std::filesystem::path& url) const {
    if (resourceProvider_->isUbiquitousItem(url)) {
        return isDownloaded(resourceProvider_->downloadingStatus(url)) ? CloudDownloadState::materialized
                                                                       : CloudDownloadState::iCloudPlaceholder;
    }
    return resourceProvider_->isPlaceholder(url) ? CloudDownloadState::fileProviderItem : CloudDownloadState::local;
}

void CloudFileMaterializer::materialize(const std::filesystem::path& url, double timeout) const {
    switch (downloadState(url)) {
        case CloudDownloadState::local:
        case CloudDownloadState::materialized:
            return;
        case CloudDownloadState::iCloudPlaceholder:
            return materializeICloudItem(url, timeout);
        case CloudDownloadState::fileProviderItem:
            return materializeFileProviderItem(url, timeout);
    }
}

void CloudFileMaterializer::materializeICloudItem(const std::filesystem::path& url, double timeout) const {
    const auto name = url.filename().string();
    try {
        resourceProvider_->startDownloadingUbiquitousItem(url);
    } catch (...) {
        throw CloudMaterializationError::downloadFailed(name);
    }
    const auto deadline = clock_->now() + seconds(timeout);
    const Clock::Duration ceiling = std::chrono::seconds(1);
    Clock::Duration delay = std::chrono::milliseconds(100);
    for (;;) {
        if (isDownloaded(resourceProvider_->downloadingStatus(url))) return;
        if (clock_->now() >= deadline) throw CloudMaterializationError::downloadTimedOut(name);
        clock_->sleepFor(delay);
        delay = std::min(delay * 2, ceiling);
    }
}

void CloudFileMaterializer::materializeFileProviderItem(const std::filesystem::path& url, double timeout) const {
    const auto name = url.filename().string();
    try {
        coordinator_->coordinateReading(url, timeout, [](const std::filesystem::path& coordinated) {
            // Reading a byte is what makes a sync client fetch the file's data.
            const int fd = ::open(coordinated.c_str(), O_RDONLY | O_CLOEXEC);
            if (fd < 0) throw FileSystemError(fmt::format("Cannot open {}: {}", coordinated.string(), std::strerror(errno)), errno);
            char byte = 0;
            const auto got = ::read(fd, &byte, 1);
            const int code = errno;
            ::close(fd);
            if (got < 0) throw FileSystemError(fmt::format("Cannot read {}: {}", coordinated.string(), std::strerror(code)), code);
        });
    } catch (const CloudMaterializationError&) {
        throw;
    } catch (...) {
        throw CloudMaterializationError::downloadFailed(name);
    }
}

}  // namespace tavrin
