#pragma once
// Shared helpers for tests: a fresh temporary folder per test, and small file utilities.

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tavrin::testing {

// A folder that exists for the life of the object and is removed with everything in it.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

void writeFile(const std::filesystem::path& path, std::string_view bytes);
void writeFile(const std::filesystem::path& path, const std::vector<std::uint8_t>& bytes);
std::string readFile(const std::filesystem::path& path);

// Runs a command with /bin/sh, capturing stdout; returns the exit status.
int runCommand(const std::string& command, std::string* stdoutText = nullptr);
// Quotes a text for /bin/sh.
std::string shellQuote(std::string_view text);

}  // namespace tavrin::testing
