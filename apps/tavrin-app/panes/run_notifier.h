#pragma once
// The desktop notification at the end of a run or of a watched-folder batch, sent over
// org.freedesktop.Notifications only while the app's window is not the active one: "3 files
// cleaned", or the failures, with an action that shows the files.

#include <QDBusConnection>
#include <QObject>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "run_report.h"

namespace tavrin {

class RunNotifier final : public QObject {
    Q_OBJECT
public:
    static constexpr const char* showFilesAction = "show-files";

    struct Text {
        std::string summary;
        std::string body;
    };
    // "1 file cleaned", "3 files cleaned", "2 files could not be cleaned", "3 files cleaned, 1
    // failed"; the body names the files (and each failure's reason), at most five of them.
    static Text textFor(const RunReport& report);

    // `windowIsActive` says whether the user is looking at the app (then nothing is sent);
    // `showFiles` reveals the files when the notification's action is clicked.
    RunNotifier(QDBusConnection bus, std::function<bool()> windowIsActive,
                std::function<void(const std::vector<std::filesystem::path>&)> showFiles, QObject* parent = nullptr);

    // Sends the notification unless the window is active or the report is empty; returns whether
    // it asked the server. The call does not wait for the server.
    bool notify(const RunReport& report);

signals:
    // The server's answer to a notification sent (tests, diagnostics).
    void delivered(uint id);

private slots:
    void actionInvoked(uint id, const QString& actionKey);

private:
    QDBusConnection bus_;
    std::function<bool()> windowIsActive_;
    std::function<void(const std::vector<std::filesystem::path>&)> showFiles_;
    std::map<uint, std::vector<std::filesystem::path>> shown_;
};

}  // namespace tavrin
