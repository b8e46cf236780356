#pragma once
// Makes a file of a synchronised folder real before it is read. On this platform no file is an
// iCloud item; a file-provider placeholder (a FUSE sync client's stub, a sparse file) is one
// with a size but no allocated blocks, and reading its first byte under the time-out makes the
// provider fetch it. The iCloud poll is kept behind the resource provider, so that tests (and a
// provider that has such items) drive it.

#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "services/clock.h"
#include "services/file_coordinator.h"

namespace tavrin {

enum class CloudDownloadState { local, materialized, iCloudPlaceholder, fileProviderItem };

enum class UbiquitousDownloadingStatus { current, downloaded, notDownloaded };

class CloudFileResourceProviding {
public:
    virtual ~CloudFileResourceProviding() = default;
    // Each answers false or none when the file cannot be asked.
    virtual bool isUbiquitousItem(const std::filesystem::path& url) const = 0;
    virtual std::optional<UbiquitousDownloadingStatus> downloadingStatus(const std::filesystem::path& url) const = 0;
    virtual bool isPlaceholder(const std::filesystem::path& url) const = 0;
    // Throws when the download cannot be started.
    virtual void startDownloadingUbiquitousItem(const std::filesystem::path& url) const = 0;
};

// The platform's answers: nothing is ubiquitous, and a placeholder is a file of more than zero
// bytes with no blocks allocated (st_size > 0 && st_blocks == 0).
class DefaultCloudFileResourceProvider final : public CloudFileResourceProviding {
public:
    bool isUbiquitousItem(const std::filesystem::path& url) const override;
    std::optional<UbiquitousDownloadingStatus> downloadingStatus(const std::filesystem::path& url) const override;
    bool isPlaceholder(const std::filesystem::path& url) const override;
    // Throws FileSystemError: there is no download to start on this platform.
    void startDownloadingUbiquitousItem(const std::filesystem::path& url) const override;
};

class CloudMaterializationError : public std::exception {
public:
    enum class Case { downloadTimedOut, downloadFailed };

    static CloudMaterializationError downloadTimedOut(std::string fileName);
    static CloudMaterializationError downloadFailed(std::string fileName);

    Case errorCase() const { return case_; }
    const std::string& fileName() const { return fileName_; }
    std::string description() const;
    const char* what() const noexcept override { return text_.c_str(); }

private:
    CloudMaterializationError(Case c, std::string fileName);
    Case case_;
    std::string fileName_;
    std::string text_;
};

class CloudFileMaterializer {
public:
    // The platform's provider, a FileCoordinator on the default queue, and the system clock.
    CloudFileMaterializer();
    CloudFileMaterializer(std::shared_ptr<const CloudFileResourceProviding> resourceProvider,
                          std::shared_ptr<FileCoordinating> coordinator, std::shared_ptr<Clock> clock);

    CloudDownloadState downloadState(const std::filesystem::path& url) const;
    // Does nothing for a local or materialized file; otherwise materializes it as its state asks.
    // Throws CloudMaterializationError.
    void materialize(const std::filesystem::path& url, double timeout) const;
    // Starts the download, then polls the status with back-off (0.1 s doubling to at most 1 s)
    // until it is current or downloaded, or the deadline has passed.
    void materializeICloudItem(const std::filesystem::path& url, double timeout) const;
    // A coordinated read of the first byte under `timeout`; any failure, a time-out included, is
    // downloadFailed.
    void materializeFileProviderItem(const std::filesystem::path& url, double timeout) const;

private:
    std::shared_ptr<const CloudFileResourceProviding> resourceProvider_;
    std::shared_ptr<FileCoordinating> coordinator_;
    std::shared_ptr<Clock> clock_;
};

}  // namespace tavrin
