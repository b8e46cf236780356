#include "support/test_support.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <sys/wait.h>

#include "model/temporary_file.h"

namespace tavrin::testing {

TempDir::TempDir() : path_(TemporaryFile::makeTemporaryDirectory("tavrin_test")) {}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

void writeFile(const std::filesystem::path& path, std::string_view bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error("cannot write " + path.string());
}

void writeFile(const std::filesystem::path& path, const std::vector<std::uint8_t>& bytes) {
    writeFile(path, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

int runCommand(const std::string& command, std::string* stdoutText) {
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) return -1;
    std::array<char, 4096> buf{};
    std::string out;
    std::size_t n;
    while ((n = std::fread(buf.data(), 1, buf.size(), pipe)) > 0) out.append(buf.data(), n);
    const int status = ::pclose(pipe);
    if (stdoutText) *stdoutText = std::move(out);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string shellQuote(std::string_view text) {
    std::string out = "'";
    for (char c : text) {
        if (c == '\'') out += "'\\''";
        else out += c;
    }
    return out + "'";
}

}  // namespace tavrin::testing
