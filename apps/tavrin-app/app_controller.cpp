#include "app_controller.h"

#include <QApplication>

#include "model/cleaning_profile.h"

namespace tavrin {

namespace {

QString qs(std::string_view s) { return QString::fromUtf8(s.data(), static_cast<qsizetype>(s.size())); }

QString rejectedLines(const std::vector<RejectedFile>& rejected) {
    QStringList lines;
    for (const auto& file : rejected)
        lines << QObject::tr("Skipped %1: %2").arg(qs(printable(file.path.string())), qs(file.reason));
    return lines.join(QLatin1Char('\n'));
}

}  // namespace

AppController::AppController(AppContext::Options options, QObject* parent)
    : QObject(parent), options_(std::move(options)), busAddress_(options_.busAddress) {}

void AppController::start() {
    app_ = std::make_unique<AppContext>(loop_, options_);
    window_ = std::make_unique<MainWindow>(*app_);
    connect(window_.get(), &MainWindow::runFinished, this, [this] { startNextClean(); });
}

AppController::~AppController() {
    bus_.reset();
    window_.reset();
    app_.reset();
}

bool AppController::claimBus() {
    if (busAddress_ && busAddress_->empty()) return true;
    // Links arrive on the loop, which runs only once the window exists.
    bus_ = std::make_unique<AppBus>(loop_, [this](const std::string& url) {
        if (window_) openURL(url);
    }, busAddress_);
    const auto claim = bus_->claim();
    if (claim == AppBus::Claim::ownedElsewhere) {
        bus_.reset();
        return false;
    }
    return true;
}

std::vector<std::string> AppController::urlsForArguments(const std::vector<std::filesystem::path>& files) {
    std::vector<std::filesystem::path> absolute;
    for (const auto& file : files) {
        std::error_code ec;
        auto full = std::filesystem::absolute(file, ec);
        absolute.push_back(ec ? file : full.lexically_normal());
    }
    if (absolute.empty()) return {TavrinURL::appURL(false)};
    return TavrinURL::enqueueURLs(absolute);
}

int AppController::openURL(const std::string& url) {
    if (window_->isImporting()) {
        // One intake at a time: the link waits for the files being added.
        loop_.postDelayed(std::chrono::milliseconds(50), [this, url] { openURL(url); });
        return 0;
    }
    const int status = dispatchTavrinURL(url, *this);
    emit urlHandled(QString::fromStdString(url), status);
    return status;
}

void AppController::raiseWindow() {
    window_->show();
    window_->setWindowState((window_->windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
    window_->raise();
    window_->activateWindow();
}

int AppController::openApp(bool) {
    raiseWindow();
    return 0;
}

int AppController::enqueue(const AdmittedFiles& files) {
    raiseWindow();
    // Folders are expanded by the window as for a drop; the link's checks let only files through,
    // so the folders a link names arrive as rejected entries and are offered to the window too.
    std::vector<std::filesystem::path> paths = files.files;
    std::vector<RejectedFile> rejected;
    for (const auto& file : files.rejected) {
        std::error_code ec;
        if (file.path.is_absolute() && std::filesystem::is_directory(file.path, ec)) paths.push_back(file.path);
        else rejected.push_back(file);
    }
    const auto ids = window_->importPaths(paths);
    if (!rejected.empty()) {
        const QString shown = window_->bannerText();
        window_->showBanner(shown.isEmpty() ? rejectedLines(rejected) : shown + QLatin1Char('\n') + rejectedLines(rejected), true);
    }
    return ids.isEmpty() ? 1 : 0;
}

int AppController::open(const AdmittedFiles& file) {
    raiseWindow();
    if (file.files.empty()) {
        window_->showBanner(rejectedLines(file.rejected), true);
        return 1;
    }
    if (window_->selectSource(file.files.front())) return 0;
    return window_->importPaths({file.files.front()}).isEmpty() ? 1 : 0;
}

std::shared_ptr<MetadataPreset> AppController::presetNamed(const std::optional<std::string>& name, QString& note) {
    auto& presets = app_->presets();
    if (!name) return presets.fetchPreset(MetadataPreset::maximumPrivacyID());
    // The link names a preset by the command line's names or by a preset's own name.
    const std::string lower = QString::fromStdString(*name).toLower().toStdString();
    if (lower == "maximum-privacy") return presets.fetchPreset(MetadataPreset::maximumPrivacyID());
    if (lower == "standard-sharing" || lower == "client-deliverable")
        return presets.fetchPreset(MetadataPreset::clientDeliverableID());
    if (lower == "location-only") return presets.fetchPreset(MetadataPreset::locationOnlyID());
    for (const auto& preset : presets.fetchAllPresets())
        if (QString::fromStdString(preset->name).compare(QString::fromStdString(*name), Qt::CaseInsensitive) == 0)
            return preset;
    auto strictest = presets.fetchPreset(MetadataPreset::maximumPrivacyID());
    note = tr("Unknown preset \"%1\": cleaning with %2.")
               .arg(qs(printable(*name, 200)), strictest ? QString::fromStdString(strictest->name) : tr("the strictest preset"));
    return strictest;
}

int AppController::clean(const CleanRequest& request, const std::vector<RejectedFile>& rejected) {
    raiseWindow();
    QString note;
    std::shared_ptr<MetadataPreset> preset;
    try {
        preset = presetNamed(request.presetName, note);
    } catch (const std::exception& e) {
        window_->showBanner(tr("The presets cannot be read: %1").arg(qs(e.what())), true);
        return 1;
    }
    const auto ids = window_->importPaths(request.fileURLs, false);
    if (ids.isEmpty()) {
        if (!rejected.empty()) window_->showBanner(rejectedLines(rejected), true);
        return 1;
    }
    std::vector<std::string> idTexts;
    for (const auto& id : ids) idTexts.push_back(id.toStdString());
    const auto files = app_->files(idTexts);
    for (const auto& file : files) file->immediateCleanProfileName = preset ? preset->name : std::string("Custom");
    try {
        if (preset) app_->queue().setPreset(preset, files);
    } catch (const std::exception& e) {
        window_->showBanner(tr("The preset could not be applied: %1").arg(qs(e.what())), true);
        return 1;
    }
    if (!rejected.empty()) note += (note.isEmpty() ? QString() : QStringLiteral("\n")) + rejectedLines(rejected);
    // A link never cleans in place: copies beside the files, or temporary copies to share.
    pendingCleans_.push_back({ids, request.shareOnly ? CleanMode::share : CleanMode::copy, note});
    startNextClean();
    return 0;
}

void AppController::startNextClean() {
    if (pendingCleans_.empty() || window_->currentRun()) return;
    auto next = std::move(pendingCleans_.front());
    pendingCleans_.pop_front();
    window_->reload();
    if (window_->cleanFiles(next.ids, next.mode) && !next.note.isEmpty()) window_->showBanner(next.note, true);
}

int AppController::unrecognized(std::string_view url, std::string_view why) {
    window_->showBanner(tr("Cannot open %1: %2").arg(qs(printable(url, 200)), qs(why)), true);
    return 1;
}

}  // namespace tavrin
