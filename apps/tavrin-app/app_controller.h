#pragma once
// The app as a whole: the context (store, services, loop), the main window, the bus name, and
// what each tavrin: link does here:
//   "app"      brings the window to the front;
//   "enqueue"  adds the files through the import service;
//   "open"     selects the file in the inspector (adding it first when it is not queued);
//   "clean"    adds the files and cleans them with the named preset into copies beside them, or
//              for "share" into the temporary share store; never in place, whatever the settings.

#include <QObject>

#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "app_bus.h"
#include "app_context.h"
#include "handoff/url_dispatch.h"
#include "main_window.h"
#include "qt_event_loop.h"

namespace tavrin {

class AppController : public QObject, private TavrinURLHandler {
    Q_OBJECT
public:
    explicit AppController(AppContext::Options options, QObject* parent = nullptr);
    ~AppController() override;

    // Claims the bus name, before anything else is opened. False when another process is the
    // app: the caller hands its links over and exits.
    bool claimBus();
    // Opens the store and the services, builds the window. Throws what the store's opening
    // throws (StoreError, FileAccessError, FileSystemError).
    void start();
    AppContext& app() { return *app_; }
    MainWindow& window() { return *window_; }
    QtEventLoop& loop() { return loop_; }

    // Carries out one tavrin: link; 0 when it was taken.
    int openURL(const std::string& url);
    // Links for files given on the command line: they join the queue.
    static std::vector<std::string> urlsForArguments(const std::vector<std::filesystem::path>& files);
    void raiseWindow();

signals:
    void urlHandled(QString url, int status);

private:
    int openApp(bool requestsExternalHandoff) override;
    int enqueue(const AdmittedFiles& files) override;
    int open(const AdmittedFiles& file) override;
    int clean(const CleanRequest& request, const std::vector<RejectedFile>& rejected) override;
    int unrecognized(std::string_view url, std::string_view why) override;

    void startNextClean();
    std::shared_ptr<MetadataPreset> presetNamed(const std::optional<std::string>& name, QString& note);

    QtEventLoop loop_;
    AppContext::Options options_;
    std::optional<std::string> busAddress_;
    std::unique_ptr<AppContext> app_;
    std::unique_ptr<MainWindow> window_;
    std::unique_ptr<AppBus> bus_;
    struct PendingClean {
        QStringList ids;
        CleanMode mode;
        QString note;
    };
    std::deque<PendingClean> pendingCleans_;
};

}  // namespace tavrin
