// `tavrin check`, the batch options (--files-from, -0, --shard, --jsonl), the output habits
// (--quiet, --verbose, colour, the summary line, -o) and the generated manual pages and
// completions, through the built program.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <nlohmann/json.hpp>

#include "batch_options.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

struct Output {
    int status;
    std::string out;
    std::string err;
};

std::string bin() {
    const char* path = std::getenv("TAVRIN_BIN");
    return path ? path : "build/bin/tavrin";
}

// Runs tavrin with `args` (already quoted), keeping standard output and standard error apart.
Output tavrin(const std::string& args, const std::string& prefix = "") {
    testing::TempDir scratch;
    Output r;
    r.status = testing::runCommand(prefix + testing::shellQuote(bin()) + " " + args + " 2>" +
                                       testing::shellQuote((scratch / "err").string()),
                                   &r.out);
    r.err = testing::readFile(scratch / "err");
    return r;
}

std::string q(const fs::path& p) { return testing::shellQuote(p.string()); }

std::vector<json> jsonLines(const std::string& text) {
    std::vector<json> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(json::parse(line));
    return lines;
}

// A folder with a picture that carries metadata, and a cleaned copy of it that carries none.
struct Pictures {
    testing::TempDir dir;
    fs::path dirty = dir / "dirty.png";
    fs::path clean;
    Pictures() {
        fs::copy_file("samples/files/diagram.png", dirty);
        fs::create_directories(dir / "out");
        EXPECT_EQ(tavrin("clean -o " + q(dir / "out") + " " + q(dirty)).status, 0);
        clean = dir / "out" / "dirty_cleaned.png";
    }
};

TEST(CheckCommand, exitStatusTellsCleanFromDirtyFromUnchecked) {
    Pictures p;
    const struct {
        const char* name;
        std::string args;
        int status;
    } cases[] = {
        {"a cleaned copy", q(p.clean), 0},
        {"a file with metadata", q(p.dirty), 1},
        {"clean and dirty together", q(p.clean) + " " + q(p.dirty), 1},
        {"a missing file", q(p.dir / "gone.png"), 2},
        {"a missing file beside a dirty one", q(p.dirty) + " " + q(p.dir / "gone.png"), 2},
        {"a file of no known type", "README.md", 2},
        {"an unknown profile", "--profile nonsense " + q(p.dirty), 2},
        {"no path at all", "", 2},
        {"--json with --jsonl", "--json --jsonl " + q(p.dirty), 2},
        // Keeping every item the picture carries leaves nothing to remove under location-only.
        {"location-only on a copy", "--profile location-only " + q(p.clean), 0},
    };
    for (const auto& c : cases) EXPECT_EQ(tavrin("check " + c.args).status, c.status) << c.name;
}

TEST(CheckCommand, writesNothingAndReportsWhatWouldGo) {
    Pictures p;
    const auto before = testing::readFile(p.dirty);
    const auto time = fs::last_write_time(p.dirty);
    std::set<fs::path> listing;
    for (const auto& e : fs::recursive_directory_iterator(p.dir.path())) listing.insert(e.path());

    const auto r = tavrin("check --json " + q(p.dirty) + " " + q(p.clean));
    ASSERT_EQ(r.status, 1);
    const auto reports = json::parse(r.out);
    ASSERT_EQ(reports.size(), 2u);
    for (const char* key : {"path", "fileType", "clean", "cleanable", "wouldRemove", "keptCount", "error", "reason"})
        EXPECT_TRUE(reports[0].contains(key)) << key;
    EXPECT_FALSE(reports[0]["clean"].get<bool>());
    EXPECT_TRUE(reports[0]["cleanable"].get<bool>());
    std::set<std::string> categories;
    for (const auto& item : reports[0]["wouldRemove"]) categories.insert(item["category"].get<std::string>());
    EXPECT_TRUE(categories.count("location"));
    EXPECT_TRUE(reports[1]["clean"].get<bool>());
    EXPECT_TRUE(reports[1]["wouldRemove"].empty());

    // Keeping an item by its id moves it out of the list.
    const auto kept = json::parse(tavrin("check --json --keep TIFF.Make " + q(p.dirty)).out);
    for (const auto& item : kept[0]["wouldRemove"]) EXPECT_NE(item["id"], "TIFF.Make");
    EXPECT_LT(kept[0]["wouldRemove"].size(), reports[0]["wouldRemove"].size());

    EXPECT_EQ(testing::readFile(p.dirty), before);
    EXPECT_EQ(fs::last_write_time(p.dirty), time);
    std::set<fs::path> after;
    for (const auto& e : fs::recursive_directory_iterator(p.dir.path())) after.insert(e.path());
    EXPECT_EQ(after, listing);
}

TEST(CheckCommand, inspectOnlyTypesAreReportedAsNotCleanable) {
    const auto r = tavrin("check --json samples/files/holiday-clip.mov");
    EXPECT_EQ(r.status, 1);
    const auto reports = json::parse(r.out);
    EXPECT_FALSE(reports[0]["cleanable"].get<bool>());
    EXPECT_FALSE(reports[0]["wouldRemove"].empty());
    EXPECT_NE(tavrin("check samples/files/holiday-clip.mov").out.find("tavrin clean refuses this type"),
              std::string::npos);
}

TEST(FilesFrom, listsInEveryFormReachEveryCommand) {
    testing::TempDir dir;
    const std::vector<std::string> files = {"samples/files/diagram.png", "samples/files/beach-photo.jpg",
                                            "samples/files/board-minutes.docx"};
    std::string lines, nul, crlf;
    for (const auto& f : files) {
        lines += f + "\n\n";  // empty lines are skipped
        nul += f + '\0';
        crlf += f + "\r\n";
    }
    testing::writeFile(dir / "lines.txt", lines);
    testing::writeFile(dir / "nul.txt", nul);
    testing::writeFile(dir / "crlf.txt", crlf);
    const struct {
        const char* name;
        std::string args;
        std::string prefix;
    } cases[] = {
        {"newline list", "inspect --jsonl --files-from " + q(dir / "lines.txt"), ""},
        {"NUL list", "inspect --jsonl -0 --files-from " + q(dir / "nul.txt"), ""},
        {"CRLF list", "inspect --jsonl --files-from " + q(dir / "crlf.txt"), ""},
        {"standard input", "inspect --jsonl --files-from -", "cat " + q(dir / "lines.txt") + " | "},
        {"NUL on standard input", "inspect --jsonl --null --files-from -", "cat " + q(dir / "nul.txt") + " | "},
        {"check", "check --jsonl --files-from " + q(dir / "lines.txt"), ""},
    };
    for (const auto& c : cases) {
        const auto r = tavrin(c.args, c.prefix);
        const auto reports = jsonLines(r.out);
        std::vector<std::string> paths;
        for (const auto& report : reports) paths.push_back(report["path"].get<std::string>());
        EXPECT_EQ(paths, files) << c.name;
    }
    // Paths on the command line come first, then the list.
    const auto mixed = jsonLines(
        tavrin("inspect --jsonl samples/files/salary-budget.xlsx --files-from " + q(dir / "lines.txt")).out);
    ASSERT_EQ(mixed.size(), 4u);
    EXPECT_EQ(mixed[0]["path"], "samples/files/salary-budget.xlsx");

    const auto missing = tavrin("inspect --files-from " + q(dir / "absent.txt"));
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.err.find("--files-from: cannot read " + (dir / "absent.txt").string()), std::string::npos);
    EXPECT_EQ(tavrin("inspect -0 samples/files/diagram.png").status, 2);  // -0 without a list
}

TEST(Shard, sharesCoverTheListOnceAndRejectBadSpecs) {
    // The documented hash: FNV-1a 64 over the path's bytes.
    EXPECT_EQ(cli::fnv1a64(""), 0xcbf29ce484222325ull);
    EXPECT_EQ(cli::fnv1a64("a"), 0xaf63dc4c8601ec8cull);
    EXPECT_EQ(cli::fnv1a64("foobar"), 0x85944171f73967e8ull);

    testing::TempDir dir;
    std::string list;
    std::multiset<std::string> expected;
    for (int i = 0; i < 40; ++i) {
        const std::string path = (dir / ("missing-" + std::to_string(i) + ".png")).string();
        list += path + "\n";
        expected.insert(path);
    }
    testing::writeFile(dir / "list.txt", list);
    std::multiset<std::string> seen;
    std::size_t nonEmpty = 0;
    for (int k = 1; k <= 4; ++k) {
        const auto r = tavrin("inspect --jsonl --shard " + std::to_string(k) + "/4 --files-from " + q(dir / "list.txt"));
        const auto reports = jsonLines(r.out);
        nonEmpty += reports.empty() ? 0 : 1;
        for (const auto& report : reports) {
            const std::string path = report["path"];
            EXPECT_TRUE(cli::inShard(path, {static_cast<unsigned>(k), 4u})) << path;
            seen.insert(path);
        }
    }
    EXPECT_EQ(seen, expected);
    EXPECT_GE(nonEmpty, 3u);

    for (const char* bad : {"0/3", "4/3", "1/0", "a/b", "3", "1/2/3", "-1/2", ""})
        EXPECT_EQ(tavrin(std::string("inspect --shard '") + bad + "' samples/files/diagram.png").status, 2) << bad;
    // A worker whose share is empty has nothing to do, and that is success.
    testing::writeFile(dir / "one.txt", "samples/files/diagram.png\n");
    int succeeded = 0;
    for (int k = 1; k <= 2; ++k)
        succeeded += tavrin("clean --jsonl -o " + q(dir.path()) + " --shard " + std::to_string(k) + "/2 --files-from " +
                            q(dir / "one.txt"))
                             .status == 0;
    EXPECT_EQ(succeeded, 2);
}

TEST(JsonLines, everyLineIsAWholeReportAndTheSummaryStaysOnStandardError) {
    testing::TempDir dir;
    const auto r = tavrin("clean --jsonl -o " + q(dir.path()) + " samples/files/diagram.png samples/files/beach-photo.jpg " +
                          q(dir / "gone.png"));
    EXPECT_EQ(r.status, 1);
    const auto reports = jsonLines(r.out);
    ASSERT_EQ(reports.size(), 3u);
    EXPECT_TRUE(reports[0]["verifiedClean"].get<bool>());
    EXPECT_EQ(reports[2]["error"], "Cannot access file: gone.png");
    EXPECT_EQ(r.out.find("files/s"), std::string::npos);
    EXPECT_NE(r.err.find("tavrin: 3 files in "), std::string::npos) << r.err;
    EXPECT_NE(r.err.find(" files/s)"), std::string::npos) << r.err;

    // A path that is not UTF-8 still gives a valid line.
    const auto odd = tavrin("inspect --jsonl " + q(dir / "caf\xe9.png"));
    ASSERT_EQ(jsonLines(odd.out).size(), 1u);
}

TEST(OutputHabits, quietVerboseColourAndShortOutputDir) {
    testing::TempDir dir;
    const std::string picture = "samples/files/diagram.png";

    const auto quiet = tavrin("clean --quiet -o " + q(dir / "") + " " + picture);
    EXPECT_EQ(quiet.status, 0);
    EXPECT_EQ(quiet.out, "");
    EXPECT_EQ(quiet.err, "");
    EXPECT_TRUE(fs::exists(dir / "diagram_cleaned.png"));  // -o is --output-dir

    const auto quietFailure = tavrin("clean -q " + q(dir / "gone.png"));
    EXPECT_EQ(quietFailure.status, 1);
    EXPECT_NE((quietFailure.out + quietFailure.err).find("gone.png"), std::string::npos);

    const auto verbose = tavrin("clean --verbose --output-dir " + q(dir.path()) + " " + picture);
    EXPECT_NE(verbose.out.find("removed: Latitude (Location Data)"), std::string::npos) << verbose.out;
    EXPECT_NE(verbose.err.find("files/s"), std::string::npos);
    EXPECT_EQ(tavrin("check --quiet --verbose " + picture).status, 2);

    // Not a terminal: no colour, whatever NO_COLOR says.
    for (const char* env : {"", "NO_COLOR=1 "}) {
        const auto r = tavrin("check " + picture, env);
        EXPECT_EQ(r.out.find('\033'), std::string::npos) << env;
        EXPECT_NE(r.out.find("dirty"), std::string::npos);
    }
}

// Every command the program has appears in both completions and has its manual page, and the
// pages give the exit statuses.
TEST(GeneratedDocs, completionsAndManualPagesCoverEveryCommand) {
    const auto help = tavrin("--help").out;
    const auto at = help.find("Subcommands:");
    ASSERT_NE(at, std::string::npos);
    std::vector<std::string> commands;
    std::istringstream in(help.substr(at));
    std::string line;
    std::getline(in, line);
    while (std::getline(in, line) && line.size() > 2 && line[0] == ' ') {
        std::istringstream words(line);
        std::string name;
        words >> name;
        commands.push_back(name);
    }
    ASSERT_GE(commands.size(), 5u);
    const fs::path share = fs::path(bin()).parent_path().parent_path() / "share";
    const auto bash = testing::readFile(share / "bash-completion/completions/tavrin");
    const auto zsh = testing::readFile(share / "zsh/vendor-completions/_tavrin");
    for (const auto& command : commands) {
        EXPECT_NE(bash.find(" " + command + " "), std::string::npos) << command;
        EXPECT_NE(zsh.find("'" + command + ":"), std::string::npos) << command;
        EXPECT_TRUE(fs::exists(share / "man/man1" / ("tavrin-" + command + ".1"))) << command;
    }
    for (const char* option : {"--files-from", "--shard", "--jsonl", "--output-dir", "--quiet"})
        EXPECT_NE(bash.find(option), std::string::npos) << option;
    EXPECT_NE(bash.find("maximum-privacy"), std::string::npos);
    EXPECT_NE(bash.find("*.docx"), std::string::npos);
    const auto page = testing::readFile(share / "man/man1/tavrin.1");
    EXPECT_NE(page.find(".SH EXIT STATUS"), std::string::npos);
    EXPECT_NE(page.find("NO_COLOR"), std::string::npos);
    // The completion scripts are valid shell.
    EXPECT_EQ(testing::runCommand("bash -n " + q(share / "bash-completion/completions/tavrin")), 0);
}

}  // namespace
}  // namespace tavrin
