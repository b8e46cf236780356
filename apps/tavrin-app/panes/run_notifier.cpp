#include "run_notifier.h"

#include "handoff/integration_files.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>

#include <fmt/format.h>

namespace tavrin {

namespace {

constexpr const char* kService = "org.freedesktop.Notifications";
constexpr const char* kPath = "/org/freedesktop/Notifications";
constexpr const char* kInterface = "org.freedesktop.Notifications";
constexpr std::size_t kNamesShown = 5;

std::string files(std::size_t n) { return fmt::format("{} file{}", n, n == 1 ? "" : "s"); }


}  // namespace

RunNotifier::Text RunNotifier::textFor(const RunReport& report) {
    Text text;
    const auto cleaned = report.cleaned.size();
    const auto failed = report.failed.size();
    if (failed == 0) {
        text.summary = files(cleaned) + " cleaned";
    } else if (cleaned == 0) {
        text.summary = files(failed) + " could not be cleaned";
    } else {
        text.summary = fmt::format("{} cleaned, {} failed", files(cleaned), failed);
    }
    std::vector<std::string> lines;
    for (const auto& failure : report.failed)
        lines.push_back(fmt::format("{}: {}", failure.source.filename().string(), failure.reason));
    for (const auto& output : report.cleaned) lines.push_back(output.filename().string());
    const auto total = lines.size();
    if (total > kNamesShown) {
        lines.resize(kNamesShown);
        lines.push_back(fmt::format("and {} more", total - kNamesShown));
    }
    // The server may read the body as markup: a file name must never become a tag.
    for (std::size_t i = 0; i < lines.size(); ++i) text.body += (i ? "\n" : "") + IntegrationFiles::xmlEscape(lines[i]);
    return text;
}

RunNotifier::RunNotifier(QDBusConnection bus, std::function<bool()> windowIsActive,
                         std::function<void(const std::vector<std::filesystem::path>&)> showFiles, QObject* parent)
    : QObject(parent), bus_(std::move(bus)), windowIsActive_(std::move(windowIsActive)), showFiles_(std::move(showFiles)) {
    if (bus_.isConnected())
        bus_.connect(kService, kPath, kInterface, "ActionInvoked", this, SLOT(actionInvoked(uint, QString)));
}

bool RunNotifier::notify(const RunReport& report) {
    if (report.empty() || !bus_.isConnected()) return false;
    if (windowIsActive_ && windowIsActive_()) return false;
    const auto text = textFor(report);
    QStringList actions;
    if (!report.cleaned.empty()) actions << showFilesAction << "Show Files";
    QVariantMap hints;
    hints.insert("desktop-entry", "com.tavrin.Tavrin");
    hints.insert("urgency", QVariant::fromValue<uchar>(report.failed.empty() ? 1 : 2));
    auto message = QDBusMessage::createMethodCall(kService, kPath, kInterface, "Notify");
    message << QString("Tavrin") << uint(0) << QString("com.tavrin.Tavrin") << QString::fromStdString(text.summary)
            << QString::fromStdString(text.body) << actions << hints << int(-1);
    auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(message), this);
    const auto outputs = report.cleaned;
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, outputs](QDBusPendingCallWatcher* call) {
        QDBusPendingReply<uint> reply = *call;
        call->deleteLater();
        if (reply.isError()) return;
        shown_[reply.value()] = outputs;
        emit delivered(reply.value());
    });
    return true;
}

void RunNotifier::actionInvoked(uint id, const QString& actionKey) {
    const auto found = shown_.find(id);
    if (found == shown_.end() || actionKey != showFilesAction) return;
    if (showFiles_) showFiles_(found->second);
}

}  // namespace tavrin
