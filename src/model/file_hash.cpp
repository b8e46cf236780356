#include "model/file_hash.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/core.h>
#include <memory>
#include <openssl/evp.h>
#include <unistd.h>
#include <vector>

#include "model/file_system.h"
#include "model/pipeline_error.h"

namespace tavrin::FileHash {

namespace {

struct Digest {
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx{EVP_MD_CTX_new(), &EVP_MD_CTX_free};
    Digest() {
        if (!ctx || EVP_DigestInit_ex(ctx.get(), EVP_sha256(), nullptr) != 1)
            throw std::runtime_error("SHA-256 is unavailable");
    }
    void update(const void* p, std::size_t n) { EVP_DigestUpdate(ctx.get(), p, n); }
    std::string hex() {
        unsigned char md[EVP_MAX_MD_SIZE];
        unsigned int len = 0;
        EVP_DigestFinal_ex(ctx.get(), md, &len);
        static const char* digits = "0123456789abcdef";
        std::string out;
        for (unsigned i = 0; i < len; ++i) {
            out += digits[md[i] >> 4];
            out += digits[md[i] & 15];
        }
        return out;
    }
};

}  // namespace

std::string sha256(const std::filesystem::path& file) {
    auto data = fs::readFile(file, UINT64_MAX);
    Digest d;
    d.update(data.data(), data.size());
    return d.hex();
}

std::string sha256Streaming(const std::filesystem::path& file, std::size_t bufferSize) {
    int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        const int err = errno;
        throw FileSystemError(fmt::format("Cannot open {}: {}", file.filename().string(), std::strerror(err)), err);
    }
    std::unique_ptr<int, void (*)(int*)> closer(&fd, [](int* f) { ::close(*f); });
    Digest d;
    std::vector<unsigned char> buf(bufferSize == 0 ? 1 : bufferSize);
    for (;;) {
        ssize_t n = ::read(fd, buf.data(), buf.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            const int err = errno;
            throw FileSystemError(fmt::format("Cannot read {}: {}", file.filename().string(), std::strerror(err)), err);
        }
        if (n == 0) break;
        d.update(buf.data(), static_cast<std::size_t>(n));
    }
    return d.hex();
}

bool filesMatch(const std::filesystem::path& a, const std::filesystem::path& b) {
    return sha256Streaming(a) == sha256Streaming(b);
}

}  // namespace tavrin::FileHash
