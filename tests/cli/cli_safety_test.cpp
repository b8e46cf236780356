// The command line against hostile inputs: text that is not UTF-8, text that drives a terminal,
// special files, and runs killed in the middle. Runs the built `tavrin` program.
#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <functional>
#include <nlohmann/json.hpp>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "model/text_encoding.h"
#include "support/test_support.h"

extern char** environ;

namespace tavrin {
namespace {

using nlohmann::json;

std::string binary() {
    const char* bin = std::getenv("TAVRIN_BIN");
    return bin ? bin : "build/bin/tavrin";
}

struct Run {
    int status;
    std::string out;
    std::string err;
};

// Runs tavrin with its output and errors apart; `timeout` ends a run that blocks, so a hang
// fails the test instead of stalling it.
Run tavrin(const std::string& args, const testing::TempDir& scratch, const std::string& environment = "") {
    const auto errors = scratch / "stderr.txt";
    Run r;
    r.status = testing::runCommand(environment + " timeout -s KILL 60 " + binary() + " " + args + " 2>" +
                                       testing::shellQuote(errors.string()),
                                   &r.out);
    r.err = testing::readFile(errors);
    return r;
}

std::string q(const std::filesystem::path& p) { return testing::shellQuote(p.string()); }

std::string sample(const char* name) { return testing::readFile(std::filesystem::path("samples/files") / name); }

// A big-endian TIFF with one ASCII tag in IFD0, in an APP1 Exif segment behind SOI.
std::string jpegWithExifText(std::uint16_t tag, const std::string& text) {
    auto be16 = [](std::uint32_t v) { return std::string{char(v >> 8), char(v)}; };
    auto be32 = [](std::uint32_t v) { return std::string{char(v >> 24), char(v >> 16), char(v >> 8), char(v)}; };
    const std::string value = text + '\0';
    std::string tiff = "MM" + be16(42) + be32(8) + be16(1) + be16(tag) + be16(2) + be32(value.size());
    tiff += value.size() <= 4 ? value + std::string(4 - value.size(), '\0') : be32(8 + 2 + 12 + 4);
    tiff += be32(0);
    if (value.size() > 4) tiff += value;
    const std::string body = std::string("Exif\0\0", 6) + tiff;
    const std::string jpeg = sample("beach-photo.jpg");
    return jpeg.substr(0, 2) + "\xFF\xE1" + be16(body.size() + 2) + body + jpeg.substr(2);
}

std::uint32_t crc32(const std::string& data) {
    std::uint32_t crc = 0xFFFFFFFF;
    for (unsigned char c : data) {
        crc ^= c;
        for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320 & (0 - (crc & 1)));
    }
    return ~crc;
}

// An iTXt chunk (uncompressed, no language) right behind IHDR.
std::string pngWithInternationalText(const std::string& keyword, const std::string& text) {
    auto be32 = [](std::uint32_t v) { return std::string{char(v >> 24), char(v >> 16), char(v >> 8), char(v)}; };
    const std::string typeAndData = "iTXt" + keyword + std::string("\0\0\0\0\0", 5) + text;
    const std::string chunk = be32(typeAndData.size() - 4) + typeAndData + be32(crc32(typeAndData));
    const std::string png = sample("diagram.png");
    const std::size_t afterHeader = 8 + 8 + 13 + 4;
    return png.substr(0, afterHeader) + chunk + png.substr(afterHeader);
}

TEST(TavrinSafety, textAndNamesThatAreNotUTF8GiveValidJSON) {
    struct Case {
        const char* name;
        std::string fileName;
        std::function<std::string()> bytes;
    };
    const std::vector<Case> cases = {
        {"Exif Artist of UTF-16 byte order mark bytes", "artist.jpg", [] { return jpegWithExifText(0x013B, "\xFF\xFE"); }},
        {"PNG international text that is not UTF-8", "itxt.png",
         [] { return pngWithInternationalText("Description", "\xFF\xFE caf\xE9"); }},
        {"file name with byte 0xFF", "\xFFname.jpg", [] { return sample("beach-photo.jpg"); }},
        {"file name in Latin-1", "r\xE9sum\xE9.png", [] { return sample("diagram.png"); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        testing::TempDir dir;
        const auto source = dir / c.fileName;
        testing::writeFile(source, c.bytes());
        std::filesystem::create_directories(dir / "out");

        const auto inspected = tavrin("inspect --json " + q(source), dir);
        EXPECT_EQ(inspected.status, 0) << inspected.err;
        json report;
        ASSERT_NO_THROW(report = json::parse(inspected.out)) << inspected.out;
        EXPECT_TRUE(isValidUTF8(inspected.out));

        const auto cleaned = tavrin("clean --json --output-dir " + q(dir / "out") + " " + q(source), dir);
        EXPECT_EQ(cleaned.status, 0) << cleaned.err;
        ASSERT_NO_THROW(report = json::parse(cleaned.out)) << cleaned.out;
        ASSERT_EQ(report.size(), 1u);
        // The exact name on disk comes back from the report, whatever its bytes.
        const std::string exactSource = report[0].contains("sourcePathBase64")
                                            ? base64Decode(report[0]["sourcePathBase64"].get<std::string>())
                                            : report[0]["sourcePath"].get<std::string>();
        EXPECT_EQ(exactSource, source.string());
        EXPECT_EQ(report[0].contains("sourcePathBase64"), !isValidUTF8(source.string()));
        const std::string exactOutput = report[0].contains("outputPathBase64")
                                            ? base64Decode(report[0]["outputPathBase64"].get<std::string>())
                                            : report[0]["outputPath"].get<std::string>();
        EXPECT_TRUE(std::filesystem::is_regular_file(exactOutput)) << exactOutput;
    }
}

TEST(TavrinSafety, humanOutputShowsControlCharactersAsEscapes) {
    testing::TempDir dir;
    const auto photo = dir / "title\x1b]2;x\x07.jpg";
    testing::writeFile(photo, jpegWithExifText(0x8298, "\x1b]2;owned\x07\x1b[2J\n  No metadata found."));
    const auto r = tavrin("inspect " + q(photo), dir);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.find('\x1b'), std::string::npos);
    EXPECT_EQ(r.out.find('\x07'), std::string::npos);
    EXPECT_NE(r.out.find("\\x1b]2;owned\\x07\\x1b[2J\\x0a  No metadata found."), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("title\\x1b]2;x\\x07.jpg"), std::string::npos) << r.out;
    // JSON carries the text as it stands.
    const auto asJSON = tavrin("inspect --json " + q(photo), dir);
    EXPECT_NE(asJSON.out.find("\\u001b]2;owned\\u0007"), std::string::npos);
}

TEST(TavrinSafety, perFileErrorsGoToStandardErrorAndReportLinesToStandardOutput) {
    testing::TempDir dir;
    testing::writeFile(dir / "good.jpg", sample("beach-photo.jpg"));
    std::filesystem::create_directories(dir / "out");
    const auto inspected = tavrin("inspect " + q(dir / "gone.png") + " " + q(dir / "good.jpg"), dir);
    EXPECT_EQ(inspected.status, 1);
    EXPECT_NE(inspected.err.find("Cannot access file: gone.png"), std::string::npos) << inspected.err;
    EXPECT_EQ(inspected.out.find("gone.png"), std::string::npos) << inspected.out;
    EXPECT_NE(inspected.out.find("good.jpg (JPEG Image)"), std::string::npos);

    const auto cleaned = tavrin("clean --output-dir " + q(dir / "out") + " " + q(dir / "gone.png") + " " +
                                    q(dir / "good.jpg"), dir);
    EXPECT_EQ(cleaned.status, 1);
    EXPECT_NE(cleaned.err.find("failed   " + (dir / "gone.png").string()), std::string::npos) << cleaned.err;
    EXPECT_EQ(cleaned.out.find("gone.png"), std::string::npos) << cleaned.out;
    EXPECT_NE(cleaned.out.find("cleaned  " + (dir / "good.jpg").string()), std::string::npos) << cleaned.out;
    EXPECT_NE(cleaned.out.find("1 of 2 files cleaned and verified, 1 failed"), std::string::npos);
}

TEST(TavrinSafety, aReadFailureNamesItsPrefixOnce) {
    testing::TempDir dir;
    testing::writeFile(dir / "memo.docx", "PK\3\4 this is no package");
    const auto r = tavrin("inspect " + q(dir / "memo.docx"), dir);
    EXPECT_EQ(r.status, 1);
    const std::string prefix = "Failed to read metadata from memo.docx";
    const auto first = r.err.find(prefix);
    ASSERT_NE(first, std::string::npos) << r.err;
    EXPECT_EQ(r.err.find(prefix, first + 1), std::string::npos) << r.err;
}

TEST(TavrinSafety, specialFilesAreRefusedWithoutBlockingOrReading) {
    struct Case {
        const char* name;
        std::function<std::filesystem::path(const testing::TempDir&)> make;
        const char* reason;
    };
    const std::vector<Case> cases = {
        {"named pipe as a photo",
         [](const auto& d) { ::mkfifo((d / "pipe.jpg").c_str(), 0600); return d / "pipe.jpg"; },
         "(not a regular file: a named pipe)"},
        {"named pipe as a PDF",
         [](const auto& d) { ::mkfifo((d / "pipe.pdf").c_str(), 0600); return d / "pipe.pdf"; },
         "(not a regular file: a named pipe)"},
        {"/dev/zero behind a photo's name",
         [](const auto& d) { std::filesystem::create_symlink("/dev/zero", d / "zero.jpg"); return d / "zero.jpg"; },
         "(not a regular file: a character device)"},
        {"/dev/zero behind a PDF's name",
         [](const auto& d) { std::filesystem::create_symlink("/dev/zero", d / "zero.pdf"); return d / "zero.pdf"; },
         "(not a regular file: a character device)"},
        {"sparse photo of 2 GB",
         [](const auto& d) {
             testing::writeFile(d / "huge.jpg", "\xFF\xD8\xFF");
             EXPECT_EQ(::truncate((d / "huge.jpg").c_str(), 2'000'000'000), 0);
             return d / "huge.jpg";
         },
         "(2 GB is over the 512 MB limit for JPEG Image files, because an image is read whole into memory and "
         "every frame is decoded to verify it)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        testing::TempDir dir;
        const auto source = c.make(dir);
        std::filesystem::create_directories(dir / "out");
        const std::string expected = "Cannot access file: " + source.filename().string() + " " + c.reason;
        for (const std::string& args :
             {"inspect " + q(source), "clean --output-dir " + q(dir / "out") + " " + q(source),
              "pdf add-password --user secret " + q(source) + " " + q(dir / "out" / "locked.pdf")}) {
            SCOPED_TRACE(args);
            const auto r = tavrin(args, dir, "TMPDIR=" + q(dir / "out"));
            EXPECT_EQ(r.status, 1) << r.out << r.err;  // 137 would be the time-out
            EXPECT_NE(r.err.find(expected), std::string::npos) << r.err;
        }
        EXPECT_TRUE(std::filesystem::is_empty(dir / "out"));
    }
}

// Starts tavrin with argv (no shell) and TMPDIR set; its standard output is readable from the
// returned descriptor.
pid_t spawnTavrin(const std::vector<std::string>& args, const std::filesystem::path& tmp, int* stdoutRead) {
    int pipeFds[2];
    EXPECT_EQ(::pipe(pipeFds), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclose(&actions, pipeFds[0]);
    std::vector<std::string> env = {"TMPDIR=" + tmp.string()};
    for (char** e = environ; *e; ++e)
        if (std::string_view(*e).rfind("TMPDIR=", 0) != 0) env.emplace_back(*e);
    std::vector<char*> envp;
    for (auto& e : env) envp.push_back(e.data());
    envp.push_back(nullptr);
    std::vector<std::string> argvText = {binary()};
    argvText.insert(argvText.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& a : argvText) argv.push_back(a.data());
    argv.push_back(nullptr);
    // The signals under test act by default in the child, whatever the test runner ignores.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGINT);
    sigaddset(&defaults, SIGTERM);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    pid_t pid = -1;
    EXPECT_EQ(::posix_spawn(&pid, argv[0], &actions, &attributes, argv.data(), envp.data()), 0);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    ::close(pipeFds[1]);
    *stdoutRead = pipeFds[0];
    return pid;
}

std::vector<std::string> leftovers(const std::filesystem::path& folder, const std::string& marker) {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(folder)) {
        const auto name = e.path().filename().string();
        if (name.find(marker) != std::string::npos) names.push_back(name);
    }
    return names;
}

// Kills a clean of many files once the first result is out, then checks what is left: the
// signal's own clean-up (SIGTERM, SIGINT) or the next run's sweep (SIGKILL) removes every
// temporary folder, and the output folder holds only complete cleaned copies. With the
// temporary folder on another file system (/dev/shm), the final copy crosses file systems.
TEST(TavrinSafety, aKilledCleanLeavesNoTemporaryFolderAndNoPartialOutput) {
    struct Case {
        const char* name;
        int signal;
        bool tmpOnOtherFileSystem;
    };
    const std::vector<Case> cases = {
        {"SIGTERM", SIGTERM, false},
        {"SIGINT", SIGINT, false},
        {"SIGKILL", SIGKILL, false},
        {"SIGTERM, temporary folder on another file system", SIGTERM, true},
        {"SIGKILL, temporary folder on another file system", SIGKILL, true},
    };
    const std::string photo = sample("beach-photo.jpg");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.tmpOnOtherFileSystem && !std::filesystem::is_directory("/dev/shm")) continue;
        testing::TempDir dir;
        const auto in = dir / "in";
        const auto out = dir / "out";
        std::filesystem::create_directories(in);
        std::filesystem::create_directories(out);
        const auto tmp = c.tmpOnOtherFileSystem
                             ? std::filesystem::path("/dev/shm") / ("tavrin_safety_" + std::to_string(::getpid()))
                             : dir / "tmp";
        std::filesystem::create_directories(tmp);
        for (int i = 0; i < 1000; ++i) testing::writeFile(in / ("p" + std::to_string(i) + ".jpg"), photo);

        int stdoutRead = -1;
        const pid_t child =
            spawnTavrin({"clean", "--jobs", "2", "--output-dir", out.string(), in.string()}, tmp, &stdoutRead);
        char first = 0;
        EXPECT_EQ(::read(stdoutRead, &first, 1), 1);  // the first file is done: the run is in full swing
        ::kill(child, c.signal);
        int status = 0;
        ::waitpid(child, &status, 0);
        ::close(stdoutRead);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == c.signal) << status;
        if (c.signal != SIGKILL) {
            EXPECT_EQ(leftovers(tmp, "tavrin"), std::vector<std::string>{});
        }

        // The next run's start sweeps what a killed run could not remove.
        testing::writeFile(dir / "next.jpg", photo);
        std::string ignored;
        EXPECT_EQ(testing::runCommand("TMPDIR=" + q(tmp) + " " + binary() + " clean --output-dir " + q(dir.path()) + " " +
                                          q(dir / "next.jpg") + " >/dev/null 2>&1",
                                      &ignored),
                  0);
        EXPECT_EQ(leftovers(tmp, "tavrin"), std::vector<std::string>{});
        EXPECT_EQ(leftovers(out, ".tavrin-"), std::vector<std::string>{});
        const std::string complete = testing::readFile(dir / "next_cleaned.jpg");
        for (const auto& e : std::filesystem::directory_iterator(out))
            EXPECT_EQ(testing::readFile(e.path()), complete) << e.path();
        std::filesystem::remove_all(tmp);
    }
}

}  // namespace
}  // namespace tavrin
