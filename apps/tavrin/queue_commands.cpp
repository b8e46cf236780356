#include "queue_commands.h"

#include <algorithm>
#include <cctype>
#include <iostream>
#include <unistd.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "cli.h"
#include "data/clean_copy_naming.h"
#include "data/queries.h"
#include "data/store_defaults.h"
#include "handoff/url_dispatch.h"
#include "intake/folder_expansion_service.h"
#include "intake/folder_intake_summary.h"
#include "model/data_size.h"
#include "model/pipeline_error.h"
#include "queue_session.h"
#include "report.h"

namespace tavrin::cli {

namespace {

namespace stdfs = std::filesystem;
using ordered_json = nlohmann::ordered_json;

// A failure a user can act on, with its text.
struct CommandError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::string lowercased(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
    return out;
}

// The starter a named profile of `tavrin clean` stands for.
std::optional<Uuid> starterForProfileName(std::string_view name) {
    const std::string n = lowercased(name);
    if (n == "maximum-privacy") return MetadataPreset::maximumPrivacyID();
    if (n == "standard-sharing" || n == "client-deliverable") return MetadataPreset::clientDeliverableID();
    if (n == "location-only") return MetadataPreset::locationOnlyID();
    return std::nullopt;
}

// A preset by its name as `presets list` shows it (case aside), its id, or a named profile.
std::shared_ptr<MetadataPreset> findPreset(QueueSession& session, std::string_view wanted) {
    const auto all = session.presets->fetchAllPresets();
    for (const auto& p : all)
        if (p->name == wanted) return p;
    for (const auto& p : all)
        if (lowercased(p->name) == lowercased(trimmedWhitespace(wanted))) return p;
    const auto id = uuidFromString(wanted);
    for (const auto& p : all)
        if ((id && p->id == *id)) return p;
    if (auto starter = starterForProfileName(wanted))
        for (const auto& p : all)
            if (p->id == *starter) return p;
    throw CommandError(fmt::format("no preset named \u201C{}\u201D; see 'tavrin presets list'", wanted));
}

// Files by full id or by a prefix of at least four characters that names exactly one file.
QueuedFiles findFiles(QueueSession& session, const std::vector<std::string>& ids) {
    const auto all = session.context().fetch(QueueQueries::allFiles());
    QueuedFiles out;
    for (const auto& given : ids) {
        const std::string wanted = lowercased(given);
        QueuedFiles matches;
        for (const auto& f : all) {
            const std::string id = lowercased(f->id.uuidString());
            if (id == wanted || (wanted.size() >= 4 && id.starts_with(wanted))) matches.push_back(f);
        }
        if (matches.size() != 1)
            throw CommandError(fmt::format("{} \u201C{}\u201D; see 'tavrin queue list'",
                                           matches.empty() ? "no queued file has the id" : "more than one file matches",
                                           given));
        out.push_back(matches.front());
    }
    return out;
}

std::string presetNameOf(QueueSession& session, const QueuedFile& file) {
    if (file.presetId)
        if (auto p = session.presets->fetchPreset(*file.presetId)) return p->name;
    return file.categoriesToRemove().empty() ? "" : std::string(ProcessingHistory::customPresetName);
}

ordered_json fileJSON(QueueSession& session, const QueuedFile& f) {
    auto optionalText = [](const std::optional<std::string>& t) { return t ? ordered_json(*t) : ordered_json(nullptr); };
    return {{"id", f.id.uuidString()},
            {"fileName", f.fullFileName()},
            {"status", std::string(rawValue(f.status()))},
            {"preset", presetNameOf(session, f)},
            {"categoriesToRemove", f.categoriesToRemoveRaw},
            {"fileType", f.fileTypeRaw},
            {"fileSizeBytes", f.fileSizeBytes},
            {"sourcePath", optionalText(f.originalSourcePath)},
            {"stagedPath", f.originalFilePath},
            {"cleanedFilePath", optionalText(f.cleanedFilePath)},
            {"cleanedFileSizeBytes", f.cleanedFileSizeBytes ? ordered_json(*f.cleanedFileSizeBytes) : ordered_json(nullptr)},
            {"editHistoryRetainedInPlace", f.editHistoryRetainedInPlace},
            {"dateAdded", isoDateString(f.dateAdded)},
            {"errorMessage", optionalText(f.errorMessage)}};
}

void printFileLine(QueueSession& session, const QueuedFile& f) {
    std::string detail;
    if (f.status() == QueuedFile::Status::failed && f.errorMessage) detail = "  " + *f.errorMessage;
    if (f.status() == QueuedFile::Status::completed && f.cleanedFilePath) detail = "  \u2192 " + *f.cleanedFilePath;
    const std::string preset = presetNameOf(session, f);
    std::cout << fmt::format("{}  {:<10} {:<20} {}{}\n", f.id.uuidString(), displayName(f.status()),
                             preset.empty() ? "(no preset)" : preset, printable(f.fullFileName()), detail);
}

int runAdd(const QueueCommandOptions& o) {
    auto session = QueueSession::open(o.store);
    std::shared_ptr<MetadataPreset> preset;
    if (o.preset) preset = findPreset(*session, *o.preset);
    std::vector<stdfs::path> given;
    for (const auto& p : o.paths) given.push_back(stdfs::absolute(p).lexically_normal());
    const FolderExpansionService expansion;
    const auto expanded = expansion.expand(given);
    QueuedFiles added;
    if (!expanded.fileURLs.empty()) {
        try {
            added = session->import->importFiles(expanded.fileURLs);
        } catch (const StoreError&) {
            throw;
        } catch (const std::exception& e) {
            // Every file failed: the last failure says why.
            if (auto message = FolderIntakeSummary::message(expanded, 0)) std::cout << *message << "\n";
            throw CommandError(fmt::format("nothing was added to the queue: {}", e.what()));
        }
    }
    if (preset && !added.empty()) session->queue->setPreset(preset, added);
    for (const auto& f : added) printFileLine(*session, *f);
    const auto importedCount = static_cast<std::int64_t>(added.size());
    if (auto message = FolderIntakeSummary::message(expanded, importedCount)) {
        std::cout << *message << "\n";
    } else {
        std::cout << fmt::format("Added {} of {} file{} to the queue\n", importedCount, expanded.fileURLs.size(),
                                 expanded.fileURLs.size() == 1 ? "" : "s");
    }
    if (expanded.capHit && !expanded.containedFolders)
        std::cout << fmt::format("Stopped at the {}-file limit; add the rest in another batch.\n",
                                 expansion.fileCap());
    if (importedCount < static_cast<std::int64_t>(expanded.fileURLs.size()))
        std::cerr << fmt::format("tavrin: {} file{} could not be added (a type Tavrin does not know, or unreadable)\n",
                                 expanded.fileURLs.size() - added.size(),
                                 expanded.fileURLs.size() - added.size() == 1 ? "" : "s");
    return added.empty() ? kFailure : kSuccess;
}

int runList(const QueueCommandOptions& o) {
    auto session = QueueSession::open(o.store);
    const auto files = session->context().fetch(QueueQueries::allFiles());
    if (o.json) {
        auto list = ordered_json::array();
        for (const auto& f : files) list.push_back(fileJSON(*session, *f));
        std::cout << list.dump(2) << "\n";
        return kSuccess;
    }
    for (const auto& f : files) printFileLine(*session, *f);
    std::cout << fmt::format("{} file{} in the queue, {} waiting\n", session->queue->totalFileCount(),
                             session->queue->totalFileCount() == 1 ? "" : "s", session->queue->pendingFileCount());
    return kSuccess;
}

QueuedFiles chosenFiles(QueueSession& session, const QueueCommandOptions& o, const char* flags) {
    if (o.all) return session.context().fetch(QueueQueries::allFiles());
    if (o.completed) return session.context().fetch(QueueQueries::completedFiles());
    if (o.ids.empty()) throw CommandError(fmt::format("name the files by id, or give {}", flags));
    return findFiles(session, o.ids);
}

int runSetPreset(const QueueCommandOptions& o) {
    auto session = QueueSession::open(o.store);
    const auto preset = findPreset(*session, o.name);
    const auto files = chosenFiles(*session, o, "--all");
    session->queue->setPreset(preset, files);
    std::size_t changed = 0;
    for (const auto& f : files) {
        if (f->presetId == preset->id && f->status() == QueuedFile::Status::configured) ++changed;
        else std::cerr << fmt::format("tavrin: {} is {}: only staged and ready files take a preset\n",
                                      printable(f->fullFileName()), lowercased(displayName(f->status())));
    }
    std::cout << fmt::format("{} file{} ready with \u201C{}\u201D\n", changed, changed == 1 ? "" : "s", preset->name);
    return kSuccess;
}

int runProcess(const QueueCommandOptions& o) {
    auto session = QueueSession::open(o.store);
    const auto ready = session->context().fetchCount(QueueQueries::configuredFiles());
    if (ready == 0) {
        if (o.json) std::cout << "[]\n";
        else std::cout << "Nothing to process: no file in the queue is ready (give files a preset first)\n";
        return kSuccess;
    }
    const bool bar = !o.json && ::isatty(STDERR_FILENO);
    auto out = nlohmann::json::array();
    std::size_t failed = 0;
    QueueRunOptions run;
    if (o.inPlace) {
        run.replaceOriginals = std::make_shared<InPlaceReplacement>();
        const auto settings = currentSettings(session->context());
        run.stripEditHistory = settings && settings->stripEditHistoryInPlace;
    }
    const auto summary = session->queue->processQueue([&](const QueueFileOutcome& outcome) {
        FileReport report;
        const QueuedFile& f = *outcome.file;
        report.sourcePath = f.originalSourcePath ? stdfs::path(*f.originalSourcePath) : f.originalFileURL();
        report.fileType = f.fileType();
        if (outcome.result) {
            report.result = outcome.result;
            report.outputPath = outcome.result->outputURL;
            report.replaced = outcome.replaced;
            report.editHistoryRetained = f.editHistoryRetainedInPlace;
        } else {
            ++failed;
            report.error = f.errorMessage.value_or("Unknown error");
            if (outcome.error) {
                try {
                    std::rethrow_exception(outcome.error);
                } catch (const PipelineError& e) {
                    if (!e.reason().empty()) report.reason = e.reason();
                } catch (const InPlaceReplacementError& e) {
                    if (!e.reason().empty()) report.reason = e.reason();
                } catch (...) {
                }
            }
        }
        if (o.json) {
            auto entry = cleanReportJSON(report);
            entry["id"] = f.id.uuidString();
            out.push_back(std::move(entry));
            return;
        }
        if (bar) std::cerr << "\r" << std::string(48, ' ') << "\r";
        printCleanLine(std::cout, std::cerr, report);
        std::cout.flush();
        if (bar) {
            const std::int64_t width = 30;
            const std::int64_t filled = outcome.totalCount ? outcome.finishedCount * width / outcome.totalCount : width;
            std::cerr << fmt::format("\r[{}{}] {}/{}", std::string(static_cast<std::size_t>(filled), '#'),
                                     std::string(static_cast<std::size_t>(width - filled), ' '), outcome.finishedCount,
                                     outcome.totalCount)
                      << std::flush;
        }
    }, run);
    if (bar) std::cerr << "\r" << std::string(48, ' ') << "\r" << std::flush;
    if (o.json) {
        std::cout << out.dump(2) << "\n";
    } else {
        std::cout << fmt::format("{} of {} file{} cleaned and verified{}\n", summary.completed, summary.claimed,
                                 summary.claimed == 1 ? "" : "s", failed ? fmt::format(", {} failed", failed) : "");
        if (o.inPlace && summary.completed > 0 && run.stripEditHistory == false)
            std::cout << "Document edit history was kept (the setting stripEditHistoryInPlace removes it too)\n";
        if (summary.skipped)
            std::cout << fmt::format("{} file{} left to another run already under way\n", summary.skipped,
                                     summary.skipped == 1 ? "" : "s");
        if (summary.completed && !o.inPlace) std::cout << "The cleaned files stay in a temporary folder: 'tavrin queue export DIR' copies them out\n";
    }
    return failed ? kFailure : kSuccess;
}

int runRemove(const QueueCommandOptions& o) {
    auto session = QueueSession::open(o.store);
    const auto files = chosenFiles(*session, o, "--completed or --all");
    session->queue->removeFiles(files);
    std::cout << fmt::format("Removed {} file{} from the queue\n", files.size(), files.size() == 1 ? "" : "s");
    return kSuccess;
}

int runExport(const QueueCommandOptions& o) {
    std::error_code ec;
    if (!stdfs::is_directory(o.directory, ec))
        throw CommandError(PipelineError::outputDirectoryNotAccessible(o.directory).description());
    auto session = QueueSession::open(o.store);
    std::size_t exported = 0, missing = 0;
    for (const auto& f : session->context().fetch(QueueQueries::completedFiles())) {
        if (!f->cleanedFilePath || !stdfs::is_regular_file(*f->cleanedFilePath, ec)) {
            ++missing;
            continue;
        }
        std::set<std::string> existing;
        for (const auto& entry : stdfs::directory_iterator(o.directory, ec)) existing.insert(entry.path().string());
        const auto target = CleanCopyNaming::resolvedCopyURL(f->fileName, o.directory, f->fileExtension, existing);
        // copy_file without an overwrite option fails when the name was taken meanwhile.
        if (!stdfs::copy_file(*f->cleanedFilePath, target, stdfs::copy_options::none, ec) || ec) {
            std::cerr << fmt::format("tavrin: could not export {}: {}\n", printable(f->fullFileName()), ec.message());
            ++missing;
            continue;
        }
        std::cout << fmt::format("exported {} \u2192 {}\n", printable(f->fullFileName()), target.string());
        ++exported;
    }
    std::cout << fmt::format("{} file{} exported to {}\n", exported, exported == 1 ? "" : "s", o.directory.string());
    return missing ? kFailure : kSuccess;
}

std::set<MetadataCategory> parseCategories(const std::vector<std::string>& raw) {
    std::set<MetadataCategory> out;
    for (const auto& text : raw) {
        if (text.empty()) continue;
        const auto c = metadataCategoryFromRawValue(text);
        if (!c) {
            std::string names;
            for (auto each : metadataCategories::allCases()) names += (names.empty() ? "" : ", ") + std::string(rawValue(each));
            throw CommandError(fmt::format("no category \u201C{}\u201D; the categories are {}", text, names));
        }
        out.insert(*c);
    }
    return out;
}

void printPreset(const MetadataPreset& p) {
    std::cout << fmt::format("{}  {}  removes: {}\n", p.id.uuidString(), p.name,
                             p.categoriesToRemoveRaw.empty() ? "nothing by category"
                                                             : fmt::format("{}", fmt::join(p.categoriesToRemoveRaw, ", ")));
}

int runCreatePreset(const QueueCommandOptions& o) {
    auto session = QueueSession::open(o.store);
    std::vector<std::string> names;
    for (const auto& p : session->presets->fetchAllPresets()) names.push_back(p->name);
    const std::string name = MetadataPreset::uniqueName(o.name, names);
    auto preset = session->presets->createPreset(name, parseCategories(o.categories.value_or(std::vector<std::string>{})),
                                                 o.removeKeys.value_or(std::vector<std::string>{}),
                                                 o.keepKeys.value_or(std::vector<std::string>{}));
    printPreset(*preset);
    return kSuccess;
}

int runUpdatePreset(const QueueCommandOptions& o) {
    auto session = QueueSession::open(o.store);
    auto preset = findPreset(*session, o.name);
    std::optional<std::string> newName;
    if (o.newName) {
        std::vector<std::string> others;
        for (const auto& p : session->presets->fetchAllPresets())
            if (p->id != preset->id) others.push_back(p->name);
        newName = MetadataPreset::uniqueName(*o.newName, others);
    }
    std::optional<std::set<MetadataCategory>> categories;
    if (o.categories) categories = parseCategories(*o.categories);
    session->presets->updatePreset(preset, newName, categories, o.removeKeys, o.keepKeys);
    printPreset(*preset);
    return kSuccess;
}

int runDeletePreset(const QueueCommandOptions& o) {
    auto session = QueueSession::open(o.store);
    auto preset = findPreset(*session, o.name);
    session->presets->deletePreset(preset);
    std::cout << fmt::format("Deleted \u201C{}\u201D\n", preset->name);
    return kSuccess;
}

int runDuplicatePreset(const QueueCommandOptions& o) {
    auto session = QueueSession::open(o.store);
    printPreset(*session->presets->duplicatePreset(findPreset(*session, o.name)));
    return kSuccess;
}

int runHistory(const QueueCommandOptions& o) {
    // Reading needs no services: the store alone, without the engine.
    auto container = o.store ? ModelContainerFactory::atURL(*o.store) : ModelContainerFactory::application();
    const std::int64_t limit = std::max<std::int64_t>(0, o.limit.value_or(50));
    const auto records = container->mainContext().fetch(HistoryQueries::recent(limit));
    if (o.json) {
        auto list = ordered_json::array();
        for (const auto& h : records) {
            auto optionalText = [](const std::optional<std::string>& t) { return t ? ordered_json(*t) : ordered_json(nullptr); };
            list.push_back({{"id", h->id.uuidString()},
                            {"fileName", h->fileName},
                            {"processedAt", isoDateString(h->processedAt)},
                            {"presetName", h->presetName},
                            {"originalSize", h->originalSize},
                            {"cleanedSize", h->cleanedSize},
                            {"bytesSaved", h->bytesSaved()},
                            {"removedItemCount", h->removedItemCount},
                            {"duration", h->duration},
                            {"cleanedFilePath", optionalText(h->cleanedFilePath)},
                            {"originalFilePath", optionalText(h->originalFilePath)},
                            {"outputRetained", h->outputRetained}});
        }
        std::cout << list.dump(2) << "\n";
        return kSuccess;
    }
    if (records.empty()) std::cout << "No files cleaned yet\n";
    for (const auto& h : records)
        std::cout << fmt::format("{}  {:<20} {}  {} removed, {}\n", isoDateString(h->processedAt).substr(0, 19),
                                 h->presetName, printable(h->fileName), h->removedItemCount,
                                 DataSize::difference(h->originalSize, h->cleanedSize));
    return kSuccess;
}

}  // namespace

QueueCommands::QueueCommands(CLI::App& app, StoreCommandOptions& storeOptions) {
    auto& o = *options_;
    const char* storeHelp = "Use the store at PATH instead of the user's (~/.local/share/Tavrin/Tavrin.store)";
    auto* queue = app.add_subcommand("queue", "The queue: add files, give them a preset, clean them, export the results");
    queue->require_subcommand(1);
    auto withStore = [&](CLI::App* command) {
        command->add_option("--store", o.store, storeHelp);
        return command;
    };
    add_ = withStore(queue->add_subcommand("add", "Add files and folders to the queue (folders are walked, at most 2000 files)"));
    add_->add_option("--preset", o.preset, "Give the files this preset (a name from 'presets list', or a profile such as maximum-privacy)");
    add_->add_option("PATH", o.paths, "Files or folders")->required();
    list_ = withStore(queue->add_subcommand("list", "List the queued files, newest first"));
    list_->add_flag("--json", o.json, "Print JSON");
    setPreset_ = withStore(queue->add_subcommand("set-preset", "Give queued files a preset, which makes them ready"));
    setPreset_->add_option("NAME", o.name, "A preset's name or id, or a profile such as maximum-privacy")->required();
    setPreset_->add_option("ID", o.ids, "Queued files (an id, or its first characters)");
    setPreset_->add_flag("--all", o.all, "Every staged and ready file");
    process_ = withStore(queue->add_subcommand("process", "Clean every ready file into a temporary folder, verifying each"));
    process_->add_flag("--json", o.json, "Print a JSON array of per-file reports");
    process_->add_flag("--in-place", o.inPlace,
                       "Replace each file where you have it with its verified clean copy (status clean); the "
                       "originals go to the Trash, and a file changed since it was added is left alone");
    remove_ = withStore(queue->add_subcommand("remove", "Remove files from the queue with their staged copies and temporary outputs"));
    remove_->add_option("ID", o.ids, "Queued files (an id, or its first characters)");
    remove_->add_flag("--completed", o.completed, "Every completed file");
    remove_->add_flag("--all", o.all, "Every file");
    export_ = withStore(queue->add_subcommand("export", "Copy the completed files' cleaned copies into DIR (never overwriting)"));
    export_->add_option("DIR", o.directory, "Where to put the copies")->required();

    CLI::App* presets = storeOptions.presets;
    create_ = withStore(presets->add_subcommand("create", "Create a preset of your own"));
    create_->add_option("NAME", o.name, "Its name (made unique if taken)")->required();
    auto addLists = [&](CLI::App* command) {
        command->add_option("--categories", o.categories, "Categories to remove, comma-separated (location, deviceInfo, …)")
            ->delimiter(',')->expected(0, -1);
        command->add_option("--remove-key", o.removeKeys, "Also remove this item id or key (repeatable)")->expected(1)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
        command->add_option("--keep-key", o.keepKeys, "Keep this item id or key (repeatable)")->expected(1)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    };
    addLists(create_);
    update_ = withStore(presets->add_subcommand("update", "Change a preset of your own; what is not given stays"));
    update_->add_option("NAME", o.name, "The preset's name or id")->required();
    update_->add_option("--name", o.newName, "Its new name");
    addLists(update_);
    delete_ = withStore(presets->add_subcommand("delete", "Delete a preset of your own; its ready files need a preset again"));
    delete_->add_option("NAME", o.name, "The preset's name or id")->required();
    duplicate_ = withStore(presets->add_subcommand("duplicate", "Copy a preset (starters too) as a preset of your own"));
    duplicate_->add_option("NAME", o.name, "The preset's name or id")->required();

    history_ = withStore(app.add_subcommand("history", "The files the queue cleaned, newest first"));
    history_->add_option("--limit", o.limit, "How many records (default 50)")->check(CLI::NonNegativeNumber);
    history_->add_flag("--json", o.json, "Print JSON");
}

std::optional<int> QueueCommands::runIfChosen() const {
    using Runner = int (*)(const QueueCommandOptions&);
    const std::pair<CLI::App*, Runner> commands[] = {
        {add_, runAdd},       {list_, runList},           {setPreset_, runSetPreset},       {process_, runProcess},
        {remove_, runRemove}, {export_, runExport},       {create_, runCreatePreset},       {update_, runUpdatePreset},
        {delete_, runDeletePreset}, {duplicate_, runDuplicatePreset}, {history_, runHistory},
    };
    for (const auto& [command, runner] : commands) {
        if (!*command) continue;
        try {
            return runner(*options_);
        } catch (const CommandError& e) {
            std::cerr << "tavrin: " << e.what() << "\n";
            return kUsage;
        } catch (const PresetServiceError& e) {
            std::cerr << "tavrin: " << e.what() << "\n";
            return kFailure;
        } catch (const std::exception& e) {
            std::cerr << "tavrin: " << e.what() << "\n";
            return kFailure;
        }
    }
    return std::nullopt;
}

}  // namespace tavrin::cli
