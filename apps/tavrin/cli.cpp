#include "cli.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <thread>

#include "check_command.h"
#include "command_line_docs.h"
#include "commands.h"
#include "handoff_commands.h"
#include "pdf_commands.h"
#include "queue_commands.h"
#include "store_commands.h"
#include "watch_command.h"
#include "model/cleaning_profile.h"

namespace tavrin::cli {

int run(int argc, char** argv) {
    CLI::App app{"Tavrin shows the metadata a file carries and removes it, verifying every cleaned copy.\n"
                 "Nothing leaves this computer.",
                 "tavrin"};
    app.require_subcommand(1);
    app.set_version_flag("--version", "tavrin 0.1.0");
    app.footer(kExitStatusText);

    CommonOptions formatsOptions;
    auto* formats = app.add_subcommand("formats", "List the file types Tavrin knows and what it can do with each");
    formats->add_flag("--json", formatsOptions.json, "Print JSON");
    formats->add_option("--exiftool", formatsOptions.exifTool, "Use the exiftool at PATH (or 'auto') as a fallback");

    CommonOptions inspectOptions;
    std::vector<std::filesystem::path> inspectFiles;
    auto* inspect = app.add_subcommand("inspect", "Show the metadata each file carries, grouped by category");
    inspect->add_flag("--json", inspectOptions.json, "Print a JSON array, one entry per file");
    inspect->add_option("--exiftool", inspectOptions.exifTool, "Use the exiftool at PATH (or 'auto') as a fallback");
    inspect->add_option("--exiftool-timeout", inspectOptions.exifToolTimeout, "Seconds one exiftool run may take (default 60)")
        ->check(CLI::Range(1u, 3600u));
    addBatchOptions(*inspect, inspectOptions.batch);
    inspect->add_option("FILE", inspectFiles, "Files to inspect");

    CleanOptions cleanOptions;
    auto* clean = app.add_subcommand(
        "clean",
        "Write a cleaned, verified copy of each file (NAME_cleaned.EXT). The original is never changed, and a "
        "copy that cannot be verified is not written. With --in-place the verified copy takes the original's place "
        "and the original goes to the Trash.");
    clean->add_option("--profile", cleanOptions.profile,
                      "maximum-privacy (default), standard-sharing, client-deliverable or location-only");
    clean->add_option("--keep", cleanOptions.keep, "Keep this item id or key (repeatable)")->expected(1)->allow_extra_args(false)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    clean->add_option("--remove", cleanOptions.remove, "Also remove this item id or key (repeatable)")->expected(1)->allow_extra_args(false)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    clean->add_option("-o,--output-dir", cleanOptions.outputDir, "Write the cleaned copies into DIR instead of beside each file");
    clean->add_option("--jobs", cleanOptions.jobs, "Files cleaned in parallel (default: cores, at most 8)")
        ->check(CLI::Range(1u, 64u));
    clean->add_flag("--json", cleanOptions.common.json, "Print a JSON array of per-file reports");
    clean->add_option("--exiftool", cleanOptions.common.exifTool, "Use the exiftool at PATH (or 'auto') as a fallback");
    clean->add_option("--exiftool-timeout", cleanOptions.common.exifToolTimeout, "Seconds one exiftool run may take (default 60)")
        ->check(CLI::Range(1u, 3600u));
    clean->add_option("--password", cleanOptions.password,
                      "Password of encrypted PDFs ('-' reads it from standard input; default: $TAVRIN_PDF_PASSWORD). "
                      "Their cleaned copies keep it as their open password.");
    auto* inPlaceFlag = clean->add_flag(
        "--in-place", cleanOptions.inPlace,
        "Replace each file with its verified clean copy; the original goes to the Trash, where it can be restored");
    clean->add_flag("--strip-edit-history", cleanOptions.stripEditHistory,
                    "With --in-place: also strip the document's edit history (kept by default)")
        ->needs(inPlaceFlag);
    addBatchOptions(*clean, cleanOptions.common.batch);
    clean->add_option("PATH", cleanOptions.paths, "Files or folders (folders are walked; hidden files are skipped)");

    CheckOptions checkOptions;
    auto* check = addCheckCommand(app, checkOptions);

    PDFPasswordOptions addOptions;
    PDFPasswordOptions removeOptions;
    auto* pdf = app.add_subcommand("pdf", "PDF passwords; every output is cleaned and verified first");
    pdf->require_subcommand(1);
    auto* addPassword = pdf->add_subcommand("add-password", "Write a cleaned copy protected with AES-256");
    addPassword->add_option("--user", addOptions.user,
                            "Password that opens the copy ('-' reads it from standard input; default: "
                            "$TAVRIN_PDF_PASSWORD)");
    addPassword->add_option("--owner", addOptions.owner,
                            "Password that lifts the restrictions (printing and accessibility stay allowed)");
    addPassword->add_option("--profile", addOptions.profile, "Cleaning profile (default: maximum-privacy)");
    addPassword->add_option("IN", addOptions.input, "The PDF to protect")->required();
    addPassword->add_option("OUT", addOptions.output, "Where to write the protected copy (must not exist)")->required();
    auto* removePassword = pdf->add_subcommand("remove-password", "Write a cleaned copy without a password");
    removePassword->add_option("--password", removeOptions.password,
                               "The current password ('-' reads it from standard input; default: "
                               "$TAVRIN_PDF_PASSWORD)");
    removePassword->add_option("--profile", removeOptions.profile, "Cleaning profile (default: maximum-privacy)");
    removePassword->add_option("IN", removeOptions.input, "The protected PDF")->required();
    removePassword->add_option("OUT", removeOptions.output, "Where to write the open copy (must not exist)")->required();

    HandoffCommands handoff(app);
    StoreCommandOptions storeOptions;
    addStoreCommands(app, storeOptions);
    WatchCommands watch(app);
    QueueCommands queueCommands(app, storeOptions);

    if (auto generated = runGenerator(app, argc, argv)) return *generated;
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        app.exit(e);
        return kUsage;
    }

    if (auto status = handoff.runIfChosen()) return *status;
    if (auto status = watch.runIfChosen()) return *status;
    if ((*clean || *check) && !CleaningProfile::isPresetName(*check ? checkOptions.profile : cleanOptions.profile)) {
        std::cerr << "tavrin: unknown profile '" << (*check ? checkOptions.profile : cleanOptions.profile)
                  << "'; use maximum-privacy, standard-sharing, client-deliverable or location-only\n";
        return kUsage;
    }
    if (auto status = queueCommands.runIfChosen()) return *status;
    if (auto status = runStoreCommands(storeOptions)) return *status;
    if (*pdf) {
        const auto& options = *addPassword ? addOptions : removeOptions;
        if (!CleaningProfile::isPresetName(options.profile)) {
            std::cerr << "tavrin: unknown profile '" << options.profile << "'\n";
            return kUsage;
        }
        return *addPassword ? runPDFAddPassword(addOptions) : runPDFRemovePassword(removeOptions);
    }
    const CommonOptions& common = *formats ? formatsOptions
                                  : *inspect ? inspectOptions
                                  : *check   ? checkOptions.common
                                             : cleanOptions.common;
    if (auto problem = exifToolOptionProblem(common)) {
        std::cerr << "tavrin: " << *problem << "\n";
        return kUsage;
    }
    if (!*formats) {
        const bool havePaths = *inspect ? !inspectFiles.empty() : *check ? !checkOptions.paths.empty()
                                                                         : !cleanOptions.paths.empty();
        if (auto problem = batchOptionProblem(common.batch, common.json, havePaths)) {
            std::cerr << "tavrin: " << *problem << "\n";
            return kUsage;
        }
    }
    if (*check) return runCheck(checkOptions);
    if (*formats) return runFormats(formatsOptions);
    if (*inspect) return runInspect(inspectOptions, inspectFiles);
    if (*clean) {
        if (cleanOptions.inPlace && cleanOptions.outputDir) {
            std::cerr << "tavrin: --in-place replaces each file where it is, so it can't be used with --output-dir\n";
            return kUsage;
        }
        cleanOptions.password = resolvePassword(cleanOptions.password);
        if (cleanOptions.jobs == 0) cleanOptions.jobs = std::clamp(std::thread::hardware_concurrency(), 1u, 8u);
        return runClean(cleanOptions);
    }
    return kUsage;
}

}  // namespace tavrin::cli
