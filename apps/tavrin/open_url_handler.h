#pragma once
// How the command line carries out each kind of tavrin: link when no app is running. The app's
// queue and its D-Bus hand-off plug in by overriding `enqueue` and `openApp`.

#include <filesystem>
#include <memory>
#include <optional>

#include "data/clean_copy_naming.h"
#include "handoff/url_dispatch.h"

namespace tavrin {
class TavrinEngine;
}

namespace tavrin::cli {

class CommandLineURLHandler : public TavrinURLHandler {
public:
    CommandLineURLHandler();
    ~CommandLineURLHandler() override;

    // Prints what the app would do.
    int openApp(bool requestsExternalHandoff) override;
    // Says that the queue is needed and adds nothing.
    int enqueue(const AdmittedFiles& files) override;
    // Prints what the file carries, as the app's inspector would show it.
    int open(const AdmittedFiles& file) override;
    // Cleans into copies beside the files, or for "share" into a new temporary folder; never in
    // place. An unknown preset cleans with maximum-privacy.
    int clean(const CleanRequest& request, const std::vector<RejectedFile>& rejected) override;
    int unrecognized(std::string_view url, std::string_view why) override;

protected:
    // The suffix of copies written beside their files: the settings' one where there are
    // settings.
    virtual CleanCopySuffix copySuffix() { return CleanCopySuffix(); }

private:
    const TavrinEngine& engine();
    static std::optional<std::filesystem::path> makeShareFolder();

    std::unique_ptr<TavrinEngine> engine_;
};

}  // namespace tavrin::cli
