#pragma once
// Coordinated access to user files that cannot hang forever. Another process (a sync client on a
// FUSE mount) may hold a file; a coordinated operation waits for it at most `timeout` seconds and
// then fails with FileCoordinationError::timedOut, while the body, if it started, runs on to its
// end unobserved. There is no coordination service on this platform: the body runs at once on the
// coordinator's serial worker, and the time-out rule is kept.

#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "services/clock.h"

namespace tavrin {

class FileCoordinationError : public std::exception {
public:
    enum class Case { timedOut };

    static FileCoordinationError timedOut(std::filesystem::path url, double timeout);

    Case errorCase() const { return case_; }
    const std::filesystem::path& url() const { return url_; }
    double timeout() const { return timeout_; }
    std::string description() const;
    const char* what() const noexcept override { return text_.c_str(); }

private:
    FileCoordinationError(Case c, std::filesystem::path url, double timeout);
    Case case_;
    std::filesystem::path url_;
    double timeout_ = 0;
    std::string text_;
};

class FileCoordinating {
public:
    // Gets the coordinated path of the file. A body given to a timed operation may outlive the
    // call that gave it (the caller has its time-out and goes on): it must own, or share
    // ownership of, everything it touches, and capture nothing of the caller's by reference.
    using Body = std::function<void(const std::filesystem::path& coordinatedURL)>;
    static constexpr double defaultTimeout = 120.0;

    virtual ~FileCoordinating() = default;

    // Runs `body` on the calling thread; no time-out. Throws what the body throws.
    void coordinateReadingSync(const std::filesystem::path& url, const Body& body) { performReadingSync(url, body); }
    // Runs `body` off the calling thread and waits for it, at most `timeout` seconds. Throws what
    // the body throws, or FileCoordinationError::timedOut.
    void coordinateReading(const std::filesystem::path& url, double timeout, Body body) {
        performReading(url, timeout, std::move(body));
    }
    void coordinateReading(const std::filesystem::path& url, Body body) {
        performReading(url, defaultTimeout, std::move(body));
    }
    // As coordinateReading, for a body that replaces the file.
    void coordinateWritingForReplacing(const std::filesystem::path& url, double timeout, Body body) {
        performWritingForReplacing(url, timeout, std::move(body));
    }
    void coordinateWritingForReplacing(const std::filesystem::path& url, Body body) {
        performWritingForReplacing(url, defaultTimeout, std::move(body));
    }

protected:
    virtual void performReadingSync(const std::filesystem::path& url, const Body& body) = 0;
    virtual void performReading(const std::filesystem::path& url, double timeout, Body body) = 0;
    virtual void performWritingForReplacing(const std::filesystem::path& url, double timeout, Body body) = 0;
};

// One serial worker thread per coordinator (and its copies): coordinated operations on one
// coordinator wait for each other, and the time-out of a waiting one runs from its own start.
// A body whose caller has already timed out before the worker reached it is not run at all.
class FileCoordinator final : public FileCoordinating {
public:
    static constexpr const char* defaultQueueLabel = "com.tavrin.file-coordinator";

    explicit FileCoordinator(std::shared_ptr<Clock> clock = std::make_shared<SystemClock>(),
                             std::string queueLabel = defaultQueueLabel);

    const std::string& queueLabel() const { return label_; }

protected:
    void performReadingSync(const std::filesystem::path& url, const Body& body) override;
    void performReading(const std::filesystem::path& url, double timeout, Body body) override;
    void performWritingForReplacing(const std::filesystem::path& url, double timeout, Body body) override;

private:
    class Worker;
    void coordinate(const std::filesystem::path& url, double timeout, Body body);

    std::shared_ptr<Clock> clock_;
    std::string label_;
    std::shared_ptr<Worker> worker_;
};

}  // namespace tavrin
